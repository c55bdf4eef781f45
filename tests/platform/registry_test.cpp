// The registry: values byte for byte, views, names, enumeration, rights, and what other processes write.

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/settings.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using Bytes = std::vector<BYTE>;

constexpr REGSAM fullAccess = KEY_ALL_ACCESS;
const char* const testPath = "Software\\Taleno Software\\Test";

DWORD Open(HKEY root, const std::string& path, REGSAM access, HKEY& key)
{
    key = nullptr;
    return static_cast<DWORD>(RegOpenKeyExW(root, Wide(path).c_str(), 0, access, &key));
}

DWORD Create(HKEY root, const std::string& path, REGSAM access, HKEY& key, DWORD* disposition = nullptr)
{
    key = nullptr;
    return static_cast<DWORD>(
        RegCreateKeyExW(root, Wide(path).c_str(), 0, nullptr, 0, access, nullptr, &key, disposition));
}

bool Exists(HKEY root, const std::string& path, REGSAM view = 0)
{
    HKEY key = nullptr;
    const bool exists = Open(root, path, KEY_QUERY_VALUE | view, key) == 0;
    if (exists)
    {
        RegCloseKey(key);
    }
    return exists;
}

DWORD SetText(HKEY key, const std::string& name, const std::string& text)
{
    const WideString wide = Wide(text);
    return static_cast<DWORD>(RegSetValueExW(key, Wide(name).c_str(), 0, REG_SZ,
                                             reinterpret_cast<const BYTE*>(wide.c_str()),
                                             static_cast<DWORD>((wide.size() + 1) * sizeof(WCHAR))));
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

DWORD Enumerate(HKEY key, DWORD index, std::string& name, DWORD capacity = 260)
{
    std::vector<WCHAR> buffer(capacity + 1, WCHAR{'#'});
    const DWORD error = static_cast<DWORD>(RegEnumKeyW(key, index, buffer.data(), capacity));
    EXPECT_EQ(WCHAR{'#'}, buffer[capacity]);
    name = error == 0 ? Utf8(buffer.data()) : "";
    return error;
}

std::vector<std::string> SubKeys(HKEY key)
{
    std::vector<std::string> names;
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
    Registry() { EXPECT_EQ(0u, Create(HKEY_CURRENT_USER, testPath, fullAccess, key_)); }
    ~Registry() override { RegCloseKey(key_); }

    CleanSettings clean_;
    HKEY key_ = nullptr;
};

struct Value
{
    const char* label;
    DWORD type;
    Bytes bytes;
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

std::vector<Value> Values()
{
    Bytes all;
    for (unsigned byte = 0; byte < 256; ++byte)
    {
        all.push_back(static_cast<BYTE>(byte));
    }
    return {
        {"Text", REG_SZ, Units({'C', ':', '\\', 'a', '"', ' ', 0xE4, 0x20AC, 0})},
        {"EmptyText", REG_SZ, Units({0})},
        {"TextWithoutTerminator", REG_SZ, Units({'a', 'b', 'c'})},
        {"TextOfHalfCharacters", REG_SZ, {'a', 0, 'b', 0, 'c'}},
        {"TextWithNulInside", REG_SZ, Units({'a', 0, 'b', 0})},
        {"TextWithTwoTerminators", REG_SZ, Units({'a', 0, 0})},
        {"TextWithLineBreak", REG_SZ, Units({'a', '\r', '\n', '[', 'b', ']', 0})},
        {"TextWithHalfPair", REG_SZ, Units({'a', 0xD800, 'b', 0})},
        {"TextWithPair", REG_SZ, Units({0xD83D, 0xDE00, 0})},
        {"NoBytesOfText", REG_SZ, {}},
        {"TextOf520BytesUnterminated", REG_SZ, Bytes(520, BYTE{'q'})},
        {"Expandable", REG_EXPAND_SZ, Units({'%', 'P', '%', 0})},
        {"Several", REG_MULTI_SZ, Units({'a', 0, 'b', 0, 0})},
        {"Number", REG_DWORD, {0x78, 0x56, 0x34, 0xF2}},
        {"ShortNumber", REG_DWORD, {0x78, 0x56, 0x34}},
        {"Binary", REG_BINARY, all},
        {"NoBytes", REG_BINARY, {}},
        {"NoType", REG_NONE, {1, 2, 3}},
        {"UnknownType", 0x1234, {9, 8, 7, 6, 5}},
        {"Long", REG_BINARY, Bytes(100000, BYTE{0x5A})},
    };
}

TEST_F(Registry, ValuesComeBackByteForByte)
{
    for (const Value& value : Values())
    {
        SCOPED_TRACE(value.label);
        SetUserBytes("Bytes", value.label, value.type, value.bytes);
    }
    HKEY key = nullptr;
    ASSERT_EQ(0u, Open(HKEY_CURRENT_USER, "Software\\Taleno Software\\Sendora\\Bytes", KEY_QUERY_VALUE, key));
    for (const Value& value : Values())
    {
        SCOPED_TRACE(value.label);
        DWORD type = 0xdead;
        DWORD size = static_cast<DWORD>(value.bytes.size());
        Bytes data(value.bytes.size() + 1, BYTE{'#'});
        EXPECT_EQ(0, RegQueryValueExW(key, Wide(value.label).c_str(), nullptr, &type, data.data(), &size));
        EXPECT_EQ(value.type, type);
        ASSERT_EQ(value.bytes.size(), size);
        EXPECT_EQ(BYTE{'#'}, data.back());
        data.pop_back();
        EXPECT_EQ(value.bytes, data);
    }
    RegCloseKey(key);
}

TEST_F(Registry, QueryTellsTheSizeThatItNeeds)
{
    ASSERT_EQ(0u, SetText(key_, "Name", "abcdef"));
    const WideString name = Wide("Name");
    DWORD type = 0;
    DWORD size = 5;
    EXPECT_EQ(0, RegQueryValueExW(key_, name.c_str(), nullptr, &type, nullptr, &size));
    EXPECT_EQ(14u, size);
    EXPECT_EQ(DWORD{REG_SZ}, type);
    EXPECT_EQ(0, RegQueryValueExW(key_, name.c_str(), nullptr, nullptr, nullptr, nullptr));

    Bytes buffer(14, BYTE{'#'});
    size = 13;
    EXPECT_EQ(LONG{ERROR_MORE_DATA},
              RegQueryValueExW(key_, name.c_str(), nullptr, &type, buffer.data(), &size));
    EXPECT_EQ(14u, size);
    EXPECT_EQ(LONG{ERROR_INVALID_PARAMETER},
              RegQueryValueExW(key_, name.c_str(), nullptr, nullptr, buffer.data(), nullptr));
    size = 14;
    EXPECT_EQ(0, RegQueryValueExW(key_, name.c_str(), nullptr, &type, buffer.data(), &size));
    EXPECT_EQ(0, std::memcmp(buffer.data(), Wide("abcdef").c_str(), 14));

    type = 77;
    size = 14;
    EXPECT_EQ(LONG{ERROR_FILE_NOT_FOUND},
              RegQueryValueExW(key_, Wide("Other").c_str(), nullptr, nullptr, buffer.data(), &size));
    EXPECT_EQ(14u, size);
}

TEST_F(Registry, ValueNamesIgnoreCaseAndMayBeEmpty)
{
    ASSERT_EQ(0u, SetText(key_,
                          "Gr\xC3\xB6\xC3\x9F"
                          "e",
                          "one"));
    EXPECT_EQ("one", GetText(key_, "GR\xC3\x96\xC3\x9F"
                                   "E"));
    ASSERT_EQ(0u, SetText(key_,
                          "GR\xC3\x96\xC3\x9F"
                          "E",
                          "two"));
    EXPECT_EQ("two", GetText(key_, "gr\xC3\xB6\xC3\x9F"
                                   "e"));

    EXPECT_EQ("error 2", GetText(key_, ""));
    ASSERT_EQ(0u, SetText(key_, "", "default"));
    EXPECT_EQ("default", GetText(key_, ""));
    DWORD size = 0;
    EXPECT_EQ(0, RegQueryValueExW(key_, nullptr, nullptr, nullptr, nullptr, &size));
    EXPECT_EQ(16u, size);

    // Characters that mean something in a registry editor's file.
    const std::string odd = "a\"b\\c=[d];@";
    ASSERT_EQ(0u, SetText(key_, odd, "odd"));
    EXPECT_EQ("odd", GetText(key_, odd));

    EXPECT_EQ(0, RegDeleteValueW(key_, Wide(odd).c_str()));
    EXPECT_EQ("error 2", GetText(key_, odd));
    EXPECT_EQ(LONG{ERROR_FILE_NOT_FOUND}, RegDeleteValueW(key_, Wide(odd).c_str()));
    EXPECT_EQ("default", GetText(key_, ""));
}

TEST_F(Registry, MachineSoftwareHasTwoViews)
{
    const std::string below = "Taleno Software\\Test";
    HKEY narrow = nullptr;
    ASSERT_EQ(0u, Create(HKEY_LOCAL_MACHINE, "SOFTWARE\\" + below, fullAccess | KEY_WOW64_32KEY, narrow));
    ASSERT_EQ(0u, SetText(narrow, "Name", "32 bits"));
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below));
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below, KEY_WOW64_64KEY));
    EXPECT_TRUE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below, KEY_WOW64_32KEY));

    HKEY same = nullptr;
    ASSERT_EQ(0u, Open(HKEY_LOCAL_MACHINE, "Software\\Wow6432Node\\" + below, fullAccess, same));
    EXPECT_EQ("32 bits", GetText(same, "Name"));
    RegCloseKey(same);

    // By way of an open key of the view.
    HKEY software = nullptr;
    ASSERT_EQ(0u, Open(HKEY_LOCAL_MACHINE, "Software", KEY_READ | KEY_WOW64_32KEY, software));
    ASSERT_EQ(0u, Open(software, below, fullAccess, same));
    EXPECT_EQ("32 bits", GetText(same, "Name"));
    RegCloseKey(same);
    RegCloseKey(software);
    EXPECT_EQ(0, RegDeleteValueW(narrow, Wide("Name").c_str()));
    RegCloseKey(narrow);
    EXPECT_EQ(0, RegDeleteKeyExW(HKEY_LOCAL_MACHINE, Wide("Software\\" + below).c_str(), KEY_WOW64_32KEY, 0));
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\" + below, KEY_WOW64_32KEY));
}

