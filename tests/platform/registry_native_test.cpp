// The text file behind the layer's registry: on Windows there is none. What editors and other programs may
// have written into it, what the layer writes, and what it makes of broken files.

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>
#include <sndxposix.h>

#include "tests/support/settings.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
namespace fs = std::filesystem;

const std::string header = "Windows Registry Editor Version 5.00\n\n";

fs::path Root()
{
    return std::getenv("SENDORA_ROOT");
}

void WriteStore(const std::string& bytes)
{
    std::ofstream(Root() / "registry.reg", std::ios::binary) << bytes;
}

std::string ReadStore()
{
    std::ostringstream text;
    text << std::ifstream(Root() / "registry.reg", std::ios::binary).rdbuf();
    return text.str();
}

// "type:hex bytes" of a value below HKEY_CURRENT_USER\Software\T, or "error N".
std::string Get(const std::string& name, const std::string& path = "Software\\T",
                HKEY root = HKEY_CURRENT_USER)
{
    HKEY key = nullptr;
    LONG error = RegOpenKeyExW(root, Wide(path).c_str(), 0, KEY_QUERY_VALUE, &key);
    if (error != 0)
    {
        return "no key: " + std::to_string(error);
    }
    BYTE data[2048];
    DWORD size = sizeof(data);
    DWORD type = 0;
    error = RegQueryValueExW(key, Wide(name).c_str(), nullptr, &type, data, &size);
    RegCloseKey(key);
    if (error != 0)
    {
        return "error " + std::to_string(error);
    }
    std::ostringstream result;
    result << std::hex << type << ':';
    for (DWORD i = 0; i < size; ++i)
    {
        result << (i == 0 ? "" : " ") << static_cast<unsigned>(data[i]);
    }
    return result.str();
}

std::vector<std::string> SubKeys(HKEY root, const std::string& path)
{
    std::vector<std::string> names;
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, Wide(path).c_str(), 0, KEY_READ, &key) == 0)
    {
        WCHAR name[256];
        for (DWORD index = 0; RegEnumKeyW(key, index, name, 256) == 0; ++index)
        {
            names.push_back(Utf8(name));
        }
        RegCloseKey(key);
    }
    return names;
}

HKEY Create(const std::string& path)
{
    HKEY key = nullptr;
    EXPECT_EQ(0, RegCreateKeyExW(HKEY_CURRENT_USER, Wide(path).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                 nullptr, &key, nullptr));
    return key;
}

// An empty store before and after each test.
class RegistryFile : public ::testing::Test
{
  protected:
    RegistryFile() { fs::remove_all(Root() / "registry.reg"); }
    ~RegistryFile() override { fs::remove_all(Root() / "registry.reg"); }
};

TEST_F(RegistryFile, EveryFormOfTheFormatIsRead)
{
    WriteStore("\xEF\xBB\xBF" + header +
               "; a comment\r\n"
               "[hkey_current_user\\Software\\T]\r\n"
               "\"text\"=\"C:\\\\a \\\"b\\\"\" ; behind\n"
               "@=\"d\"\n"
               "  \"number\"=dword:1a2B3c4D\n"
               "\"binary\"=hex:01,ff,\\\n"
               "  02,\\\r\n"
               "  03\n"
               "\"none\"=hex(0):\n"
               "\"text2\"=hex(1):61,00\n"
               "\"expand\"=hex(2):25,00,00,00\n"
               "\"odd type\"=hex(1a2b):0,1,\n"
               "\"gone\"=\"x\"\n"
               "\"GONE\"=-\n"
               "[HKEY_CURRENT_USER\\Software\\T\\Sub]\n"
               "[HKEY_CURRENT_USER\\Software\\T\\Other\\Deep]\n"
               "[-HKEY_CURRENT_USER\\Software\\T\\Other]\n"
               "[HKEY_CLASSES_ROOT\\.x]\n"
               "@=\"\xC3\xA4\"");
    EXPECT_EQ("1:43 0 3a 0 5c 0 61 0 20 0 22 0 62 0 22 0 0 0", Get("text"));
    EXPECT_EQ("1:64 0 0 0", Get(""));
    EXPECT_EQ("4:4d 3c 2b 1a", Get("number"));
    EXPECT_EQ("3:1 ff 2 3", Get("binary"));
    EXPECT_EQ("0:", Get("none"));
    EXPECT_EQ("1:61 0", Get("text2"));
    EXPECT_EQ("2:25 0 0 0", Get("expand"));
    EXPECT_EQ("1a2b:0 1", Get("odd type"));
    EXPECT_EQ("error 2", Get("gone"));
    EXPECT_EQ(std::vector<std::string>{"Sub"}, SubKeys(HKEY_CURRENT_USER, "Software\\T"));
    EXPECT_EQ("1:e4 0 0 0", Get("", "Software\\Classes\\.x", HKEY_LOCAL_MACHINE));
}

