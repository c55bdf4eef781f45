// The module's static objects for programs that link its rooms directly: the same, in the same order, but no
// trace lifetime, so that a test sees its own lines only.

#include "dll/folders.h"
#include "dll/sndxdll.h"
#include "gen/com.h"

LComDiagnostic g_ComDiagnostic;
LList<FolderPathItem> g_FolderList;
LLockObject g_FolderListLock;
LIPCSharedMemory<std::uint32_t> g_SharedState(TEXT("SharedMemoryForsndxtest"));

HINSTANCE g_hInstance = nullptr;
std::int32_t g_nFactoryObjects = 0;
std::int32_t g_nShellExtObjects = 0;
std::uint32_t g_uLoadedState = 0;
