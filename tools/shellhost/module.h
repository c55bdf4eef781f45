#pragma once
#include <windows.h>
#include <ole2.h>

#include "tools/comref.h"
#include "tools/contract.h"
#include "tools/text.h"

namespace sndxtools
{
// The shell extension, loaded into this process and unloaded at destruction. Everything that was created
// from it must be released before.
class Module
{
  public:
    // Throws ModuleError when it cannot be loaded or does not export what a shell needs.
    explicit Module(const WideString& path);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Whether the process has a module of that file name, whoever has loaded it.
    static bool IsLoaded(const WideString& path);

    // Throws CallError when the module refuses.
    ComRef<IClassFactory> ClassFactory(const CLSID& classId) const;
    HRESULT CanUnloadNow() const { return canUnloadNow_(); }
    void StateChanged() const { stateChanged_(); }

  private:
    using GetClassObjectFunction = HRESULT(STDMETHODCALLTYPE*)(REFCLSID, REFIID, void**);
    using CanUnloadNowFunction = HRESULT(STDMETHODCALLTYPE*)();
    using StateChangedFunction = void(STDMETHODCALLTYPE*)();

    HMODULE library_ = nullptr;
    GetClassObjectFunction getClassObject_ = nullptr;
    CanUnloadNowFunction canUnloadNow_ = nullptr;
    StateChangedFunction stateChanged_ = nullptr;
};
} // namespace sndxtools