TEST_F(RegistryFile, Utf16IsReadAsWell)
{
    const WideString text =
        Wide(header + "[HKEY_CURRENT_USER\\Software\\T]\r\n\"\xC3\xB6\"=\"\xE2\x82\xAC\"\r\n");
    WriteStore("\xFF\xFE" + std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
    EXPECT_EQ("1:ac 20 0 0", Get("\xC3\x96"));
}

TEST_F(RegistryFile, BadLinesCostOnlyThemselves)
{
    WriteStore(
        "\"before any key\"=\"x\"\n"
        "[HKEY_CURRENT_USER\\Software\\T]\n"
        "\"a\"=\"1\n\"b\"=\"2\" x\n\"c\"\n\"d\"=\n\"e\"=hex:0g\n\"f\"=hex:1,,2\n\"g\"=dword:123456789\n"
        "\"h\"=dword:\n\"i\"=hex(:00\n\"j\"=hex():00\n\"k\"=hex(123456789):00\n\"l\"=hex(1)00\nnonsense\n"
        "\"m\\\n\"n\"=str:x\n@\n[\n[]\n[-]\n[HKEY_CURRENT_USER\\Software\\T\n"
        "\"below a bad key\"=\"x\"\n"
        "[HKEY_USERS\\x]\n\"o\"=hex:00,\\\n  \"p\"=\"swallowed\"\n[-HKEY_CURRENT_USER]\n"
        "[HKEY_CURRENT_USER\\\\Software]\n"
        "[HKEY_CURRENT_USER\\Software\\T\\" +
        std::string(256, 'x') + "]\n[HKEY_CURRENT_USER\\Software\\T]\n\"good\"=\"1\"\n\"last\"=hex:31,\\");
    for (const char* name : {"before any key", "a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l",
                             "m", "n", "", "below a bad key", "o", "p"})
    {
        EXPECT_EQ("error 2", Get(name)) << name;
    }
    EXPECT_EQ("1:31 0 0 0", Get("good"));
    EXPECT_EQ("3:31", Get("last"));
    EXPECT_EQ(std::vector<std::string>{}, SubKeys(HKEY_CURRENT_USER, "Software\\T"));
}

TEST_F(RegistryFile, NoBytesHurtAReader)
{
    // Bytes at random, and a good file with bytes changed at random: nothing is known of the result but
    // that there is one, and that the next good file is read.
    const std::string good = header +
                             "[HKEY_CURRENT_USER\\Software\\T]\n\"a\"=\"1\\\\2\\\"\"\n\"b\"=hex(7):31,\\\n"
                             "  00,00\n\"c\"=dword:00000001\n@=-\n[-HKEY_CURRENT_USER\\Software\\T\\Sub]\n";
    std::mt19937 random(20090815);
    for (int round = 0; round < 300; ++round)
    {
        std::string bytes = good;
        for (unsigned change = 0; change < 1 + random() % 12; ++change)
        {
            const char odd[] = "[]\\\"=-:,@;\n\r\0\xFF\xFE\x80(";
            bytes[random() % bytes.size()] =
                random() % 2 == 0 ? odd[random() % sizeof(odd)] : static_cast<char>(random());
        }
        if (round % 3 == 0)
        {
            bytes.insert(0, "\xFF\xFE");
        }
        WriteStore(bytes);
        SubKeys(HKEY_CURRENT_USER, "Software\\T");
        Get("a");
    }
    std::string deep = header + "[HKEY_CURRENT_USER";
    for (int i = 0; i < 100000; ++i)
    {
        deep += "\\x";
    }
    WriteStore(deep + "]\n" + good);
    EXPECT_EQ("4:1 0 0 0", Get("c"));
    EXPECT_EQ(std::vector<std::string>{}, SubKeys(HKEY_CURRENT_USER, "x"));
}

TEST_F(RegistryFile, WhatIsNoFileIsReportedAndNotReplaced)
{
    fs::remove(Root() / "registry.reg");
    fs::create_directory(Root() / "registry.reg");
    EXPECT_EQ("no key: 1015", Get("a"));
    HKEY key = nullptr;
    EXPECT_EQ(LONG{1015}, RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\T"), 0, nullptr, 0,
                                          KEY_ALL_ACCESS, nullptr, &key, nullptr));
    EXPECT_TRUE(fs::is_directory(Root() / "registry.reg"));
    fs::remove(Root() / "registry.reg");
    key = Create("Software\\T");
    EXPECT_EQ(0, RegCloseKey(key));
    EXPECT_TRUE(fs::is_regular_file(Root() / "registry.reg"));
}

