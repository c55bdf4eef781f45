#include "win32/library.h"

#include "gen/debug.h"

HMODULE LDLLLoad(const char* szLibrary)
{
    const HMODULE hLibrary = LoadLibraryA(szLibrary);
    if (hLibrary == nullptr)
    {
        LDebugTrace("LDLLLoad Cannot load the dll: ", szLibrary);
    }
    return hLibrary;
}

FARPROC LDLLLoadFunctionNoError(HMODULE hLibrary, const char* szFunction)
{
    if (hLibrary == nullptr)
    {
        return nullptr;
    }
    const FARPROC function = GetProcAddress(hLibrary, szFunction);
    if (function == nullptr)
    {
        // Reported in spite of the function's name (contract.md O28).
        LDebugTrace("LDLLLoadFunctionNoError Cannot find the library function: ", szFunction);
    }
    return function;
}
