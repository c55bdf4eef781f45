#!/usr/bin/env python3
"""Runs clang-tidy over product, layer, tools and tests with the settings in .clang-tidy.

The native build's list of commands says what is compiled and how; of the Windows build's list only the sources count
that no native command names. Sources that the build compiles as one are read as one here, too: most of the time goes
into the headers. Needs clang-tidy; both builds are configured if they are not."""
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[1]
# Of GCC, or of a newer Clang.
UNKNOWN = {"-fno-gnu-unique", "-Wno-restrict", "-Wno-subobject-linkage", "-fno-file-reproducible"}
INCLUDED = re.compile(r'^#include "(.*)"$', re.MULTILINE)


def commands(preset):
    """(sources, folder, arguments) of every unit that the build compiles of this project's sources."""
    build = TOP / "build" / preset
    database = build / "compile_commands.json"
    if not database.exists():
        subprocess.run(["cmake", "--preset", preset], cwd=TOP, stdout=subprocess.DEVNULL, check=True)
    for entry in json.loads(database.read_text()):
        unit = pathlib.Path(entry["file"])
        if unit.suffix == ".rc" or not unit.is_relative_to(TOP):
            continue
        sources = INCLUDED.findall(unit.read_text()) if unit.is_relative_to(build) else [str(unit)]
        # Between the compiler and the output: what the compiler is told about the source.
        told = []
        for word in shlex.split(entry["command"]):
            response = pathlib.Path(entry["directory"], word[1:])
            told += shlex.split(response.read_text()) if word.startswith("@") else [word]
        yield sources, entry["directory"], [word for word in told[1:told.index("-o")] if word not in UNKNOWN]


def run(number, sources, folder, arguments):
    """clang-tidy's findings in a unit that consists of these sources; empty when there is none."""
    unit = TOP / "build" / "tidy" / f"unit{number}.cpp"
    unit.write_text("".join(f'#include "{source}" // NOLINT(bugprone-suspicious-include)\n' for source in sources))
    done = subprocess.run(["clang-tidy", "--quiet", f"--config-file={TOP}/.clang-tidy", str(unit), "--", *arguments],
                          cwd=folder, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return done.stdout if done.returncode else ""


def main():
    (TOP / "build" / "tidy").mkdir(parents=True, exist_ok=True)
    units = list(commands("native"))
    native = {source for sources, *_ in units for source in sources}
    if shutil.which("x86_64-w64-mingw32-g++-posix"):
        cross = ["--target=x86_64-w64-mingw32"]
        for folder in sorted(pathlib.Path("/usr/lib/gcc/x86_64-w64-mingw32").glob("*-posix/include/c++")):
            cross += ["-isystem", str(folder), "-isystem", str(folder / "x86_64-w64-mingw32")]
        for sources, folder, arguments in commands("windows"):
            if others := [source for source in sources if source not in native]:
                units.append((others, folder, cross + arguments))
    else:
        print("tidy: no cross compiler, the sources for Windows alone are not read", file=sys.stderr)
    # The product's sources are compiled one by one; those of a room can be read as one.
    merged = {}
    for sources, folder, arguments in units:
        room = pathlib.Path(sources[0]).parent
        unit = room if len(sources) == 1 and room.parent == TOP else tuple(sources)
        merged.setdefault(unit, ([], folder, arguments))[0].extend(sources)
    work = sorted(merged.values(), key=lambda unit: -len(unit[0]))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = list(pool.map(run, range(len(work)), *zip(*work)))
    print("".join(found), end="")
    return 1 if any(found) else 0


if __name__ == "__main__":
    sys.exit(main())
