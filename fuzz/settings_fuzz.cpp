// Settings of any type and size, under names of any make and at any address, in the real registry.

#include <cstring>

#include "fuzz/fuzz.h"
#include "win32/settingsrecord.h"

using namespace sndxfuzz;

namespace
{
constexpr WCHAR section[] = TEXT("Fuzz");
constexpr WCHAR keyPath[] = TEXT("Software\\Taleno Software\\Sendora\\Fuzz");

// One value in the registry for a scope.
class Value
{
  public:
    Value(HKEY root, REGSAM view, const WideString& name, DWORD type, const std::string& bytes) : name_(name)
    {
        MUST(RegCreateKeyExW(root, keyPath, 0, nullptr, 0, KEY_WRITE | view, nullptr, &key_, nullptr) == 0);
        error = RegSetValueExW(key_, name.c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                               static_cast<DWORD>(bytes.size()));
    }
    ~Value()
    {
        RegDeleteValueW(key_, name_.c_str());
        RegCloseKey(key_);
    }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;

    LONG error = 0;

  private:
    const WideString name_;
    HKEY key_ = nullptr;
};

// Decimal text as the settings are read: 0 without digits, clamped to 32 bits.
std::int32_t Number(const WideString& text, std::int32_t ifEmpty)
{
    if (text.empty())
    {
        return ifEmpty;
    }
    std::size_t at = text.find_first_not_of(TEXT(" \t\n\v\f\r"));
    at = at == WideString::npos ? text.size() : at;
    const bool negative = at < text.size() && text[at] == '-';
    at += at < text.size() && (text[at] == '-' || text[at] == '+') ? 1 : 0;
    double value = 0; // exact far beyond the limits
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
    {
        value = std::min(value * 10 + (text[at] - '0'), 1e12);
    }
    return static_cast<std::int32_t>(std::clamp(negative ? -value : value, -2147483648.0, 2147483647.0));
}

// The text at an odd address, as callers must not pass it.
std::vector<char> AtOddAddress(const WideString& text)
{
    std::vector<char> bytes((text.size() + 1) * sizeof(WCHAR) + 1);
    std::memcpy(&bytes[1], text.c_str(), bytes.size() - 1);
    return bytes;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto type = input.ConsumeIntegralInRange<DWORD>(0, 11);
    const bool odd = input.ConsumeBool();
    const bool isNumber = input.ConsumeBool();
    const std::int32_t otherwise = input.ConsumeIntegral<std::int32_t>();
    const WideString name = ConsumeWide(input, 20);
    const WideString fallback = ConsumeWide(input, LSTR - 1);
    std::string bytes = input.ConsumeRandomLengthString(1200);
    if (isNumber)
    {
        bytes.insert(0,
                     input.PickValueInArray({"", "2147483647", "2147483648", "-2147483648", "-2147483649"}));
        const WideString digits(bytes.begin(), bytes.end());
        bytes.assign(reinterpret_cast<const char*>(digits.data()), digits.size() * sizeof(WCHAR));
    }
    bytes.append(input.ConsumeIntegralInRange<std::size_t>(0, 530), 'y');

    // Every whole unit of the bytes up to the first terminator, if the buffer takes them all.
    WideString text = fallback;
    const bool fits = bytes.size() <= LSTR * sizeof(WCHAR);
    if (fits)
    {
        text.assign(std::min<std::size_t>(bytes.size() / sizeof(WCHAR), LSTR - 1), WCHAR{});
        std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
        text = text.c_str();
    }
    const bool shared = input.ConsumeBool();
    const Value value(shared ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, shared ? KEY_WOW64_32KEY : 0, name,
                      type, bytes);
    if (value.error != 0)
    {
        MUST(value.error == LONG{ERROR_INVALID_PARAMETER});
        return -1; // a name that the registry refuses is not worth keeping
    }
    const std::vector<char> oddName = AtOddAddress(name);
    const WCHAR* const asked = odd ? reinterpret_cast<const WCHAR*>(&oddName[1]) : name.c_str();

    // A setting of the user is none of the machine, and the other way round.
    auto buffer = Buffer<WCHAR>(LSTR);
    const LSharedSettings32Record record(section);
    record.GetString(asked, Exact(fallback).data(), buffer.data());
    MUST(buffer.data() == (shared ? text : fallback));
    const std::int32_t number = Number(fits ? text : WideString(), otherwise);
    MUST(record.GetInt(asked, otherwise) == (shared ? number : otherwise));
    MUST(LUserSettingGet(section, asked, otherwise) == (shared ? otherwise : number));

    TakeLines();
    buffer = Buffer<WCHAR>(LSTR);
    const bool read =
        shared ? RegGetString32BitStore(HKEY_LOCAL_MACHINE, keyPath, asked, Exact(fallback).data(),
                                        buffer.data())
               : RegGetString(HKEY_CURRENT_USER, keyPath, asked, Exact(fallback).data(), buffer.data());
    MUST(read == fits);
    MUST(buffer.data() == text);
    MUST(TakeLines().size() == (odd ? 1 : 0));
    return 0;
}
