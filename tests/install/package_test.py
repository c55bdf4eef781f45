#!/usr/bin/env python3
"""The installers as a user meets them: installed silently on a clean system, used, updated while a program holds the
module, repaired, removed. Run by ctest with the build folder as its argument."""
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

from wineprefix import WinePrefix, wait_until

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1))
FOLDER = "C:\\Program Files\\Taleno Software\\Sendora Shell Extension"
MODULE = FOLDER + "\\sndxdll.dll"
HELD = 3010 & 0xFF  # the installer's code for "an old file goes at the next start", as a shell sees it


class Package:
    """What both installers have to do; each says how it is told to."""

    @classmethod
    def setUpClass(cls):
        cls.wine = cls.enterClassContext(WinePrefix(BUILD / f"package-wineprefix-{cls.__name__}"))
        cls.file = next((BUILD / "package").glob(cls.PACKAGE))
        cls.shared = cls.wine.path("C:\\Sync")
        cls.shared.mkdir()
        (cls.shared / "Rechnung März.txt").write_text("1")
        (cls.shared / "Bilder").mkdir()
        cls.output = BUILD / f"package-requests-{cls.__name__}.txt"
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

    def assert_nothing_left(self, *but):
        self.wine.restart()
        self.assertEqual(self.wine.registry() ^ self.registry, set())
        left = {pathlib.PurePath(file).name for file in self.wine.files() ^ self.files}
        self.assertEqual({name for name in left if not name.startswith(self.SYSTEMS_OWN)}, set(but))

    def test_installed_used_and_removed_leaves_nothing(self):
        self.assertEqual(self.install(), 0)
        self.assertEqual({path.name for path in self.wine.path(FOLDER).iterdir()},
                         {"sndxdll.dll", "sndxdoctor.exe", "install.md", *self.OWN_FILES})
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
        # Its exit code is left out: Wine's list of a process's modules sometimes does not come.
        shown = self.wine.run(FOLDER + "\\sndxdoctor.exe")[1]
        self.assertRegex(shown, "ok +overlay class: Registered")
        self.assertRegex(shown, "ok +menu class: Registered")
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
        self.assertEqual(self.update(), HELD)
        self.assertEqual(ask(), first)  # the old module goes on in the program that holds it
        self.assertIn(f"icon 0 of {MODULE}\n", self.explorer("C:\\Sync", "--report")[1])
        self.uninstall()
        # Nobody finds the class any more, but the program that has the module goes on until it ends.
        self.assertIn("REGDB_E_CLASSNOTREG", "".join(ask()))
        self.assertIsNone(host.poll())
        host.communicate("quit\n", timeout=20)
        # A program that has the module traces until it ends.
        self.assert_nothing_left("tracedll_Sendorashellhost.txt", *self.LEFT_WHEN_HELD)


class SetupProgram(Package, unittest.TestCase):
    PACKAGE, OWN_FILES = "*-setup.exe", ("uninstall.exe",)
    # The uninstaller runs from a copy in a folder among the temporary files; the folder stays there, empty.
    SYSTEMS_OWN = ("~nsu",)
    LEFT_WHEN_HELD = ()

    def install(self):
        return self.wine.run(self.file, "/S")[0]

    update = install

    def uninstall(self):
        """The uninstaller goes on as a copy of itself; its own file is among the last things it removes."""
        self.assertEqual(self.wine.run(FOLDER + "\\uninstall.exe", "/S")[0], 0)
        removed = wait_until(lambda: not self.wine.path(FOLDER + "\\uninstall.exe").exists())
        self.assertTrue(removed)


class Msi(Package, unittest.TestCase):
    PACKAGE, OWN_FILES = "*.msi", ()
    # The folder of the packages that are installed, and the traces, which this installer leaves.
    SYSTEMS_OWN = ("Installer", "tracedll_Sendoraexplorer")
    # Windows deletes a held file at the next start; Wine's installer leaves it.
    LEFT_WHEN_HELD = ("Taleno Software", "Sendora Shell Extension", "sndxdll.dll")

    def setUp(self):
        self.installed = self.file

    def msiexec(self, option):
        code, shown = self.wine.run("msiexec", option, self.installed, "/qn")
        self.assertIn(code, (0, HELD), shown)
        return code

    def install(self):
        return self.msiexec("/i")

    def update(self):
        """To another build of the same version: the module has a byte more."""
        files, self.installed = BUILD / "package-update", BUILD / "package-update.msi"
        shutil.rmtree(files, ignore_errors=True)
        shutil.copytree(BUILD / "install/staging", files)
        with (files / "sndxdll.dll").open("ab") as module:
            module.write(b"\0")
        version = next(self.file.parent.glob("*.msi")).name.split("-")[3]
        subprocess.run([sys.executable, TOP / "install/make_package.py", "msi", self.installed, files, version,
                        BUILD / "install"], check=True)
        return self.install()

    def uninstall(self):
        self.msiexec("/x")

    def test_repair_brings_back_what_was_lost(self):
        self.assertEqual(self.install(), 0)
        module = self.wine.path(MODULE)
        content = module.read_bytes()
        module.unlink()
        contract = (TOP / "tools/contract.h").read_text(encoding="utf-8")
        key = "HKLM\\Software\\Classes\\CLSID\\" + re.search(r'overlayClassText\[\] = "(.*)"', contract)[1]
        self.assertEqual(self.wine.run("reg", "delete", key, "/f")[0], 0)
        # What "msiexec /f" stands for, which Wine's does not carry out.
        self.assertEqual(self.wine.run("msiexec", "/i", self.file, "REINSTALL=ALL", "/qn")[0], 0)
        self.assertEqual(module.read_bytes(), content)
        self.assertIn(f"icon 0 of {MODULE}\n", self.explorer("C:\\Sync", "--report")[1])
        self.uninstall()


if __name__ == "__main__":
    unittest.main()
