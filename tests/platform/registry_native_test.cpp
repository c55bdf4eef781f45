// The text file behind the layer's registry: on Windows there is none. What editors and other programs may
// have written into it, what the layer writes, and what it makes of broken files.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "tests/support/registrykey.h"
#include "tests/support/settings.h"

namespace
{
using namespace sndxtest;
namespace fs = std::filesystem;

const std::string header = "Windows Registry Editor Version 5.00\n\n";
const std::string testKey = "[HKEY_CURRENT_USER\\Software\\T]\n";

// An empty store before and after each test.
class RegistryFile : public ::testing::Test
{
  protected:
    RegistryFile() { fs::remove_all(store); }
    ~RegistryFile() override { fs::remove_all(store); }

    void Write(const std::string& bytes) const { std::ofstream(store, std::ios::binary) << bytes; }
    std::string Read() const
    {
        std::ostringstream text;
        text << std::ifstream(store, std::ios::binary).rdbuf();
        return text.str();
    }
    // A value below HKEY_CURRENT_USER\Software\T.
    static std::string Get(const std::string& name)
    {
        return Key(Key::Open, HKEY_CURRENT_USER, "Software\\T").Get(name);
    }
    static Names SubKeys() { return Key(Key::Open, HKEY_CURRENT_USER, "Software\\T").SubKeys(); }

