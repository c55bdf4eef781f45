"""A clean Wine prefix, for the tests of the package."""
import os
import pathlib
import re
import shutil
import subprocess
import time

TOP = pathlib.Path(__file__).resolve().parents[2]
# Keys that the system writes on its own.
NOT_OURS = re.compile(r"\\(Software\\Wine|Explorer\\(Shell Folders|User Shell Folders|SessionInfo)|Volatile Environment)")


class WinePrefix:
    """With statement: makes the prefix; removes it and every process in it at the end."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.environment = {**os.environ, "SENDORA_WINEPREFIX": str(folder)}
        self.environment.pop("DISPLAY", None)  # windows work, nobody sees them

    def __enter__(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        self._shell('sndx_prefix_begin "$SENDORA_WINEPREFIX"')
        return self

    def __exit__(self, *_):
        self._shell("sndx_prefix_end")

    def _shell(self, command):
        # Not through a pipe: the system's services would keep it open.
        subprocess.run(["bash", "-c", f". scripts/wine-prefix.sh; {command}"], cwd=TOP, env=self.environment,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       timeout=120, check=False)

    def start(self, program, *arguments, **options):
        """A program of the build machine or of the prefix; a subprocess.Popen with text pipes."""
        return subprocess.Popen([TOP / "scripts/wine-run.sh", str(program), *map(str, arguments)],
                                env=self.environment, text=True, encoding="utf-8", errors="replace",
                                **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                   "stderr": subprocess.STDOUT, **options})

    def run(self, program, *arguments):
        """(exit code, output). Codes have eight bits here: 3010 comes as 194."""
        process = self.start(program, *arguments)
        output, _ = process.communicate(timeout=120)
        return process.returncode, output.replace("\r\n", "\n")

    def path(self, windows_path):
        """The build machine's path of a file on drive C:."""
        return self.folder / "drive_c" / windows_path.removeprefix("C:\\").replace("\\", "/")

    def restart(self):
        """What the next start of the system does with files that could not be removed."""
        self._shell("sndx_wineserver -k; sndx_wineserver -w; sndx_wineserver -p; scripts/wine-run.sh wineboot -r")

    def files(self):
        return {str(file.relative_to(self.folder)) for file in (self.folder / "drive_c").rglob("*")}

    def registry(self):
        """Every value of the registry as (key, line). Keys without a value are left out: those around ours belong to
        the system, and a Wine prefix does not have all of them."""
        values = set()
        for root in ("HKEY_LOCAL_MACHINE\\Software", "HKEY_CURRENT_USER"):
            exported = self.folder / "export.reg"
            self.run("regedit", "/E", "Z:" + str(exported).replace("/", "\\"), root)
            key = ""
            for line in exported.read_text(encoding="utf-16").splitlines():
                if line.startswith("["):
                    key = line.strip("[]")
                elif line and key and not NOT_OURS.search(key):
                    values.add((key, line))
            exported.unlink()
        return values


def wait_until(condition, seconds=20):
    """Whether the condition became true in time."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True
