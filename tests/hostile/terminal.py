#!/usr/bin/env python3
"""A program in a container types for the administrator who runs a command there. On the
lab's node, with running containers that have perl:

    terminal.py CTID...

Prints a line for each attack: tried, held or BROKEN. It takes a kernel that lets programs
type (sysctl dev.tty.legacy_tiocsti), as Debian 12's does.
"""

import os
import pty
import subprocess
import sys
import termios
import time
import tty

# On each terminal that it finds it puts a line into what is typed there (TIOCSTI), and
# says so.
TYPING = r"""
open(my $trace, '>', '/tmp/type.ran');
my %seen;
sub type {
  my ($terminal) = @_;
  return if !-t $terminal || $seen{join ':', (stat $terminal)[0, 1]}++;
  for my $key (split //, "touch qxowned\n") { ioctl($terminal, 0x5412, my $byte = $key) or return }
}
type(\*STDIN); type(\*STDOUT); type(\*STDERR);
if (open(my $own, '+<', '/dev/tty')) { type($own) }
"""
PROGRAM = "/root/type.pl"


def typed_by(command):
    """What waits to be read on the terminal that this line of a shell was run on."""
    read_end, write_end = os.pipe()
    shell, keyboard = pty.fork()
    if shell == 0:
        # It leads the terminal's session, as a login shell does.
        subprocess.run(command, shell=True, timeout=30)
        tty.setraw(0, termios.TCSANOW)
        os.set_blocking(0, False)
        try:
            typed = os.read(0, 4096)
        except BlockingIOError:
            typed = b""
        os.write(write_end, typed)
        os._exit(0)
    os.close(write_end)
    end = time.monotonic() + 40
    os.set_blocking(keyboard, False)
    while time.monotonic() < end and os.waitpid(shell, os.WNOHANG)[0] == 0:
        try:
            os.read(keyboard, 65536)
        except OSError:
            pass
        time.sleep(0.02)
    typed = os.read(read_end, 4096)
    os.close(read_end)
    os.close(keyboard)
    return typed


def ends(command, status, seconds=30, **streams):
    began = time.monotonic()
    run = subprocess.run(command, shell=True, timeout=60, **streams)
    return run.returncode == status and time.monotonic() - began < seconds


def faults(ctid):
    """What commands do not do any more, with a terminal and without."""
    run = f"qxctl exec {ctid}"
    pipes = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE}
    lines = subprocess.run(f"printf 'a\\nb\\n' | {run} sh -c 'cat; exit 7'", shell=True,
                           capture_output=True, timeout=30)
    typed_by(f"{run} printf 'a\\nb\\n' >/tmp/lines; "
             f"{run} test -t 0 && {run} sh -c 'exit 7'; echo $? >/tmp/status")
    with open("/tmp/lines", "rb") as file:
        written = file.read()
    with open("/tmp/status") as file:
        status = file.read()
    checks = {
        "pass its input and output on": lines.stdout == b"a\nb\n",
        "end with the command's status": lines.returncode == 7,
        "say that there is no such program":
            ends(f"{run} no-such-program", 127, stderr=subprocess.DEVNULL, **pipes),
        "end when it is interrupted": ends(f"timeout -s INT 2 {run} sleep 4711", 124, 20, **pipes),
        "end the command with it": ends(f"{run} pgrep -f 'sleep [4]711'", 1, **pipes),
        "write to a file without carriage returns": written == b"a\nb\n",
        "end with the status of a command that has a terminal": status == "7\n",
    }
    return [name for name, good in checks.items() if not good]


def main():
    broken = tried = 0
    for ctid in sys.argv[1:]:
        subprocess.run(["qxctl", "exec", ctid, "sh", "-c", f"cat >{PROGRAM}"],
                       input=TYPING.encode(), check=True)
        run = f"qxctl exec {ctid} perl {PROGRAM}"
        attacks = {
            "with the terminal": run,
            "with the terminal for its output only": f"{run} </dev/null",
            "with the terminal for its input only": f"{run} >/dev/null 2>&1",
            "with the terminal for its errors only": f"{run} </dev/null >/dev/null",
            "that has no terminal": f"{run} </dev/null >/dev/null 2>&1",
            "by 'enter' from a file": f"echo perl {PROGRAM} | qxctl enter {ctid}",
        }
        for name, command in attacks.items():
            typed = typed_by(command)
            # What did not run has not tried.
            subprocess.run(["qxctl", "exec", ctid, "rm", "/tmp/type.ran"], check=True,
                           stdin=subprocess.DEVNULL)
            tried += 1
            broken += bool(typed)
            print(f"tried: type for who runs a command in {ctid} {name}: "
                  f"{'BROKEN ' + repr(typed) if typed else 'held'}", flush=True)
        for fault in faults(ctid):
            print(f"BROKEN: 'qxctl exec {ctid}' does not {fault}")
            broken += 1
    # It must be able to where there is nothing between, or nothing was seen.
    with open("/tmp/type.pl", "w") as file:
        file.write(TYPING)
    if not typed_by("perl /tmp/type.pl"):
        print("not tried: this kernel lets no program type (dev.tty.legacy_tiocsti)")
    print(f"{tried} attacks on a terminal tried, {broken} broken")
    return 1 if broken or not tried else 0


sys.exit(main())
