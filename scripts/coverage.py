#!/usr/bin/env python3
"""Holds what the native tests execute of the product against tests/uncovered.txt. Behind a run of the tests of the
preset native-coverage (./test.sh --coverage does all of it):

    scripts/coverage.py

At least 97 of 100 lines and 92 of 100 branches must have been executed. Every line that was not stands in the list
with its reason, and no other: a line that is new in either direction is a failure. In the list a line that begins with
a file's name says why the lines below it, each behind a bar and without its indentation, are not executed. Needs
gcovr; its report goes to build/native-coverage/report."""
import collections
import json
import pathlib
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[1]
BUILD = TOP / "build" / "native-coverage"
LISTED = TOP / "tests" / "uncovered.txt"
WANTED = {"lines": 97.0, "branches": 92.0}


def report():
    """The files of gcovr's report."""
    (BUILD / "report").mkdir(exist_ok=True)
    # No exceptions in the product: what the compiler adds for them, and for code that cannot be reached, is no branch.
    subprocess.run(["gcovr", "--root", str(TOP), "--filter", "(dll|diag|win32|gen)/", "--exclude-throw-branches",
                    "--exclude-unreachable-branches", "--json", str(BUILD / "report" / "coverage.json"),
                    "--html-details", str(BUILD / "report" / "index.html"), str(BUILD / "dll"), str(BUILD / "tests")],
                   check=True, cwd=TOP, stderr=subprocess.DEVNULL)
    return json.loads((BUILD / "report" / "coverage.json").read_text())["files"]


def listed():
    """How often the list names each (file, line); every one has a reason."""
    found, path, reason = collections.Counter(), "", ""
    for line in LISTED.read_text(encoding="utf-8").splitlines():
        if line.startswith("| "):
            found[path, line[2:]] += 1
            if not reason.strip():
                sys.exit(f"{LISTED.name}: no reason for {line}")
        elif line.strip():
            path, _, reason = line.partition(":")
    return found


def main():
    counts = {kind: [0, 0] for kind in WANTED}  # executed, all
    uncovered = collections.Counter()
    for file in report():
        source = (TOP / file["file"]).read_text(encoding="utf-8").split("\n")
        for line in file["lines"]:
            if line["gcovr/noncode"]:
                continue
            for kind, hits in (("lines", [line["count"]]), ("branches", [b["count"] for b in line["branches"]])):
                counts[kind][0] += sum(hit > 0 for hit in hits)
                counts[kind][1] += len(hits)
            if line["count"] == 0:
                uncovered[file["file"], " ".join(source[line["line_number"] - 1].split())] += 1
    failed = False
    for kind, (executed, every) in counts.items():
        share = 100 * executed / max(every, 1)
        print(f"{kind}: {executed} of {every}, {share:.1f} %, wanted {WANTED[kind]:.0f} %")
        failed |= share < WANTED[kind]
    wanted = listed()
    for text, lines in (("not executed and not listed", uncovered - wanted), ("listed, but executed or gone", wanted - uncovered)):
        for path, line in sorted(lines):
            failed = True
            print(f"{text}: {path}\n| {line}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
