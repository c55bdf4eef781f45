// The registry calls: handles, rights and views; the keys themselves are in the store.

#include <algorithm>
#include <iterator>
#include <utility>

#include "posix/base/handles.h"
#include "posix/registry/store.h"
#include "sndx/registry.h"

namespace sndxposix
{
namespace
{
// An open key is its place in the tree; whether there is (still) a key at the place shows at use.
class OpenKey : public KernelObject
{
  public:
    OpenKey(RegistryPath place, REGSAM rights) : path(std::move(place)), access(rights) {}
    const RegistryPath path;
    const REGSAM access;
};

// The key a handle stands for; null for none.
std::shared_ptr<OpenKey> KeyOf(HKEY handle)
{
    if (handle == HKEY_LOCAL_MACHINE)
    {
        return std::make_shared<OpenKey>(RegistryPath{u"HKEY_LOCAL_MACHINE"}, KEY_ALL_ACCESS);
    }
    if (handle == HKEY_CURRENT_USER)
    {
        return std::make_shared<OpenKey>(RegistryPath{u"HKEY_CURRENT_USER"}, KEY_ALL_ACCESS);
    }
    return LookupHandleAs<OpenKey>(handle);
}

// Null counts as an empty text.
std::u16string_view NameOf(LPCWSTR name)
{
    return name == nullptr ? std::u16string_view() : name;
}

bool IsNamed(const std::u16string& element, std::u16string_view name)
{
    return RegistryOrder(element) == RegistryOrder(name);
}

// Leads a path of HKEY_LOCAL_MACHINE\Software that was asked for in the 32-bit view into the part of the
// tree where that view is. The flag counts at the root key only: a path from a key below stays in that
// key's view. Classes are the same in both views here.
void ApplyView(RegistryPath& path, std::size_t openElements, REGSAM access)
{
    if ((access & KEY_WOW64_32KEY) == 0 || openElements != 1 || path.size() < 2 ||
        !IsNamed(path[0], u"HKEY_LOCAL_MACHINE") || !IsNamed(path[1], u"Software"))
    {
        return;
    }
    if (path.size() == 2 || (!IsNamed(path[2], u"Wow6432Node") && !IsNamed(path[2], u"Classes")))
    {
        path.insert(path.begin() + 2, u"Wow6432Node");
    }
}

// The place of a path below an open key.
LSTATUS Resolve(HKEY handle, LPCWSTR text, REGSAM access, RegistryPath& path)
{
    const std::shared_ptr<OpenKey> key = KeyOf(handle);
    if (!key)
    {
        return ERROR_INVALID_HANDLE;
    }
    path = key->path;
    std::u16string_view rest = NameOf(text);
    if (rest.starts_with(u'\\'))
    {
        return ERROR_BAD_PATHNAME;
    }
    while (!rest.empty())
    {
        const std::u16string_view element = TakeUntil(rest, u'\\');
        if (!element.empty() && !AppendElement(path, element))
        {
            return ERROR_INVALID_PARAMETER;
        }
    }
    ApplyView(path, key->path.size(), access);
    return ERROR_SUCCESS;
}

void InsertKey(RegistryPath path, REGSAM access, PHKEY result)
{
    *result = static_cast<HKEY>(InsertHandle(std::make_shared<OpenKey>(std::move(path), access)));
}

// Body of the calls that work on an open key: the right that the call needs, then the key itself.
template <class Use>
LSTATUS WithKey(HKEY handle, REGSAM right, bool alters, Use&& use)
{
    const std::shared_ptr<OpenKey> key = KeyOf(handle);
    if (!key || (key->access & right) != right)
    {
        return key ? ERROR_ACCESS_DENIED : ERROR_INVALID_HANDLE;
    }
    const auto body = [&](RegistryKey& root)
    {
        RegistryKey* found = FindRegistryKey(root, key->path);
        return found == nullptr ? LSTATUS{ERROR_KEY_DELETED} : use(*found);
    };
    return alters ? AlterRegistry(body) : LookIntoRegistry(body);
}

// A registry call's frame: its injected failure, and no exception to the caller.
template <class Body>
LSTATUS RegistryCall(const char* function, Body&& body, Outputs outputs = {}) noexcept
{
    const auto call = [&]
    { return FailNextCall(function, outputs) ? static_cast<LSTATUS>(GetLastError()) : body(); };
    return Guarded(LSTATUS{ERROR_NOT_ENOUGH_MEMORY}, call);
}

} // namespace

extern "C" LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD, REGSAM access, PHKEY result)
{
    const auto body = [&]
    {
        RegistryPath place;
        LSTATUS error = Resolve(key, path, access, place);
        const auto look = [&](RegistryKey& root) -> LSTATUS
        { return FindRegistryKey(root, place) == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS; };
        error = error != 0 ? error : LookIntoRegistry(look);
        if (error == 0)
        {
            InsertKey(std::move(place), access, result);
        }
        return error;
    };
    return RegistryCall("RegOpenKeyExW", body, {result});
}