TEST_F(Registry, UserSoftwareIsTheSameInBothViews)
{
    HKEY narrow = nullptr;
    ASSERT_EQ(0u, Open(HKEY_CURRENT_USER, testPath, fullAccess | KEY_WOW64_32KEY, narrow));
    ASSERT_EQ(0u, SetText(narrow, "Name", "text"));
    EXPECT_EQ("text", GetText(key_, "Name"));
    RegCloseKey(narrow);
}

TEST_F(Registry, ClassesAreAPartOfMachineSoftware)
{
    HKEY classKey = nullptr;
    ASSERT_EQ(0u, Create(HKEY_LOCAL_MACHINE, "Software\\Classes\\TalenoTest\\shell", fullAccess, classKey));
    ASSERT_EQ(0u, SetText(classKey, "", "open"));
    RegCloseKey(classKey);
    ASSERT_EQ(0u, Open(HKEY_CLASSES_ROOT, "TalenoTest\\shell", KEY_QUERY_VALUE, classKey));
    EXPECT_EQ("open", GetText(classKey, ""));
    RegCloseKey(classKey);
    EXPECT_EQ(0, RegDeleteTreeW(HKEY_CLASSES_ROOT, Wide("TalenoTest").c_str()));
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\Classes\\TalenoTest"));
}

