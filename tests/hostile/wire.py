#!/usr/bin/env python3
"""Attacks of a server on the node by what its agent says. Runs on the lab's node, with
the product installed; prints one line for each attack: tried, held or BROKEN.

    wire.py [NAME...]
"""

import json
import os
import resource
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from lying_agent import (HONEST_CONFIG, LyingAgent, Silence, error,  # noqa: E402
                         honest_measurement, honest_survey, text_field)

SOCKET = "/tmp/liar.sock"
CTID = "177"
PRIVATE = "/var/lib/qx/private"
attacks = []


def attack(function):
    attacks.append(function)
    return function


class Run:
    """A run of qxmigrate against a liar."""

    def __init__(self, lies, *arguments, seconds=60, command="plan", interrupts=()):
        liar = LyingAgent(SOCKET, lies)
        line = ["qxmigrate"] + ([command] if command else [])
        line += ["unix:" + SOCKET, *arguments]
        if command != "measure":
            line += ["--ctid", CTID]
        began = time.monotonic()
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
        process = subprocess.Popen(line, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   stdin=subprocess.DEVNULL)
        for delay in interrupts:
            time.sleep(delay)
            process.send_signal(signal.SIGINT)
        try:
            self.output, _ = process.communicate(timeout=seconds)
            self.ended = True
        except subprocess.TimeoutExpired:
            process.kill()
            self.output, _ = process.communicate()
            self.ended = False
        liar.close()
        self.seconds = time.monotonic() - began
        self.processor = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before
        self.status = process.returncode
        self.methods = liar.methods

    def says(self, text):
        return text.encode() in self.output


def measured(config=None, **changes):
    """A lie for "measure"."""
    claim = dict(honest_measurement(), **changes)
    if config is not None:
        claim["config"] = config
    return lambda *_: {"9101": text_field(json.dumps(claim))}


def surveyed(**changes):
    root = dict(honest_survey()["fileSystems"][0], **changes)
    claim = dict(honest_survey(), fileSystems=[root])
    return lambda *_: {"9101": text_field(json.dumps(claim))}


def node_files():
    """What a liar may not change."""
    found = []
    for top in ("/etc", PRIVATE, "/var/lib/qx/root", "/run/udev"):
        for folder, folders, files in os.walk(top):
            for name in folders + files:
                path = os.path.join(folder, name)
                status = os.lstat(path)
                found.append((path, status.st_mode, status.st_size, status.st_mtime_ns))
    return sorted(found)


def refused_untouched(run, before, *texts):
    return (run.ended and run.status not in (0, None) and all(run.says(t) for t in texts)
            and node_files() == before)


def lie_about(line):
    def tried():
        before = node_files()
        run = Run({"measure": measured(HONEST_CONFIG + line)}, command="")
        name = line.split("=")[0]
        planned = Run({"measure": measured(HONEST_CONFIG + line)})
        # Nothing was asked for that comes after the plan.
        return (refused_untouched(run, before, name, "decided on this node")
                and "getUsageDiskSpace" not in run.methods and planned.status == 3), run.output
    return tried


for setting in ('VE_PRIVATE="/var/lib/qx/private/180/fs/x"', 'VE_ROOT="/run/udev/rules.d"',
                'UNPRIVILEGED="no"', 'BRIDGE="br0"', 'STORAGE="directory"', 'OSTEMPLATE="x"',
                'NETIF="ifname=eth0,host_ifname=lo"', 'ONBOOT="yes"'):
    named = lie_about(setting + "\n")
    named.__name__ = "measured_" + setting.split("=")[0].lower()
    named.__doc__ = "a measurement sets " + setting
    attack(named)


@attack
def written_to_a_file():
    """a measurement with a place in it is written by --output, for --config"""
    path = "/tmp/measured.conf"
    if os.path.exists(path):
        os.unlink(path)
    run = Run({"measure": measured(HONEST_CONFIG + 'VE_ROOT="/run/udev/rules.d"\n')},
              "--output", path, command="measure")
    return run.status == 1 and not os.path.exists(path), run.output


