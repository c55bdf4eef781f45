#!/usr/bin/env python3
"""Holds the message catalogue (docs/messages.md), the sources and the tests against each other.

    scripts/check-messages.py [TOP]           check; exit code 1 and a list when something does not fit
    scripts/check-messages.py --index [TOP]   print the catalogue's index table as it should be
    scripts/check-messages.py --list [TOP]    print every message of the sources

What must hold:
  1. every message that the sources can write to the trace is in the catalogue, as the right kind of line;
  2. every text of the catalogue is written by the sources;
  3. every test that the catalogue names exists in the file it names;
  4. a file that the entry names (with the headers of the tests that it includes) expects that text as a whole;
  5. the index at the top of the catalogue lists all entries in their order.

"<…>" with any words in it stands for an inserted value in the catalogue.
"""

import re
import sys
from collections import namedtuple
from pathlib import Path

sys.dont_write_bytecode = True  # leaves no folder of Python's own in the checkout
from messages.expected import Tests
from messages.written import Sources

CATALOGUE = "docs/messages.md"
# How the catalogue shows a line break inside a message and a blank at its end.
LINE_BREAK = "\u23ce"
BLANK = "\u2423"

problems = []


def fail(text):
    problems.append(text)


def shown(pieces, value="<…>"):
    text = "".join(value if p is None else p for p in pieces)
    text = text.replace("\r\n", LINE_BREAK).replace("\n", LINE_BREAK)
    return text[:-1] + BLANK if text.endswith(" ") else text


# --- The catalogue --------------------------------------------------------------------------------------------

Entry = namedtuple("Entry", "code texts kind tests place")


class Catalogue:
    def __init__(self, top):
        self.entries = []
        self.index = []
        lines = (top / CATALOGUE).read_text(encoding="utf-8").split("\n")
        for number, line in enumerate(lines, 1):
            if line.startswith("### "):
                self.entry(lines, number)
            elif line.startswith("| ["):
                self.index.append(line)

    def entry(self, lines, number):
        code = lines[number - 1][4:]
        place = f"{CATALOGUE}:{number} {code}"
        texts, kind, tests, fields = [], None, [], set()
        fenced = False
        for line in lines[number:]:
            if line.startswith("```"):
                fenced = not fenced
            elif fenced:
                texts.append(line)
            elif line.startswith("#"):
                break
            elif line.startswith("- "):
                label, _, content = line[2:].partition(": ")
                fields.add(label)
                if label == "Line":
                    kind = content
                elif label == "Test":
                    tests = re.findall(r"`([\w/.]+)` \(([^)]*)\)", content)
        if not {"Line", "Means", "Cause", "Do", "Test"} <= fields or not texts or not tests:
            fail(f"{place}: an entry needs a text and the fields Line, Means, Cause, Do and Test")
        self.entries.append(Entry(code, texts, kind, tests, place))

    def index_rows(self):
        for entry in self.entries:
            for text in entry.texts:
                yield f"| [{entry.code}](#{entry.code.lower()}) | {entry.kind} | `{text}` |"


# --- The rules ------------------------------------------------------------------------------------------------


def check(sources, catalogue, tests):
    messages_of = {}
    known = {}
    for entry in catalogue.entries:
        for text in entry.texts:
            if text in known:
                fail(f"{entry.place}: the text is there twice: {text}")
            known[text] = entry
            messages_of[text] = []
    for message in sources.messages:
        whole = re.compile(re.escape(shown(message.pieces, "\0")).replace("\0", "<[^<>]+>"))
        texts = [text for text in known if whole.fullmatch(text)]
        if not texts:
            fail(f"{message.place}: not in the catalogue ({message.kind}): {shown(message.pieces)}")
        for text in texts:
            messages_of[text].append(message)
            if known[text].kind != message.kind:
                fail(f"{message.place}: an {message.kind} line, but {known[text].place} says {known[text].kind}")
    for text, messages in messages_of.items():
        entry = known[text]
        if not messages:
            fail(f"{entry.place}: no source writes this any more: {text}")
            continue
        files = [name for name, _ in entry.tests if name in tests.files]
        if not any(tests.expect(name, message) for name in files for message in messages):
            fail(f"{entry.place}: no test that it names expects this text: {text}")
    for entry in catalogue.entries:
        for name, names in entry.tests:
            if name not in tests.files:
                fail(f"{entry.place}: there is no file {name}")
                continue
            for test in names.split(", "):
                if not tests.has(name, test):
                    fail(f"{entry.place}: there is no test {test} in {name}")
    rows = list(catalogue.index_rows())
    for row in rows:
        if row not in catalogue.index:
            fail(f"{CATALOGUE}: the index lacks the row {row}")
    for row in catalogue.index:
        if row not in rows:
            fail(f"{CATALOGUE}: the index has a row of no entry: {row}")
    if rows != catalogue.index and sorted(rows) == sorted(catalogue.index):
        fail(f"{CATALOGUE}: the index is not in the order of the entries")


def main(words):
    options = [w for w in words if w.startswith("--")]
    places = [w for w in words if not w.startswith("--")]
    top = Path(places[0] if places else Path(__file__).resolve().parent.parent)
    if "--list" in options:
        for message in Sources(top, fail).messages:
            print(f"{message.kind:8} {message.place}: {shown(message.pieces)}")
        return 0
    catalogue = Catalogue(top)
    if "--index" in options:
        print("\n".join(catalogue.index_rows()))
        return 0
    sources = Sources(top, fail)
    check(sources, catalogue, Tests(top))
    for problem in dict.fromkeys(problems):
        print(problem)
    print(f"{len(sources.messages)} messages in the sources, {len(catalogue.entries)} entries in the catalogue, "
          f"{len(set(problems))} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
