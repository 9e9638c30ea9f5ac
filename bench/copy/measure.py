#!/usr/bin/env python3
"""First copies and runs without changes, of the execute program and of rsync, in turns.

Both have the same priority, end with the disk synchronised, and start with what is in memory. Processor time is that of
the whole tree of processes; where others are at work it says more than the clock."""

import os
import random
import re
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

COMMAND, EXECUTE = sys.argv[1:3]
QUICK = "--quick" in sys.argv
SMALL = 10_000 if QUICK else 100_000
LARGE = (5, 100) if QUICK else (50, 100)  # files, MB each
ROUNDS = 1 if QUICK else 3
# What the execute program copies where the disk keeps everything, without what it adds of its own.
RSYNC = ["nice", "-n", "10", "ionice", "-c3", "rsync", "-aHAXS", "--one-file-system", "--modify-window=-1"]


def make_small(folder):
    chance = random.Random(1)
    for number in range(SMALL):
        if number % 100 == 0:
            inner = os.path.join(folder, f"d{number // 10_000}", f"e{number // 100}")
            os.makedirs(inner)
        with open(os.path.join(inner, f"file {number}"), "wb") as file:
            file.write(chance.randbytes(chance.randrange(200, 12_000)))


def make_large(folder):
    os.makedirs(folder)
    files, size = LARGE
    block = random.Random(2).randbytes(1 << 20)
    for number in range(files):
        with open(os.path.join(folder, f"film {number}"), "wb") as file:
            for piece in range(size):
                file.write(piece.to_bytes(8, "big") + block[8:])


def run(words, env):
    """Wall and processor seconds."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    subprocess.run(words, env=env, stdout=subprocess.DEVNULL, check=True)
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime


class Memory(threading.Thread):
    """The most that the processes of the execute program have had for themselves and shared, in MB."""

    def __init__(self):
        super().__init__(daemon=True)
        self.most = 0.0
        self.ends = threading.Event()

    def run(self):
        while not self.ends.wait(0.1):
            for pid in filter(str.isdigit, os.listdir("/proc")):
                try:
                    if os.readlink(f"/proc/{pid}/exe") != os.path.realpath(EXECUTE):
                        continue
                    with open(f"/proc/{pid}/status") as status:
                        found = re.search(r"VmHWM:\s+(\d+)", status.read())
                    self.most = max(self.most, int(found.group(1)) / 1000 if found else 0)
                except OSError:
                    pass


def told(name, ours, peer, peer_name="rsync"):
    for what, index in (("wall", 0), ("processor", 1)):
        own = statistics.median(one[index] for one in ours)
        other = statistics.median(one[index] for one in peer)
        print(f"{name}, {what}: {own:.2f} s, {peer_name} {other:.2f} s, {own / other:.2f} x", flush=True)


def main():
    with tempfile.TemporaryDirectory(dir=os.environ.get("BENCH_FOLDER")) as place:
        env = dict(os.environ, HOME=os.path.join(place, "home"))
        os.makedirs(env["HOME"])
        for name, make in (("small", make_small), ("large", make_large)):
            source = os.path.join(place, name)
            make(source)
            copies = os.path.join(place, "copies")
            os.makedirs(copies)
            added = subprocess.run([COMMAND, "add", name, "--source", source, "--destination", copies, "--mode",
                                    "synchronise"], env=env, check=True, capture_output=True, text=True).stdout
            reference = re.search(r"\d+", added).group()
            memory = Memory()
            memory.start()
            figures = {kind: ([], []) for kind in ("a first copy", "a run without changes")}
            for _ in range(ROUNDS):
                for own in (True, False):
                    shutil.rmtree(copies)
                    os.makedirs(copies)
                    os.sync()
                    words = [EXECUTE, reference] if own else [*RSYNC, source, copies + "/"]
                    for kind in figures:
                        if own:
                            figures[kind][0].append(run(words, env))
                        else:
                            synced = f'"$@" && sync --file-system "{copies}"' if kind == "a first copy" else '"$@"'
                            figures[kind][1].append(run(["sh", "-c", synced, "sh", *words], env))
            memory.ends.set()
            for kind, (ours, peer) in figures.items():
                told(f"{name} files, {kind}", ours, peer)
            print(f"{name} files, memory of the execute program: {memory.most:.1f} MB")
            shutil.rmtree(source)
            shutil.rmtree(copies)


if __name__ == "__main__":
    main()
