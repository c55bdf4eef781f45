#include "tools/simulator/world.h"

#include "tools/results.h"

namespace sndxtools::simulator
{
World::World()
    : mapping_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Shared),
                                  TEXT("SendoraSimulatorWorld")))
{
    Check("CreateFileMapping", ErrorResult(mapping_ == nullptr ? GetLastError() : 0));
    shared_ = static_cast<Shared*>(MapViewOfFile(mapping_, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Shared)));
    if (shared_ == nullptr)
    {
        const DWORD error = GetLastError();
        CloseHandle(mapping_);
        throw CallError("MapViewOfFile", ErrorResult(error));
    }
}

World::~World()
{
    UnmapViewOfFile(shared_);
    CloseHandle(mapping_);
}
} // namespace sndxtools::simulator
