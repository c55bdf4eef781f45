#include "dll/sndxdll.h"

#include "dll/classfactories.h"
#include "dll/folders.h"
#include "diag/lifetime.h"

// The module's static objects, constructed in this order when it is loaded, before DllMain, and destroyed in
// the reverse order when it is unloaded. They stand in one source because the order across sources would be
// the linker's. The state of the diagnostics themselves is constant-initialised and needs no place here. What
// depends on each place: contract.md C21 to C26.
static LDebugHeapLifetime g_HeapLifetime;   // blocks are released until the very end
LComDiagnostic g_ComDiagnostic;             // so that it outlives the trace
static LDebugTraceLifetime g_TraceLifetime; // the trace begins and ends here
LList<FolderPathItem> g_FolderList;
LLockObject g_FolderListLock;
LIPCSharedMemory<std::uint32_t> g_SharedState(TEXT("SharedMemoryForsndxdll")); // contract.md N2
static_assert(sizeof(*g_SharedState.Get()) == 4);                              // contract.md M27
// The others end in different ways for an unload and for the end of the process.
static LDebugProcessEnd g_ProcessEnd;

HINSTANCE g_hInstance = nullptr;
std::int32_t g_nFactoryObjects = 0;
std::int32_t g_nShellExtObjects = 0;
std::uint32_t g_uLoadedState = 0;

BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD uReason, void* pReserved)
{
    // Clean-up is the static objects' destructors, which come right behind a detach; thread notifications
    // need nothing.
    if (uReason == DLL_PROCESS_DETACH)
    {
        g_ProcessEnd.Announce(pReserved != nullptr);
    }
    if (uReason != DLL_PROCESS_ATTACH)
    {
        return TRUE;
    }
    g_hInstance = hInstance;
    // Fails where the compiler's start-up code gives the module a TLS directory; then the thread
    // notifications keep coming and are ignored above.
    DisableThreadLibraryCalls(hInstance);
    LDebugTrace("DLL_PROCESS_ATTACH");
    LLockObjectScope lock(g_FolderListLock);
    LoadPaths();
    return TRUE;
}

namespace
{
template <class TFactory>
HRESULT GetClassFactory(REFIID riid, void** ppv)
{
    LComObject<TFactory> factory(LNEW("DllGetClassObject") TFactory);
    return factory.QueryNew(riid, ppv);
}

// The classes that the module serves.
constexpr struct
{
    const GUID& clsid;
    HRESULT (*pGetFactory)(REFIID riid, void** ppv);
} g_Classes[] = {
    {CLSID_SendoraOverlay, GetClassFactory<LClassFactory>},
    {CLSID_SendoraContextMenu, GetClassFactory<LSendoraContextMenuClassFactory>},
};
} // namespace

HRESULT WINAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv)
{
    LDebugTraceGuid(rclsid);
    if (ppv == nullptr)
    {
        return E_POINTER;
    }
    for (const auto& row : g_Classes)
    {
        if (LIsEqualGuid(rclsid, row.clsid))
        {
            return row.pGetFactory(riid, ppv);
        }
    }
    *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT WINAPI DllCanUnloadNow()
{
    // Context-menu objects and their factories have no counter of their own; the registry knows every live
    // COM object of the module.
    const bool bInUse = g_nFactoryObjects > 0 || g_nShellExtObjects > 0 || g_ComDiagnostic.AnyObjectExists();
    return bInUse ? S_FALSE : S_OK;
}
