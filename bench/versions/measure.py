#!/usr/bin/env python3
"""What it takes to keep versions, by each engine and by its peers, in turns over the same changes.

A hundredth of the files changes between runs. All have the same priority; what the peers need besides (a repository
made, the disk synchronised) is in their time, as it is in ours. Processor time is that of the whole tree of processes,
and each of our runs is set against the peer's beside it: on a busy machine that says more than the clock."""

import os
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "copy"))
from measure import COMMAND, EXECUTE, RSYNC, QUICK  # noqa: E402

GENTLY = ["nice", "-n", "10", "ionice", "-c3"]
FILES = 10_000 if QUICK else 100_000
MOST = 100_000  # bytes a file: of all together 5 GB
ROUNDS = 2 if QUICK else 5


def contents(chance, most=MOST):
    return chance.randbytes(chance.randrange(200, most))


def make(source):
    chance = random.Random(1)
    for number in range(FILES):
        if number % 100 == 0:
            inner = os.path.join(source, f"d{number // 10_000}", f"e{number // 100}")
            os.makedirs(inner)
        with open(os.path.join(inner, f"file {number}"), "wb") as file:
            file.write(contents(chance))


def change(source, chance):
    """A half of a hundredth is written anew, a quarter goes, a quarter comes."""
    files = sorted(os.path.join(folder, name) for folder, _, names in os.walk(source) for name in names)
    for path in chance.sample(files, len(files) // 200):
        with open(path, "wb") as file:
            file.write(contents(chance))
    for path in chance.sample(files, len(files) // 400):
        os.remove(path)
        with open(path + " new", "wb") as file:
            file.write(contents(chance))


class Memory(threading.Thread):
    """The most that a process and all below it have had at a time, what they share counted once, in MB."""

    def __init__(self, root):
        super().__init__(daemon=True)
        self.root, self.most, self.ends = root, 0.0, threading.Event()

    def run(self):
        while not self.ends.wait(0.1):
            self.most = max(self.most, sum(map(self.of, self.family())) / 1000)

    def family(self):
        below = {}
        for process in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{process}/stat") as stat:
                    below.setdefault(int(stat.read().rpartition(") ")[2].split()[1]), []).append(int(process))
            except OSError:
                pass
        family = [self.root]
        for process in family:
            family += below.get(process, [])
        return family

    @staticmethod
    def of(process):
        try:
            with open(f"/proc/{process}/smaps_rollup") as rollup:
                return int(re.search(r"Pss:\s+(\d+)", rollup.read()).group(1))
        except (OSError, AttributeError):
            return 0


def run(words, env):
    """Wall and processor seconds, and the memory."""
    start = time.monotonic()
    child = subprocess.Popen(words, env=env, stdout=subprocess.DEVNULL)
    memory = Memory(child.pid)
    memory.start()
    _, status, used = os.wait4(child.pid, 0)
    wall = time.monotonic() - start
    child.returncode = os.waitstatus_to_exitcode(status)
    memory.ends.set()
    memory.join()
    assert child.returncode == 0, words
    return wall, used.ru_utime + used.ru_stime, memory.most


class Way:
    """One way to keep versions of the source: `first`, then `again` for each later run."""

    def __init__(self, name, env, first, again=None, rounds=ROUNDS):
        self.name, self.env, self.first, self.again = name, env, first, again or first
        self.rounds, self.figures = rounds, {}

    def measured(self, kind):
        figures = self.figures.setdefault(kind, [])
        if len(figures) < self.rounds:
            os.sync()
            figures.append(run((self.first if kind == "first" else self.again)(), self.env))


def told(kind, own, peer):
    for what, index, unit in (("wall", 0, "s"), ("processor", 1, "s"), ("memory", 2, "MB")):
        ours = [one[index] for one in own.figures[kind]]
        theirs = [one[index] for one in peer.figures[kind]]
        pairs = sorted(mine / other for mine, other in zip(ours, theirs))
        print(f"{FILES} files, {kind}, {own.name}, {what}: {statistics.median(ours):.3f} {unit}, {peer.name} "
              f"{statistics.median(theirs):.3f} {unit}, {statistics.median(pairs):.3f} x ({pairs[0]:.2f} to "
              f"{pairs[-1]:.2f})", flush=True)


def script(text):
    return lambda: [*GENTLY, "sh", "-ec", text]


def added(env, name, *words):
    text = subprocess.run([COMMAND, "add", name, *words], env=env, check=True, capture_output=True, text=True).stdout
    return re.search(r"\d+", text).group()


def ways_in(place, source, env):
    """The reference of the action with folders, and the ways by their names."""
    password = os.path.join(place, "password")
    with open(password, "w", opener=lambda path, flags: os.open(path, flags, 0o600)) as file:
        file.write("secret\n")
    for name in ("ours", "rsync", "links"):
        os.makedirs(os.path.join(place, name))
    plain = added(env, "plain", "--source", source, "--destination", f"{place}/ours", "--mode", "synchronise",
                  "--delete-limit", "100")
    far = added(env, "far", "--source", source, "--engine", "restic", "--repository", f"{place}/restic-ours",
                "--password-file", password)
    rsync = " ".join(RSYNC)
    counter = iter(range(1000))
    links = f"{place}/links"
    ways = [
        Way("plain", env, lambda: [EXECUTE, plain]),
        Way("rsync --backup-dir", env, lambda: script(
            f"{rsync} --delete-after --backup --backup-dir={place}/rsync/v{next(counter)} {source} {place}/rsync/copy"
            f" && sync -f {place}/rsync")()),
        Way("rsync --link-dest", env, script(
            f"{rsync} --link-dest={links}/newest {source} {links}/next 2>/dev/null && sync -f {links} && "
            f"name=$(date +%s%N) && mv {links}/next {links}/$name && ln -sfn $name {links}/newest")),
        Way("restic by us", env, lambda: [EXECUTE, far]),
        Way("restic", env, script(
            f"restic -q init -r {place}/restic && restic -q backup -r {place}/restic {source} && sync -f {place}"),
            script(f"restic -q backup -r {place}/restic {source}")),
        # Where only one file system is gone through, as by us and by the rsync above, that costs it more.
        Way("restic --one-file-system", env, script(
            f"restic -q init -r {place}/restic-one && restic -q backup --one-file-system -r {place}/restic-one {source}"
            f" && sync -f {place}"), script(f"restic -q backup --one-file-system -r {place}/restic-one {source}"))]
    if shutil.which("borg"):
        again = f"borg create {place}/borg::{{now:%s%f}} {source}"
        ways.append(Way("borg", env, script(f"borg init -e repokey {place}/borg 2>/dev/null && {again}"),
                        script(again), rounds=2))
    return plain, {way.name: way for way in ways}


def one_back(plain, source, env):
    victim = os.path.join(source, "d0", "e7", "file 777")
    wanted = open(victim, "rb").read() if os.path.exists(victim) else None
    back = []
    for _ in range(2 * ROUNDS):
        if wanted is not None:
            os.remove(victim)
        back.append(run([COMMAND, "restore", plain, victim], env))
        assert wanted is None or open(victim, "rb").read() == wanted
    wall, processor, memory = (sorted(one[index] for one in back) for index in range(3))
    print(f"one of {FILES} files back from folders: wall {wall[0]:.3f} to {wall[-1]:.3f} s, processor "
          f"{statistics.median(processor):.3f} s, memory {memory[-1]:.1f} MB")


def main():
    with tempfile.TemporaryDirectory(dir=os.environ.get("BENCH_FOLDER")) as place:
        env = dict(os.environ, HOME=os.path.join(place, "home"), XDG_CACHE_HOME=os.path.join(place, "cache"),
                   RESTIC_PASSWORD="secret", BORG_PASSPHRASE="secret", BORG_BASE_DIR=os.path.join(place, "borg-home"))
        os.makedirs(env["HOME"])
        source = os.path.join(place, "source")
        make(source)
        plain, ways = ways_in(place, source, env)
        chance = random.Random(3)
        peers = {"plain": ["rsync --backup-dir", "rsync --link-dest"],
                 "restic by us": ["restic", "restic --one-file-system", "borg"]}
        for kind in ("first", "unchanged", "changed"):
            order = list(ways.values())
            for _ in range(1 if kind == "first" else ROUNDS):
                if kind == "changed":
                    change(source, chance)
                for way in order:
                    way.measured(kind)
                order.reverse()
            for own, others in peers.items():
                for other in filter(ways.get, others):
                    told(kind, ways[own], ways[other])
        one_back(plain, source, env)


main()
