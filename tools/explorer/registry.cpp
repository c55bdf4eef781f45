#include "tools/explorer/registry.h"

#include <objbase.h>

namespace sndxtools
{
namespace
{
WideString DefaultValue(HKEY root, const WideString& path)
{
    WCHAR text[1024] = {};
    DWORD size = sizeof text;
    // Texts with variables in them count as well; they come expanded.
    const LONG error = RegGetValueW(root, path.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, text, &size);
    return error == ERROR_SUCCESS ? text : WideString();
}
} // namespace

Owned<HKEY> OpenKey(HKEY root, const WideString& path)
{
    HKEY key = nullptr;
    return Owned<HKEY>(RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS ? key : nullptr);
}

std::vector<RegisteredHandler> RegisteredHandlers(HKEY root, const WideString& path)
{
    std::vector<RegisteredHandler> handlers;
    const Owned<HKEY> key = OpenKey(root, path);
    WCHAR name[256]; // the longest name of a key, with its terminator
    for (DWORD i = 0;
         key && RegEnumKeyW(key.get(), i, name, static_cast<DWORD>(std::size(name))) == ERROR_SUCCESS; ++i)
    {
        RegisteredHandler handler;
        handler.name = name;
        for (const WideString& text : {DefaultValue(key.get(), name), handler.name})
        {
            if (SUCCEEDED(CLSIDFromString(text.c_str(), &handler.classId)) && text.starts_with(L'{'))
            {
                handler.classText = text;
                handlers.push_back(handler);
                break;
            }
        }
    }
    return handlers;
}
} // namespace sndxtools
