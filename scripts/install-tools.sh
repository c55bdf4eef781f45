#!/usr/bin/env bash
# Installs what a build needs and the machine lacks. Source it and call
#     sndx_need native            compiler, CMake, GoogleTest, CLI11, nlohmann-json, Python (for the checks)
#     sndx_need windows           cross compilers, their headers and libraries, Wine and the makers of installers
#     sndx_need clang             the second native compiler, with libFuzzer
#     sndx_need coverage          what counts the executed lines
#     sndx_need lint              what scripts/lint.sh runs
#     sndx_need screenshots       a display in memory, the fonts of captions and menus, Pillow
# Returns 1, after saying the one command to run, when something is missing and cannot be installed.

sndx_missing() {
    local missing=()
    case $1 in
    native)
        command -v g++ >/dev/null || missing+=(g++)
        command -v cmake >/dev/null || missing+=(cmake)
        command -v make >/dev/null || missing+=(make)
        command -v python3 >/dev/null || missing+=(python3)
        [ -f /usr/src/googletest/CMakeLists.txt ] || missing+=(googletest)
        [ -f /usr/include/CLI/CLI.hpp ] || missing+=(libcli11-dev)
        [ -f /usr/include/nlohmann/json.hpp ] || missing+=(nlohmann-json3-dev)
        compgen -G '/usr/lib/*/libgtest.a' >/dev/null || missing+=(libgtest-dev)
        ;;
    windows)
        command -v x86_64-w64-mingw32-g++-posix >/dev/null || missing+=(g++-mingw-w64-x86-64-posix)
        command -v clang++-19 >/dev/null || missing+=(clang-19)
        command -v ld.lld-19 >/dev/null || missing+=(lld-19)
        command -v llvm-symbolizer-19 >/dev/null || missing+=(llvm-19)
        { [ -x /usr/lib/wine/wine64 ] || command -v wine >/dev/null; } || missing+=(wine wine64)
        command -v makensis >/dev/null || missing+=(nsis)
        { command -v wixl && command -v msiinfo; } >/dev/null || missing+=(wixl msitools)
        command -v faketime >/dev/null || missing+=(faketime)
        command -v osslsigncode >/dev/null || missing+=(osslsigncode)
        command -v openssl >/dev/null || missing+=(openssl)
        ;;
    clang)
        command -v clang++-19 >/dev/null || missing+=(clang-19)
        command -v llvm-ar-19 >/dev/null || missing+=(llvm-19)
        compgen -G '/usr/lib/llvm-19/lib/clang/19/lib/linux/libclang_rt.fuzzer-*.a' >/dev/null ||
            missing+=(libclang-rt-19-dev)
        ;;
    coverage) command -v gcovr >/dev/null || missing+=(gcovr) ;;
    lint)
        command -v clang-format >/dev/null || missing+=(clang-format)
        command -v clang-tidy >/dev/null || missing+=(clang-tidy)
        command -v shellcheck >/dev/null || missing+=(shellcheck)
        command -v git >/dev/null || missing+=(git)
        ;;
    screenshots)
        command -v Xvfb >/dev/null || missing+=(xvfb)
        [ -f /usr/share/wine/fonts/marlett.ttf ] || missing+=(fonts-wine)
        # The system's own Python: the package serves no other.
        /usr/bin/python3 -c 'import PIL' 2>/dev/null || missing+=(python3 python3-pil)
        ;;
    esac
    echo "${missing[*]}"
}

sndx_need() {
    local missing
    missing=$(sndx_missing "$1")
    [ -z "$missing" ] && return 0
    local command="apt-get install -y --no-install-recommends $missing"
    if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
        echo "Installing for \"$1\": $missing"
        # shellcheck disable=SC2086
        if { apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing; } \
            >/tmp/sndx-install.$$.log 2>&1 && [ -z "$(sndx_missing "$1")" ]; then
            rm -f /tmp/sndx-install.$$.log
            return 0
        fi
        tail -5 /tmp/sndx-install.$$.log
        rm -f /tmp/sndx-install.$$.log
    fi
    echo "Missing for \"$1\": $missing. Run this as root and start again:"
    echo "    apt-get update && $command"
    return 1
}
