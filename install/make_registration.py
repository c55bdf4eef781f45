#!/usr/bin/env python3
"""Makes the registration files of the shell extension from their one list, registration.reg.in.

    make_registration.py TEMPLATE CONTRACT OUTPUT-FOLDER DLL-PATH

takes the identifiers of the classes from CONTRACT, tools/contract.h, and writes into the folder
    register.reg      enters the classes, with DLL-PATH (a Windows path) as the module
    unregister.reg    removes what register.reg enters, and nothing else
    registration.nsh  the same as macros for the setup program, with $INSTDIR\\sndxdll.dll as the module
    registration.wxi  the same for the MSI package, with [INSTALLDIR]sndxdll.dll as the module
"""
import pathlib
import re
import sys

HEADER = "Windows Registry Editor Version 5.00"
VALUE = re.compile(r'^(@|"(?P<name>[^"]*)")="(?P<text>[^"]*)"$')
ROOTS = {"HKEY_LOCAL_MACHINE": "HKLM"}


class Key:
    """One key of the list: its path, whether others have values in it too, and ours as (name, text)."""

    def __init__(self, path, shared):
        self.path, self.shared, self.values = path, shared, []


def read(template, contract):
    text = template.read_text(encoding="ascii")
    for mark, name in (("@OVERLAY@", "overlayClassText"), ("@MENU@", "menuClassText")):
        value = re.search(rf'{name}\[\] = "([^"]*)";', contract.read_text(encoding="utf-8"))[1]
        text = text.replace(mark, value)
    lines = text.splitlines()
    if lines[0] != HEADER:
        raise SystemExit(f"{template}: the first line is not '{HEADER}'")
    keys, shared = [], False
    for number, line in enumerate(lines[1:], 2):
        if line.strip() == "; shared":
            shared = True
        elif not line.strip() or line.startswith(";"):
            continue
        elif line.startswith("[") and line.endswith("]"):
            keys.append(Key(line[1:-1], shared))
            shared = False
        elif keys and (match := VALUE.match(line)):
            keys[-1].values.append((match["name"] or "", match["text"]))
        else:
            raise SystemExit(f"{template}:{number}: not understood: {line}")
    return keys


def outermost(keys):
    """Our own keys without those that go with a key above them, innermost first."""
    own = [key.path for key in keys if not key.shared]
    return [path for path in reversed(own) if not any(path.startswith(other + "\\") for other in own)]


def register(keys, dll):
    for key in keys:
        yield f"\n[{key.path}]"
        for name, text in key.values:
            # The registry editor's text form doubles backslashes.
            yield (f'"{name}"' if name else "@") + '="' + text.replace("@DLL@", dll).replace("\\", "\\\\") + '"'


def unregister(keys):
    for path in outermost(keys):
        yield f"\n[-{path}]"
    for key in keys:
        if key.shared:
            yield f"\n[{key.path}]"
            for name, _ in key.values:
                yield f'"{name}"=-'


def installer(keys):
    def split(path):
        root, rest = path.split("\\", 1)
        return f'{ROOTS[root]} "{rest}"'

    yield "!macro RegisterClasses"
    for key in keys:
        for name, text in key.values:
            text = text.replace("@DLL@", "$INSTDIR\\sndxdll.dll")
            yield f'  WriteRegStr {split(key.path)} "{name}" "{text}"'
    yield "!macroend"
    yield "!macro UnregisterClasses"
    for path in outermost(keys):
        yield f"  DeleteRegKey {split(path)}"
    for key in keys:
        if key.shared:
            for name, _ in key.values:
                yield f'  DeleteRegValue {split(key.path)} "{name}"'
    yield "!macroend"


def package(keys):
    yield "<Include>"
    for key in keys:
        root, path = key.path.split("\\", 1)
        for name, text in key.values:
            attribute = f' Name="{name}"' if name else ""
            text = text.replace("@DLL@", "[INSTALLDIR]sndxdll.dll")
            yield f'  <RegistryValue Root="{ROOTS[root]}" Key="{path}"{attribute} Type="string" Value="{text}"/>'
    yield "</Include>"


def main():
    if len(sys.argv) != 5:
        raise SystemExit(__doc__)
    template, contract, folder = map(pathlib.Path, sys.argv[1:4])
    keys, dll = read(template, contract), sys.argv[4]
    folder.mkdir(parents=True, exist_ok=True)
    for name, lines in (("register.reg", register(keys, dll)), ("unregister.reg", unregister(keys))):
        # UTF-16 with a byte order mark, as the registry editor writes it: the path may hold any character.
        text = HEADER + "\n" + "\n".join(lines) + "\n"
        (folder / name).write_bytes(text.replace("\n", "\r\n").encode("utf-16"))
    (folder / "registration.nsh").write_text("\n".join(installer(keys)) + "\n", encoding="ascii")
    (folder / "registration.wxi").write_text("\n".join(package(keys)) + "\n", encoding="ascii")


main()
