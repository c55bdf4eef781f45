// Writes the registry editor's text format.

#include <cstring>
#include <iomanip>
#include <optional>
#include <sstream>

#include "posix/registry/tree.h"
#include "posix/text/charsets.h"
#include "sndx/registry.h"

namespace sndxposix
{
namespace
{
// The text of REG_SZ data that can stand in quotes: whole units, one terminator, at the end.
std::optional<std::u16string> QuotableText(const RegistryValue& value)
{
    std::u16string text(value.data.size() / 2, u'\0');
    if (value.type != REG_SZ || text.empty() || value.data.size() % 2 != 0)
    {
        return std::nullopt;
    }
    std::memcpy(text.data(), value.data.data(), value.data.size());
    const bool isTerminated = text.back() == 0;
    text.pop_back();
    return isTerminated && IsRegistryName(text) ? std::optional(text) : std::nullopt;
}

void WriteValue(std::ostream& out, const RegistryValue& value)
{
    (value.name.empty() ? out << '@' : out << std::quoted(Utf8(value.name))) << '=';
    if (const std::optional<std::u16string> text = QuotableText(value))
    {
        out << std::quoted(Utf8(*text)) << '\n';
        return;
    }
    if (DWORD number; value.type == REG_DWORD && value.data.size() == sizeof number)
    {
        std::memcpy(&number, value.data.data(), sizeof number);
        out << "dword:" << std::setw(8) << number << '\n';
        return;
    }
    out << "hex";
    if (value.type != REG_BINARY)
    {
        out << '(' << value.type << ')';
    }
    out << ':';
    constexpr std::size_t bytesOfALine = 25;
    for (std::size_t i = 0; i < value.data.size(); ++i)
    {
        out << (i == 0                  ? ""
                : i % bytesOfALine == 0 ? ",\\\n  "
                                        : ",")
            << std::setw(2) << unsigned{value.data[i]};
    }
    out << '\n';
}

void WriteChildren(std::ostream& out, const std::string& prefix, const RegistryKey& parent)
{
    for (const auto& [keyOrder, key] : parent.keys)
    {
        const std::string path = prefix + Utf8(key->name);
        out << "\n[" << path << "]\n";
        for (const auto& [valueOrder, value] : key->values)
        {
            WriteValue(out, value);
        }
        WriteChildren(out, path + "\\", *key);
    }
}
} // namespace

std::string WriteRegistryFile(const RegistryKey& root)
{
    std::ostringstream out;
    out.imbue(std::locale::classic()); // a host's own locale may group digits
    out << "Windows Registry Editor Version 5.00\n" << std::hex << std::setfill('0');
    WriteChildren(out, "", root);
    return out.str();
}
} // namespace sndxposix
