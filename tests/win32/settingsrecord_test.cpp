// Records of machine-wide settings and the walk over their sub-keys, with every trace line of theirs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "tests/win32/timing.h"
#include "win32/settingsrecord.h"

namespace
{
using sndxtest::TraceCapture;
using sndxtest::Utf8;
using sndxtest::Wide;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Iterator = LSettings32ListIteratorTemplate<LSharedSettings32Record>;

const std::string root = "Software\\Taleno Software\\Sendora\\";
const std::string constructed = "LSharedSettings32Record::LSharedSettings32Record ";
const std::string walk = "LSettings32ListIteratorTemplate<class LSharedSettings32Record>::InitCommon ";
const std::string isValid = "LSharedSettings32Record::IsValid ";
const std::string subRecord = "LSharedSettings32Record::OpenSubRecord ";
const std::string invalid = "Attempting to access an invalid LSharedSettings32Record";

class SettingsRecord : public ::testing::Test
{
  protected:
    static std::string String(const LSharedSettings32Record& record, const char* name, const char* otherwise)
    {
        WCHAR text[LSTR];
        record.GetString(Wide(name).c_str(), Wide(otherwise).c_str(), text);
        return Utf8(text);
    }

    sndxtest::CleanSettings clean_;
};

TEST_F(SettingsRecord, NamesOneKeyOfTheMachine)
{
    TraceCapture trace;
    const LSharedSettings32Record record(TEXT("Accounts"));
    EXPECT_THAT(trace.Texts(), ElementsAre(constructed, constructed + root + "Accounts"));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, record.GetRoot());
    EXPECT_EQ("Accounts", Utf8(record.GetPrimaryKey()));
    EXPECT_EQ(root + "Accounts", Utf8(record.GetKeyPath()));
    trace.Restart();
    EXPECT_TRUE(record.IsValid());
    EXPECT_THAT(trace.Texts(), ElementsAre(isValid));

    trace.Restart();
    LSharedSettings32Record copy(record);
    EXPECT_THAT(trace.Texts(), ElementsAre(constructed));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, copy.GetRoot());
    EXPECT_EQ("Accounts", Utf8(copy.GetPrimaryKey()));
    EXPECT_EQ(root + "Accounts", Utf8(copy.GetKeyPath()));
    copy.Invalidate();
    EXPECT_FALSE(copy.IsValid());
    EXPECT_TRUE(record.IsValid());
}

TEST_F(SettingsRecord, ReadsItsValues)
{
    sndxtest::SetSharedString("Accounts\\A1", "LocalFolder", "C:\\Data");
    sndxtest::SetSharedString("Accounts\\A1", "LastUpdate", "1700000000");
    sndxtest::SetSharedString("Accounts\\A1", "Text", "abc");
    sndxtest::SetSharedString("Accounts\\A1", "Empty", "");
    sndxtest::SetUserString("Accounts\\A1", "UserOnly", "5");
    const LSharedSettings32Record record(TEXT("Accounts\\A1"));
    TraceCapture trace;
    EXPECT_EQ("C:\\Data", String(record, "LocalFolder", "no"));
    EXPECT_THAT(trace.Texts(), ElementsAre("LSharedSettings32Record::GetString "));
    trace.Restart();
    EXPECT_EQ(1700000000, record.GetInt(TEXT("LastUpdate"), -1));
    EXPECT_THAT(trace.Texts(),
                ElementsAre("LSharedSettings32Record::GetInt ", "LSharedSettings32Record::GetString "));
    EXPECT_EQ("no", String(record, "UserOnly", "no"));
    EXPECT_EQ(-1, record.GetInt(TEXT("Missing"), -1));
    EXPECT_EQ(-1, record.GetInt(TEXT("Empty"), -1));
    EXPECT_EQ(0, record.GetInt(TEXT("Text"), -1));
}

TEST_F(SettingsRecord, AnInvalidRecordReportsAndGoesOnWithTheRootKey)
{
    const TraceCapture construction;
    const LSharedSettings32Record record;
    EXPECT_THAT(construction.Texts(), ElementsAre(constructed));
    EXPECT_FALSE(record.IsValid());
    EXPECT_EQ(HKEY_LOCAL_MACHINE, record.GetRoot());
    EXPECT_EQ("", Utf8(record.GetPrimaryKey()));

    const std::string getString = "LSharedSettings32Record::GetString ";
    const std::string getInt = "LSharedSettings32Record::GetInt ";
    ASSERT_EQ(0, RegSetValueExW(HKEY_LOCAL_MACHINE, TEXT("SndxTestRoot"), 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(TEXT("12")), 6));
    TraceCapture trace;
    EXPECT_EQ("12", String(record, "SndxTestRoot", "no"));
    EXPECT_THAT(trace.Texts(), ElementsAre(getString, "**" + getString + invalid));
    trace.Restart();
    EXPECT_EQ(12, record.GetInt(TEXT("SndxTestRoot"), 0));
    EXPECT_THAT(trace.Texts(),
                ElementsAre(getInt, "**" + getInt + invalid, getString, "**" + getString + invalid));
    RegDeleteValueW(HKEY_LOCAL_MACHINE, TEXT("SndxTestRoot"));

    LSharedSettings32Record output;
    trace.Restart();
    record.OpenSubRecord(TEXT("Sub"), output);
    EXPECT_THAT(trace.Texts(), ElementsAre(subRecord, "**" + subRecord + invalid));
    EXPECT_EQ("\\Sub", Utf8(output.GetKeyPath()));
}

