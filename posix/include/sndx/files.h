#pragma once
// Files. Paths are Windows paths of drives C: and Z:; both separators count and letters match
// in either case.

#include "sndx/base.h"

// Access.
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u

// What an open file allows to other opens of the same file.
#define FILE_SHARE_READ 0x00000001u
#define FILE_SHARE_WRITE 0x00000002u
#define FILE_SHARE_DELETE 0x00000004u

// Creation dispositions. CREATE_ALWAYS and OPEN_ALWAYS leave ERROR_ALREADY_EXISTS as last error when the
// file was there already, and ERROR_SUCCESS when they made it.
#define CREATE_NEW 1u
#define CREATE_ALWAYS 2u
#define OPEN_EXISTING 3u
#define OPEN_ALWAYS 4u

#define FILE_ATTRIBUTE_DIRECTORY 0x00000010u
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020u
#define FILE_ATTRIBUTE_NORMAL 0x00000080u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define FILE_FLAG_OVERLAPPED 0x40000000u

#define FILE_END 2u

// Pipes have no type of their own here.
#define FILE_TYPE_UNKNOWN 0u
#define FILE_TYPE_DISK 1u

struct FILETIME
{
    DWORD dwLowDateTime; // of the count of 100 ns since 1601
    DWORD dwHighDateTime;
};

// Both tell of a file's attributes, times and size; the creation is that of its last change of name or
// content, which is what POSIX keeps.
struct WIN32_FILE_ATTRIBUTE_DATA
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
};
struct BY_HANDLE_FILE_INFORMATION : WIN32_FILE_ATTRIBUTE_DATA
{
};

struct WIN32_FIND_DATAW
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved[2];
    WCHAR cFileName[260];
    WCHAR cAlternateFileName[14]; // always empty
};
static_assert(sizeof(WIN32_FIND_DATAW) == 592);
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW*;

enum GET_FILEEX_INFO_LEVELS
{
    GetFileExInfoStandard
};

extern "C"
{
    // Opens a file, or the client end of a pipe (\\.\pipe\NAME). Folders cannot be opened. Only transfers of
    // pipes can be overlapped.
    HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                              DWORD disposition, DWORD flags, HANDLE templateFile);
    BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytes, LPOVERLAPPED overlapped);
    BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD bytes, LPOVERLAPPED overlapped);
    BOOL WINAPI FlushFileBuffers(HANDLE file);
    DWORD WINAPI GetFileType(HANDLE file);
    BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method);

    BOOL WINAPI DeleteFileW(LPCWSTR path);
    // Does not replace an existing target.
    BOOL WINAPI MoveFileW(LPCWSTR from, LPCWSTR to);
    DWORD WINAPI GetFileAttributesW(LPCWSTR path);
    BOOL WINAPI GetFileAttributesExW(LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID information);
    BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information);

    // Entries of a folder whose names fit the path's last element, in which one '*' may stand for anything,
    // in the order of their folded names; "." and ".." are none of them, nor is what is no file. The names
    // come as they are spelled. ERROR_NO_MORE_FILES at the end.
    HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
    BOOL WINAPI FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data);
    BOOL WINAPI FindClose(HANDLE find);

    // Keeps FILE_ATTRIBUTE_ARCHIVE and nothing else.
    BOOL WINAPI SetFileAttributesW(LPCWSTR path, DWORD attributes);
}