TEST_F(Registry, KeyNames)
{
    HKEY key = nullptr;
    DWORD disposition = 0;
    ASSERT_EQ(0u, Create(key_, "One\\T w o\\[3]\\", fullAccess, key, &disposition));
    EXPECT_EQ(DWORD{REG_CREATED_NEW_KEY}, disposition);
    RegCloseKey(key);
    ASSERT_EQ(0u, Create(key_, "oNE\\t W o\\[3]", fullAccess, key, &disposition));
    EXPECT_EQ(DWORD{REG_OPENED_EXISTING_KEY}, disposition);
    RegCloseKey(key);
    EXPECT_TRUE(Exists(HKEY_CURRENT_USER, std::string(testPath) + "\\ONE\\T W O\\[3]\\"));
    EXPECT_EQ(std::vector<std::string>{"One"}, SubKeys(key_));

    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Open(key_, "Two", KEY_READ, key));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Open(key_, "One\\T w o\\[3]\\4", KEY_READ, key));
    EXPECT_EQ(DWORD{ERROR_BAD_PATHNAME}, Open(key_, "\\One", KEY_READ, key));
    EXPECT_EQ(nullptr, key);

    // No path: the key itself, as a handle of its own.
    ASSERT_EQ(0u, Open(key_, "", KEY_READ, key));
    EXPECT_EQ(std::vector<std::string>{"One"}, SubKeys(key));
    EXPECT_EQ(0, RegCloseKey(key));
    EXPECT_EQ(0, RegOpenKeyExW(key_, nullptr, 0, KEY_READ, &key));
    EXPECT_EQ(0, RegCloseKey(key));
    EXPECT_EQ(std::vector<std::string>{"One"}, SubKeys(key_));
}

