// Reading settings from real registry values of every make: single ones, records of machine-wide ones and the
// walk over their sub-keys. The lines that a walk traces are tested with the module's load.

#include <cstring>
#include <tuple>

#include "tests/support/reports.h"
#include "tests/support/settings.h"
#include "tests/support/timing.h"
#include "win32/settings.h"
#include "win32/settingsrecord.h"

namespace
{
using namespace sndxtest;

const std::string product = std::string(sndxtools::contract::productKey) + "\\";
const WideString testPath = Wide(product + "Test");

class Settings : public ::testing::Test
{
  protected:
    Settings() { RemoveNative(); }
    ~Settings() override { RemoveNative(); }

    // Machine-wide settings in the native view, which belong to nobody here.
    static void RemoveNative()
    {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, Wide(sndxtools::contract::companyKey).c_str());
    }
    // What one of the getters gives for "Test" and a value; "none" for its default.
    static std::string Get(WCHAR* (*getter)(const WCHAR*, const WCHAR*, const WCHAR*, WCHAR*),
                           const std::string& value)
    {
        WCHAR output[LSTR];
        EXPECT_EQ(getter(TEXT("Test"), Wide(value).c_str(), TEXT("none"), output), output);
        return Utf8(output);
    }

    CleanSettings clean_;
};

TEST_F(Settings, AnyValueIsReadIntoTheBufferOrNotAtAll)
{
    const auto units = [](const std::u16string& text, std::size_t size)
    {
        const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
        return Bytes(bytes, bytes + size);
    };
    const std::u16string full(259, u'x');
    const std::string n259(259, 'x');
    const std::tuple<DWORD, Bytes, std::string> values[] = {
        {REG_SZ, units(u"\u00e4b\u4e2d", 8), "\u00e4b\u4e2d"},
        {REG_SZ, units(u"abc", 6), "abc"}, // without its terminator
        {REG_SZ, units(full, 520), n259},
        {REG_SZ, units(full + u'y', 520), n259},
        {REG_SZ, units(full + u'y', 519), n259},
        {REG_SZ, units(full + u'y', 522), "default"},
        {REG_BINARY, units(full + u"yy", 521), "default"},
        {REG_SZ, units(u"abc", 5), "ab"},
        {REG_SZ, {'a'}, ""},
        {REG_SZ, {}, ""},
        {REG_DWORD, {'A', 0, 'B', 0}, "AB"},
        {REG_EXPAND_SZ, units(u"%TEMP%", 14), "%TEMP%"},
        {REG_MULTI_SZ, units(std::u16string(u"a\0b\0", 4), 10), "a"},
    };
    const TraceCapture trace;
    for (const auto& [type, bytes, text] : values)
    {
        SetSharedBytes("Test", "Value", type, bytes);
        WCHAR output[LSTR + 1];
        std::fill(std::begin(output), std::end(output), WCHAR{'#'});
        EXPECT_EQ(RegGetString32BitStore(HKEY_LOCAL_MACHINE, testPath.c_str(), TEXT("Value"), TEXT("default"),
                                         output),
                  text != "default");
        EXPECT_EQ(Utf8(output), text) << bytes.size();
        EXPECT_EQ(output[LSTR], WCHAR{'#'}) << "written behind the buffer";
    }
    EXPECT_EQ(trace.Texts(), Lines());
}

TEST_F(Settings, MachineWideOnesLiveInThe32BitViewAndAUsersOwnApart)
{
    EXPECT_EQ(Get(&LSharedSetting32GetString, "Value"), "none") << "no key";
    SetSharedString("Test", "Value", "32 bit");
    SetUserString("Test", "Value", "user's");
    SetMachineString(product + "Test", "Value", "native");
    SetMachineString(product + "Test", "NativeOnly", "native");
    const TraceCapture trace;
    EXPECT_EQ(Get(&LSharedSetting32GetString, "Value"), "32 bit");
    EXPECT_EQ(Get(&LSharedSetting32GetString, "NativeOnly"), "none");
    EXPECT_EQ(Get(&LUserSetting32GetString, "Value"), "user's");
    EXPECT_EQ(Get(&LUserSettingGetString, "Value"), "user's");
    EXPECT_EQ(Get(&LUserSettingGetString, "NativeOnly"), "none");
    const std::string shared = "_LSharedSetting32GetString ";
    EXPECT_EQ(trace.Texts(), (Lines{shared, shared, "_LUserSetting32GetString "}));
    WCHAR output[LSTR];
    EXPECT_TRUE(RegGetString(HKEY_LOCAL_MACHINE, testPath.c_str(), TEXT("NativeOnly"), TEXT("none"), output));
    EXPECT_EQ(Utf8(output), "native");
    const auto left = HandlesLeft([] { Get(&LUserSettingGetString, "Value"); });
    EXPECT_EQ(left, 0);
}

