#include "tools/shellhost/host.h"

namespace sndxtools
{
#ifdef _WIN32
namespace
{
HRESULT CreateRegistered(const CLSID& classId, REFIID iid, void** out)
{
    return CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, iid, out);
}
} // namespace

// Explorer's threads live in single-threaded apartments.
Host::Host(const WideString& modulePath, bool registered) : modulePath_(modulePath), registered_(registered)
{
    Check("CoInitializeEx", CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
}

Host::~Host()
{
    module_.reset();
    CoUninitialize();
}
#else
namespace
{
HRESULT CreateRegistered(const CLSID&, REFIID, void**)
{
    return E_NOTIMPL; // The constructor has refused already.
}
} // namespace

Host::Host(const WideString& modulePath, bool registered) : modulePath_(modulePath), registered_(registered)
{
    if (registered)
    {
        throw UsageError("--registered needs Windows: there are no registered classes here");
    }
}

Host::~Host() = default;
#endif

const WideString& Host::ModulePath() const
{
    if (registered_)
    {
        throw UsageError("this command needs the module's file and cannot be used with --registered");
    }
    return modulePath_;
}

Module& Host::LoadedModule()
{
    const WideString& path = ModulePath();
    if (!module_)
    {
        module_ = std::make_unique<Module>(path);
    }
    return *module_;
}

HRESULT Host::Create(const CLSID& classId, REFIID iid, void** out)
{
    if (registered_)
    {
        return CreateRegistered(classId, iid, out);
    }
    return LoadedModule().ClassFactory(classId)->CreateInstance(nullptr, iid, out);
}
} // namespace sndxtools
