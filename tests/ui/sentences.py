#!/usr/bin/env python3
"""Whether the table knows in every language but English what the execute program says of a run.

Records are English, and windows and mail translate them as they show them. A sentence that is new or was changed in
execute/ has to be known under "Said: ", or its readers get English.
"""
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
SAYING = [*sorted((TOP / "execute").glob("**/*.cpp")), TOP / "volumes/VolumeIdentity.cpp"]
# Statements in which words are looked for, written into files or told to whoever typed them; and words that are looked
# for beside others that are said.
NOT_SAID = re.compile(r"holdsOneOf\(|constexpr |std::cout|std::cerr|log\.write|numberAfter\(|"
                      r"REFERENCE|not a number|asks for nothing")
LOOKED_FOR = re.compile(r'(?:find|starts_with)\(\s*(?:"(?:[^"\\]|\\.)*"\s*)+|'
                        r'for \(const std::string_view \w+ :\s*\{[^}]*\}')
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')


def plain(text):
    return re.sub(r"\\(.)", r"\1", text)


def main():
    failures = []
    for table in sorted((TOP / "resources").glob("*.lproj/Localizable.strings")):
        if table.parent.name == "en.lproj":
            continue
        pairs = re.findall(r'^"Said: ((?:[^"\\]|\\.)*)" = "((?:[^"\\]|\\.)*)";$', table.read_text(), re.M)
        # A remedy by a command is none for the reader of a window.
        here = {said for said, _ in re.findall(r'^"In windows: ((?:[^"\\]|\\.)*)" = "(.*)";$', table.read_text(), re.M)}
        for said, _ in pairs:
            if re.search(r"corvana9 | --[a-z]", said) and said not in here:
                failures.append(f"{table.parent.name}: a remedy by a command, and none in windows: {said}")
        known = "\n".join(": " + plain(said).replace("%@", "\n") for said, _ in pairs)
        for said, words in pairs:
            if any(int(number) > said.count("%@") for number in re.findall(r"%(\d)\$@", words)):
                failures.append(f"{table.parent.name}: {said}: a place too many in the translation")
        for file in SAYING:
            code = re.sub(r"^\s*//.*", "", file.read_text(), flags=re.M)
            for statement in code.split(";\n"):
                if NOT_SAID.search(statement):
                    continue
                for literal in LITERAL.findall(re.sub(r'"\s*\n\s*"', "", LOOKED_FOR.sub("(", statement))):
                    literal = plain(literal)
                    if re.search(r"[a-z]+ [a-z]+ [a-z]+", literal) and literal not in known:
                        failures.append(f"{table.parent.name} lacks what {file.relative_to(TOP)} says: {literal}")
    print("\n".join(failures), end="\n" if failures else "")
    return 1 if failures else 0


sys.exit(main())
