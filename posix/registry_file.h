#pragma once
// The registry as a tree in memory, and the registry editor's text format that it is read from and written
// to. No files, no locks: see registry.cpp.

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

// Limits of a key's path, as on Windows.
constexpr std::size_t maximumKeyName = 255; // units of one element
constexpr std::size_t maximumKeyDepth = 512;

// False for names that a line of the text format cannot hold: control characters, half surrogate pairs.
bool IsRegistryName(std::u16string_view name);

RegistryKey* FindRegistryKey(RegistryKey& root, const RegistryPath& path);
// Makes what is missing. The path must be within the limits.
RegistryKey& MakeRegistryKey(RegistryKey& root, const RegistryPath& path);
// Removes the key with everything below it; false when there is none.
bool RemoveRegistryKey(RegistryKey& root, const RegistryPath& path);
// Sets a value; an existing one keeps the spelling of its name.
void SetRegistryValue(RegistryKey& key, std::u16string_view name, DWORD type, std::vector<BYTE> data);

// First line of a file.
constexpr std::u16string_view registryFileHeader = u"Windows Registry Editor Version 5.00";

// UTF-16 (little-endian, with byte order mark) or UTF-8, also without a mark.
std::u16string DecodeRegistryFile(std::string_view bytes);
// Applies a file's text to the tree below root. Lines that make no sense are skipped; keys of other roots
// than HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER are among them.
void ApplyRegistryText(std::u16string_view text, RegistryKey& root);
// The text (UTF-8) of the tree below root.
std::string WriteRegistryText(const RegistryKey& root);
} // namespace sndxposix
