#!/usr/bin/env python3
"""The debug information as whoever reads a crash report meets it: an address in the shipped module leads to a source
line. Also prints how the image is hardened, and fails when less of it is there. Run by ctest with the build folder."""
import pathlib
import re
import subprocess
import sys
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
MODULE, SYMBOLS = BUILD / "sndxdll.dll", BUILD / "sndxdll.pdb"
FIRST_SECTION = 0x1000  # of every image of this linker; the PDB counts addresses from it


def tool(name, *arguments):
    # In another folder than the files: the module names its PDB by name alone.
    return subprocess.run([f"llvm-{name}-19", *map(str, arguments)], check=True, text=True, cwd="/",
                          stdout=subprocess.PIPE).stdout


class Symbols(unittest.TestCase):
    def test_the_module_names_its_own_symbols_without_a_folder(self):
        directory = tool("readobj", "--coff-debug-directory", MODULE)
        identifier = re.search(r"PDBGUID: (\{.*\})", directory)[1]
        self.assertIn(identifier, tool("pdbutil", "dump", "--summary", SYMBOLS))
        self.assertEqual(re.search(r"PDBFileName: (.*)", directory)[1], "sndxdll.pdb")

    def test_an_address_in_a_function_gives_its_file_and_line(self):
        found = re.search(r"`LShellExt::IsMemberOf`\n.* addr = 0001:(\d+), code size = (\d+)",
                          tool("pdbutil", "dump", "--symbols", SYMBOLS))
        lines = (TOP / "dll/overlay.cpp").read_text(encoding="utf-8").splitlines()
        first = next(n for n, line in enumerate(lines, 1) if "LShellExt::IsMemberOf(" in line)
        last = next(n for n, line in enumerate(lines, 1) if n > first and line == "}")
        base = re.search(r"ImageBase: (\w+)", tool("readobj", "--file-headers", MODULE))[1]
        start, size = int(base, 16) + FIRST_SECTION + int(found[1]), int(found[2])
        seen = set()
        for address in range(start, start + size, 8):
            # Innermost function first; calls that were put into it stand in front.
            outermost = tool("symbolizer", f"--obj={MODULE}", hex(address)).strip().splitlines()[-2:]
            self.assertIn("LShellExt::IsMemberOf", outermost[0])
            file, line, _ = outermost[1].rsplit(":", 2)
            self.assertEqual(file, "/sendora/dll/overlay.cpp")
            self.assertTrue(first <= int(line) <= last, f"{hex(address)} is in line {line}, not {first} to {last}")
            seen.add(line)
        self.assertGreater(len(seen), 3)

    def test_the_files_do_not_tell_where_they_were_made(self):
        for file in (MODULE, SYMBOLS):
            self.assertFalse(str(TOP).encode() + b"/" in file.read_bytes(), file.name)

    def test_the_image_is_hardened(self):
        headers = tool("readobj", "--file-headers", MODULE)
        flags = re.findall(r"IMAGE_DLL_CHARACTERISTICS_(\w+)", headers)
        print("image:", " ".join(flags), "in", MODULE.stat().st_size, "bytes")
        self.assertEqual(set(flags), {"HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"})
        for section in re.split(r"\n  Section \{", tool("readobj", "--sections", MODULE))[1:]:
            self.assertFalse("MEM_EXECUTE" in section and "MEM_WRITE" in section, section)


if __name__ == "__main__":
    unittest.main()
