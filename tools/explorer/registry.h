#pragma once
// What is registered for the shell. The program knows no class but from here.

#include <vector>

#include "tools/comref.h"
#include "tools/explorer/owners.h"
#include "tools/results.h"
#include "tools/text.h"

namespace sndxtools
{
// Below HKEY_LOCAL_MACHINE.
constexpr WCHAR overlayHandlersKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\ShellIconOverlayIdentifiers";

// The classes of items that menus are registered for.
constexpr WCHAR filesKind[] = L"*";
constexpr WCHAR foldersKind[] = L"Directory";

// Below HKEY_CLASSES_ROOT.
inline WideString MenuHandlersKey(const WideString& kind)
{
    return kind + L"\\shellex\\ContextMenuHandlers";
}

struct RegisteredHandler
{
    WideString name; // of its key; blanks in front count, they decide the order
    CLSID classId = {};
    WideString classText; // {…}
};

// Null when the key does not exist.
Owned<HKEY> OpenKey(HKEY root, const WideString& path);

// The handlers below a key, in the order of their names. A key stands for the class in its default value, or
// else for the one it is named by; keys that give neither are left out.
std::vector<RegisteredHandler> RegisteredHandlers(HKEY root, const WideString& path);

// A new object of a registered class. Throws CallError.
template <class T>
ComRef<T> CreateRegistered(const RegisteredHandler& handler, REFIID iid)
{
    ComRef<T> object;
    Check("CoCreateInstance",
          CoCreateInstance(handler.classId, nullptr, CLSCTX_INPROC_SERVER, iid, object.Receive()));
    return object;
}
} // namespace sndxtools