TEST_F(RegistryFile, IsReadAfreshWhenSomebodyElseHasWrittenIt)
{
    const fs::path store = Root() / "registry.reg";
    const auto text = [](char digit)
    { return header + "[HKEY_CURRENT_USER\\Software\\T]\n\"a\"=\"" + digit + "\"\n"; };
    // Same file, same length, same time: a change in place that comes within one step of the clock.
    const auto soon = fs::file_time_type::clock::now() + std::chrono::seconds(10);
    for (const char digit : {'1', '2', '3'})
    {
        WriteStore(text(digit));
        fs::last_write_time(store, soon);
        EXPECT_EQ(std::string("1:3") + digit + " 0 0 0", Get("a"));
    }
    // New files with the same length and time; the second one may get the number of the one before.
    const auto longAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const char digit : {'4', '5', '6', '7'})
    {
        for (const char written : {'0', digit})
        {
            std::ofstream(Root() / "mine") << text(written);
            fs::last_write_time(Root() / "mine", longAgo);
            fs::rename(Root() / "mine", store);
        }
        EXPECT_EQ(std::string("1:3") + digit + " 0 0 0", Get("a"));
    }
    fs::remove(Root() / "registry.reg");
    EXPECT_EQ("no key: 2", Get("a"));
}

TEST_F(RegistryFile, WhatIsWrittenIsReadBack)
{
    std::vector<std::pair<DWORD, std::vector<BYTE>>> values = {
        {REG_SZ, {}},
        {REG_SZ, {'a', 0}},
        {REG_SZ, {'"', 0, '\\', 0, 0xAC, 0x20, 0, 0}},
        {REG_SZ, {'\n', 0, 0, 0}},
        {REG_SZ, {0, 0xD8, 0, 0}},
        {REG_SZ, {'a', 0, 'b'}},
        {REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0}},
        {REG_DWORD, {1, 2, 3, 4}},
        {REG_DWORD, {1, 2, 3, 4, 5}},
        {REG_BINARY, std::vector<BYTE>(1000, BYTE{0xA5})},
        {0xFEDCBA98u, {7}},
    };
    std::vector<std::string> before;
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        SetUserBytes("Bytes", "v\"\\" + std::to_string(i), values[i].first, values[i].second);
        before.push_back(Get("v\"\\" + std::to_string(i), "Software\\Taleno Software\\Sendora\\Bytes"));
    }
    RegCloseKey(Create("Software\\Taleno Software\\Sendora\\[empty] - key "));
    // Another file with the same content: the tree in memory no longer counts.
    const std::string text = ReadStore();
    fs::remove(Root() / "registry.reg");
    EXPECT_EQ("no key: 2", Get("", "Software\\Taleno Software"));
    WriteStore(text);
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        EXPECT_EQ(before[i], Get("v\"\\" + std::to_string(i), "Software\\Taleno Software\\Sendora\\Bytes"));
    }
    EXPECT_EQ((std::vector<std::string>{"Bytes", "[empty] - key "}),
              SubKeys(HKEY_CURRENT_USER, "Software\\Taleno Software\\Sendora"));

    EXPECT_EQ(0u, text.find(header));
    EXPECT_NE(std::string::npos, text.find("\"v\\\"\\\\2\"=\"\\\"\\\\\xE2\x82\xAC\"\n")) << text;
    for (const auto& entry : fs::directory_iterator(Root()))
    {
        EXPECT_EQ(std::string::npos, entry.path().string().find(".new"));
    }
}

