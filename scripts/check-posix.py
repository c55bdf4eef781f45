#!/usr/bin/env python3
"""Holds the POSIX layer, the product's calls of the system and the table of failing calls against each other.

What must hold:
  1. a function declared in posix/include is called somewhere, not only in the layer, in its own tests
     (tests/platform) or in sources for Windows alone (tools/explorer, *_windows_test.cpp);
  2. an error code is defined once, in posix/include/sndx/errors.h;
  3. every call that the product makes of the system has a row in tests/dll/failingcalls.txt for its place, and every
     place of a row has that call;
  4. a call with errors in its row can be made to fail (FailNextCall of posix/base/call.h), one that cannot fail has no
     such code, and a test that a row names exists.
"""

import re
import subprocess
import sys
from collections import namedtuple
from pathlib import Path

sys.dont_write_bytecode = True  # leaves no folder of Python's own in the checkout
from cppsource import enclosing_functions, tokenize

TABLE = "tests/dll/failingcalls.txt"
PRODUCT = ("dll/", "diag/", "gen/", "win32/")
NO_USE = ("posix/", "tests/platform/", "tools/explorer/")
RUNTIME = {"malloc", "calloc"}  # calls of the runtime library that can fail, beside those that the layer has
CANNOT_FAIL = "cannot fail"

Row = namedtuple("Row", "calls places errors text number")
problems = []


def fail(text):
    problems.append(text)


def read_table():
    rows = []
    for number, line in enumerate(Path(TABLE).read_text(encoding="utf-8").splitlines(), 1):
        if not line or line[0] in "# ":
            continue
        fields = line.split(" | ")
        places = re.sub(r" by \S+$", "", fields[1]).split(", ")
        errors = [] if fields[2] == "-" else fields[2].split()
        rows.append(Row(fields[0].split(", "), places, errors, "".join(fields[3:4]), number))
    return rows


def product_calls(files, names):
    """(call, "file function") of every call in the product."""
    for path in files:
        if not path.startswith(PRODUCT):
            continue
        tokens = tokenize(Path(path))
        around = enclosing_functions(tokens)
        for i, token in enumerate(tokens[:-1]):
            before = tokens[i - 1].text if i else ""
            is_member = before in (".", "->") or (before == "::" and i > 1 and tokens[i - 2].kind == "id")
            is_declared = i > 0 and tokens[i - 1].kind == "id" and before != "return"
            if token.kind == "id" and token.text in names and tokens[i + 1].text == "(" and not is_member:
                if not is_declared:
                    yield token.text, f"{path} {around[i][0] if around[i] else ''}".strip()


def check_table(files, declared, layer, tests):
    rows = read_table()
    calls = set(product_calls(files, set(declared) | RUNTIME))
    if len(calls) < 50:
        fail(f"only {len(calls)} calls of the product were found; the check no longer reads its sources")
    covered = {(call, place) for row in rows for call in row.calls for place in row.places}
    for call, place in sorted(calls):
        if not {(call, place), (call, "*")} & covered:
            fail(f"{TABLE}: no row says what comes of a failing {call} in {place}")
    for row in rows:
        where = f"{TABLE}:{row.number}"
        for call in row.calls:
            can_fail = f'"{call}"' in layer
            for place in row.places:
                if (call, place) not in calls and (place != "*" or call not in {made for made, _ in calls}):
                    fail(f"{where}: {call} is not called in {place}")
            if row.text == CANNOT_FAIL and can_fail or row.errors and not can_fail:
                fail(f"{where}: the layer {'makes' if can_fail else 'cannot make'} {call} fail")
        if re.fullmatch(r"\w+\.\w+", row.text) and row.text not in tests:
            fail(f"{where}: there is no test {row.text}")
        if not row.errors and not row.text:
            fail(f"{where}: neither an error nor a reason")
    return len(calls), len(rows)


def check_declarations(words, declared):
    if len(declared) < 50:
        fail(f"posix/include: only {len(declared)} declarations were found; the check no longer reads it")
    for name, path in sorted(declared.items()):
        users = [user for user in words if name in words[user]]
        if not any(not user.startswith(NO_USE) and not user.endswith("_windows_test.cpp") for user in users):
            fail(f"{path}: nothing calls {name}")


def check_error_codes(text):
    seen = set()
    for path in sorted(text):
        for name, number in re.findall(r"^\s*#\s*define\s+(ERROR_\w+)\s+(\w+)", text[path], re.M):
            number = number.rstrip("uUL")
            if not path.endswith("sndx/errors.h"):
                fail(f"{path}: {name} is no business of this file; error codes stand in sndx/errors.h")
            if name in seen or number in seen:
                fail(f"{path}: {name}, the name or the number {number}, is defined a second time")
            seen |= {name, number}
    return len(seen) // 2


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "--", "*.h", "*.cpp"],
                            check=True, capture_output=True, text=True).stdout.split()
    text = {path: Path(path).read_text(encoding="utf-8") for path in sorted(set(listed)) if Path(path).exists()}
    code = {path: re.sub(r"//.*|\"(?:\\.|[^\"\\\n])*\"", "", content) for path, content in text.items()}
    declared = {}
    for path in code:
        if path.startswith("posix/include/"):
            blocks = re.findall(r"^(?:extern \"?C?\"?|namespace sndxposix)\s*\{(.*?)^\}", code[path], re.S | re.M)
            for name in re.findall(r"\b(\w+)\([^;{}]*\);", "\n".join(blocks)):
                declared[name] = path
    layer = "".join(content for path, content in text.items() if path.startswith("posix/") and path.endswith(".cpp"))
    tests = {".".join(name) for path in text if path.startswith("tests/")
             for name in re.findall(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", text[path], re.M)}
    check_declarations({path: set(re.findall(r"\w+", content)) for path, content in code.items()}, declared)
    codes = check_error_codes(text)
    calls, rows = check_table(code, declared, layer, tests)
    print("\n".join(problems) if problems else
          f"{len(declared)} functions, {codes} error codes; {calls} calls of the product, {rows} rows of {TABLE}")
    return bool(problems)


if __name__ == "__main__":
    sys.exit(main())