TEST_F(Settings, AnOverlongKeyPathIsReportedCutAndUsed)
{
    const std::string section = "Deep\\" + std::string(300, 's');
    const std::string cut = (product + section).substr(0, 259);
    SetSharedString(cut.substr(product.size()), "Value", "text");
    const TraceCapture trace;
    WCHAR output[LSTR];
    LSharedSetting32GetString(Wide(section).c_str(), TEXT("Value"), TEXT(""), output);
    EXPECT_EQ(Utf8(output), "text");
    EXPECT_EQ(trace.Texts(), (Lines{"_LSharedSetting32GetString "} + Overflow("lw", cut)));
}

TEST_F(Settings, NumbersAreDecimalText)
{
    EXPECT_EQ(LUserSettingGet(TEXT("Test"), TEXT("Value"), 77), 77);
    SetUserString("Test", "Value", " -42x");
    EXPECT_EQ(LUserSettingGet(TEXT("Test"), TEXT("Value"), 77), -42);
}

TEST_F(Settings, AnOutputInMemoryOfAnotherKindIsReportedAndFilled)
{
    SetSharedString("Test", "Value", "text");
    WCHAR* const output =
        static_cast<WCHAR*>(VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    const Lines once = {"**LCHECKMEMORYWRITEABLE Memory is not marked as writeable!!!",
                        "**LCHECKMEMORYWRITEABLE 0x" + Address(output)};
    TraceCapture trace;
    LSharedSetting32GetString(TEXT("Test"), TEXT("Value"), TEXT(""), output);
    EXPECT_EQ(Utf8(output), "text");
    // Once by the getter, before and after the key is opened by the registry primitive.
    EXPECT_EQ(trace.Texts(), (Lines{"_LSharedSetting32GetString "} + once + once + once));
    EXPECT_EQ(Traced([=] { LSettingsGetKeyPath(output, TEXT("Test")); }), once);
    VirtualFree(output, 0, MEM_RELEASE);
}

#ifdef _WIN32 // reading such a text is undefined for the compiler; only the platform promises it
TEST_F(Settings, ANameAtAnOddAddressIsReportedAndUsed)
{
    SetUserString("Test", "Value", "text");
    char memory[20] = {};
    std::memcpy(memory + 1, TEXT("Value"), 12);
    WCHAR output[LSTR];
    const auto read = [&]
    {
        RegGetString(HKEY_CURRENT_USER, testPath.c_str(), reinterpret_cast<WCHAR*>(memory + 1), TEXT(""),
                     output);
    };
    EXPECT_TRUE(
        AreLines(Traced(read), {"**LDEBUGVALIDWIN32STRINGF The string Value is not word-aligned..."}));
    EXPECT_EQ(Utf8(output), "text");
}
#endif

using Record = LSharedSettings32Record;
using Iterator = LSettings32ListIteratorTemplate<Record>;

class SettingsRecord : public Settings
{
  protected:
    static std::string String(const Record& record, const char* name)
    {
        WCHAR text[LSTR];
        record.GetString(Wide(name).c_str(), TEXT("none"), text);
        return Utf8(text);
    }
    // Names and key paths of the records of a walk.
    static Lines Walk(const WCHAR* section)
    {
        Lines records;
        Iterator iterator{Record(section)};
        for (; iterator.IsValid() && records.size() < 20; iterator.Next())
        {
            const Record& record = iterator.GetRecord();
            EXPECT_EQ(record.GetRoot(), HKEY_LOCAL_MACHINE);
            records.push_back(Utf8(record.GetPrimaryKey()) + " at " + Utf8(record.GetKeyPath()) + ": " +
                              String(record, "LocalFolder"));
        }
        AddAccount("zz", "C:\\zz"); // behind the end
        iterator.Next();
        EXPECT_FALSE(iterator.IsValid());
        return records;
    }
};

TEST_F(SettingsRecord, ReadsTheValuesOfOneKeyOfTheMachine)
{
    SetSharedString("Accounts\\A1", "LastUpdate", "1700000000");
    SetSharedString("Accounts\\A1", "Text", "abc");
    SetUserString("Accounts\\A1", "UserOnly", "5");
    const Record original(TEXT("Accounts\\A1"));
    Record copy(original);
    EXPECT_EQ(String(copy, "Text"), "abc");
    EXPECT_EQ(String(copy, "UserOnly"), "none");
    EXPECT_EQ(copy.GetInt(TEXT("LastUpdate"), -1), 1700000000);
    EXPECT_EQ(copy.GetInt(TEXT("Missing"), -1), -1);
    EXPECT_EQ(copy.GetInt(TEXT("Text"), -1), 0);
    copy.Invalidate();
    EXPECT_TRUE(!copy.IsValid() && original.IsValid());
}

TEST_F(SettingsRecord, AnInvalidRecordReportsAndGoesOnWithTheRootKey)
{
    const Record record;
    EXPECT_FALSE(record.IsValid());
    ASSERT_EQ(RegSetValueExW(HKEY_LOCAL_MACHINE, TEXT("SndxTestRoot"), 0, REG_SZ,
                             reinterpret_cast<const BYTE*>(TEXT("12")), 6),
              0);
    Record sub;
    TraceCapture trace;
    EXPECT_EQ(record.GetInt(TEXT("SndxTestRoot"), 0), 12);
    record.OpenSubRecord(TEXT("Sub"), sub);
    Lines expected;
    for (const std::string function : {"GetInt ", "GetString ", "OpenSubRecord "})
    {
        expected.push_back("LSharedSettings32Record::" + function);
        expected.push_back("**LSharedSettings32Record::" + function +
                           "Attempting to access an invalid LSharedSettings32Record");
    }
    EXPECT_EQ(trace.Texts(), expected);
    EXPECT_EQ(Utf8(sub.GetKeyPath()), "\\Sub");
    RegDeleteValueW(HKEY_LOCAL_MACHINE, TEXT("SndxTestRoot"));
}

TEST_F(SettingsRecord, AnOverlongPathOfASubRecordIsCut)
{
    const std::string name(255, 'n');
    const std::string cut = (product + "Accounts\\" + name).substr(0, 259);
    Record output;
    const Record record(TEXT("Accounts"));
    EXPECT_EQ(Traced([&] { record.OpenSubRecord(Wide(name).c_str(), output); }),
              (Lines{"LSharedSettings32Record::OpenSubRecord "} + Overflow("lw", cut)));
    EXPECT_EQ(Utf8(output.GetPrimaryKey()), name);
    EXPECT_EQ(Utf8(output.GetKeyPath()), cut);
}

TEST_F(SettingsRecord, TheWalkYieldsEverySubKeyOnceInTheRegistrysOrder)
{
    EXPECT_EQ(Walk(TEXT("Accounts")), Lines()) << "of a missing key, also when it comes meanwhile";
    RemoveAllSettings();
    SetSharedString("Accounts", "Value", "no key");
    EXPECT_EQ(Walk(TEXT("Accounts")), Lines());
    RemoveAllSettings();
    Lines expected;
    for (const std::string name : {"1", "9", "a \u00e4", "B", "c"}) // as every registry sorts them
    {
        AddAccount(name, "C:\\" + name);
        SetSharedString("Accounts\\" + name + "\\Deeper", "x", "y");
        expected.push_back(name + " at " + product + "Accounts\\" + name + ": C:\\" + name);
    }
    SetMachineString(product + "Accounts\\Native", "x", "y"); // not in the 32-bit view
    EXPECT_EQ(Walk(TEXT("Accounts")), expected);
    const Record accounts(TEXT("Accounts"));
    EXPECT_EQ(HandlesLeft([&] { const Iterator iterator(accounts); }), 0);
}
} // namespace