TEST_F(RegistryFile, HoldsNothingOfTheSystemsOwnFactsButTheirChanges)
{
    const std::string version = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    EXPECT_EQ("1:32 0 30 0 30 0 39 0 0 0", Get("ReleaseId", version, HKEY_LOCAL_MACHINE));
    HKEY key = nullptr;
    ASSERT_EQ(0, RegOpenKeyExW(HKEY_LOCAL_MACHINE, Wide(version).c_str(), 0, KEY_ALL_ACCESS, &key));
    SetUserString("Debug", "Memory Mode", "2");
    EXPECT_EQ(std::string::npos, ReadStore().find("ReleaseId"));
    EXPECT_EQ(std::string::npos, ReadStore().find("CentralProcessor"));

    EXPECT_EQ(0, RegDeleteValueW(key, TEXT("ReleaseId")));
    RegCloseKey(key);
    EXPECT_EQ(0, RegDeleteTreeW(HKEY_LOCAL_MACHINE, TEXT("HARDWARE")));
    const std::string text = ReadStore();
    fs::remove(Root() / "registry.reg");
    EXPECT_EQ("1:32 0 30 0 30 0 39 0 0 0", Get("ReleaseId", version, HKEY_LOCAL_MACHINE));
    WriteStore(text);
    EXPECT_EQ("error 2", Get("ReleaseId", version, HKEY_LOCAL_MACHINE));
    EXPECT_EQ("no key: 2", Get("", "hardware", HKEY_LOCAL_MACHINE));
}

TEST_F(RegistryFile, NamesAreOrderedByCapitalLetters)
{
    // Wine has it the other way round.
    for (const char* name : {"_u", "z", "A"})
    {
        RegCloseKey(Create(std::string("Software\\T\\") + name));
    }
    EXPECT_EQ((std::vector<std::string>{"A", "z", "_u"}), SubKeys(HKEY_CURRENT_USER, "Software\\T"));
}

TEST_F(RegistryFile, TheViewFlagCountsAtTheRootKey)
{
    SetSharedString("Debug", "Text", "1");
    HKEY software = nullptr;
    HKEY key = nullptr;
    ASSERT_EQ(0, RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("Software"), 0, KEY_READ, &software));
    EXPECT_EQ(LONG{ERROR_FILE_NOT_FOUND},
              RegOpenKeyExW(software, TEXT("Taleno Software"), 0, KEY_READ | KEY_WOW64_32KEY, &key));
    RegCloseKey(software);
}