    const fs::path root = std::getenv("SENDORA_ROOT");
    const fs::path store = root / "registry.reg";
};

TEST_F(RegistryFile, EveryFormOfTheFormatIsRead)
{
    Write("\xEF\xBB\xBF" + header +
          "; a comment\r\n"
          "[hkey_current_user\\Software\\T]\r\n"
          "\"text\"=\"C:\\\\a \\\"b\\\"\" ; behind\n"
          "@=\"d\"\n"
          "  \"number\"=dword:1a2B3c4D\n"
          "\"binary\"=hex:01,ff,\\\n"
          "  02,\\\r\n"
          "  03\n"
          "\"none\"=hex(0):\n"
          "\"odd type\"=hex(1a2b):0,1,\n"
          "\"gone\"=\"x\"\n"
          "\"GONE\"=-\n"
          "[HKEY_CURRENT_USER\\Software\\T\\Sub]\n"
          "[HKEY_CURRENT_USER\\Software\\T\\Other\\Deep]\n"
          "[-HKEY_CURRENT_USER\\Software\\T\\Other]\n");
    const std::pair<const char*, std::string> values[] = {
        {"text", Key::Text("C:\\a \"b\"")},
        {"", Key::Text("d")},
        {"number", "4: 4d 3c 2b 1a"},
        {"binary", "3: 1 ff 2 3"},
        {"none", "0:"},
        {"odd type", "1a2b: 0 1"},
        {"gone", "error 2"},
    };
    for (const auto& [name, value] : values)
    {
        EXPECT_EQ(value, Get(name)) << name;
    }
    EXPECT_EQ(Names{"Sub"}, SubKeys());

    const WideString text = Wide(header + testKey + "\"\xC3\xB6\"=\"\xE2\x82\xAC\"\r\n");
    Write("\xFF\xFE" + std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
    EXPECT_EQ(Key::Text("\xE2\x82\xAC"), Get("\xC3\x96")) << "UTF-16";
}

TEST_F(RegistryFile, BadLinesCostOnlyThemselves)
{
    Write("\"before any key\"=\"x\"\n" + testKey +
          "\"a\"=\"1\n\"b\"=\"2\" x\n\"c\"\n\"d\"=\n\"e\"=hex:0g\n\"f\"=hex:1,,2\n\"g\"=dword:123456789\n"
          "\"h\"=dword:\n\"i\"=hex(:00\n\"j\"=hex():00\n\"k\"=hex(123456789):00\n\"l\"=hex(1)00\nnonsense\n"
          "\"m\\\n\"n\"=str:x\n@\n[\n[]\n[-]\n[HKEY_CURRENT_USER\\Software\\T\n"
          "\"below a bad key\"=\"x\"\n"
          "[HKEY_USERS\\x]\n\"o\"=hex:00,\\\n  \"p\"=\"swallowed\"\n[-HKEY_CURRENT_USER]\n"
          "[HKEY_CURRENT_USER\\\\Software]\n"
          "[HKEY_CURRENT_USER\\Software\\T\\" +
          std::string(256, 'x') + "]\n" + testKey + "\"good\"=\"1\"\n\"last\"=hex:31,\\");
    for (const char* name : {"before any key", "a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l",
                             "m", "n", "", "below a bad key", "o", "p"})
    {
        EXPECT_EQ("error 2", Get(name)) << name;
    }
    EXPECT_EQ(Key::Text("1"), Get("good"));
    EXPECT_EQ("3: 31", Get("last"));
    EXPECT_EQ(Names{}, SubKeys());
}

TEST_F(RegistryFile, NoBytesHurtAReader)
{
    // A good file with bytes changed at random: nothing is known of the result but that there is one, and
    // that the next good file is read.
    const std::string good = header + testKey +
                             "\"a\"=\"1\\\\2\\\"\"\n\"b\"=hex(7):31,\\\n  00,00\n\"c\"=dword:00000001\n@=-\n"
                             "[-HKEY_CURRENT_USER\\Software\\T\\Sub]\n";
    const std::string odd("[]\\\"=-:,@;\n\r\0\xFF\xFE\x80(", 17);
    std::mt19937 random(20090815);
    std::string bytes;
    for (int change = 0; change < 2000; ++change)
    {
        bytes = change % 8 == 0 ? good : bytes;
        bytes[random() % bytes.size()] = odd[random() % odd.size()];
        Write((change % 3 == 0 ? "\xFF\xFE" : "") + bytes);
        SubKeys();
    }
    std::string deep;
    for (int i = 0; i < 100000; ++i)
    {
        deep += "\\x";
    }
    Write(header + "[HKEY_CURRENT_USER" + deep + "]\n" + good);
    EXPECT_EQ("4: 1 0 0 0", Get("c"));
}

TEST_F(RegistryFile, IsReadAfreshWhenSomebodyElseHasWrittenIt)
{
    // The same file with the same length and time: a change in place within one step of the clock.
    const auto soon = fs::file_time_type::clock::now() + std::chrono::seconds(10);
    for (const char digit : {'1', '2', '3'})
    {
        Write(header + testKey + "\"a\"=\"" + digit + "\"\n");
        fs::last_write_time(store, soon);
        EXPECT_EQ(Key::Text({digit}), Get("a"));
    }
    fs::remove(store);
    EXPECT_EQ("error 2", Get("a"));
}

TEST_F(RegistryFile, WhatIsWrittenIsReadBack)
{
    const std::pair<DWORD, Bytes> values[] = {
        {REG_SZ, {}},
        {REG_SZ, {'a', 0}},
        {REG_SZ, {'"', 0, '\\', 0, 0xAC, 0x20, 0, 0}},
        {REG_SZ, {'\n', 0, 0, 0}},
        {REG_SZ, {0, 0xD8, 0, 0}},
        {REG_SZ, {'a', 0, 'b'}},
        {REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0}},
        {REG_DWORD, {1, 2, 3, 4}},
        {REG_DWORD, {1, 2, 3, 4, 5}},
        {REG_BINARY, Bytes(1000, BYTE{0xA5})},
        {0xFEDCBA98u, {7}},
    };
    const std::string path = sndxtools::contract::productKey;
    for (const auto& value : values)
    {
        SetUserBytes("Bytes", "v\"\\" + std::to_string(&value - values), value.first, value.second);
    }
    EXPECT_EQ(0, Key(Key::Create, HKEY_CURRENT_USER, path + "\\[empty] - key ").error);
    // Another file with the same content: the tree in memory no longer counts.
    const std::string text = Read();
    fs::remove(store);
    EXPECT_EQ(LONG{ERROR_FILE_NOT_FOUND}, Key(Key::Open, HKEY_CURRENT_USER, path).error);
    Write(text);
    const Key bytes(Key::Open, HKEY_CURRENT_USER, path + "\\Bytes");
    for (const auto& value : values)
    {
        EXPECT_EQ(Key::Show(value.first, value.second), bytes.Get("v\"\\" + std::to_string(&value - values)));
    }
    EXPECT_EQ((Names{"Bytes", "[empty] - key "}), Key(Key::Open, HKEY_CURRENT_USER, path).SubKeys());
    EXPECT_EQ(0u, text.find(header));
    EXPECT_NE(std::string::npos, text.find("\"v\\\"\\\\2\"=\"\\\"\\\\\xE2\x82\xAC\"\n")) << text;
    // What the system knows by itself need not be in the file.
    Write(header);
    const Key version(Key::Open, HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion");
    EXPECT_EQ(Key::Text("2009"), version.Get("ReleaseId"));
}

} // namespace
