#pragma once
// The shell's extension interfaces, dropped files and well-known folders.

#include "sndx/types.h"
#include "sndx/com.h"

SNDX_DECLARE_HANDLE(HDROP);

// Header of a block of dropped files; the list of names begins pFiles bytes behind its start and ends with
// an empty name.
struct DROPFILES
{
    DWORD pFiles;
    POINT pt;
    BOOL fNC;
    BOOL fWide; // FALSE: names in the system's narrow character set
};
static_assert(sizeof(DROPFILES) == 20);

// Item identifier lists are opaque here: no folder object makes or reads them.
struct ITEMIDLIST;
using LPCITEMIDLIST = const ITEMIDLIST*;
using PCIDLIST_ABSOLUTE = LPCITEMIDLIST;

struct IShellExtInit : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Initialize(PCIDLIST_ABSOLUTE folder, IDataObject* data,
                                                 HKEY classKey) = 0;
};

#define CMF_NORMAL 0x0u
#define CMF_DEFAULTONLY 0x1u
#define CMF_VERBSONLY 0x2u
#define CMF_EXPLORE 0x4u

#define GCS_HELPTEXTA 0x1u
#define GCS_VERBW 0x4u
#define GCS_HELPTEXTW 0x5u
#define GCS_VALIDATEW 0x6u

#define SW_SHOWNORMAL 1

// The verb is a text, or an offset from the first command identifier (MAKEINTRESOURCEA).
struct CMINVOKECOMMANDINFO
{
    DWORD cbSize;
    DWORD fMask;
    HWND hwnd;
    LPCSTR lpVerb;
    LPCSTR lpParameters;
    LPCSTR lpDirectory;
    int nShow;
    DWORD dwHotKey;
    HANDLE hIcon;
};
static_assert(sizeof(CMINVOKECOMMANDINFO) == 56);

struct IContextMenu : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE QueryContextMenu(HMENU menu, UINT index, UINT firstCommand,
                                                       UINT lastCommand, UINT flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE InvokeCommand(CMINVOKECOMMANDINFO* info) = 0;
    // For the wide types the narrow pointer is a WCHAR buffer of length units.
    virtual HRESULT STDMETHODCALLTYPE GetCommandString(UINT_PTR command, UINT type, UINT* reserved,
                                                       CHAR* text, UINT length) = 0;
};

#define ISIOI_ICONFILE 0x1u
#define ISIOI_ICONINDEX 0x2u

struct IShellIconOverlayIdentifier : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE IsMemberOf(PCWSTR path, DWORD attributes) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOverlayInfo(PWSTR iconFile, int length, int* index,
                                                     DWORD* flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPriority(int* priority) = 0;
};

#define CSIDL_APPDATA 0x001a
#define SHGFP_TYPE_CURRENT 0u

extern "C"
{
    extern const IID IID_IShellExtInit;
    extern const IID IID_IContextMenu;
    extern const IID IID_IShellIconOverlayIdentifier;

    // With index 0xFFFFFFFF the number of names; without a buffer the length of a name; otherwise the number
    // of units copied (a longer name is cut). Lengths leave out the terminator, the capacity includes it.
    UINT WINAPI DragQueryFileW(HDROP drop, UINT index, LPWSTR file, UINT capacity);

    // CSIDL_APPDATA, made when missing. path holds MAX_PATH units.
    HRESULT WINAPI SHGetFolderPathW(HWND owner, int folder, HANDLE token, DWORD flags, LPWSTR path);
}