TEST_F(RegistryFile, NamesThatDoNotFitALineAreRefused)
{
    HKEY key = nullptr;
    for (const char* name : {"a\nb", "a\x01", "\x7F"})
    {
        EXPECT_NE(0, RegCreateKeyExW(HKEY_CURRENT_USER, Wide(std::string("Software\\") + name).c_str(), 0,
                                     nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
    }
    const WCHAR halfPair[] = {'a', 0xD800, 0};
    key = Create("Software\\T");
    EXPECT_EQ(LONG{ERROR_INVALID_PARAMETER}, RegSetValueExW(key, halfPair, 0, REG_SZ, nullptr, 0));
    RegCloseKey(key);
}

TEST_F(RegistryFile, ATooSmallBufferIsNotTouched)
{
    SetUserString("Debug", "Text", "abc");
    HKEY key = Create("Software\\Taleno Software\\Sendora\\Debug");
    BYTE buffer[7] = {1, 2, 3, 4, 5, 6, 7};
    const BYTE untouched[7] = {1, 2, 3, 4, 5, 6, 7};
    DWORD size = sizeof(buffer);
    EXPECT_EQ(LONG{ERROR_MORE_DATA}, RegQueryValueExW(key, TEXT("Text"), nullptr, nullptr, buffer, &size));
    EXPECT_EQ(0, std::memcmp(untouched, buffer, sizeof(buffer)));
    RegCloseKey(key);
}

TEST_F(RegistryFile, ThreadsReadWhileOthersWrite)
{
    SetUserString("Debug", "Text", "aaaaaaaa");
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread)
    {
        threads.emplace_back(
            [thread]
            {
                for (int round = 0; round < 100; ++round)
                {
                    if (thread == 0)
                    {
                        SetUserString("Debug", "Text", round % 2 == 0 ? "bbbbbbbb" : "aaaaaaaa");
                        continue;
                    }
                    const std::string text = Get("Text", "Software\\Taleno Software\\Sendora\\Debug");
                    EXPECT_TRUE(text == "1:61 0 61 0 61 0 61 0 61 0 61 0 61 0 61 0 0 0" ||
                                text == "1:62 0 62 0 62 0 62 0 62 0 62 0 62 0 62 0 0 0")
                        << text;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

TEST_F(RegistryFile, CallsFailWhenATestWantsIt)
{
    SetUserString("Debug", "Text", "abc");
    HKEY key = Create("Software\\Taleno Software\\Sendora\\Debug");
    HKEY other = nullptr;
    sndxposix::FailCall("RegOpenKeyExW", 5);
    EXPECT_EQ(5, RegOpenKeyExW(HKEY_CURRENT_USER, TEXT("Software"), 0, KEY_READ, &other));
    EXPECT_EQ(0, RegOpenKeyExW(HKEY_CURRENT_USER, TEXT("Software"), 0, KEY_READ, &other));
    RegCloseKey(other);
    WCHAR name[260];
    sndxposix::FailCall("RegEnumKeyW", 6);
    EXPECT_EQ(6, RegEnumKeyW(HKEY_CURRENT_USER, 0, name, 260));
    EXPECT_EQ(0, RegEnumKeyW(HKEY_CURRENT_USER, 0, name, 260));
    RegCloseKey(key);
}

TEST_F(RegistryFile, ImportMergesAnotherFile)
{
    SetUserString("Debug", "Kept", "1");
    SetUserString("Debug", "Gone", "1");
    const std::string file = Root() / "import.reg";
    std::ofstream(file) << header
                        << "[HKEY_CURRENT_USER\\Software\\Taleno Software\\Sendora\\Debug]\n\"Gone\"=-\n"
                           "\"New\"=dword:00000002\nnonsense\n";
    sndxposix::RegistryImport import = sndxposix::ImportRegistryFile(file.c_str());
    EXPECT_EQ(0, import.error);
    EXPECT_TRUE(import.hasHeader);
    EXPECT_EQ(1u, import.badLines);
    EXPECT_EQ(6u, import.firstBadLine);
    const std::string path = "Software\\Taleno Software\\Sendora\\Debug";
    EXPECT_EQ("1:31 0 0 0", Get("Kept", path));
    EXPECT_EQ("error 2", Get("Gone", path));
    EXPECT_EQ("4:2 0 0 0", Get("New", path));

    std::ofstream(file) << "[-HKEY_CURRENT_USER\\Software\\Taleno Software]\n";
    EXPECT_FALSE(sndxposix::ImportRegistryFile(file.c_str()).hasHeader);
    EXPECT_EQ("1:31 0 0 0", Get("Kept", path));
    EXPECT_EQ(2, sndxposix::ImportRegistryFile((file + "x").c_str()).error);
}
} // namespace
