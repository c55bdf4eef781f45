// The registry: values byte for byte, views, names, enumeration, rights, and what other processes write.

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/settings.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using Bytes = std::vector<BYTE>;
using Names = std::vector<std::string>;

const std::string testPath = "Software\\Taleno Software\\Test";
const std::string productPath = "Software\\Taleno Software\\Sendora\\";

enum class Mode
{
    Open,
    Create
};

// A key that was opened or created, with the error of that.
class Key
{
  public:
    Key(Mode mode, HKEY root, const std::string& path, REGSAM access = KEY_ALL_ACCESS)
    {
        const WideString wide = Wide(path);
        error = mode == Mode::Open ? RegOpenKeyExW(root, wide.c_str(), 0, access, &key_)
                                   : RegCreateKeyExW(root, wide.c_str(), 0, nullptr, 0, access, nullptr,
                                                     &key_, &disposition);
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

    LONG error = 0;
    DWORD disposition = 0;

  private:
    HKEY key_ = nullptr;
};

bool Exists(HKEY root, const std::string& path, REGSAM view = 0)
{
    return Key(Mode::Open, root, path, KEY_QUERY_VALUE | view).error == 0;
}

LONG SetText(HKEY key, const std::string& name, const std::string& text)
{
    const WideString wide = Wide(text);
    return RegSetValueExW(key, Wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
                          static_cast<DWORD>((wide.size() + 1) * sizeof(WCHAR)));
}

// The text without its terminator, or "error N".
std::string GetText(HKEY key, const std::string& name)
{
    WCHAR buffer[260] = {};
    DWORD size = sizeof(buffer) - sizeof(WCHAR);
    const LONG error =
        RegQueryValueExW(key, Wide(name).c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size);
    return error == 0 ? Utf8(buffer) : "error " + std::to_string(error);
}

LONG Enumerate(HKEY key, DWORD index, std::string& name, DWORD capacity = 260)
{
    std::vector<WCHAR> buffer(capacity + 1, WCHAR{'#'});
    const LONG error = RegEnumKeyW(key, index, buffer.data(), capacity);
    EXPECT_EQ(buffer[capacity], WCHAR{'#'});
    name = error == 0 ? Utf8(buffer.data()) : "";
    return error;
}

Names SubKeys(HKEY key)
{
    Names names;
    std::string name;
    for (DWORD index = 0; Enumerate(key, index, name) == 0; ++index)
    {
        names.push_back(name);
    }
    return names;
}

class Registry : public ::testing::Test
{
  protected:
    CleanSettings clean_;
    const Key key_{Mode::Create, HKEY_CURRENT_USER, testPath};
};

Bytes Units(std::initializer_list<unsigned> units)
{
    Bytes bytes;
    for (const unsigned unit : units)
    {
        bytes.push_back(static_cast<BYTE>(unit & 0xff));
        bytes.push_back(static_cast<BYTE>(unit >> 8));
    }
    return bytes;
}

TEST_F(Registry, ValuesComeBackByteForByte)
{
    const std::pair<DWORD, Bytes> values[] = {
        {REG_SZ, Units({'C', ':', '\\', 'a', '"', ' ', 0xE4, 0x20AC, 0})},
        {REG_SZ, Units({0})},
        {REG_SZ, Units({'a', 'b', 'c'})},                     // no terminator
        {REG_SZ, {'a', 0, 'b', 0, 'c'}},                      // half a character
        {REG_SZ, Units({'a', 0, 'b', 0})},                    // a NUL inside
        {REG_SZ, Units({'a', 0, 0})},                         // two terminators
        {REG_SZ, Units({'a', '\r', '\n', '[', 'b', ']', 0})}, // lines
        {REG_SZ, Units({'a', 0xD800, 'b', 0})},               // half a pair
        {REG_SZ, Units({0xD83D, 0xDE00, 0})},                 // a pair
        {REG_SZ, {}},
        {REG_SZ, Bytes(520, BYTE{'q'})}, // as long as the product's buffer
        {REG_EXPAND_SZ, Units({'%', 'P', '%', 0})},
        {REG_MULTI_SZ, Units({'a', 0, 'b', 0, 0})},
        {REG_DWORD, {0x78, 0x56, 0x34, 0xF2}},
        {REG_DWORD, {0x78, 0x56, 0x34}},
        {REG_BINARY, {}},
        {REG_NONE, {1, 2, 3}},
        {0x1234, {9, 8, 7, 6, 5}},
        {REG_BINARY, Bytes(100000, BYTE{0x5A})},
    };
    int number = 0;
    for (const auto& [type, bytes] : values)
    {
        SetUserBytes("Bytes", std::to_string(++number), type, bytes);
    }
    const Key key(Mode::Open, HKEY_CURRENT_USER, productPath + "Bytes", KEY_QUERY_VALUE);
    number = 0;
    for (const auto& [type, bytes] : values)
    {
        const std::string name = std::to_string(++number);
        SCOPED_TRACE(name);
        DWORD found = 0xdead;
        DWORD size = static_cast<DWORD>(bytes.size());
        Bytes data(bytes.size() + 1, BYTE{'#'});
        EXPECT_EQ(RegQueryValueExW(key, Wide(name).c_str(), nullptr, &found, data.data(), &size), 0);
        EXPECT_EQ(found, type);
        ASSERT_EQ(size, bytes.size());
        EXPECT_EQ(data.back(), BYTE{'#'});
        data.pop_back();
        EXPECT_EQ(data, bytes);
    }
}

TEST_F(Registry, QueryTellsTheSizeThatItNeeds)
{
    ASSERT_EQ(SetText(key_, "Name", "abcdef"), 0);
    BYTE buffer[14];
    const struct
    {
        const WCHAR* name;
        bool withBuffer;
        DWORD given;
        LONG error;
        DWORD told;
    } cases[] = {{TEXT("Name"), false, 5, 0, 14},
                 {TEXT("Name"), true, 13, ERROR_MORE_DATA, 14},
                 {TEXT("Name"), true, 14, 0, 14},
                 {TEXT("Other"), true, 14, ERROR_FILE_NOT_FOUND, 14}};
    for (const auto& each : cases)
    {
        DWORD type = REG_SZ;
        DWORD size = each.given;
        EXPECT_EQ(
            RegQueryValueExW(key_, each.name, nullptr, &type, each.withBuffer ? buffer : nullptr, &size),
            each.error);
        EXPECT_EQ(size, each.told);
    }
    EXPECT_EQ(std::memcmp(buffer, TEXT("abcdef"), 14), 0);
    EXPECT_EQ(RegQueryValueExW(key_, TEXT("Name"), nullptr, nullptr, buffer, nullptr),
              LONG{ERROR_INVALID_PARAMETER});
}

TEST_F(Registry, ValueNamesIgnoreCaseAndMayBeEmptyOrOdd)
{
    const std::string lower = "gr\u00F6\u00DFe";
    const std::string upper = "GR\u00D6\u00DFE";
    const std::string odd = "a\"b\\c=[d];@"; // means something in a registry editor's file
    ASSERT_EQ(SetText(key_, lower, "one"), 0);
    EXPECT_EQ(GetText(key_, upper), "one");
    ASSERT_EQ(SetText(key_, upper, "two"), 0);
    EXPECT_EQ(GetText(key_, lower), "two");
    EXPECT_EQ(GetText(key_, ""), "error 2");
    ASSERT_EQ(SetText(key_, "", "default"), 0);
    ASSERT_EQ(SetText(key_, odd, "odd"), 0);
    EXPECT_EQ(GetText(key_, odd), "odd");
    EXPECT_EQ(RegDeleteValueW(key_, Wide(odd).c_str()), 0);
    EXPECT_EQ(RegDeleteValueW(key_, Wide(odd).c_str()), LONG{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(GetText(key_, odd), "error 2");
    EXPECT_EQ(GetText(key_, ""), "default");
}

TEST_F(Registry, MachineSoftwareHasTwoViewsAndTheUsersHasOne)
{
    const std::string below = "Taleno Software\\Test";
    {
        const Key narrow(Mode::Create, HKEY_LOCAL_MACHINE, "SOFTWARE\\" + below,
                         KEY_ALL_ACCESS | KEY_WOW64_32KEY);
        ASSERT_EQ(SetText(narrow, "Name", "32 bits"), 0);
    }
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below));
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below, KEY_WOW64_64KEY));
    EXPECT_TRUE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below, KEY_WOW64_32KEY));
    EXPECT_EQ(GetText(Key(Mode::Open, HKEY_LOCAL_MACHINE, "Software\\Wow6432Node\\" + below), "Name"),
              "32 bits");
    const Key software(Mode::Open, HKEY_LOCAL_MACHINE, "Software", KEY_READ | KEY_WOW64_32KEY);
    EXPECT_EQ(GetText(Key(Mode::Open, software, below), "Name"), "32 bits") << "by way of a key of the view";

    ASSERT_EQ(SetText(Key(Mode::Open, HKEY_CURRENT_USER, testPath, KEY_ALL_ACCESS | KEY_WOW64_32KEY), "Name",
                      "text"),
              0);
    EXPECT_EQ(GetText(key_, "Name"), "text");
}