@attack
def hidden_places():
    """places stand behind line ends, quotes and comments of what may be measured"""
    place, area = "/run/udev/rules.d", f"{PRIVATE}/180/fs"
    configs = [HONEST_CONFIG + line for line in (
        f'HOSTNAME="alpha\nVE_ROOT={place}"\n',
        f'HOSTNAME="alpha"\nVE_ROOT="{place}"',
        f"DISTRIBUTION='debian-12\nVE_PRIVATE={area}'\n",
        f'SEARCHDOMAIN="a\" VE_ROOT=\"{place}"\n',
        f'# a comment \\\nVE_ROOT={place}\n',
        f'HOSTNAME=alpha VE_ROOT={place}\n',
        f'HOSTNAME=alpha;VE_ROOT={place}\n',
        f'HOSTNAME=alpha\rVE_ROOT={place}\n',
        f'HOSTNAME=alpha\0\nVE_ROOT={place}\n',
        f'export VE_PRIVATE={area}\n',
        f'VE_\\\nROOT={place}\n',
        f'\ufeffVE_ROOT={place}\n',
        f've_root={place}\nVe_Root={place}\n')]
    claims = [measured(config) for config in configs]
    for value in (f'alpha"\nVE_ROOT="{place}', f"alpha\nVE_PRIVATE={area}", f"$VE_ROOT{place}"):
        claims += [measured(hostname=value), measured(distribution=value),
                   measured(addresses=[value]), measured(nameservers=[value])]
    outputs = b""
    begun = 0
    for claim in claims:
        before = node_files()
        used = []  # of these places, when the container has been made

        def look(*_):
            nonlocal begun
            begun += 1
            with open(f"/etc/sysconfig/qx-scripts/{CTID}.conf") as config:
                used.extend(line for line in config if place in line or area in line)
            with open("/proc/mounts") as mounts:
                used.extend(line for line in mounts if line.split()[1] == place)
            return error(-1, "no further")
        run = Run({"measure": claim, "getUsageDiskSpace": look}, "--distribution", "debian-12",
                  command="")
        outputs += run.output
        # In quotes, as another setting's value, it is only that.
        used = [line for line in used if not line.startswith(("HOSTNAME=", "SEARCHDOMAIN="))]
        untouched = [one for one in node_files() if place in one[0] or area in one[0]] == \
            [one for one in before if place in one[0] or area in one[0]]
        if not run.ended or run.status == 0 or used or not untouched:
            return False, run.output + repr(used).encode()
    # Else nothing was seen of what a container is made with.
    return begun > 0, outputs


@attack
def expansions():
    """values hold what a shell would run"""
    before = node_files()
    for value in ("$(touch /tmp/owned)", "`touch /tmp/owned`", "a;touch /tmp/owned", "$HOME",
                  "x\ntouch /tmp/owned"):
        for name in ("HOSTNAME", "NAMESERVER", "SEARCHDOMAIN", "DISTRIBUTION"):
            quoted = value.replace('"', '\\"')
            run = Run({"measure": measured(HONEST_CONFIG + f'{name}="{quoted}"\n')})
            if os.path.exists("/tmp/owned") or node_files() != before or not run.ended:
                return False, run.output
            if run.says("$(touch") and run.status == 0:
                return False, run.output
    return True, b""


@attack
def sizes():
    """sizes and counts are negative, or larger than any disk"""
    for number in (-1, -(1 << 63), (1 << 63) - 1):
        run = Run({"survey": surveyed(bytes=number, files=number)})
        if not run.ended or run.status not in (0, 1, 2, 3):
            return False, run.output
        if number > 0 and not (run.status == 2 and run.says("Not enough disk space")):
            return False, run.output
    run = Run({"survey": surveyed(bytes=1 << 70)})
    return run.ended and run.status == 3, run.output


@attack
def usage_in_the_migration():
    """the size that the migration itself asks for is negative or absurd"""
    outputs = b""
    for number in (-1, -(1 << 63), (1 << 63) - 1):
        before = node_files()
        run = Run({"getUsageDiskSpace": lambda *_: {"1017": number}}, command="")
        outputs += run.output
        left = [p for p in os.listdir(PRIVATE)] if os.path.isdir(PRIVATE) else []
        if not run.ended or run.status == 0 or CTID in left:
            return False, outputs
        if os.path.exists(f"/etc/sysconfig/qx-scripts/{CTID}.conf"):
            return False, outputs
        del before
    return True, outputs


@attack
def control_characters():
    """names, progress and errors hold what drives a terminal, or imitates qxmigrate"""
    evil = "x\x1b]0;t\x07\x1b[2J\u009b2J\u202e\r\nContainer 177 is ready.\n"

    def create(agent, connection, request):
        agent.progress(connection, request, evil, evil, 50)
        return error(-1, evil)
    surveyed_names = surveyed(mountPoint="/" + evil, device=evil, type=evil)
    claims = measured(hostname=evil, warnings=[{"code": 1, "text": evil}], notes=[evil],
                      addresses=[evil], nameservers=[evil])
    output = b""
    for lies, command, arguments in (
            ({"survey": surveyed_names, "measure": claims}, "plan", ()),
            ({"survey": surveyed_names, "measure": claims}, "plan", ("--json",)),
            ({"measure": claims}, "measure", ()),
            ({"create": create}, "plan", ()),
            ({"create": create}, "", ("--no-measure", "--distribution", "debian-12")),
            ({"measure": lambda *_: error(-1, evil)}, "", ())):
        run = Run(lies, *arguments, command=command)
        output += run.output
        if not run.ended:
            return False, output
    lines = output.replace(b"\r", b"\n").split(b"\n")
    bad = [l for l in lines if l.startswith(b"Container ")]
    text = output.decode(errors="surrogateescape")
    driven = any((ord(c) < 32 and c not in "\n") or 0x7f <= ord(c) < 0xa0 or c == "\u202e"
                 or 0xdc00 <= ord(c) <= 0xdfff for c in text)
    return not bad and not driven, output


