#pragma once
// Operations on paths and files, all static. Paths live in buffers of LSTR characters; '/' and '\' both
// separate elements, '\' is inserted where a path is composed. Results go to the caller's buffer, which is
// also returned. The path operations are in gen/file, those that ask the system in win32/file.

#include "gen/types.h"

class LFile
{
  public:
    static bool IsSeparator(WCHAR c) { return c == TEXT('/') || c == TEXT('\\'); }

    // The path without its last element and the separator before it; "/" for an element directly below "/";
    // empty without a separator. At most 260 characters are looked at; a longer path is reported.
    static WCHAR* GetFolderFromPath(WCHAR* szFolder, const WCHAR* szPath);
    // The last element; empty for a bare drive ("C:") and behind a closing separator. An element of more than
    // 259 characters is reported and cut there.
    static WCHAR* GetFileFromPath(WCHAR* szFile, const WCHAR* szPath);
    // The last element without its extension, the last '.' and what follows; a leading dot begins no
    // extension.
    static WCHAR* GetFileTitleFromPath(WCHAR* szTitle, const WCHAR* szPath);
    // Folder, separator where needed, name and extension. A folder of more than 258 characters, a name with a
    // leading separator and a result of more than 259 characters are reported. szPath may be szFolder.
    static WCHAR* MakeFilePath(WCHAR* szPath, const WCHAR* szFolder, const WCHAR* szFileName,
                               const WCHAR* szExtension);
    static WCHAR* MakeFilePath(WCHAR* szPath, const WCHAR* szFolder, const WCHAR* szFileName);

    // True when the attributes can be read and name a directory.
    static bool IsFolder(const WCHAR* szPath);
    // The user's roaming application-data folder; empty when the shell cannot supply it.
    static WCHAR* GetAppDataFolder(WCHAR* szFolder);

    // Opens or creates with normal attributes. Only a sharing violation is waited for: the waits double from
    // 1/128 of the time-out and stay below it in sum; 0 tries once. INVALID_HANDLE_VALUE on failure, and for
    // what is no file on a disk. The caller owns the handle (LFileRef).
    static HANDLE OpenWithRetry(const WCHAR* szPath, DWORD uAccess, DWORD uShareMode, DWORD uCreation,
                                std::uint32_t uTimeoutMs);
    // Existing files only, shared with other readers.
    static HANDLE OpenForRead(const WCHAR* szPath, std::uint32_t uTimeoutMs);
    // Existing or new, shared with readers only, positioned at the end.
    static HANDLE OpenForAppend(const WCHAR* szPath, std::uint32_t uTimeoutMs);
    // Waits as OpenWithRetry does. True when deleted.
    static bool DeleteWithRetry(const WCHAR* szPath, std::uint32_t uTimeoutMs);
    // One attempt; an existing target is not replaced.
    static bool Move(const WCHAR* szFrom, const WCHAR* szTo);

  private:
    static WCHAR* _GetFolderFromPath(WCHAR* szFolder, const WCHAR* szPath);
    static WCHAR* _GetFileFromPath(WCHAR* szFile, const WCHAR* szPath);
    static WCHAR* _MakeFilePath(WCHAR* szPath, const WCHAR* szFolder, const WCHAR* szFileName,
                                const WCHAR* szExtension);
};