TEST_F(Registry, KeysAreFoundByPathsInAnyCaseAndEndWithTheirTree)
{
    const Key deep(Mode::Create, key_, "One\\T w o\\[3]\\");
    EXPECT_EQ(deep.disposition, DWORD{REG_CREATED_NEW_KEY});
    EXPECT_EQ(Key(Mode::Create, key_, "oNE\\t W o\\[3]").disposition, DWORD{REG_OPENED_EXISTING_KEY});
    EXPECT_TRUE(Exists(HKEY_CURRENT_USER, testPath + "\\ONE\\T W O\\[3]\\"));
    EXPECT_EQ(SubKeys(Key(Mode::Open, key_, "")), Names{"One"}) << "the key itself";
    const std::pair<const char*, LONG> bad[] = {{"Two", ERROR_FILE_NOT_FOUND},
                                                {"One\\T w o\\[3]\\4", ERROR_FILE_NOT_FOUND},
                                                {"\\One", ERROR_BAD_PATHNAME}};
    for (const auto& [path, error] : bad)
    {
        const Key key(Mode::Open, key_, path);
        EXPECT_EQ(key.error, error) << path;
        EXPECT_EQ(static_cast<HKEY>(key), nullptr);
    }
    ASSERT_EQ(SetText(deep, "Name", "text"), 0);
    EXPECT_EQ(RegDeleteTreeW(key_, TEXT("One\\T w o")), 0);
    EXPECT_FALSE(Exists(key_, "One\\T w o"));
    EXPECT_TRUE(Exists(key_, "One"));
    EXPECT_EQ(GetText(deep, "Name"), "error 1018");
    EXPECT_EQ(SetText(deep, "Name", "other"), LONG{ERROR_KEY_DELETED});
    EXPECT_EQ(RegDeleteTreeW(key_, TEXT("One\\T w o")), LONG{ERROR_FILE_NOT_FOUND});
}

