#!/usr/bin/env python3
"""Makes the files that are handed out. The same input gives the same bytes: SOURCE_DATE_EPOCH is taken for the time.

    make_package.py zip OUTPUT FOLDER
    make_package.py msi OUTPUT FOLDER VERSION REGISTRATION-FOLDER
        installs the files of FOLDER by package.wxs and enters registration.wxi
    make_package.py sign CERTIFICATE KEY TIME-STAMP-SERVER FILE…
        signs in place, for programs, libraries and MSI packages; the server may be empty
    make_package.py sums FOLDER
        SHA256SUMS of what is there
"""
import datetime
import hashlib
import os
import pathlib
import re
import subprocess
import sys
import uuid
import zipfile

SOURCE = pathlib.Path(__file__).resolve().with_name("package.wxs")
OURS = uuid.UUID("5D9A2E0C-6C41-4B8E-9C57-0F6B4E1D7A23")  # the upgrade code, as good a name space as any
TIME = int(os.environ.get("SOURCE_DATE_EPOCH") or datetime.datetime.now().timestamp())
MOMENT = datetime.datetime.fromtimestamp(TIME, datetime.timezone.utc)


def make_zip(output, folder):
    with zipfile.ZipFile(output, "w", zipfile.ZIP_DEFLATED) as archive:
        for file in sorted(pathlib.Path(folder).rglob("*")):
            if file.is_file():
                entry = zipfile.ZipInfo(f"{pathlib.Path(folder).name}/{file.relative_to(folder).as_posix()}",
                                        MOMENT.timetuple()[:6])
                entry.external_attr = 0o100644 << 16
                archive.writestr(entry, file.read_bytes(), zipfile.ZIP_DEFLATED)


def make_msi(output, folder, version, registration):
    output, folder, registration = (pathlib.Path(path).resolve() for path in (output, folder, registration))
    content = hashlib.sha256(version.encode())
    for file in sorted(folder.iterdir()):
        content.update(file.read_bytes())
        os.utime(file, (TIME, TIME))  # the cabinet keeps it
    for file in (SOURCE, registration / "registration.wxi"):
        content.update(file.read_bytes())
    product, package = (str(uuid.uuid5(OURS, what + content.hexdigest())).upper() for what in ("product", f"package {TIME}"))
    output.unlink(missing_ok=True)
    # wixl writes the time of its run into the package; it is told another one. The files' own are right.
    subprocess.run(["faketime", "-f", MOMENT.strftime("%Y-%m-%d %H:%M:%S"), "wixl", "-a", "x64", "-I", registration,
                    "-o", output, "-D", f"Version={version}", "-D", f"ProductCode={product}", SOURCE],
                   env={**os.environ, "NO_FAKE_STAT": "1", "TZ": "UTC"}, cwd=folder, check=True)
    # wixl draws the package's own identifier; it stands once in the file, among the summary information.
    summary = subprocess.run(["msiinfo", "suminfo", output], check=True, text=True, stdout=subprocess.PIPE).stdout
    drawn = re.search(r"\(UUID\): \{(.*)\}", summary)[1].encode()
    before, after = output.read_bytes().split(drawn)
    output.write_bytes(before + package.encode() + after)


def sign(certificate, key, server, *files):
    for file in files:
        signed = pathlib.Path(f"{file}.signed")
        subprocess.run(["osslsigncode", "sign", "-certs", certificate, "-key", key, "-h", "sha256",
                        "-n", "Sendora Shell Extension", *(["-ts", server] if server else []),
                        "-in", file, "-out", signed], check=True, stdout=subprocess.DEVNULL)
        signed.replace(file)


def make_sums(folder):
    sums = pathlib.Path(folder) / "SHA256SUMS"
    files = sorted(file for file in sums.parent.iterdir() if file != sums)
    sums.write_text("".join(f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {file.name}\n" for file in files))


if __name__ == "__main__":
    command = {"zip": make_zip, "msi": make_msi, "sign": sign, "sums": make_sums}.get("".join(sys.argv[1:2]))
    if not command:
        raise SystemExit(__doc__)
    command(*sys.argv[2:])
