#pragma once
// Reading the registry: what the module's settings and the shell's lists of handlers look like to those who
// read them. Nothing here writes.

#include <vector>

#include "tools/text.h"

namespace sndxtools
{
// Below HKEY_LOCAL_MACHINE.
inline constexpr WCHAR overlayHandlersKey[] =
    TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\ShellIconOverlayIdentifiers");

// The classes of items that menus are registered for.
inline constexpr WCHAR filesKind[] = TEXT("*");
inline constexpr WCHAR foldersKind[] = TEXT("Directory");

// Below HKEY_CLASSES_ROOT.
inline WideString MenuHandlersKey(const WideString& kind)
{
    return kind + TEXT("\\shellex\\ContextMenuHandlers");
}

struct RegistryText
{
    LONG error = ERROR_SUCCESS; // of the key or the value; ERROR_MORE_DATA for more than 520 bytes
    DWORD type = REG_SZ;
    WideString text; // empty on error
};

// A value as the module reads it: whatever its type is, its first 259 units up to the first zero. Flags are
// those of the registry's views.
RegistryText ReadText(HKEY root, const WideString& path, const WideString& name, REGSAM flags = 0);

// In the registry's order, as far as they can be read; error tells why not further.
struct SubKeys
{
    SubKeys(HKEY root, const WideString& path, REGSAM flags = 0);
    LONG error; // ERROR_SUCCESS at the end of the list
    std::vector<WideString> names;
};

struct RegisteredHandler
{
    WideString name;      // of its key; blanks in front count, they decide the order
    WideString classText; // {…}
};

// The handlers below a key, in the order of their names. A key stands for the class in its default value, or
// else for the one it is named by; keys that give neither are left out.
std::vector<RegisteredHandler> RegisteredHandlers(HKEY root, const WideString& path);
} // namespace sndxtools
