#pragma once
// Character sets, the system's message texts, and the runtime's formatted output.

#include <cstdarg>

#include "sndx/base.h"
#include "sndx/memory.h"

#define CP_ACP 0u // UTF-8 here
#define CP_UTF8 65001u

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x00000100u
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000u
#define LANG_NEUTRAL 0x00u
#define SUBLANG_DEFAULT 0x01u
#define MAKELANGID(primary, sub) (static_cast<WORD>((sub) << 10 | (primary)))

extern "C"
{
    // length is in units of the source, -1 for a text with terminator, which is then converted, too. size is
    // in units of the target; 0 asks for the number needed. The result is the number of units written or
    // needed, 0 on failure: ERROR_INSUFFICIENT_BUFFER (the target holds what fitted) or
    // ERROR_INVALID_PARAMETER. What is invalid becomes U+FFFD. The flags are not looked at.
    int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR source, int length, LPWSTR target,
                                   int size);
    int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int length, LPSTR target,
                                   int size, LPCSTR defaultCharacter, LPBOOL usedDefault);

    // English texts of the codes that the layer reports, each with CR LF at its end. The three flags are
    // required; buffer is the address of a pointer that receives a block for LocalFree. The length without
    // terminator; 0 with ERROR_MR_MID_NOT_FOUND for another code.
    DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID source, DWORD code, DWORD language, LPWSTR buffer,
                                DWORD size, va_list* arguments);

    // Formatted output in the language of the Microsoft runtime, as far as it is used (text/printf.cpp); -1
    // for any other conversion. size is the room in units of the text. A text shorter than that is
    // terminated, one of just that length is not, a longer one is cut and the result is -1. Otherwise the
    // result is the length. Null with size 0 asks for the length.
    int _vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments);
    int _vsnwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, va_list arguments);
}
