// A module that notes the end of its life in the file that the environment names.

#include <cstdlib>
#include <fstream>

#include <windows.h>

namespace
{
void Note(const char* word)
{
    std::ofstream(std::getenv("SNDX_NOTES"), std::ios::app) << word;
}

const struct Life
{
    ~Life() { Note("destruct"); }
} life;
} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_DETACH)
    {
        Note(reserved == nullptr ? "detach " : "detach-at-exit ");
    }
    return TRUE;
}