TEST_F(Registry, EnumerationIsSortedWithoutRegardToCase)
{
    HKEY key = nullptr;
    for (const char* name : {"zeta", "10", "Beta2", "alpha", "9", "beta", "account 1", "Alpha 2", "\xC3\xA4"})
    {
        ASSERT_EQ(0u, Create(key_, name, fullAccess, key));
        RegCloseKey(key);
    }
    EXPECT_EQ((std::vector<std::string>{"10", "9", "account 1", "alpha", "Alpha 2", "beta", "Beta2", "zeta",
                                        "\xC3\xA4"}),
              SubKeys(key_));

    std::string name;
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, Enumerate(key_, 9, name));
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, Enumerate(key_, 0xFFFFFFFFu, name));
    EXPECT_EQ(DWORD{ERROR_MORE_DATA}, Enumerate(key_, 3, name, 5));
    EXPECT_EQ(0u, Enumerate(key_, 3, name, 6));
    EXPECT_EQ("alpha", name);

    // A name of the longest kind.
    const std::string longName(255, 'y');
    ASSERT_EQ(0u, Create(key_, longName, fullAccess, key));
    RegCloseKey(key);
    EXPECT_EQ(0u, Enumerate(key_, 7, name));
    EXPECT_EQ(longName, name);
    EXPECT_EQ(DWORD{ERROR_MORE_DATA}, Enumerate(key_, 7, name, 255));
}

TEST_F(Registry, RightsOfAKeyAreThoseItWasOpenedWith)
{
    ASSERT_EQ(0u, SetText(key_, "Name", "text"));
    HKEY sub = nullptr;
    ASSERT_EQ(0u, Create(key_, "Sub", fullAccess, sub));
    RegCloseKey(sub);

    HKEY key = nullptr;
    std::string name;
    ASSERT_EQ(0u, Open(HKEY_CURRENT_USER, testPath, KEY_QUERY_VALUE, key));
    EXPECT_EQ("text", GetText(key, "Name"));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Enumerate(key, 0, name));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, SetText(key, "Name", "other"));
    EXPECT_EQ(LONG{ERROR_ACCESS_DENIED}, RegDeleteValueW(key, Wide("Name").c_str()));
    RegCloseKey(key);

    ASSERT_EQ(0u, Open(HKEY_CURRENT_USER, testPath, KEY_ENUMERATE_SUB_KEYS, key));
    EXPECT_EQ("error 5", GetText(key, "Name"));
    EXPECT_EQ(0u, Enumerate(key, 0, name));
    EXPECT_EQ("Sub", name);
    RegCloseKey(key);
    EXPECT_EQ("text", GetText(key_, "Name"));
}

TEST_F(Registry, HandlesEndWithTheirClose)
{
    HKEY key = nullptr;
    std::string name;
    ASSERT_EQ(0u, Open(HKEY_CURRENT_USER, testPath, fullAccess, key));
    EXPECT_EQ(0, RegCloseKey(key));
    EXPECT_EQ(LONG{ERROR_INVALID_HANDLE}, RegCloseKey(key));
    EXPECT_EQ("error 6", GetText(key, "Name"));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, SetText(key, "Name", ""));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, Enumerate(key, 0, name));
    HKEY other = nullptr;
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, Open(key, "Sub", KEY_READ, other));
    EXPECT_EQ(LONG{ERROR_INVALID_HANDLE}, RegCloseKey(nullptr));
    EXPECT_EQ(0, RegCloseKey(HKEY_CURRENT_USER));
    EXPECT_TRUE(Exists(HKEY_CURRENT_USER, testPath));
}

