#!/usr/bin/env python3
"""Reads the #include lines of every room and fails where one looks through a wall.

A room includes only rooms of lower floors; rooms above the wall and the headers of the two ground-floor rooms
know neither Qt nor Abseil nor the JSON library; no header includes itself by a detour. A linker alone does not
hold any of this.

    check.py              checks the tree that this file lies in
    check.py --self-test  checks that planted violations are found
"""

import re
import sys
import tempfile
from pathlib import Path

FLOORS = {
    "ZANCocoaFramework": 0, "platform": 0,
    "actions": 1,
    "volumes": 2,
    "core/record": 3, "core/work": 4, "core/machine": 5, "core/drive": 6,
    "mail/smtp": 7, "ui": 7, "remote": 7, "execute/engine": 7,
    "mail/report": 8, "ui/windows": 8, "execute/plain": 8,
    "desktop": 9, "command": 9, "execute": 9,
    "app": 10, "application": 10, "tools": 10,
}
# Each engine has a folder of its own, and only execute/ gathers them.
ENGINES = {f"execute/{path.parent.name}" for path in (Path(__file__).parents[2] / "execute").glob("*/CMakeLists.txt")}
FLOORS.update({room: 8 for room in ENGINES - {"execute/engine"}})
# Beside the floors: what each may see besides itself.
BESIDE = {
    "platform": {"ZANCocoaFramework"},
    "platform/simulated": {"platform", "ZANCocoaFramework"},
    "platform/linux": {"platform", "platform/keyed", "ZANCocoaFramework"},
    "platform/tls": {"platform", "ZANCocoaFramework"},
    "platform/keyed": {"platform", "ZANCocoaFramework"},
    "platform/qt": {"platform", "platform/linux", "platform/tls", "ZANCocoaFramework"},
}
# These join a platform with the rooms, so they may see its real half.
JOINERS = {"app": {"platform/linux", "platform/qt"}, "application": {"platform/linux", "platform/qt"},
           "desktop": {"platform/linux", "platform/qt"},
           "command": {"platform/linux", "platform/qt"}, "execute": {"platform/linux", "platform/qt"},
           **{room: {"platform/linux"} for room in ENGINES},
           "tools": {"platform/linux", "platform/qt"}}
ABOVE_THE_WALL = ("core/record", "core/work", "core/machine", "core/drive", "actions", "volumes", "mail/smtp", "mail/report",
                  "remote", "ui", "ui/windows")
HEADERS_ABOVE_THE_WALL = ("ZANCocoaFramework", "platform")
FREE = ("tests", "bench", "fuzz", "build")
ROOMS = sorted({*FLOORS, *BESIDE}, key=len, reverse=True)

INCLUDE = re.compile(r"^\s*#\s*(?:include|import)\b\s*(?:<([^>]+)>|\"([^\"]+)\"|(\S+))", re.MULTILINE)
LIBRARY = re.compile(r"^(?:Qt?[A-Z]\w*|q[a-z]\w*\.h|Qt\w*/.*|absl/.*|nlohmann/.*)$")
COMMENT = re.compile(r"/\*.*?\*/|//[^\n]*", re.DOTALL)


def room_of(path):
    return next((room for room in ROOMS if path.startswith(room + "/")), None)


def includes_of(text):
    # A quoted name holds no comment sign in this tree, so comments can go first.
    for match in INCLUDE.finditer(COMMENT.sub("", text)):
        yield match.group(1) or match.group(2) or match.group(3), match.group(3) is not None


def may_see(room, other):
    if room == other or other in JOINERS.get(room, ()):
        return True
    if room in BESIDE:
        return other in BESIDE[room]
    return other in FLOORS and FLOORS[other] < FLOORS[room]


def circles(graph):
    """Every header that reaches itself, as one path each."""
    found, done = [], set()

    def visit(node, path):
        if node in path:
            found.append(path[path.index(node):] + [node])
        elif node not in done:
            for after in sorted(graph.get(node, ())):
                visit(after, path + [node])
            done.add(node)

    for node in sorted(graph):
        visit(node, [])
    return found


