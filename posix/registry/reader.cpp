// Reads the registry editor's text format. A file comes from other programs and from people: whatever it
// holds, reading it ends after one pass over its lines, and a line without sense costs that line only.

#include <charconv>
#include <cstring>
#include <optional>

#include "posix/registry/tree.h"
#include "posix/text/charsets.h"
#include "sndx/registry.h"

namespace sndxposix
{
namespace
{
std::string_view Trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return text.substr(0, text.find_last_not_of(" \t") + 1);
}

// A hexadecimal number of at most maximumDigits digits that is the whole text.
std::optional<DWORD> HexNumber(std::string_view text, std::size_t maximumDigits)
{
    DWORD number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, 16);
    const bool isGood = error == std::errc() && rest == end && text.size() <= maximumDigits;
    return isGood ? std::optional(number) : std::nullopt;
}

// "aa,bb,…": empty text is no bytes; a last comma is let pass.
std::optional<std::vector<BYTE>> HexBytes(std::string_view text)
{
    std::vector<BYTE> bytes;
    while (!text.empty())
    {
        const std::string_view item = Trimmed(TakeUntil(text, ','));
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

// Takes a text in quotes off the front, in which a backslash makes the next character an ordinary one.
std::optional<std::string> TakeQuoted(std::string_view& text)
{
    std::string result;
    for (std::size_t i = 1; i < text.size(); ++i)
    {
        if (text[i] == '"')
        {
            text.remove_prefix(i + 1);
            return result;
        }
        if (text[i] == '\\' && ++i == text.size())
        {
            break;
        }
        result.push_back(text[i]);
    }
    return std::nullopt;
}

std::optional<RegistryPath> ParseKeyPath(std::string_view text)
{
    RegistryPath path;
    while (!text.empty())
    {
        const std::string_view element = TakeUntil(text, '\\');
        if (element.empty() || !AppendElement(path, Utf16(element)))
        {
            return std::nullopt;
        }
    }
    const std::u16string root = path.empty() ? u"" : RegistryOrder(path.front());
    return root == u"HKEY_LOCAL_MACHINE" || root == u"HKEY_CURRENT_USER" ? std::optional(path) : std::nullopt;
}

class Reader
{
  public:
    Reader(std::string_view text, RegistryKey& root) : rest_(text), root_(root) {}

    void Read()
    {
        while (!rest_.empty())
        {
            const std::string_view line = NextLine();
            if (line.starts_with('['))
            {
                ApplyKey(line);
            }
            else if (line.starts_with('"') || line.starts_with('@'))
            {
                ApplyValue(line);
            }
        }
    }

  private:
    std::string_view NextLine()
    {
        std::string_view line = TakeUntil(rest_, '\n');
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        return Trimmed(line);
    }

    // [path] opens a key, [-path] removes one. A name may hold brackets: the last one ends it.
    void ApplyKey(std::string_view line)
    {
        key_ = nullptr;
        if (!line.ends_with(']'))
        {
            return;
        }
        std::string_view text = line.substr(1, line.size() - 2);
        const bool remove = text.starts_with('-');
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

    void ApplyValue(std::string_view line)
    {
        std::optional<std::string> name = "";
        if (line.front() == '@')
        {
            line.remove_prefix(1);
        }
        else
        {
            name = TakeQuoted(line);
        }
        line = Trimmed(line);
        if (name && line.starts_with('='))
        {
            // Also below a key that was not understood: the lines of hex data belong to it.
            ApplyData(Utf16(*name), Trimmed(line.substr(1)));
        }
    }

    void ApplyData(const std::u16string& name, std::string_view text)
    {
        if (text == "-" && key_ != nullptr)
        {
            key_->values.erase(RegistryOrder(name));
        }
        else if (text.starts_with('"'))
        {
            const std::optional<std::string> quoted = TakeQuoted(text);
            text = Trimmed(text);
            if (quoted && (text.empty() || text.front() == ';'))
            {
                Set(name, REG_SZ, TextData(Utf16(*quoted)));
            }
        }
        else if (text.starts_with("dword:"))
        {
            if (const std::optional<DWORD> number = HexNumber(Trimmed(text.substr(6)), 8))
            {
                std::vector<BYTE> data(sizeof *number);
                std::memcpy(data.data(), &*number, data.size());
                Set(name, REG_DWORD, std::move(data));
            }
        }
        else if (text.starts_with("hex"))
        {
            ApplyHex(name, text.substr(3));
        }
    }

    // ":bytes" (binary data) or "(type):bytes"; a backslash at the end of a line goes on in the next.
    void ApplyHex(const std::u16string& name, std::string_view text)
    {
        std::string joined(text);
        while (joined.ends_with('\\'))
        {
            joined.pop_back();
            joined.append(NextLine());
        }
        if (joined.find(':') == std::string::npos)
        {
            return;
        }
        std::string_view after = joined;
        const std::string_view before = TakeUntil(after, ':');
        std::optional<DWORD> type = REG_BINARY;
        if (!before.empty())
        {
            const bool inBrackets = before.size() > 2 && before.front() == '(' && before.back() == ')';
            type = inBrackets ? HexNumber(before.substr(1, before.size() - 2), 8) : std::nullopt;
        }
        std::optional<std::vector<BYTE>> bytes = HexBytes(after);
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

    std::string_view rest_;
    RegistryKey& root_;
    RegistryKey* key_ = nullptr; // that values belong to; null below a removed or senseless key
};
} // namespace

void ApplyRegistryFile(std::string_view bytes, RegistryKey& root)
{
    std::string converted;
    if (bytes.starts_with("\xFF\xFE"))
    {
        std::u16string text(bytes.size() / 2 - 1, u'\0');
        std::memcpy(text.data(), bytes.data() + 2, text.size() * sizeof(char16_t));
        bytes = converted = Utf8(text);
    }
    bytes.remove_prefix(bytes.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    Reader(bytes, root).Read();
}
} // namespace sndxposix