TEST_F(Registry, EnumerationIsSortedWithoutRegardToCase)
{
    for (const char* name : {"zeta", "10", "Beta2", "alpha", "9", "beta", "account 1", "\u00E4"})
    {
        EXPECT_EQ(Key(Mode::Create, key_, name).error, 0);
    }
    const std::string longest(255, 'y');
    EXPECT_EQ(Key(Mode::Create, key_, longest).error, 0);
    EXPECT_EQ(SubKeys(key_),
              (Names{"10", "9", "account 1", "alpha", "beta", "Beta2", longest, "zeta", "\u00E4"}));

    const struct
    {
        DWORD index;
        DWORD capacity;
        LONG error;
    } cases[] = {{9, 260, ERROR_NO_MORE_ITEMS}, {0xFFFFFFFF, 260, ERROR_NO_MORE_ITEMS},
                 {3, 5, ERROR_MORE_DATA},       {3, 6, 0},
                 {6, 255, ERROR_MORE_DATA},     {6, 256, 0}};
    for (const auto& each : cases)
    {
        std::string name;
        EXPECT_EQ(Enumerate(key_, each.index, name, each.capacity), each.error)
            << each.index << " " << each.capacity;
    }
}

TEST_F(Registry, RightsOfAKeyAreThoseItWasOpenedWith)
{
    ASSERT_EQ(SetText(key_, "Name", "text"), 0);
    EXPECT_EQ(Key(Mode::Create, key_, "Sub").error, 0);
    std::string name;
    const Key query(Mode::Open, HKEY_CURRENT_USER, testPath, KEY_QUERY_VALUE);
    EXPECT_EQ(GetText(query, "Name"), "text");
    EXPECT_EQ(Enumerate(query, 0, name), LONG{ERROR_ACCESS_DENIED});
    EXPECT_EQ(SetText(query, "Name", "other"), LONG{ERROR_ACCESS_DENIED});
    EXPECT_EQ(RegDeleteValueW(query, TEXT("Name")), LONG{ERROR_ACCESS_DENIED});
    const Key enumerate(Mode::Open, HKEY_CURRENT_USER, testPath, KEY_ENUMERATE_SUB_KEYS);
    EXPECT_EQ(GetText(enumerate, "Name"), "error 5");
    EXPECT_EQ(SubKeys(enumerate), Names{"Sub"});
}

