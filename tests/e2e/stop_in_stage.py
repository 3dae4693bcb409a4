#!/usr/bin/env python3
"""stop_in_stage.py PID FOLDER STAGE: stops the process (SIGSTOP) as soon as a journal in
the folder says that this stage has begun, and prints the stage that it was stopped in.
Ends with 1 when the process ends before. The folder is watched, not asked again and
again: a stage may take a hundredth of a second."""
import ctypes
import json
import os
import select
import signal
import sys

IN_MOVED_TO = 0x80
libc = ctypes.CDLL(None, use_errno=True)


def running_stage(folder):
    """The last stage of the newest journal; nothing unless it runs."""
    names = sorted(name for name in os.listdir(folder) if name.endswith(".json"))
    if not names:
        return None
    newest = max(names, key=lambda name: os.stat(os.path.join(folder, name)).st_mtime_ns)
    with open(os.path.join(folder, newest), encoding="utf-8") as file:
        record = json.load(file)
    if record["state"] != "running" or not record["stages"]:
        return None
    last = record["stages"][-1]
    return last["name"] if last.get("result") is None else None


def main():
    pid, folder, stage = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    os.makedirs(folder, mode=0o700, exist_ok=True)
    watch = libc.inotify_init()
    if watch < 0 or libc.inotify_add_watch(watch, folder.encode(), IN_MOVED_TO) < 0:
        sys.exit("stop_in_stage.py: cannot watch " + folder)
    process = os.pidfd_open(pid)
    while True:
        if running_stage(folder) == stage:
            os.kill(pid, signal.SIGSTOP)
            print(running_stage(folder) or "the end of " + stage)
            return 0
        ready, _, _ = select.select([watch, process], [], [])
        if process in ready:
            return 1
        os.read(watch, 65536)


if __name__ == "__main__":
    sys.exit(main())
