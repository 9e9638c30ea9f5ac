#!/usr/bin/env python3
"""Figures of processes at rest: measure.py AGENT PEER COMMAND SECONDS, in the environment's HOME and bus."""

import json
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

AGENT, PEER, COMMAND, SECONDS = sys.argv[1], sys.argv[2], sys.argv[3], float(sys.argv[4])
ACTIONS = 1000
DATA = Path(os.environ["HOME"], "Library/Application Support/Corvana 9")


def cpu_seconds(pid):
    # schedstat counts nanoseconds, where stat has ticks of 10 ms.
    tasks = Path(f"/proc/{pid}/task").glob("*/schedstat")
    return sum(int(path.read_text().split()[0]) for path in tasks) / 1e9


def wake_ups(pid):
    # Each time that a thread goes to sleep of its own will, something has woken it before.
    line = "voluntary_ctxt_switches:"
    return sum(int(path.read_text().split("\n" + line)[1].split()[0])
               for path in Path(f"/proc/{pid}/task").glob("*/status"))


def memory(pid):
    values = {}
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]:
        name, value = line.split(":")
        values[name] = int(value.split()[0])
    return values["Rss"], values["Private_Clean"] + values["Private_Dirty"]


def at_rest(arguments, settle, environment=None):
    process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, env=environment)
    try:
        time.sleep(settle)
        before = cpu_seconds(process.pid), wake_ups(process.pid)
        time.sleep(SECONDS)
        after = cpu_seconds(process.pid), wake_ups(process.pid)
        used, woken = ((now - then) / SECONDS for now, then in zip(after, before))
        return (*memory(process.pid), used * 1000, woken)
    finally:
        process.terminate()
        process.wait()


def on_a_screen(arguments, settle):
    """The same with an X server of its own; nothing where there is none to be had."""
    if shutil.which("Xvfb") is None:
        return None
    read, write = os.pipe()
    server = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-nolisten", "tcp"], pass_fds=[write],
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write)
    try:
        with os.fdopen(read) as pipe:
            display = ":" + pipe.readline().strip()
        environment = {**os.environ, "DISPLAY": display}
        environment.pop("WAYLAND_DISPLAY", None)
        return at_rest(arguments, settle, environment)
    finally:
        server.terminate()
        server.wait()


def write_tree():
    """A thousand daily actions, none due while measuring."""
    now = time.time() - 978307200
    actions = [{
        "Ref": 1000 + number, "Title": f"Action {number}", "Mode": 2, "OptionsPerformer": "corvana9",
        "CreationDate": {"$date": now}, "TriggerAutomatic": 1, "TriggerFrequencyPopup": 30,
        "TriggerScheduleTime": {"$date": now + 6 * 3600},
        "LastScheduleDate": {"$date": now}, "LastExecutionDate": {"$date": now},
        **{f"Options{key}": key for key in range(60)},
    } for number in range(ACTIONS)]
    DATA.mkdir(parents=True, mode=0o700)
    subprocess.run([COMMAND, "pack", "-", str(DATA / "Programmed Actions.cva9data")], check=True,
                   input=json.dumps(["ProgrammedActions", *actions]).encode())


def start():
    """Seconds from the start until the agent has logged that it is started, just before its first tick."""
    log = Path(os.environ["HOME"], "Library/Logs/Corvana 9.log")
    log.unlink(missing_ok=True)
    begin = time.monotonic()
    process = subprocess.Popen([AGENT, "--headless"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    try:
        while time.monotonic() - begin < 20:
            if log.exists():
                return time.monotonic() - begin
            time.sleep(0.001)
        raise SystemExit("the agent does not start")
    finally:
        process.terminate()
        process.wait()


def best_of(count, arguments):
    times = []
    for _ in range(count):
        start = time.monotonic()
        subprocess.run(arguments, check=True, stdout=subprocess.DEVNULL)
        times.append(time.monotonic() - start)
    return min(times)


def main():
    write_tree()
    peer = at_rest([PEER], 2)
    # Within the first minute everything is looked at once.
    headless = at_rest([AGENT, "--headless"], 65)
    desktop = on_a_screen([AGENT], 65) or (0,) * len(headless)
    print(f"{'at rest, ' + str(int(SECONDS)) + ' s':34} {'headless':>12} {'desktop':>12} {'bare Qt':>12}")
    rows = zip(("resident, kB", "private, kB", "processor, ms/s", "wake-ups/s"), headless, desktop, peer)
    for name, *values in rows:
        print(f"{name:34} " + " ".join(f"{value:12.3f}" for value in values))
    print(f"{'start, ms':34} {min(start() for _ in range(3)) * 1000:12.1f}")
    print(f"{'corvana9 next, 1000 actions, ms':34} {best_of(5, [COMMAND, 'next']) * 1000:12.1f}")


main()
