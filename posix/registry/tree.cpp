// The registry's tree: finding, making and removing keys, and the order of their names.

#include "posix/registry/tree.h"

#include "posix/text/charsets.h"

namespace sndxposix
{
std::u16string RegistryOrder(std::u16string_view name)
{
    std::u16string order = FoldCase(name);
    std::transform(order.begin(), order.end(), order.begin(),
                   [](char16_t unit) {
                       return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - u'a' + u'A') : unit;
                   });
    return order;
}

bool IsRegistryName(std::u16string_view name)
{
    // Half a surrogate pair does not come back from UTF-8.
    return Utf16(Utf8(name)) == name &&
           std::none_of(name.begin(), name.end(), [](char16_t unit) { return unit < 0x20 || unit == 0x7F; });
}

bool AppendElement(RegistryPath& path, std::u16string_view name)
{
    constexpr std::size_t maximumUnits = 255;
    constexpr std::size_t maximumDepth = 512;
    const bool isGood = name.size() <= maximumUnits && path.size() < maximumDepth && IsRegistryName(name);
    if (isGood)
    {
        path.emplace_back(name);
    }
    return isGood;
}

RegistryKey* FindRegistryKey(RegistryKey& root, const RegistryPath& path)
{
    RegistryKey* key = &root;
    for (const std::u16string& element : path)
    {
        const auto found = key->keys.find(RegistryOrder(element));
        if (found == key->keys.end())
        {
            return nullptr;
        }
        key = found->second.get();
    }
    return key;
}

RegistryKey& MakeRegistryKey(RegistryKey& root, const RegistryPath& path)
{
    RegistryKey* key = &root;
    for (const std::u16string& element : path)
    {
        std::unique_ptr<RegistryKey>& child = key->keys[RegistryOrder(element)];
        if (!child)
        {
            child = std::make_unique<RegistryKey>(element);
        }
        key = child.get();
    }
    return *key;
}

bool RemoveRegistryKey(RegistryKey& root, const RegistryPath& path)
{
    RegistryPath parentPath(path.begin(), path.end() - 1);
    RegistryKey* parent = FindRegistryKey(root, parentPath);
    return parent != nullptr && parent->keys.erase(RegistryOrder(path.back())) != 0;
}

void SetRegistryValue(RegistryKey& key, std::u16string_view name, DWORD type, std::vector<BYTE> data)
{
    const auto [entry, isNew] = key.values.try_emplace(RegistryOrder(name));
    if (isNew)
    {
        entry->second.name = name;
    }
    entry->second.type = type;
    entry->second.data = std::move(data);
}

std::vector<BYTE> TextData(const std::u16string& text)
{
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {bytes, bytes + (text.size() + 1) * sizeof(char16_t)};
}
} // namespace sndxposix
