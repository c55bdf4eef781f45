#pragma once
// Keys and values of the registry, as tests look at them.

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace sndxtest
{
using Bytes = std::vector<BYTE>;
using Names = Lines;

// A text with its terminator.
inline Bytes TextBytes(const std::string& text)
{
    const WideString wide = Wide(text);
    const auto* const bytes = reinterpret_cast<const BYTE*>(wide.c_str());
    return Bytes(bytes, bytes + (wide.size() + 1) * sizeof(WCHAR));
}

// A key that was opened or created, with the error of that.
class Key
{
  public:
    enum Mode
    {
        Open,
        Create
    };
    Key(Mode mode, HKEY root, const std::string& path, REGSAM access = KEY_ALL_ACCESS)
    {
        const WideString wide = Wide(path);
        error = mode == Open ? RegOpenKeyExW(root, wide.c_str(), 0, access, &key_)
                             : RegCreateKeyExW(root, wide.c_str(), 0, nullptr, 0, access, nullptr, &key_,
                                               &disposition);
    }
    ~Key()
    {
        if (key_ != nullptr)
        {
            EXPECT_EQ(RegCloseKey(key_), 0);
        }
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    operator HKEY() const { return key_; }

    // "type:hex bytes" of a value, or "error N", also of opening the key.
    std::string Get(const std::string& name) const
    {
        Bytes data(200000);
        DWORD size = static_cast<DWORD>(data.size());
        DWORD type = 0;
        const LONG failure =
            error != 0 ? error
                       : RegQueryValueExW(key_, Wide(name).c_str(), nullptr, &type, data.data(), &size);
        data.resize(size);
        return failure == 0 ? Show(type, data) : "error " + std::to_string(failure);
    }
    static std::string Show(DWORD type, const Bytes& data)
    {
        std::ostringstream result;
        result << std::hex << type << ':';
        for (const BYTE byte : data)
        {
            result << ' ' << static_cast<unsigned>(byte);
        }
        return result.str();
    }
    // How Get shows a text with its terminator.
    static std::string Text(const std::string& text) { return Show(REG_SZ, TextBytes(text)); }
    LONG Set(const std::string& name, const std::string& text) const
    {
        const Bytes bytes = TextBytes(text);
        return RegSetValueExW(key_, Wide(name).c_str(), 0, REG_SZ, bytes.data(),
                              static_cast<DWORD>(bytes.size()));
    }
    Names SubKeys() const
    {
        Names names;
        WCHAR name[256];
        for (DWORD index = 0; RegEnumKeyW(key_, index, name, 256) == 0; ++index)
        {
            names.push_back(Utf8(name));
        }
        return names;
    }

    LONG error = 0;
    DWORD disposition = 0;

  private:
    HKEY key_ = nullptr;
};
} // namespace sndxtest