TEST_F(Registry, DeletingKeys)
{
    HKEY key = nullptr;
    ASSERT_EQ(0u, Create(key_, "Tree\\Branch\\Leaf", fullAccess, key));
    ASSERT_EQ(0u, SetText(key, "Name", "text"));
    EXPECT_EQ(LONG{ERROR_ACCESS_DENIED}, RegDeleteKeyExW(key_, Wide("Tree").c_str(), 0, 0));
    EXPECT_TRUE(Exists(key_, "Tree\\Branch\\Leaf"));
    EXPECT_EQ(0, RegDeleteTreeW(key_, Wide("Tree\\Branch").c_str()));
    EXPECT_FALSE(Exists(key_, "Tree\\Branch"));
    EXPECT_TRUE(Exists(key_, "Tree"));

    // An open key whose place in the tree is gone.
    EXPECT_EQ("error 1018", GetText(key, "Name"));
    EXPECT_EQ(DWORD{ERROR_KEY_DELETED}, SetText(key, "Name", "other"));
    EXPECT_EQ(0, RegCloseKey(key));

    EXPECT_EQ(0, RegDeleteKeyExW(key_, Wide("Tree").c_str(), 0, 0));
    EXPECT_EQ(LONG{ERROR_FILE_NOT_FOUND}, RegDeleteKeyExW(key_, Wide("Tree").c_str(), 0, 0));
    EXPECT_EQ(LONG{ERROR_FILE_NOT_FOUND}, RegDeleteTreeW(key_, Wide("Tree").c_str()));
}

TEST_F(Registry, WhatTheSystemSaysAboutItself)
{
    HKEY key = nullptr;
    ASSERT_EQ(0u, Open(HKEY_LOCAL_MACHINE, "hardware\\description\\system\\CentralProcessor\\0",
                       KEY_QUERY_VALUE, key));
    const std::string processor = GetText(key, "ProcessorNameString");
    EXPECT_FALSE(processor.empty());
    EXPECT_NE("error 2", processor);
    RegCloseKey(key);
    EXPECT_TRUE(Exists(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"));
}

constexpr int writers = 4;
constexpr int valuesOfOneWriter = 25;

SNDX_CHILD(WritesRegistryValues)
{
    HKEY key = nullptr;
    if (Create(HKEY_CURRENT_USER, std::string(testPath) + "\\Writers\\" + arguments.at(0), fullAccess, key) !=
        0)
    {
        return 1;
    }
    for (int value = 0; value < valuesOfOneWriter; ++value)
    {
        if (SetText(key, std::to_string(value), "of " + arguments.at(0)) != 0)
        {
            return 2;
        }
    }
    RegCloseKey(key);
    return 0;
}

TEST_F(Registry, ProcessesThatWriteAtOnceLoseNothing)
{
    {
        std::vector<ChildProcess> children;
        for (int writer = 0; writer < writers; ++writer)
        {
            children.emplace_back("WritesRegistryValues", std::vector<std::string>{std::to_string(writer)});
        }
        for (ChildProcess& child : children)
        {
            EXPECT_EQ(0, child.Wait());
        }
    }
    for (int writer = 0; writer < writers; ++writer)
    {
        HKEY key = nullptr;
        ASSERT_EQ(0u, Open(key_, "Writers\\" + std::to_string(writer), KEY_QUERY_VALUE, key));
        for (int value = 0; value < valuesOfOneWriter; ++value)
        {
            EXPECT_EQ("of " + std::to_string(writer), GetText(key, std::to_string(value)));
        }
        RegCloseKey(key);
    }
}

TEST(Settings, AreWrittenWhereTheProductLooks)
{
    const CleanSettings clean;
    AddAccount("A1", "C:\\Konten\\M\xC3\xBCller", "1700000000");
    SetUserString("Debug", "Memory Mode", "3");
    SetUserString("Debug", "", "default");
    HKEY key = nullptr;
    ASSERT_EQ(0u, Open(HKEY_LOCAL_MACHINE, "Software\\Taleno Software\\Sendora\\Accounts\\A1",
                       KEY_QUERY_VALUE | KEY_WOW64_32KEY, key));
    EXPECT_EQ("C:\\Konten\\M\xC3\xBCller", GetText(key, "LocalFolder"));
    EXPECT_EQ("1700000000", GetText(key, "LastUpdate"));
    RegCloseKey(key);
    ASSERT_EQ(0u, Open(HKEY_CURRENT_USER, "Software\\Taleno Software\\Sendora\\Debug", KEY_QUERY_VALUE, key));
    EXPECT_EQ("3", GetText(key, "Memory Mode"));
    EXPECT_EQ("default", GetText(key, ""));
    RegCloseKey(key);

    RemoveAllSettings();
    EXPECT_FALSE(Exists(HKEY_LOCAL_MACHINE, "Software\\Taleno Software", KEY_WOW64_32KEY));
    EXPECT_FALSE(Exists(HKEY_CURRENT_USER, "Software\\Taleno Software"));
}
} // namespace
