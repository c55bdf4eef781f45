#pragma once
// A named block of memory, backed by the paging file, that every process using the same name sees. Creation
// is serialised across processes by a global mutex; the content has no lock.

#include "gen/debug.h"
#include "gen/types.h"
#include "win32/handle.h"

class LIPCSharedMemoryBuffer
{
  public:
    LIPCSharedMemoryBuffer() : m_pView(nullptr), m_uSize(0) {}
    ~LIPCSharedMemoryBuffer() { Close(); }
    LIPCSharedMemoryBuffer(const LIPCSharedMemoryBuffer&) = delete;
    LIPCSharedMemoryBuffer& operator=(const LIPCSharedMemoryBuffer&) = delete;

    // Creates or opens the block and maps it; a new block is zero-filled. One that another program has made
    // of memory that cannot be read and written is not mapped, and this object not valid. With bFailIfExists
    // an existing block is left alone and this object is not valid. A global block is open to every
    // authenticated user.
    void _Create(const WCHAR* szName, std::uint64_t uSize, bool bFailIfExists, bool bGlobal);
    bool IsValid() const { return m_Mapping.IsOpen() && m_pView != nullptr; }
    void Close();

  protected:
    LHandle m_Mapping;
    void* m_pView;
    std::uint64_t m_uSize; // bytes asked for; 0 after Close
};
static_assert(sizeof(LIPCSharedMemoryBuffer) == 24); // contract.md M13

// One value of type T in a block of the caller's session.
template <class T>
class LIPCSharedMemory : public LIPCSharedMemoryBuffer
{
  public:
    explicit LIPCSharedMemory(const WCHAR* szName)
    {
        static_assert(sizeof(LIPCSharedMemory) == 24); // contract.md M13
        LDebugTrace("LIPCSharedMemory<T>::LIPCSharedMemory ", szName);
        _Create(szName, sizeof(T), false, false);
        if (!IsValid())
        {
            Close();
        }
    }

    // Null when the block could not be had.
    T* Get() const { return static_cast<T*>(m_pView); }
};
