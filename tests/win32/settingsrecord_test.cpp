// Records of machine-wide settings and the walk over their sub-keys. The lines that a walk traces are tested
// with the module's load.

#include <gmock/gmock.h>

#include "tests/support/reports.h"
#include "tests/support/settings.h"
#include "tests/win32/timing.h"
#include "win32/settingsrecord.h"

namespace
{
using namespace sndxtest;

using Record = LSharedSettings32Record;
using Iterator = LSettings32ListIteratorTemplate<Record>;

const std::string root = std::string(sndxtools::contract::productKey) + "\\";

class SettingsRecord : public ::testing::Test
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

    CleanSettings clean_;
};

TEST_F(SettingsRecord, ReadsTheValuesOfOneKeyOfTheMachine)
{
    SetSharedString("Accounts\\A1", "LocalFolder", "C:\\Data");
    SetSharedString("Accounts\\A1", "LastUpdate", "1700000000");
    SetSharedString("Accounts\\A1", "Text", "abc");
    SetUserString("Accounts\\A1", "UserOnly", "5");
    const Record original(TEXT("Accounts\\A1"));
    Record copy(original);
    const Record& record = copy;
    EXPECT_EQ(record.GetRoot(), HKEY_LOCAL_MACHINE);
    EXPECT_EQ(Utf8(record.GetPrimaryKey()), "Accounts\\A1");
    EXPECT_EQ(Utf8(record.GetKeyPath()), root + "Accounts\\A1");
    EXPECT_EQ(String(record, "LocalFolder"), "C:\\Data");
    EXPECT_EQ(String(record, "UserOnly"), "none");
    EXPECT_EQ(record.GetInt(TEXT("LastUpdate"), -1), 1700000000);
    EXPECT_EQ(record.GetInt(TEXT("Missing"), -1), -1);
    EXPECT_EQ(record.GetInt(TEXT("Text"), -1), 0);
    copy.Invalidate();
    EXPECT_FALSE(copy.IsValid());
    EXPECT_TRUE(original.IsValid());
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
    const std::string cut = (root + "Accounts\\" + name).substr(0, 259);
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
        expected.push_back(name + " at " + root + "Accounts\\" + name + ": C:\\" + name);
    }
    SetMachineString(root + "Accounts\\Native", "x", "y"); // not in the 32-bit view
    EXPECT_EQ(Walk(TEXT("Accounts")), expected);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, Wide(sndxtools::contract::companyKey).c_str());
    const Record accounts(TEXT("Accounts"));
    EXPECT_EQ(HandlesLeft([&] { const Iterator iterator(accounts); }), 0);
}
} // namespace
