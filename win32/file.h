#pragma once
// Owners of a file handle, and the waits for a file that others hold. A file that could not be opened leaves
// an object that is not open; reading and writing it gives 0 bytes. One thread at a time.

#include "gen/file.h"
#include "gen/types.h"

// The waits between the attempts of an operation that a sharing violation defeats: with a time-out of 1000 ms
// 8, 16, 32, 64, 128 and 256 ms, with 0 none (contract.md D5).
class LSharingRetry
{
  public:
    explicit LSharingRetry(std::uint32_t uTimeoutMs);

    // Right behind a failed attempt, whose last error tells why. True, after the wait, when it is to be tried
    // again; false at once when it failed for another reason or the time is used up.
    bool Wait();

  private:
    std::uint64_t m_uTimeLeft;
    std::uint64_t m_uWait;
};

class LFileRef
{
  public:
    LFileRef() : hFile(INVALID_HANDLE_VALUE) {}
    explicit LFileRef(HANDLE handle) : hFile(handle) {}
    ~LFileRef() { Close(); }
    LFileRef(const LFileRef&) = delete;
    LFileRef& operator=(const LFileRef&) = delete;

    // A null handle counts as open.
    bool IsOpen() const { return hFile != INVALID_HANDLE_VALUE; }
    void Close();

  protected:
    // One read or write at the current position; the number of bytes moved, 0 at the end of the file or on
    // failure. Sizes above 32 bits are reported.
    std::uint32_t _Read(void* Buffer, std::size_t BufferSize);
    std::uint32_t _Write(const void* Buffer, std::size_t BufferSize);

    HANDLE hFile;
};
static_assert(sizeof(LFileRef) == 8); // contract.md M8

class LReadFileRef : public LFileRef
{
  public:
    LReadFileRef(const WCHAR* szPath, std::uint32_t uTimeoutMs)
        : LFileRef(LFile::OpenForRead(szPath, uTimeoutMs))
    {
    }
    std::uint32_t Read(void* Buffer, std::size_t BufferSize) { return _Read(Buffer, BufferSize); }
};

class LWriteFileRef : public LFileRef
{
  public:
    LWriteFileRef(const WCHAR* szPath, std::uint32_t uTimeoutMs)
        : LFileRef(LFile::OpenForAppend(szPath, uTimeoutMs))
    {
    }
    std::uint32_t Write(const void* Buffer, std::size_t BufferSize) { return _Write(Buffer, BufferSize); }
};

// Reads lines that end in LF, CR LF or CR. Bytes are not decoded.
class LBufferedReadFileRef : public LReadFileRef
{
  public:
    LBufferedReadFileRef(const WCHAR* szPath, std::uint32_t uTimeoutMs)
        : LReadFileRef(szPath, uTimeoutMs), uPos(0), uEnd(0)
    {
    }

    // The next line without its end, at most uSize - 1 bytes and a terminator (uSize at least 1); what does
    // not fit is dropped. False at the end of the file with nothing read.
    bool ReadLine(char* szLine, std::size_t uSize);

  private:
    // False at the end of the file.
    bool FillBuffer();

    std::uint8_t Buffer[8192];
    std::uint64_t uPos; // next unread byte
    std::uint64_t uEnd; // valid bytes
};
static_assert(sizeof(LReadFileRef) == 8 && sizeof(LWriteFileRef) == 8); // contract.md M8
static_assert(sizeof(LBufferedReadFileRef) == 8216);                    // contract.md M9