def check(root):
    problems, graph, count = [], {}, 0
    for path in sorted(root.rglob("*")):
        name = path.relative_to(root).as_posix()
        if path.suffix not in (".h", ".cpp", ".c", ".cc", ".hpp", ".inc") or name.startswith("."):
            continue
        if name.split("/")[0] in FREE or not path.is_file():
            continue
        count += 1
        room = room_of(name)
        if room is None:
            problems.append(f"{name}: lies in no room that has a floor")
            continue
        walled = room in ABOVE_THE_WALL or (path.suffix == ".h" and room in HEADERS_ABOVE_THE_WALL)
        for include, computed in includes_of(path.read_text(encoding="utf-8", errors="replace")):
            if computed:
                problems.append(f"{name}: {include}: an include must name its file")
                continue
            if walled and LIBRARY.match(include):
                problems.append(f"{name}: {include}: a library behind the wall")
            if ".." in include.split("/"):
                problems.append(f"{name}: {include}: includes name their file from the root of the tree")
                continue
            target = include if (root / include).is_file() else (path.parent.relative_to(root) / include).as_posix()
            if not (root / target).is_file():
                continue
            if path.suffix == ".h":
                graph.setdefault(name, set()).add(target)
            other = room_of(target)
            if other is None:
                problems.append(f"{name}: {include}: not a room")
            elif not may_see(room, other):
                problems.append(f"{name}: {include}: {room} may not see {other}")
    problems += [f"{' -> '.join(path)}: a circle" for path in circles(graph)]
    return problems, count


PLANTED = {
    "Qt above the wall": ({"core/work/A.h": "#include <QString>"}, "behind the wall"),
    "Qt module above the wall": ({"ui/A.cpp": "#  include <QtCore/qstring.h>"}, "behind the wall"),
    "Abseil above the wall": ({"actions/A.cpp": '#include "absl/time/time.h"'}, "behind the wall"),
    "JSON in a header of the ground floor": ({"ZANCocoaFramework/A.h": "#include <nlohmann/json.hpp>"}, "behind the wall"),
    "Qt in a header of the platform": ({"platform/A.h": "#include <QObject>"}, "behind the wall"),
    "a higher floor": ({"actions/A.cpp": '#include "core/work/B.h"', "core/work/B.h": ""}, "may not see core"),
    "the same floor": ({"ui/A.h": '#include "remote/B.h"', "remote/B.h": ""}, "may not see remote"),
    "framework sees platform": ({"ZANCocoaFramework/A.cpp": '#include "platform/B.h"', "platform/B.h": ""}, "may not see"),
    "platform's real half": ({"volumes/A.cpp": '#include "platform/linux/B.h"', "platform/linux/B.h": ""}, "may not see"),
    "the owner of all": ({"core/drive/A.h": '#include "app/B.h"', "app/B.h": ""}, "may not see app"),
    "a circle": ({"ui/A.h": '#include "ui/B.h"', "ui/B.h": '#include "A.h"'}, "a circle"),
    "no room": ({"extra/A.h": ""}, "no room"),
    "a detour": ({"ui/A.h": '#include "../core/B.h"', "core/B.h": ""}, "from the root"),
}
CLEAN = {
    "ZANCocoaFramework/A.cpp": "#include <QString>\n#include <absl/time/time.h>\n", "platform/P.h": "",
    "platform/linux/L.cpp": '#include "platform/P.h"\n#include <QObject>', "core/record/R.h": "", "app/S.h": "",
    "core/drive/D.h": '#include "core/record/R.h"\n// #include "app/S.h"\n#include <queue>',
    "app/main.cpp": '#include "app/S.h"\n#include "platform/linux/L.h"', "platform/linux/L.h": "",
}


def plant(files):
    with tempfile.TemporaryDirectory() as folder:
        for name, text in files.items():
            path = Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        return check(Path(folder))[0]


def self_test():
    failed = [f"{what}: not found" for what, (files, words) in PLANTED.items()
              if not any(words in problem for problem in plant(files))]
    failed += [f"found in a clean tree: {problem}" for problem in plant(CLEAN)]
    return failed


def main():
    if sys.argv[1:] == ["--self-test"]:
        problems, done = self_test(), f"{len(PLANTED)} planted violations found"
    else:
        problems, count = check(Path(__file__).resolve().parents[2])
        done = f"{count} files keep to their floors"
    for problem in problems:
        print(problem)
    if not problems:
        print(done)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
