#pragma once
// Basic types, constants and macros of the Windows interfaces. DWORD and LONG are 32 bits wide here, as
// on Windows; WCHAR is a 16-bit unit.

#include <cstddef>
#include <cstdint>

#include "sndx/errors.h"

#define WINAPI
#define CALLBACK
#define STDMETHODCALLTYPE
#define __cdecl

#define TEXT_LITERAL_(text) u##text
#define TEXT(text) TEXT_LITERAL_(text)

using CHAR = char;
using WCHAR = char16_t;
using BYTE = std::uint8_t;
using BOOL = int;
using WORD = std::uint16_t;
using UINT = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using DWORD64 = std::uint64_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using HRESULT = std::int32_t;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPSTR = char*;
using LPCSTR = const char*;
using PWSTR = WCHAR*;
using LPWSTR = WCHAR*;
using PCWSTR = const WCHAR*;
using LPCWSTR = const WCHAR*;
using LPDWORD = DWORD*;
using LPBYTE = BYTE*;
using PDWORD = DWORD*;
using LPBOOL = BOOL*;

// Handles are opaque. The kinds that C++ must not mix up have types of their own.
using HANDLE = void*;
using HLOCAL = void*;
using HGLOBAL = void*;
#define SNDX_DECLARE_HANDLE(name)                                                                            \
    struct name##__                                                                                          \
    {                                                                                                        \
        int unused;                                                                                          \
    };                                                                                                       \
    using name = name##__*
SNDX_DECLARE_HANDLE(HINSTANCE);
SNDX_DECLARE_HANDLE(HWND);
SNDX_DECLARE_HANDLE(HMENU);
SNDX_DECLARE_HANDLE(HICON);
SNDX_DECLARE_HANDLE(HKEY);
using HMODULE = HINSTANCE;
using PHKEY = HKEY*;
using FARPROC = std::intptr_t (*)();

union LARGE_INTEGER
{
    LONGLONG QuadPart;
};

struct POINT
{
    LONG x;
    LONG y;
};

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFu

struct GUID
{
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
static_assert(sizeof(GUID) == 16);
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const GUID&;
using REFCLSID = const GUID&;

// Results of COM methods.
#define S_OK (static_cast<HRESULT>(0))
#define S_FALSE (static_cast<HRESULT>(1))
#define E_NOTIMPL (static_cast<HRESULT>(0x80004001u))
#define E_NOINTERFACE (static_cast<HRESULT>(0x80004002u))
#define E_POINTER (static_cast<HRESULT>(0x80004003u))
#define E_FAIL (static_cast<HRESULT>(0x80004005u))
#define E_OUTOFMEMORY (static_cast<HRESULT>(0x8007000Eu))
#define E_INVALIDARG (static_cast<HRESULT>(0x80070057u))
#define CLASS_E_NOAGGREGATION (static_cast<HRESULT>(0x80040110u))
#define CLASS_E_CLASSNOTAVAILABLE (static_cast<HRESULT>(0x80040111u))
#define DV_E_FORMATETC (static_cast<HRESULT>(0x80040064u))
#define DV_E_TYMED (static_cast<HRESULT>(0x80040069u))
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)

#define LOWORD(value) (static_cast<WORD>(static_cast<DWORD_PTR>(value) & 0xffff))
#define MAKEINTRESOURCEA(id) (reinterpret_cast<LPSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(id))))

extern "C"
{
    DWORD WINAPI GetLastError();
}
