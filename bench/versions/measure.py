#!/usr/bin/env python3
"""What it takes to keep versions, by each engine and by its peers, in turns over the same changes.

A hundredth of the files changes between runs. All have the same priority; what the peers need besides (a repository
made, the disk synchronised) is in their time, as it is in ours."""

import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "copy"))
from measure import COMMAND, EXECUTE, RSYNC, SMALL, QUICK, make_small, run, told  # noqa: E402

GENTLY = ["nice", "-n", "10", "ionice", "-c3"]
ROUNDS = 2 if QUICK else 3


def change(source, chance):
    """A half of a hundredth is written anew, a quarter goes, a quarter comes."""
    files = [os.path.join(folder, name) for folder, _, names in os.walk(source) for name in names]
    for path in chance.sample(files, len(files) // 200):
        with open(path, "wb") as file:
            file.write(chance.randbytes(chance.randrange(200, 12_000)))
    for path in chance.sample(files, len(files) // 400):
        os.remove(path)
        with open(path + " new", "wb") as file:
            file.write(chance.randbytes(5_000))


class Way:
    """One way to keep versions of the source: `first`, then `again` for each later run."""

    def __init__(self, name, env, first, again=None):
        self.name, self.env, self.first, self.again = name, env, first, again or first
        self.figures = {}

    def measured(self, kind):
        words = self.first if kind == "first" else self.again
        self.figures.setdefault(kind, []).append(run(words(), self.env))


def script(text):
    return lambda: [*GENTLY, "sh", "-ec", text]


def added(env, name, *words):
    text = subprocess.run([COMMAND, "add", name, *words], env=env, check=True, capture_output=True, text=True).stdout
    return re.search(r"\d+", text).group()


def main():
    with tempfile.TemporaryDirectory(dir=os.environ.get("BENCH_FOLDER")) as place:
        env = dict(os.environ, HOME=os.path.join(place, "home"), XDG_CACHE_HOME=os.path.join(place, "cache"),
                   RESTIC_PASSWORD="secret", BORG_PASSPHRASE="secret", BORG_BASE_DIR=os.path.join(place, "borg-home"))
        os.makedirs(env["HOME"])
        source = os.path.join(place, "source")
        make_small(source)
        password = os.path.join(place, "password")
        with open(password, "w", opener=lambda path, flags: os.open(path, flags, 0o600)) as file:
            file.write("secret\n")
        for name in ("ours", "rsync"):
            os.makedirs(os.path.join(place, name))
        plain = added(env, "plain", "--source", source, "--destination", f"{place}/ours", "--mode", "synchronise",
                      "--delete-limit", "100")
        far = added(env, "far", "--source", source, "--engine", "restic", "--repository", f"{place}/restic-ours",
                    "--password-file", password)
        counter = iter(range(1000))
        rsync = " ".join(RSYNC)
        ways = [
            Way("plain", env, lambda: [EXECUTE, plain]),
            Way("rsync --backup-dir", env, lambda: script(
                f"{rsync} --delete-after --backup --backup-dir={place}/rsync/v{next(counter)} {source} {place}/rsync/copy"
                f" && sync -f {place}/rsync")()),
            Way("restic by us", env, lambda: [EXECUTE, far]),
            Way("restic", env, script(f"restic -q init -r {place}/restic && restic -q backup -r {place}/restic {source}"
                                      f" && sync -f {place}"),
                script(f"restic -q backup -r {place}/restic {source}")),
        ]
        if shutil.which("borg"):
            again = f"borg create {place}/borg::{{now:%s%f}} {source}"
            ways.append(Way("borg", env, script(f"borg init -e repokey {place}/borg && {again}"), script(again)))
        chance = random.Random(3)
        for kind, rounds in (("first", 1), ("unchanged", ROUNDS), ("changed", ROUNDS)):
            for _ in range(rounds):
                if kind == "changed":
                    change(source, chance)
                os.sync()
                for way in ways:
                    way.measured(kind)
        by_name = {way.name: way.figures for way in ways}
        for own, peers in (("plain", ["rsync --backup-dir"]), ("restic by us", ["restic", "borg"])):
            for peer in filter(by_name.get, peers):
                for kind, figures in by_name[own].items():
                    told(f"{SMALL} files, {own}, {kind}", figures, by_name[peer][kind], peer)
        victim = os.path.join(source, "d0", "e7", "file 777")
        wanted = open(victim, "rb").read() if os.path.exists(victim) else None
        back = []
        for _ in range(2 * ROUNDS):
            if wanted is not None:
                os.remove(victim)
            back.append(run([COMMAND, "restore", plain, victim], env))
            assert wanted is None or open(victim, "rb").read() == wanted
        print(f"one of {SMALL} files back from folders: wall {min(one[0] for one in back):.3f} s, processor "
              f"{min(one[1] for one in back):.3f} s")


main()
