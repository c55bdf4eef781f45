#pragma once
// Registry. The store is one text file, <root>/registry.reg, in the format of the Windows registry editor;
// every call reads it afresh when it has changed, and every change is written before the call returns.
// Names that a line of that format cannot hold (control characters, half surrogate pairs) are refused.

#include "sndx/types.h"
#include "sndx/security.h"

using REGSAM = ACCESS_MASK;
using LSTATUS = LONG;

#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFF80000001u)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFF80000002u)))

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
// View of HKEY_LOCAL_MACHINE\Software; without a flag it is the native (64-bit) one.
#define KEY_WOW64_64KEY 0x0100u
#define KEY_WOW64_32KEY 0x0200u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_MULTI_SZ 7u

#define REG_CREATED_NEW_KEY 1u
#define REG_OPENED_EXISTING_KEY 2u

extern "C"
{
    // All return an error code and leave the last error alone. A null or empty path names the key itself.
    LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result);
    LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD reserved, LPWSTR className, DWORD options,
                                   REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY result,
                                   LPDWORD disposition);
    LSTATUS WINAPI RegCloseKey(HKEY key);

    // A null or empty name is the key's default value. Data is stored and returned byte for byte: no
    // terminator is added to text on either way.
    LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                                  DWORD size);
    LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                    LPDWORD size);
    LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name);

    // Sub-keys in the order of their upper-cased names. length in units, terminator included.
    LSTATUS WINAPI RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD length);
    // Deletes a key with everything below; without a path everything below the open key, which stays.
    LSTATUS WINAPI RegDeleteTreeW(HKEY key, LPCWSTR path);
}
