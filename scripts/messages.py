#!/usr/bin/env python3
"""What is made from the catalogue of trace messages, docs/messages.toml, and what holds it.

    scripts/messages.py page              write docs/messages.md
    scripts/messages.py check             whether the catalogue is whole and the page is the one made from it
    scripts/messages.py header FILE       write the catalogue as a C++ header
    scripts/messages.py seen FOLDER…      whether the traces of full test runs showed every text: each line of the
                                          folders' files names one that was seen

check and seen end with 1 and a list when something does not fit.
"""

import re
import sys
import tomllib
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
CATALOGUE = TOP / "docs/messages.toml"
PAGE = TOP / "docs/messages.md"
LINE_BREAK = "\u23ce"
BLANK = "\u2423"
# How an insertion is marked in the header's texts; tools/trace/catalogue.cpp reads it.
MARKS = {"number": "\\1", "hex": "\\2", "line": "\\3", "lines": "\\4"}
FIELDS = {"code", "kind", "texts", "means", "cause", "do"}
OPTIONAL = {"failure", "unshown"}


def one_line(text):
    return text.strip().replace("\n", " ")


class Catalogue:
    def __init__(self):
        with open(CATALOGUE, "rb") as file:
            data = tomllib.load(file)
        self.introduction = data["page"]["introduction"].strip()
        self.sections = data["section"]
        self.entries = [entry for section in self.sections for entry in section["entry"]]
        self.shapes = {name: shape for shape, names in data["insertions"].items() for name in names}
        self.texts = [(entry, text) for entry in self.entries for text in entry["texts"]]

    def ids(self):
        """(name, entry, text): the entry's code, with a letter when it has several texts."""
        for entry in self.entries:
            for i, text in enumerate(entry["texts"]):
                yield entry["code"] + (chr(ord("a") + i) if len(entry["texts"]) > 1 else ""), entry, text

    def problems(self):
        codes = [entry["code"] for entry in self.entries]
        texts = [text for _, text in self.texts]
        for entry in self.entries:
            code = entry["code"]
            if not FIELDS <= entry.keys() <= FIELDS | OPTIONAL or not entry["texts"] or not all(entry.values()):
                yield f"{code}: an entry has {', '.join(sorted(FIELDS))}, and may have {', '.join(sorted(OPTIONAL))}"
            if entry["kind"] not in ("ordinary", "error"):
                yield f"{code}: no kind of line: {entry['kind']}"
            if codes.count(code) > 1 or not re.fullmatch("[A-Z][0-9][0-9]", code):
                yield f"{code}: a letter and two digits, once"
            for text in entry["texts"]:
                if texts.count(text) > 1:
                    yield f"{code}: the text is there twice: {text}"
                if text != text.rstrip() or re.search(">" + "<", self.marked(text, "<>")):
                    yield f"{code}: a blank at the end is {BLANK}, and something stands between insertions: {text}"
        if codes != sorted(codes, key=lambda code: ([c[0] for c in codes].index(code[0]), code)):
            yield "the codes are not in order"

    def marked(self, text, mark=None):
        """The text with a mark for each insertion: the same for all, or that of its shape."""
        def one(match):
            shape = self.shapes.get(match.group(1))
            return match.group() if shape is None else mark or MARKS[shape]
        # Innermost first: a class in brackets may have its name inserted.
        return re.sub("<([^<>]*)>", one, text)

    # --- The page -------------------------------------------------------------------------------------------------

    def page(self):
        lines = ["<!-- Made from messages.toml: scripts/messages.py page -->", "", self.introduction, "", "## Index", "", "| code | line | text |", "|---|---|---|"]
        lines += [f"| [{e['code']}](#{e['code'].lower()}) | {e['kind']} | `{text}` |" for e, text in self.texts]
        for section in self.sections:
            lines += ["", "## " + section["title"], "", section["text"].strip()]
            for entry in section["entry"]:
                lines += ["", "### " + entry["code"], "", "```", *entry["texts"], "```", ""]
                for label in ("kind", "means", "cause", "do"):
                    name = "Line" if label == "kind" else label.capitalize()
                    lines.append(f"- {name}: {one_line(entry[label])}")
        return "\n".join(lines) + "\n"

    # --- The header -----------------------------------------------------------------------------------------------

    def header(self):
        def quoted(text):
            escaped = text.replace("\\", "\\\\").replace('"', '\\"')
            return '"' + escaped.replace("\n", "\\n") + '"'

        def pattern(text):
            text = text.replace("\\", "\\\\").replace('"', '\\"')
            # Each mark ends its literal, so that no digit behind it belongs to it.
            text = re.sub(r"(\\[1-4])(?=[0-9])", r'\1""', self.marked(text))
            return '"' + text.replace(LINE_BREAK, "\\n").replace(BLANK, " ") + '"'

        ids = list(self.ids())
        lines = ["#pragma once", "// Made from docs/messages.toml by scripts/messages.py.", "",
                 "namespace sndxtools::trace", "{", "enum MessageId : unsigned char", "{"]
        lines += [f"    {name}," for name, _, _ in ids]
        lines += ["    messageCount", "};", "",
                  "inline constexpr Entry entries[] = {"]
        for section in self.sections:
            for entry in section["entry"]:
                words = [quoted(one_line(entry[field])) for field in ("means", "cause", "do")]
                error, failure = entry["kind"] == "error", entry.get("failure", False)
                lines.append(f"    {{{quoted(entry['code'])}, {quoted(section['title'])}, "
                             f"{str(error).lower()}, {str(failure).lower()},\n     " + ",\n     ".join(words) + "},")
        lines += ["};", "", "inline constexpr Text texts[] = {"]
        lines += [f"    {{{quoted(name)}, {self.entries.index(entry)}, {pattern(text)}}}," for name, entry, text in ids]
        lines += ["};", "} // namespace sndxtools::trace", ""]
        return "\n".join(lines)


def unseen(catalogue, folders):
    files = [file for folder in folders for file in Path(folder).iterdir()]
    seen = {line for file in files for line in file.read_text(encoding="utf-8").splitlines()}
    for name, entry, text in catalogue.ids():
        if name not in seen and "unshown" not in entry:
            yield f"{name}: no trace of the run showed it: {text}"
    for entry in catalogue.entries:
        names = [name for name, other, _ in catalogue.ids() if other is entry]
        if "unshown" in entry and seen.issuperset(names):
            yield f"{entry['code']}: traces showed it; nothing is left unshown"


def main(words):
    catalogue = Catalogue()
    command, places = words[0] if words else "", words[1:]
    if command == "header" and len(places) != 1 or command == "seen" and not places or command in ("page", "check") and places:
        command = ""
    if command == "page":
        PAGE.write_text(catalogue.page(), encoding="utf-8")
    elif command == "header":
        text, file = catalogue.header(), Path(places[0])
        if not file.exists() or file.read_text(encoding="utf-8") != text:
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text, encoding="utf-8")
    elif command in ("check", "seen"):
        problems = list(catalogue.problems() if command == "check" else unseen(catalogue, places))
        if command == "check" and not problems and PAGE.read_text(encoding="utf-8") != catalogue.page():
            problems.append("docs/messages.md is not the page of docs/messages.toml: scripts/messages.py page")
        print("\n".join(problems + [f"{len(catalogue.texts)} messages, {len(problems)} problems"]))
        return 1 if problems else 0
    else:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
