#pragma once
#include <memory>

#include "tools/shellhost/module.h"
#include "tools/shellhost/results.h"

namespace sndxtools
{
// One process that hosts the module, as Explorer does. The module is loaded at first use and stays.
class Host
{
  public:
    // registered: objects come from the system by their registered class, not from the module's file.
    Host(const WideString& modulePath, bool registered);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Both throw UsageError when objects come from the system: the module is not in our hands then.
    Module& LoadedModule();
    const WideString& ModulePath() const;
    // Frees the module if it is loaded; the next use loads it again. False when it has stayed all the same.
    bool UnloadModule()
    {
        module_.reset();
        return !Module::IsLoaded(modulePath_);
    }

    // A new handler object of the class, as the named interface. Throws CallError.
    template <class Interface>
    ComRef<Interface> CreateHandler(const CLSID& classId, REFIID iid)
    {
        ComRef<Interface> handler;
        const HRESULT result = Create(classId, iid, handler.Receive());
        Check(registered_ ? "CoCreateInstance" : "CreateInstance", result, bool(handler));
        return handler;
    }

  private:
    HRESULT Create(const CLSID& classId, REFIID iid, void** out);

    WideString modulePath_;
    bool registered_;
    std::unique_ptr<Module> module_;
};
} // namespace sndxtools