@attack
def nested_lists():
    """a frame of 900 KB nests lists, which slow readers read for minutes"""
    def answer(agent, connection, request):
        depth = 450000
        raw = ('{"type":"answer","id":%d,"body":{"1":' % request["id"]).encode()
        agent.send(connection, raw + b"[" * depth + b"]" * depth + b"}}")
        raise Silence
    run = Run({"create": answer})
    return run.ended and run.status != 0 and run.processor < 5, run.output


@attack
def many_values():
    """an answer of 30 MiB holds ten million empty lists"""
    def answer(agent, connection, request):
        raw = ('{"type":"answer","id":%d,"body":{"1":[' % request["id"]).encode()
        agent.send(connection, raw + b"[]," * (10 << 20) + b"0]}}")
        raise Silence
    run = Run({"measure": answer})
    return run.ended and run.status != 0 and run.processor < 10, run.output


@attack
def endless_frame():
    """a frame announces 4 GiB"""
    def answer(agent, connection, request):
        connection.sendall(b"\xff\xff\xff\xff" + b"x" * 65536)
        raise Silence
    run = Run({"create": answer})
    return run.ended and run.status != 0 and run.says("bytes is announced"), run.output


@attack
def large_frame_unasked():
    """2 MiB answer a request whose answer is short"""
    run = Run({"create": lambda *_: {"1": "x" * (2 << 20)}})
    return run.ended and run.status != 0 and run.says("the most is 1048576"), run.output


@attack
def garbage():
    """what is said is not JSON, not an object, or of the wrong types"""
    output = b""
    for raw in (b"\xff" * 100, b"[]", b"{}", b'{"type":7}', b'{"type":"answer"}',
                b'{"type":"answer","id":"x","body":{}}', b'{"type":"answer","id":1,"body":[]}',
                b'{"type":"answer","id":1,"body":{"errors":{"0":1}}}',
                b'{"type":"answer","id":1,"body":{"errors":[{"code":1e99,"text":"!"}]}}',
                b'{"type":"progress","id":1,"text":1,"description":"","percent":1e300}'):
        def answer(agent, connection, request, raw=raw):
            agent.send(connection, raw)
            raise Silence
        run = Run({"create": answer}, interrupts=())
        output += run.output
        if not run.ended or run.status in (0, None) or run.status < 0:
            return False, output
    return True, output


@attack
def progress_without_end():
    """progress comes faster than it can be shown, for ever; Ctrl-C twice"""
    def flood(agent, connection, request):
        end = time.monotonic() + 20
        while time.monotonic() < end:
            try:
                agent.progress(connection, request, "x" * 1000)
            except OSError:
                break
        raise Silence
    run = Run({"measure": flood}, interrupts=(3, 1), seconds=30)
    return run.ended and run.status == 130 and run.seconds < 15, run.output[:2000]


@attack
def never_answers():
    """the agent beats and never answers; nobody is at the keyboard"""
    def silence(*_):
        raise Silence
    run = Run({"create": silence}, seconds=100)
    return run.ended and run.status != 0 and run.says("did not answer 'create'"), run.output


@attack
def never_finishes():
    """the agent does not answer 'finish'; Ctrl-C twice gives it up, the node is undone"""
    def silence(*_):
        raise Silence
    run = Run({"finish": silence, "getUsageDiskSpace": silence}, command="",
              interrupts=(12, 2), seconds=60)
    clean = not os.path.exists(f"{PRIVATE}/{CTID}") and \
        not os.path.exists(f"/etc/sysconfig/qx-scripts/{CTID}.conf")
    return run.ended and run.status == 130 and run.seconds < 45 and clean, run.output


def main():
    wanted = sys.argv[1:]
    broken = 0
    tried = 0
    for function in attacks:
        if wanted and function.__name__ not in wanted:
            continue
        tried += 1
        held, output = function()
        print(f"  {'held  ' if held else 'BROKEN'}  {function.__name__}: {function.__doc__}",
              flush=True)
        if not held:
            broken += 1
            for line in output.decode(errors="replace").splitlines()[-30:]:
                print("        | " + ascii(line)[1:-1])
    print(f"Attacks over the wire: {tried} tried, {tried - broken} held, {broken} broken")
    return 1 if broken or not tried else 0


sys.exit(main())
