#include "tools/registry.h"

#include <algorithm>

namespace sndxtools
{
namespace
{
// {01234567-89AB-CDEF-0123-456789ABCDEF}
bool IsClassText(const WideString& text)
{
    constexpr std::string_view form = "{dddddddd-dddd-dddd-dddd-dddddddddddd}";
    return std::equal(form.begin(), form.end(), text.begin(), text.end(),
                      [](char wanted, WCHAR unit)
                      {
                          const auto letter = static_cast<WCHAR>(unit | 0x20);
                          return wanted != 'd' ? unit == static_cast<WCHAR>(wanted)
                                               : (unit >= TEXT('0') && unit <= TEXT('9')) ||
                                                     (letter >= TEXT('a') && letter <= TEXT('f'));
                      });
}
} // namespace

RegistryText ReadText(HKEY root, const WideString& path, const WideString& name, REGSAM flags)
{
    RegistryText result;
    HKEY key = nullptr;
    result.error = RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE | flags, &key);
    if (result.error != ERROR_SUCCESS)
    {
        return result;
    }
    WCHAR text[MAX_PATH] = {};
    DWORD size = sizeof text;
    result.error =
        RegQueryValueExW(key, name.c_str(), nullptr, &result.type, reinterpret_cast<BYTE*>(text), &size);
    RegCloseKey(key);
    if (result.error == ERROR_SUCCESS)
    {
        text[std::min<std::size_t>(size / sizeof(WCHAR), MAX_PATH - 1)] = 0; // stored text may lack its own
        result.text = text;
    }
    return result;
}

SubKeys::SubKeys(HKEY root, const WideString& path, REGSAM flags)
{
    HKEY key = nullptr;
    error = RegOpenKeyExW(root, path.c_str(), 0, KEY_ENUMERATE_SUB_KEYS | flags, &key);
    if (error != ERROR_SUCCESS)
    {
        return;
    }
    WCHAR name[MAX_PATH];
    for (DWORD i = 0; (error = RegEnumKeyW(key, i, name, MAX_PATH)) == ERROR_SUCCESS; ++i)
    {
        names.emplace_back(name);
    }
    error = error == ERROR_NO_MORE_ITEMS ? LONG{ERROR_SUCCESS} : error;
    RegCloseKey(key);
}

std::vector<RegisteredHandler> RegisteredHandlers(HKEY root, const WideString& path)
{
    std::vector<RegisteredHandler> handlers;
    for (const WideString& name : SubKeys(root, path).names)
    {
        const WideString value = ReadText(root, path + TEXT("\\") + name, {}).text;
        if (IsClassText(value) || IsClassText(name))
        {
            handlers.push_back({name, IsClassText(value) ? value : name});
        }
    }
    return handlers;
}
} // namespace sndxtools
