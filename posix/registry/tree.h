#pragma once
// The registry as a tree in memory, and the registry editor's text format that it is read from and written
// to. No files, no locks: see store.h.

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sndx/types.h"

namespace sndxposix
{
// Elements of a key's path; the first is a root key's name ("HKEY_LOCAL_MACHINE").
using RegistryPath = std::vector<std::u16string>;

struct RegistryValue
{
    std::u16string name; // as first spelled; empty for the key's default value
    DWORD type = 0;
    std::vector<BYTE> data;
};

// Children are found and ordered by their names' RegistryOrder.
struct RegistryKey
{
    RegistryKey() = default;
    explicit RegistryKey(std::u16string_view spelled) : name(spelled) {}

    std::u16string name; // as first spelled
    std::map<std::u16string, RegistryValue> values;
    std::map<std::u16string, std::unique_ptr<RegistryKey>> keys;
};

// Windows orders and compares registry names by their upper-case letters ('_' comes after 'Z').
std::u16string RegistryOrder(std::u16string_view name);

// False for names that a line of the text format cannot hold: control characters, half surrogate pairs.
bool IsRegistryName(std::u16string_view name);
// False, and nothing appended, for such a name and beyond Windows' limits of a name's and a path's length.
bool AppendElement(RegistryPath& path, std::u16string_view name);

RegistryKey* FindRegistryKey(RegistryKey& root, const RegistryPath& path);
// Makes what is missing. The path must be within the limits.
RegistryKey& MakeRegistryKey(RegistryKey& root, const RegistryPath& path);
// Removes the key with everything below it; false when there is none.
bool RemoveRegistryKey(RegistryKey& root, const RegistryPath& path);
// Sets a value; an existing one keeps the spelling of its name.
void SetRegistryValue(RegistryKey& key, std::u16string_view name, DWORD type, std::vector<BYTE> data);
// The data of a REG_SZ value: the text with its terminator.
std::vector<BYTE> TextData(const std::u16string& text);

// Takes the text up to the separator, or all of it, off the front, and the separator with it.
template <class Char>
std::basic_string_view<Char> TakeUntil(std::basic_string_view<Char>& text, Char separator)
{
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::basic_string_view<Char> front = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return front;
}

// Applies a file's text to the tree below root: UTF-16 (little-endian, with byte order mark) or UTF-8, also
// without a mark. Lines that make no sense are skipped; keys of other roots than HKEY_LOCAL_MACHINE and
// HKEY_CURRENT_USER are among them.
void ApplyRegistryFile(std::string_view bytes, RegistryKey& root);
// The file (UTF-8) of the tree below root.
std::string WriteRegistryFile(const RegistryKey& root);
} // namespace sndxposix
