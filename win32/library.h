#pragma once
// Loading a system library at run time to look for functions that not every system has.

#include "gen/types.h"

// Null, with a trace line, when the library cannot be loaded. Release with FreeLibrary (LLibrary).
HMODULE LDLLLoad(const char* szLibrary);

// Null when the library lacks the function, which is traced, or when there is no library.
FARPROC LDLLLoadFunctionNoError(HMODULE hLibrary, const char* szFunction);

// A function of another signature behind the system's general one.
template <class TFunction>
TFunction LFunctionCast(FARPROC function)
{
    return reinterpret_cast<TFunction>(reinterpret_cast<void*>(function));
}

// Owner of a loaded library.
class LLibrary
{
  public:
    explicit LLibrary(const char* szLibrary) : m_hLibrary(LDLLLoad(szLibrary)) {}
    ~LLibrary()
    {
        if (m_hLibrary != nullptr)
        {
            FreeLibrary(m_hLibrary);
        }
        m_hLibrary = nullptr;
    }
    LLibrary(const LLibrary&) = delete;
    LLibrary& operator=(const LLibrary&) = delete;

    FARPROC GetFunction(const char* szFunction) const
    {
        return LDLLLoadFunctionNoError(m_hLibrary, szFunction);
    }

  private:
    HMODULE m_hLibrary;
};
