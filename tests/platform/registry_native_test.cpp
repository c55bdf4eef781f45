// The text file behind the layer's registry: on Windows there is none. What editors and other programs may
// have written into it, what the layer writes, and what it makes of broken files.

#include <chrono>
#include <cstdlib>
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

std::vector<std::string> SubKeys(const std::string& path)
{
    std::vector<std::string> names;
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, Wide(path).c_str(), 0, KEY_READ, &key) == 0)
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

// Makes a key below HKEY_CURRENT_USER; the error of that.
LONG Create(const std::string& path)
{
    HKEY key = nullptr;
    const LONG error = RegCreateKeyExW(HKEY_CURRENT_USER, Wide(path).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                       nullptr, &key, nullptr);
    return error != 0 ? error : RegCloseKey(key);
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
               "[-HKEY_CURRENT_USER\\Software\\T\\Other]\n");
    EXPECT_EQ("1:43 0 3a 0 5c 0 61 0 20 0 22 0 62 0 22 0 0 0", Get("text"));
    EXPECT_EQ("1:64 0 0 0", Get(""));
    EXPECT_EQ("4:4d 3c 2b 1a", Get("number"));
    EXPECT_EQ("3:1 ff 2 3", Get("binary"));
    EXPECT_EQ("0:", Get("none"));
    EXPECT_EQ("1:61 0", Get("text2"));
    EXPECT_EQ("2:25 0 0 0", Get("expand"));
    EXPECT_EQ("1a2b:0 1", Get("odd type"));
    EXPECT_EQ("error 2", Get("gone"));
    EXPECT_EQ(std::vector<std::string>{"Sub"}, SubKeys("Software\\T"));
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
    EXPECT_EQ(std::vector<std::string>{}, SubKeys("Software\\T"));
}

TEST_F(RegistryFile, NoBytesHurtAReader)
{
    // A good file with bytes changed at random: nothing is known of the result but that there is one, and
    // that the next good file is read.
    const std::string good = header +
                             "[HKEY_CURRENT_USER\\Software\\T]\n\"a\"=\"1\\\\2\\\"\"\n\"b\"=hex(7):31,\\\n"
                             "  00,00\n\"c\"=dword:00000001\n@=-\n[-HKEY_CURRENT_USER\\Software\\T\\Sub]\n";
    const std::string odd("[]\\\"=-:,@;\n\r\0\xFF\xFE\x80(", 18);
    std::mt19937 random(20090815);
    for (int round = 0; round < 300; ++round)
    {
        std::string bytes = good;
        for (unsigned change = 0; change < 1 + random() % 12; ++change)
        {
            bytes[random() % bytes.size()] = odd[random() % odd.size()];
        }
        WriteStore((round % 3 == 0 ? "\xFF\xFE" : "") + bytes);
        SubKeys("Software\\T");
        Get("a");
    }
    std::string deep = header + "[HKEY_CURRENT_USER";
    for (int i = 0; i < 100000; ++i)
    {
        deep += "\\x";
    }
    WriteStore(deep + "]\n" + good);
    EXPECT_EQ("4:1 0 0 0", Get("c"));
}

TEST_F(RegistryFile, WhatIsNoFileIsReportedAndNotReplaced)
{
    fs::remove(Root() / "registry.reg");
    fs::create_directory(Root() / "registry.reg");
    EXPECT_EQ("no key: 1015", Get("a"));
    EXPECT_EQ(LONG{1015}, Create("Software\\T"));
    EXPECT_TRUE(fs::is_directory(Root() / "registry.reg"));
    fs::remove(Root() / "registry.reg");
    EXPECT_EQ(0, Create("Software\\T"));
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
    const std::pair<DWORD, std::vector<BYTE>> values[] = {
        {REG_SZ, {}},
        {REG_SZ, {'a', 0}},
        {REG_SZ, {'"', 0, '\\', 0, 0xAC, 0x20, 0, 0}},
        {REG_SZ, {'\n', 0, 0, 0}},
        {REG_SZ, {0, 0xD8, 0, 0}},
        {REG_SZ, {'a', 0, 'b'}},
        {REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0}},
        {REG_DWORD, {1, 2, 3, 4, 5}},
        {REG_BINARY, std::vector<BYTE>(1000, BYTE{0xA5})},
        {0xFEDCBA98u, {7}},
    };
    const std::string path = "Software\\Taleno Software\\Sendora";
    std::vector<std::string> before;
    for (const auto& [type, bytes] : values)
    {
        const std::string name = "v\"\\" + std::to_string(before.size());
        SetUserBytes("Bytes", name, type, bytes);
        before.push_back(Get(name, path + "\\Bytes"));
    }
    EXPECT_EQ(0, Create(path + "\\[empty] - key "));
    // Another file with the same content: the tree in memory no longer counts.
    const std::string text = ReadStore();
    fs::remove(Root() / "registry.reg");
    EXPECT_EQ("no key: 2", Get("", "Software\\Taleno Software"));
    WriteStore(text);
    for (std::size_t i = 0; i < before.size(); ++i)
    {
        EXPECT_EQ(before[i], Get("v\"\\" + std::to_string(i), path + "\\Bytes"));
    }
    EXPECT_EQ((std::vector<std::string>{"Bytes", "[empty] - key "}), SubKeys(path));
    EXPECT_EQ(0u, text.find(header));
    EXPECT_NE(std::string::npos, text.find("\"v\\\"\\\\2\"=\"\\\"\\\\\xE2\x82\xAC\"\n")) << text;
    for (const auto& entry : fs::directory_iterator(Root()))
    {
        EXPECT_EQ(std::string::npos, entry.path().string().find(".new"));
    }
}

TEST_F(RegistryFile, HoldsNothingOfTheSystemsOwnFacts)
{
    const std::string version = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    SetUserString("Debug", "Memory Mode", "2");
    EXPECT_EQ("1:32 0 30 0 30 0 39 0 0 0", Get("ReleaseId", version, HKEY_LOCAL_MACHINE));
    EXPECT_EQ(std::string::npos, ReadStore().find("ReleaseId"));
    EXPECT_EQ(std::string::npos, ReadStore().find("CentralProcessor"));
}

TEST_F(RegistryFile, ThreadsReadWhileOthersWrite)
{
    SetUserString("Debug", "Text", "aaaaaaaa");
    std::thread writer(
        []
        {
            for (int round = 0; round < 100; ++round)
            {
                SetUserString("Debug", "Text", round % 2 == 0 ? "bb" : "aaaaaaaa");
            }
        });
    for (int round = 0; round < 200; ++round)
    {
        const std::string text = Get("Text", "Software\\Taleno Software\\Sendora\\Debug");
        EXPECT_TRUE(text == "1:61 0 61 0 61 0 61 0 61 0 61 0 61 0 61 0 0 0" || text == "1:62 0 62 0 0 0")
            << text;
    }
    writer.join();
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
