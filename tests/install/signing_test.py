#!/usr/bin/env python3
"""What is handed out, signed with a certificate made for the moment and verified as a receiver would. Run by ctest with
the build folder as its argument."""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1))


def run(*command):
    return subprocess.run(list(map(str, command)), text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)


class Signing(unittest.TestCase):
    def test_each_file_is_signed_in_place_and_a_changed_one_is_refused(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        certificate, key = folder / "certificate.pem", folder / "key.pem"
        made = run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Signing test", "-days", "2",
                   "-addext", "extendedKeyUsage=codeSigning", "-keyout", key, "-out", certificate)
        self.assertEqual(made.returncode, 0, made.stdout)

        def verify(file):
            return run("osslsigncode", "verify", "-CAfile", certificate, "-TSA-CAfile", certificate, file)

        for source in (BUILD / "sndxdll.dll", *BUILD.glob("package/*-setup.exe"), *BUILD.glob("package/*.msi")):
            file = pathlib.Path(shutil.copy(source, folder))
            self.assertNotEqual(verify(file).returncode, 0, f"{file.name} is signed already")
            signed = run(sys.executable, TOP / "install/make_package.py", "sign", certificate, key, "", file)
            self.assertEqual(signed.returncode, 0, signed.stdout)
            verified = verify(file)
            self.assertEqual(verified.returncode, 0, verified.stdout)
            content = bytearray(file.read_bytes())
            at = content.index(source.read_bytes()[0x1000:0x1100])  # within what the signature covers
            content[at] ^= 1
            file.write_bytes(content)
            self.assertNotEqual(verify(file).returncode, 0, f"{file.name} was changed")


if __name__ == "__main__":
    unittest.main()