TEST_F(SettingsRecord, ASubRecordContinuesThePath)
{
    const LSharedSettings32Record record(TEXT("Accounts"));
    LSharedSettings32Record output(TEXT("Other"));
    TraceCapture trace;
    record.OpenSubRecord(TEXT("\u00c4 1"), output);
    EXPECT_THAT(trace.Texts(), ElementsAre(subRecord));
    EXPECT_EQ(HKEY_LOCAL_MACHINE, output.GetRoot());
    EXPECT_EQ("\u00c4 1", Utf8(output.GetPrimaryKey()));
    EXPECT_EQ(root + "Accounts\\\u00c4 1", Utf8(output.GetKeyPath()));

    trace.Restart();
    const std::string name(255, 'n');
    record.OpenSubRecord(Wide(name).c_str(), output);
    const std::string cut = (root + "Accounts\\" + name).substr(0, 259);
    const auto report = sndxtest::OverflowReport(cut);
    EXPECT_THAT(trace.Texts(), ElementsAre(subRecord, report[0], report[1]));
    EXPECT_EQ(name, Utf8(output.GetPrimaryKey()));
    EXPECT_EQ(cut, Utf8(output.GetKeyPath()));
}

TEST_F(SettingsRecord, TheWalkYieldsEverySubKeyOnceInTheRegistrysOrder)
{
    for (const std::string name : {"c", "B", "10", "a \u00e4", "9"})
    {
        sndxtest::AddAccount(name, "C:\\" + name);
        sndxtest::SetSharedString("Accounts\\" + name + "\\Deeper", "x", "y");
    }
    sndxtest::SetSharedString("Accounts", "Value", "no key");
    sndxtest::SetSharedString("Accounts2\\Other", "x", "y");
    std::vector<std::string> expected;
    {
        const LRegKey key(HKEY_LOCAL_MACHINE, Wide(root + "Accounts").c_str(), KEY_READ | KEY_WOW64_32KEY);
        WCHAR name[LSTR];
        while (RegEnumKeyW(key.Get(), static_cast<DWORD>(expected.size()), name, LSTR) == 0)
        {
            expected.push_back(Utf8(name));
        }
        ASSERT_EQ(5u, expected.size());
    }

    const LSharedSettings32Record accounts(TEXT("Accounts"));
    std::vector<std::string> names;
    Iterator iterator(accounts);
    for (; iterator.IsValid() && names.size() < 20; iterator.Next())
    {
        const LSharedSettings32Record& record = iterator.GetRecord();
        names.push_back(Utf8(record.GetPrimaryKey()));
        EXPECT_EQ(HKEY_LOCAL_MACHINE, record.GetRoot());
        EXPECT_EQ(root + "Accounts\\" + names.back(), Utf8(record.GetKeyPath()));
        EXPECT_EQ("C:\\" + names.back(), String(record, "LocalFolder", ""));
    }
    EXPECT_EQ(expected, names);

    iterator.Next();
    EXPECT_FALSE(iterator.IsValid());
    sndxtest::AddAccount("zz1", "C:\\");
    sndxtest::AddAccount("zz2", "C:\\");
    EXPECT_FALSE(iterator.IsValid()) << "a key added behind the end";
}

TEST_F(SettingsRecord, TheWalkTracesItsSteps)
{
    sndxtest::AddAccount("A1", "C:\\Data");
    const LSharedSettings32Record accounts(TEXT("Accounts"));
    TraceCapture trace;
    {
        Iterator iterator(accounts);
        EXPECT_THAT(trace.Texts(), ElementsAre(constructed, constructed, walk, subRecord));
        trace.Restart();
        EXPECT_TRUE(iterator.IsValid());
        iterator.Next();
        EXPECT_FALSE(iterator.IsValid());
    }
    EXPECT_THAT(trace.Texts(), ElementsAre(isValid, isValid));
    EXPECT_EQ(0, sndxtest::HandlesLeft([&] { const Iterator iterator(accounts); }));
}

TEST_F(SettingsRecord, NothingIsWalkedBelowAnEmptyOrMissingKey)
{
    const LSharedSettings32Record accounts(TEXT("Accounts"));
    TraceCapture trace;
    Iterator missing(accounts);
    EXPECT_THAT(trace.Texts(),
                ElementsAre(constructed, constructed, walk,
                            "RegOpenKeyEx failed:" + sndxtest::SystemText(ERROR_FILE_NOT_FOUND)));
    EXPECT_FALSE(missing.IsValid());
    sndxtest::AddAccount("A1", "C:\\");
    missing.Next();
    EXPECT_FALSE(missing.IsValid()) << "a key that came after the walk began";

    sndxtest::SetSharedString("Empty", "Value", "x");
    const LSharedSettings32Record empty(TEXT("Empty"));
    trace.Restart();
    const Iterator iterator(empty);
    EXPECT_THAT(trace.Texts(), ElementsAre(constructed, constructed, walk));
    EXPECT_FALSE(iterator.IsValid());
}

TEST_F(SettingsRecord, TheWalkSeesThe32BitViewOnly)
{
    const auto path = Wide("Software\\Taleno Software\\Sendora\\Accounts\\Native");
    HKEY key = nullptr;
    ASSERT_EQ(0, RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                                 nullptr));
    RegCloseKey(key);
    sndxtest::SetSharedString("Accounts", "Value", "x");
    EXPECT_FALSE(Iterator(LSharedSettings32Record(TEXT("Accounts"))).IsValid());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, TEXT("Software\\Taleno Software"));
}
} // namespace