extern "C" LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR path, DWORD, LPWSTR, DWORD, REGSAM access,
                                          LPSECURITY_ATTRIBUTES, PHKEY result, LPDWORD disposition)
{
    const auto body = [&]
    {
        RegistryPath place;
        LSTATUS error = Resolve(key, path, access, place);
        DWORD outcome = REG_OPENED_EXISTING_KEY;
        const auto look = [&](RegistryKey& root) -> LSTATUS
        {
            outcome = FindRegistryKey(root, place) == nullptr ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
            return ERROR_SUCCESS;
        };
        const auto make = [&](RegistryKey& root) -> LSTATUS
        {
            look(root); // another process may have been first
            MakeRegistryKey(root, place);
            return ERROR_SUCCESS;
        };
        error = error != 0 ? error : LookIntoRegistry(look);
        if (error == 0 && outcome == REG_CREATED_NEW_KEY)
        {
            error = AlterRegistry(make);
        }
        if (error == 0)
        {
            InsertKey(std::move(place), access, result);
        }
        if (error == 0 && disposition != nullptr)
        {
            *disposition = outcome;
        }
        return error;
    };
    return RegistryCall("RegCreateKeyExW", body);
}

extern "C" LSTATUS WINAPI RegCloseKey(HKEY key)
{
    const bool isRoot = key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER;
    const bool closed = isRoot || (LookupHandleAs<OpenKey>(key) && RemoveHandle(key));
    return RegistryCall("RegCloseKey",
                        [&]() -> LSTATUS { return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE; });
}

extern "C" LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD, DWORD type, const BYTE* data,
                                         DWORD size)
{
    const auto set = [&](RegistryKey& found) -> LSTATUS
    {
        SetRegistryValue(found, NameOf(name), type, std::vector<BYTE>(data, data + size));
        return ERROR_SUCCESS;
    };
    const auto body = [&]
    {
        return IsRegistryName(NameOf(name)) ? WithKey(key, KEY_SET_VALUE, true, set)
                                            : LSTATUS{ERROR_INVALID_PARAMETER};
    };
    return RegistryCall("RegSetValueExW", body);
}

extern "C" LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type,
                                           LPBYTE data, LPDWORD size)
{
    const auto query = [&](RegistryKey& found) -> LSTATUS
    {
        const auto entry = found.values.find(RegistryOrder(NameOf(name)));
        if (entry == found.values.end())
        {
            return ERROR_FILE_NOT_FOUND;
        }
        const RegistryValue& value = entry->second;
        if (type != nullptr)
        {
            *type = value.type;
        }
        const bool tooSmall = data != nullptr && *size < value.data.size();
        if (data != nullptr && !tooSmall)
        {
            std::copy(value.data.begin(), value.data.end(), data);
        }
        if (size != nullptr)
        {
            *size = static_cast<DWORD>(value.data.size());
        }
        return tooSmall ? ERROR_MORE_DATA : ERROR_SUCCESS;
    };
    const auto body = [&]
    {
        return reserved != nullptr || (data != nullptr && size == nullptr)
                   ? LSTATUS{ERROR_INVALID_PARAMETER}
                   : WithKey(key, KEY_QUERY_VALUE, false, query);
    };
    return RegistryCall("RegQueryValueExW", body, {{data, size == nullptr ? 0 : *size}, size, type});
}

extern "C" LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name)
{
    const auto erase = [&](RegistryKey& found) -> LSTATUS
    { return found.values.erase(RegistryOrder(NameOf(name))) != 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND; };
    return RegistryCall("RegDeleteValueW", [&] { return WithKey(key, KEY_SET_VALUE, true, erase); });
}

extern "C" LSTATUS WINAPI RegEnumKeyW(HKEY key, DWORD index, LPWSTR name, DWORD length)
{
    const auto enumerate = [&](RegistryKey& found) -> LSTATUS
    {
        if (index >= found.keys.size())
        {
            return ERROR_NO_MORE_ITEMS;
        }
        const std::u16string& child = std::next(found.keys.begin(), index)->second->name;
        if (child.size() >= length)
        {
            return ERROR_MORE_DATA;
        }
        name[child.copy(name, child.size())] = 0;
        return ERROR_SUCCESS;
    };
    return RegistryCall("RegEnumKeyW", [&] { return WithKey(key, KEY_ENUMERATE_SUB_KEYS, false, enumerate); },
                        {{name, length * sizeof(WCHAR)}});
}

extern "C" LSTATUS WINAPI RegDeleteTreeW(HKEY key, LPCWSTR path)
{
    RegistryPath place;
    const auto remove = [&](RegistryKey& root) -> LSTATUS
    {
        RegistryKey* found = FindRegistryKey(root, place);
        if (found == nullptr)
        {
            return ERROR_FILE_NOT_FOUND;
        }
        if (!NameOf(path).empty())
        {
            RemoveRegistryKey(root, place);
        }
        else
        {
            found->keys.clear();
            found->values.clear();
        }
        return ERROR_SUCCESS;
    };
    const auto body = [&]
    {
        const LSTATUS error = Resolve(key, path, 0, place);
        return error != 0 ? error : AlterRegistry(remove);
    };
    return RegistryCall("RegDeleteTreeW", body);
}
} // namespace sndxposix
