// Writes the registry editor's text format.

#include "posix/registry_file.h"

#include <cstdio>
#include <optional>

#include "sndx/registry.h"

#include "posix/internal.h"

namespace sndxposix
{
namespace
{
// The text of REG_SZ data that can stand in quotes: whole units, one terminator, at the end.
std::optional<std::u16string> QuotableText(const std::vector<BYTE>& data)
{
    if (data.size() < 2 || data.size() % 2 != 0)
    {
        return std::nullopt;
    }
    std::u16string text;
    for (std::size_t i = 0; i < data.size(); i += 2)
    {
        text.push_back(static_cast<char16_t>(data[i] | data[i + 1] << 8));
    }
    if (text.back() != 0)
    {
        return std::nullopt;
    }
    text.pop_back();
    return IsRegistryName(text) ? std::optional(text) : std::nullopt;
}

class Writer
{
  public:
    std::string Write(const RegistryKey& root)
    {
        out_ = Utf8(registryFileHeader) + "\n";
        WriteChildren("", root);
        return std::move(out_);
    }

  private:
    void WriteChildren(const std::string& prefix, const RegistryKey& parent)
    {
        for (const auto& [keyOrder, key] : parent.keys)
        {
            const std::string path = prefix + Utf8(key->name);
            out_ += "\n[" + path + "]\n";
            for (const auto& [valueOrder, value] : key->values)
            {
                WriteValue(value);
            }
            WriteChildren(path + "\\", *key);
        }
    }

    void WriteValue(const RegistryValue& value)
    {
        const std::optional<std::u16string> text =
            value.type == REG_SZ ? QuotableText(value.data) : std::nullopt;
        out_ += Name(value.name) + "=";
        if (text)
        {
            out_ += Quoted(*text) + "\n";
            return;
        }
        if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD))
        {
            out_ += "dword:";
            for (std::size_t i = sizeof(DWORD); i-- > 0;)
            {
                AppendByte(value.data[i]);
            }
            out_ += "\n";
            return;
        }
        char type[16];
        std::snprintf(type, sizeof type, value.type == REG_BINARY ? "hex:" : "hex(%x):", value.type);
        out_ += type;
        constexpr std::size_t bytesOfALine = 25;
        for (std::size_t i = 0; i < value.data.size(); ++i)
        {
            out_ += i == 0 ? "" : i % bytesOfALine == 0 ? ",\\\n  " : ",";
            AppendByte(value.data[i]);
        }
        out_ += "\n";
    }

    void AppendByte(BYTE byte)
    {
        static const char digits[] = "0123456789abcdef";
        out_ += digits[byte >> 4];
        out_ += digits[byte & 15];
    }

    static std::string Name(const std::u16string& name) { return name.empty() ? "@" : Quoted(name); }

    static std::string Quoted(std::u16string_view text)
    {
        std::string result = "\"";
        for (const char unit : Utf8(text))
        {
            if (unit == '"' || unit == '\\')
            {
                result += '\\';
            }
            result += unit;
        }
        return result + "\"";
    }

    std::string out_;
};
} // namespace

std::string WriteRegistryText(const RegistryKey& root)
{
    return Writer().Write(root);
}
} // namespace sndxposix
