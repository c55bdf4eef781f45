#!/usr/bin/env bash
# The POSIX layer declares what somebody calls, and no more. Fails on
#   - a function declared in posix/include that is called nowhere but in the layer, in its own tests
#     (tests/platform) and in sources for Windows alone (tools/explorer, *_windows_test.cpp);
#   - an error code defined twice, or elsewhere than in posix/include/sndx/errors.h;
#   - a call of the product that can fail and that no test can make fail (FailCall of sndxposix.h).
set -u
cd "$(dirname "$0")/.." || exit 1
git ls-files -co --exclude-standard -- '*.h' '*.cpp' | sort -u | exec python3 -c '
import os, re, sys

# Calls of the product that have no result to fail with, or always the same one.
CANNOT_FAIL = set("""
    DebugBreak DeleteCriticalSection EnterCriticalSection FreeSid GetCommandLineW GetCurrentThreadId
    GetLastError GetLengthSid GetNativeSystemInfo GetProcessHeap GetSystemInfo GetTickCount
    LeaveCriticalSection OutputDebugStringA ReleaseStgMedium Sleep VerSetConditionMask _aligned_free
    _get_heap_handle""".split())
PRODUCT = ("dll/", "diag/", "gen/", "win32/")
NO_USE = ("posix/", "tests/platform/", "tools/explorer/")

text = {}
for path in sys.stdin.read().split():
    if os.path.exists(path):
        with open(path, encoding="utf-8") as file:
            text[path] = file.read()
code = {path: re.sub(r"//.*|\"(?:\\.|[^\"\\\n])*\"", "", content) for path, content in text.items()}
words = {path: set(re.findall(r"\w+", content)) for path, content in code.items()}

declared = {}
for path in code:
    if path.startswith("posix/include/"):
        blocks = re.findall(r"^(?:extern \"?C?\"?|namespace sndxposix)\s*\{(.*?)^\}", code[path], re.S | re.M)
        for name in re.findall(r"\b(\w+)\([^;{}]*\);", "\n".join(blocks)):
            declared[name] = path
faults = []
if len(declared) < 50:
    faults.append("posix/include: only %d declarations were found; the check no longer reads it" % len(declared))
layer = "".join(content for path, content in text.items() if path.startswith("posix/") and path.endswith(".cpp"))
for name, path in sorted(declared.items()):
    users = [user for user in words if name in words[user]]
    if not any(not user.startswith(NO_USE) and not user.endswith("_windows_test.cpp") for user in users):
        faults.append("%s: nothing calls %s" % (path, name))
    can_fail = "\"%s\"" % name in layer
    is_products = any(user.startswith(PRODUCT) for user in users)
    if is_products and not can_fail and name not in CANNOT_FAIL:
        faults.append("%s: the product calls %s, and no test can make it fail" % (path, name))
    if name in CANNOT_FAIL and (can_fail or not is_products):
        faults.append("scripts/check-posix.sh: %s has no place among the calls that cannot fail" % name)

seen = set()
for path in sorted(text):
    for name, number in re.findall(r"^\s*#\s*define\s+(ERROR_\w+)\s+(\w+)", text[path], re.M):
        number = number.rstrip("uUL")
        if not path.endswith("sndx/errors.h"):
            faults.append("%s: %s is no business of this file; error codes stand in sndx/errors.h" % (path, name))
        if name in seen or number in seen:
            faults.append("%s: %s, the name or the number %s, is defined a second time" % (path, name, number))
        seen |= {name, number}
print("\n".join(faults) if faults else "%d calls, %d error codes" % (len(declared), len(seen) // 2))
sys.exit(bool(faults))
'
