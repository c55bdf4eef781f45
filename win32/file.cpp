#include "win32/file.h"

#include <shlobj.h>

#include "gen/debug.h"

LSharingRetry::LSharingRetry(std::uint32_t uTimeoutMs)
    : m_uTimeLeft(uTimeoutMs), m_uWait((m_uTimeLeft + 127) / 128)
{
}

bool LSharingRetry::Wait()
{
    if (GetLastError() != ERROR_SHARING_VIOLATION || m_uTimeLeft <= m_uWait)
    {
        return false;
    }
    // Bounded: the sum of all waits stays below the time-out.
    Sleep(static_cast<DWORD>(m_uWait));
    m_uTimeLeft -= m_uWait;
    m_uWait *= 2;
    return true;
}

bool LFile::IsFolder(const WCHAR* szPath)
{
    const DWORD uAttributes = GetFileAttributesW(szPath);
    return uAttributes != INVALID_FILE_ATTRIBUTES && (uAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

WCHAR* LFile::GetAppDataFolder(WCHAR* szFolder)
{
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, szFolder)))
    {
        szFolder[0] = 0;
    }
    return szFolder;
}

HANDLE LFile::OpenWithRetry(const WCHAR* szPath, DWORD uAccess, DWORD uShareMode, DWORD uCreation,
                            std::uint32_t uTimeoutMs)
{
    LSharingRetry retry(uTimeoutMs);
    HANDLE hFile = INVALID_HANDLE_VALUE;
    do
    {
        hFile = CreateFileW(szPath, uAccess, uShareMode, nullptr, uCreation, FILE_ATTRIBUTE_NORMAL, nullptr);
    } while (hFile == INVALID_HANDLE_VALUE && retry.Wait());
    // A link may lead to a pipe or a device, which could keep its readers and writers for ever.
    if (hFile != INVALID_HANDLE_VALUE && GetFileType(hFile) != FILE_TYPE_DISK)
    {
        CloseHandle(hFile);
        hFile = INVALID_HANDLE_VALUE;
    }
    return hFile;
}

HANDLE LFile::OpenForRead(const WCHAR* szPath, std::uint32_t uTimeoutMs)
{
    return OpenWithRetry(szPath, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, uTimeoutMs);
}

HANDLE LFile::OpenForAppend(const WCHAR* szPath, std::uint32_t uTimeoutMs)
{
    const HANDLE hFile =
        OpenWithRetry(szPath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS, uTimeoutMs);
    const LARGE_INTEGER nNowhere = {};
    if (hFile != INVALID_HANDLE_VALUE && !SetFilePointerEx(hFile, nNowhere, nullptr, FILE_END))
    {
        // What was written now would stand over the beginning of the file.
        CloseHandle(hFile);
        return INVALID_HANDLE_VALUE;
    }
    return hFile;
}

bool LFile::DeleteWithRetry(const WCHAR* szPath, std::uint32_t uTimeoutMs)
{
    LSharingRetry retry(uTimeoutMs);
    for (;;)
    {
        const bool bDeleted = DeleteFileW(szPath) != FALSE;
        if (bDeleted || !retry.Wait())
        {
            return bDeleted;
        }
    }
}

bool LFile::Move(const WCHAR* szFrom, const WCHAR* szTo)
{
    return MoveFileW(szFrom, szTo) != FALSE;
}

void LFileRef::Close()
{
    if (IsOpen())
    {
        CloseHandle(hFile);
        hFile = INVALID_HANDLE_VALUE;
    }
}

std::uint32_t LFileRef::_Read(void* Buffer, std::size_t BufferSize)
{
    if (BufferSize > UINT32_MAX)
    {
        LDebugAssertFailed("LFileRef::_Read", "BufferSize <= UINT32_MAX", __FILE__, __LINE__);
    }
    DWORD uRead = 0;
    return ReadFile(hFile, Buffer, static_cast<DWORD>(BufferSize), &uRead, nullptr) ? uRead : 0;
}

std::uint32_t LFileRef::_Write(const void* Buffer, std::size_t BufferSize)
{
    if (BufferSize > UINT32_MAX)
    {
        LDebugAssertFailed("LFileRef::_Write", "BufferSize <= UINT32_MAX", __FILE__, __LINE__);
    }
    DWORD uWritten = 0;
    return WriteFile(hFile, Buffer, static_cast<DWORD>(BufferSize), &uWritten, nullptr) ? uWritten : 0;
}

bool LBufferedReadFileRef::FillBuffer()
{
    uPos = 0;
    uEnd = Read(Buffer, sizeof(Buffer));
    return uEnd != 0;
}

bool LBufferedReadFileRef::ReadLine(char* szLine, std::size_t uSize)
{
    std::size_t n = 0;
    for (;;)
    {
        if (uPos == uEnd && !FillBuffer())
        {
            szLine[n] = 0;
            return n > 0;
        }
        const std::uint8_t c = Buffer[uPos];
        ++uPos;
        if (c == '\r')
        {
            // The LF of a CR LF may stand in the next block.
            if ((uPos != uEnd || FillBuffer()) && Buffer[uPos] == '\n')
            {
                ++uPos;
            }
            break;
        }
        if (c == '\n')
        {
            break;
        }
        if (n + 1 < uSize)
        {
            szLine[n] = static_cast<char>(c);
            ++n;
        }
    }
    szLine[n] = 0;
    return true;
}