TEST_F(Registry, HandlesEndWithTheirClose)
{
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, Wide(testPath).c_str(), 0, KEY_ALL_ACCESS, &key), 0);
    EXPECT_EQ(RegCloseKey(key), 0);
    EXPECT_EQ(RegCloseKey(key), LONG{ERROR_INVALID_HANDLE});
    EXPECT_EQ(GetText(key, "Name"), "error 6");
    EXPECT_EQ(Key(Mode::Open, key, "Sub").error, LONG{ERROR_INVALID_HANDLE});
    EXPECT_EQ(RegCloseKey(nullptr), LONG{ERROR_INVALID_HANDLE});
    EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), 0);
    EXPECT_TRUE(Exists(HKEY_CURRENT_USER, testPath)) << "a root key stays open";
}

constexpr int writers = 4;
constexpr int valuesOfOneWriter = 25;

SNDX_CHILD(WritesRegistryValues)
{
    const Key key(Mode::Create, HKEY_CURRENT_USER, testPath + "\\Writers\\" + arguments.at(0));
    LONG error = key.error;
    for (int value = 0; value < valuesOfOneWriter && error == 0; ++value)
    {
        error = SetText(key, std::to_string(value), "of " + arguments.at(0));
    }
    return static_cast<int>(error);
}

TEST_F(Registry, ProcessesThatWriteAtOnceLoseNothing)
{
    std::vector<ChildProcess> children;
    for (int writer = 0; writer < writers; ++writer)
    {
        children.emplace_back("WritesRegistryValues", Names{std::to_string(writer)});
    }
    for (ChildProcess& child : children)
    {
        EXPECT_EQ(child.Wait(), 0);
    }
    for (int i = 0; i < writers * valuesOfOneWriter; ++i)
    {
        const std::string writer = std::to_string(i / valuesOfOneWriter);
        EXPECT_EQ(GetText(Key(Mode::Open, key_, "Writers\\" + writer), std::to_string(i % valuesOfOneWriter)),
                  "of " + writer);
    }
}

// The helpers that other tests write the product's settings with.
TEST_F(Registry, SettingsAreWrittenWhereTheProductLooks)
{
    AddAccount("A1", "C:\\Konten\\M\u00FCller", "1700000000");
    SetUserString("Debug", "Memory Mode", "3");
    {
        const Key account(Mode::Open, HKEY_LOCAL_MACHINE, productPath + "Accounts\\A1",
                          KEY_QUERY_VALUE | KEY_WOW64_32KEY);
        EXPECT_EQ(GetText(account, "LocalFolder"), "C:\\Konten\\M\u00FCller");
        EXPECT_EQ(GetText(account, "LastUpdate"), "1700000000");
        EXPECT_EQ(GetText(Key(Mode::Open, HKEY_CURRENT_USER, productPath + "Debug"), "Memory Mode"), "3");
    }
    RemoveAllSettings();
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\Taleno Software", KEY_WOW64_32KEY));
    EXPECT_FALSE(Exists(HKEY_CURRENT_USER, "Software\\Taleno Software"));
}
} // namespace
