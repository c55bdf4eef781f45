// The registry editor's text format. A file comes from other programs and from people: whatever it holds,
// reading it ends after one pass over its lines, and a line without sense costs that line only.

#include "posix/registry_file.h"

#include <algorithm>
#include <optional>

#include "sndx/registry.h"

#include "posix/internal.h"

namespace sndxposix
{
namespace
{
std::u16string_view Trimmed(std::u16string_view text)
{
    const std::size_t first = text.find_first_not_of(u" \t");
    return first == text.npos ? std::u16string_view()
                              : text.substr(first, text.find_last_not_of(u" \t") - first + 1);
}

int HexDigit(char16_t unit)
{
    if (unit >= u'0' && unit <= u'9')
    {
        return unit - u'0';
    }
    const char16_t lower = static_cast<char16_t>(unit | 0x20);
    return lower >= u'a' && lower <= u'f' ? lower - u'a' + 10 : -1;
}

// A hexadecimal number of at most maximumDigits digits that is the whole text.
std::optional<DWORD> HexNumber(std::u16string_view text, std::size_t maximumDigits)
{
    if (text.empty() || text.size() > maximumDigits)
    {
        return std::nullopt;
    }
    DWORD number = 0;
    for (const char16_t unit : text)
    {
        const int digit = HexDigit(unit);
        if (digit < 0)
        {
            return std::nullopt;
        }
        number = number << 4 | static_cast<DWORD>(digit);
    }
    return number;
}

// "aa,bb,…": empty text is no bytes; a last comma is let pass.
std::optional<std::vector<BYTE>> HexBytes(std::u16string_view text)
{
    std::vector<BYTE> bytes;
    while (!text.empty())
    {
        const std::size_t comma = std::min(text.find(u','), text.size());
        const std::u16string_view item = Trimmed(text.substr(0, comma));
        text.remove_prefix(std::min(comma + 1, text.size()));
        if (item.empty() && text.empty())
        {
            break;
        }
        const std::optional<DWORD> byte = HexNumber(item, 2);
        if (!byte)
        {
            return std::nullopt;
        }
        bytes.push_back(static_cast<BYTE>(*byte));
    }
    return bytes;
}

// Takes a text in quotes off the front, in which a backslash makes the next unit an ordinary one.
std::optional<std::u16string> TakeQuoted(std::u16string_view& text)
{
    std::u16string result;
    for (std::size_t i = 1; i < text.size(); ++i)
    {
        if (text[i] == u'"')
        {
            text.remove_prefix(i + 1);
            return result;
        }
        if (text[i] == u'\\' && ++i == text.size())
        {
            break;
        }
        result.push_back(text[i]);
    }
    return std::nullopt;
}

std::vector<BYTE> TextBytes(std::u16string_view text)
{
    std::vector<BYTE> bytes;
    bytes.reserve((text.size() + 1) * 2);
    for (const char16_t unit : text)
    {
        bytes.push_back(static_cast<BYTE>(unit & 0xff));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    bytes.insert(bytes.end(), 2, BYTE{0});
    return bytes;
}

std::optional<RegistryPath> ParseKeyPath(std::u16string_view text)
{
    RegistryPath path;
    while (!text.empty())
    {
        const std::size_t end = std::min(text.find(u'\\'), text.size());
        const std::u16string_view element = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (element.empty() || element.size() > maximumKeyName || path.size() == maximumKeyDepth ||
            !IsRegistryName(element))
        {
            return std::nullopt;
        }
        path.emplace_back(element);
    }
    if (path.empty())
    {
        return std::nullopt;
    }
    const std::u16string root = RegistryOrder(path.front());
    return root == u"HKEY_LOCAL_MACHINE" || root == u"HKEY_CURRENT_USER" ? std::optional(path) : std::nullopt;
}

class Reader
{
  public:
    Reader(std::u16string_view text, RegistryKey& root) : rest_(text), root_(root) {}

    void Read()
    {
        while (const std::optional<std::u16string_view> line = NextLine())
        {
            if (line->starts_with(u'['))
            {
                ApplyKey(*line);
            }
            else if (line->starts_with(u'"') || line->starts_with(u'@'))
            {
                ApplyValue(*line);
            }
        }
    }

  private:
    std::optional<std::u16string_view> NextLine()
    {
        if (rest_.empty())
        {
            return std::nullopt;
        }
        const std::size_t end = std::min(rest_.find(u'\n'), rest_.size());
        std::u16string_view line = rest_.substr(0, end);
        rest_.remove_prefix(std::min(end + 1, rest_.size()));
        if (!line.empty() && line.back() == u'\r')
        {
            line.remove_suffix(1);
        }
        return Trimmed(line);
    }

    // [path] opens a key, [-path] removes one. A name may hold brackets: the last one ends it.
    void ApplyKey(std::u16string_view line)
    {
        key_ = nullptr;
        if (line.back() != u']')
        {
            return;
        }
        std::u16string_view text = line.substr(1, line.size() - 2);
        const bool remove = text.starts_with(u'-');
        text.remove_prefix(remove ? 1 : 0);
        const std::optional<RegistryPath> path = ParseKeyPath(text);
        if (path && remove && path->size() > 1)
        {
            RemoveRegistryKey(root_, *path);
        }
        else if (path && !remove)
        {
            key_ = &MakeRegistryKey(root_, *path);
        }
    }

    void ApplyValue(std::u16string_view line)
    {
        std::optional<std::u16string> name = u"";
        if (line.front() == u'@')
        {
            line.remove_prefix(1);
        }
        else
        {
            name = TakeQuoted(line);
        }
        line = Trimmed(line);
        if (name && line.starts_with(u'='))
        {
            // Also below a key that was not understood: the lines of hex data belong to it.
            ApplyData(*name, Trimmed(line.substr(1)));
        }
    }

    void ApplyData(const std::u16string& name, std::u16string_view text)
    {
        if (text == u"-" && key_ != nullptr)
        {
            key_->values.erase(RegistryOrder(name));
        }
        else if (text.starts_with(u'"'))
        {
            const std::optional<std::u16string> quoted = TakeQuoted(text);
            text = Trimmed(text);
            if (quoted && (text.empty() || text.front() == u';'))
            {
                Set(name, REG_SZ, TextBytes(*quoted));
            }
        }
        else if (text.starts_with(u"dword:"))
        {
            if (const std::optional<DWORD> number = HexNumber(Trimmed(text.substr(6)), 8))
            {
                Set(name, REG_DWORD,
                    {static_cast<BYTE>(*number), static_cast<BYTE>(*number >> 8),
                     static_cast<BYTE>(*number >> 16), static_cast<BYTE>(*number >> 24)});
            }
        }
        else if (text.starts_with(u"hex"))
        {
            ApplyHex(name, text.substr(3));
        }
    }

    // ":bytes" (binary data) or "(type):bytes"; a backslash at the end of a line goes on in the next.
    void ApplyHex(const std::u16string& name, std::u16string_view text)
    {
        std::u16string joined(text);
        while (!joined.empty() && joined.back() == u'\\')
        {
            joined.pop_back();
            joined.append(NextLine().value_or(u""));
        }
        const std::size_t colon = joined.find(u':');
        if (colon == std::u16string::npos)
        {
            return;
        }
        const std::u16string_view before = std::u16string_view(joined).substr(0, colon);
        std::optional<DWORD> type = REG_BINARY;
        if (!before.empty())
        {
            const bool inBrackets = before.size() > 2 && before.front() == u'(' && before.back() == u')';
            type = inBrackets ? HexNumber(before.substr(1, before.size() - 2), 8) : std::nullopt;
        }
        std::optional<std::vector<BYTE>> bytes = HexBytes(std::u16string_view(joined).substr(colon + 1));
        if (type && bytes)
        {
            Set(name, *type, std::move(*bytes));
        }
    }

    void Set(const std::u16string& name, DWORD type, std::vector<BYTE> data)
    {
        if (key_ != nullptr && IsRegistryName(name))
        {
            SetRegistryValue(*key_, name, type, std::move(data));
        }
    }

    std::u16string_view rest_;
    RegistryKey& root_;
    RegistryKey* key_ = nullptr; // that values belong to; null below a removed or senseless key
};
} // namespace

std::u16string DecodeRegistryFile(std::string_view bytes)
{
    if (bytes.starts_with("\xFF\xFE"))
    {
        std::u16string text;
        text.reserve(bytes.size() / 2);
        for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
        {
            text.push_back(
                static_cast<char16_t>(static_cast<BYTE>(bytes[i]) | static_cast<BYTE>(bytes[i + 1]) << 8));
        }
        return text;
    }
    if (bytes.starts_with("\xEF\xBB\xBF"))
    {
        bytes.remove_prefix(3);
    }
    return Utf16(bytes);
}

void ApplyRegistryText(std::u16string_view text, RegistryKey& root)
{
    Reader(text, root).Read();
}
} // namespace sndxposix
