#include "tools/simulator/world.h"

#include "tools/results.h"

namespace sndxtools::simulator
{
World::World()
    : mapping_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Epochs),
                                  TEXT("SendoraSimulatorWorld")))
{
    Check("CreateFileMapping", ErrorResult(mapping_ == nullptr ? GetLastError() : 0));
    epochs_ = static_cast<Epochs*>(MapViewOfFile(mapping_, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Epochs)));
    if (epochs_ == nullptr)
    {
        const DWORD error = GetLastError();
        CloseHandle(mapping_);
        throw CallError("MapViewOfFile", ErrorResult(error));
    }
}

World::~World()
{
    UnmapViewOfFile(epochs_);
    CloseHandle(mapping_);
}
} // namespace sndxtools::simulator
