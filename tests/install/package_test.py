#!/usr/bin/env python3
"""The installer as a user meets it: installed silently on a clean system, used, updated while a program holds the
module, removed. Run by ctest with the build folder as its argument."""
import pathlib
import subprocess
import sys
import unittest

from wineprefix import WinePrefix, wait_until

BUILD = pathlib.Path(sys.argv.pop(1))
FOLDER = "C:\\Program Files\\Taleno Software\\Sendora Shell Extension"
MODULE = FOLDER + "\\sndxdll.dll"
HELD = 3010 & 0xFF  # the installer's code for "an old file goes at the next start", as a shell sees it


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.wine = cls.enterClassContext(WinePrefix(BUILD / "package-wineprefix"))
        cls.setup = next((BUILD / "package").glob("*-setup.exe"))
        cls.shared = cls.wine.path("C:\\Sync")
        cls.shared.mkdir()
        (cls.shared / "Rechnung März.txt").write_text("1")
        (cls.shared / "Bilder").mkdir()
        cls.output = BUILD / "package-requests.txt"
        cls.output.unlink(missing_ok=True)
        cls.wine.environment["SENDORA_MAINPROGRAM_OPTIONS"] = f"--duration 5000 --output {cls.output}"
        # The product's own settings, as its main program and installer write them.
        for key, name, text in (("HKLM\\Software\\Wow6432Node\\Taleno Software\\Sendora\\Accounts\\A1", "LocalFolder",
                                 "C:\\Sync"),
                                ("HKCU\\Software\\Taleno Software\\Sendora\\Settings", "InstallerPath",
                                 "Z:" + str(BUILD / "mainprogram.exe").replace("/", "\\"))):
            assert cls.wine.run("reg", "add", key, "/v", name, "/d", text, "/f")[0] == 0
        cls.explorer("C:\\Sync", "--report")  # what the system makes at the first use of a window
        cls.files, cls.registry = cls.wine.files(), cls.wine.registry()

    @classmethod
    def explorer(cls, *arguments):
        return cls.wine.run(BUILD / "explorer.exe", *arguments)

    def install(self):
        return self.wine.run(self.setup, "/S")[0]

    def uninstall(self):
        """The uninstaller goes on as a copy of itself; its own file is among the last things it removes."""
        self.assertEqual(self.wine.run(FOLDER + "\\uninstall.exe", "/S")[0], 0)
        removed = wait_until(lambda: not self.wine.path(FOLDER + "\\uninstall.exe").exists())
        self.assertTrue(removed)

    def assert_nothing_left(self, *but):
        self.wine.restart()
        self.assertEqual(self.wine.registry() ^ self.registry, set())
        left = {pathlib.PurePath(file).name for file in self.wine.files() ^ self.files}
        # The uninstaller runs from a copy in a folder among the temporary files; the folder stays there, empty.
        self.assertEqual({name for name in left if not name.startswith("~nsu")}, set(but))

    def test_installed_used_and_removed_leaves_nothing(self):
        self.assertEqual(self.install(), 0)
        self.assertEqual({path.name for path in self.wine.path(FOLDER).iterdir()},
                         {"sndxdll.dll", "sndxdoctor.exe", "install.md", "uninstall.exe"})
        # Nothing but the registry tells the window of the module.
        item = "Rechnung März.txt"
        code, shown = self.explorer("C:\\Sync", "--select", item, "--menu", "--hover", "Herunterladen", "--report")
        self.assertEqual(code, 0, shown)
        self.assertIn(f"icon 0 of {MODULE}\n", shown)
        self.assertIn(f"  {item}: file, overlay 1, selected\n", shown)
        self.assertRegex(shown, "Sendora >(.*\n)+.*Hochladen .*\n.*Herunterladen .*highlighted\n.*Löschen ")
        self.assertIn('status: "Mit Sendora herunterladen"\n', shown)
        code, shown = self.explorer("C:\\Sync", "--select", "Bilder", "--select", item, "--choose", "Hochladen")
        self.assertEqual(code, 0, shown)
        requested = wait_until(lambda: self.output.exists() and item in self.output.read_text(encoding="utf-8"))
        self.assertTrue(requested, shown)
        request = self.output.read_text(encoding="utf-8")
        for part in ("-upload", "C:\\Sync\\Bilder", "C:\\Sync\\" + item):
            self.assertIn(part, request)
        code, shown = self.wine.run(FOLDER + "\\sndxdoctor.exe")
        self.assertEqual(code, 0, shown)
        self.uninstall()
        self.assert_nothing_left()

    def test_module_in_use_is_moved_aside_and_goes_at_the_next_start(self):
        self.assertEqual(self.install(), 0)
        host = self.wine.start(BUILD / "shellhost.exe", "--registered", "shell", stdin=subprocess.PIPE)
        self.addCleanup(host.kill)

        def ask():
            host.stdin.write("overlay C:\\Sync\\Bilder\n")
            host.stdin.flush()
            answer = []
            while not answer or not answer[-1].startswith("["):  # its exit code ends an answer
                answer.append(host.stdout.readline())
            return answer

        first = ask()
        self.assertIn("C:\\Sync\\Bilder: no overlay\n", first)
        self.assertEqual(self.install(), HELD)
        moved = self.wine.path(FOLDER) / "sndxdll.dll.1.old"
        self.assertTrue(moved.exists())
        self.assertEqual(ask(), first)  # the old module goes on in the program that holds it
        self.assertIn(f"icon 0 of {MODULE}\n", self.explorer("C:\\Sync", "--report")[1])  # others get the new one
        self.uninstall()
        self.assertTrue(moved.exists())
        # Nobody finds the class any more, but the program that has the module goes on until it ends.
        self.assertIn("REGDB_E_CLASSNOTREG", "".join(ask()))
        self.assertIsNone(host.poll())
        host.communicate("quit\n", timeout=20)
        # A program that has the module traces until it ends.
        self.assert_nothing_left("tracedll_Sendorashellhost.txt")


if __name__ == "__main__":
    unittest.main()
