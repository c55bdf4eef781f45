// Mutexes and sections that processes share by name.

#include <string>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

class NamedObjects : public ::testing::Test
{
  protected:
    NamedObjects() { ClearPoints(); }
};

HANDLE CreateMutexOf(const std::string& name)
{
    return CreateMutexW(nullptr, FALSE, Wide(name).c_str());
}

DWORD ErrorOfOpening(const std::string& name)
{
    return ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, Wide(name).c_str()));
}

HANDLE CreateSection(const std::string& name)
{
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 100, Wide(name).c_str());
}

HANDLE OpenSection(const std::string& name)
{
    return OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, Wide(name).c_str());
}

// The whole section.
char* View(HANDLE section)
{
    return static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
}

TEST_F(NamedObjects, PrefixesCaseAndEveryLetterTellNamesApart)
{
    const std::string longest(MAX_PATH - 1, 'x');
    const Handle global(CreateMutexOf("Global\\sndxtest name"));
    const Handle local(CreateMutexOf("Local\\sndxtest/name%.\xC3\xA4"));
    const Handle longName(CreateMutexOf(longest));
    const std::pair<std::string, DWORD> cases[] = {
        {"Global\\sndxtest name", ERROR_SUCCESS},       {"sndxtest name", ERROR_FILE_NOT_FOUND},
        {"Local\\sndxtest name", ERROR_FILE_NOT_FOUND}, {"Global\\sndxtest Name", ERROR_FILE_NOT_FOUND},
        {"sndxtest/name%.\xC3\xA4", ERROR_SUCCESS},     {longest, ERROR_SUCCESS},
        {longest.substr(1) + "y", ERROR_FILE_NOT_FOUND}};
    for (const auto& [name, error] : cases)
    {
        EXPECT_EQ(ErrorOfOpening(name), error) << name;
    }
}

// Holds the mutex of a name until it is killed.
SNDX_CHILD(HoldMutex)
{
    const HANDLE mutex = CreateMutexOf(arguments[0]);
    WaitForSingleObject(mutex, 5000);
    Announce("held");
    return WaitFor("never", 60000);
}

TEST_F(NamedObjects, MutexOfAKilledOwnerIsAbandonedOnceOrNew)
{
    const std::string name = "Global\\sndxtest killed";
    for (const bool heldHere : {true, false})
    {
        ClearPoints();
        Handle mutex(heldHere ? CreateMutexOf(name) : nullptr);
        ChildProcess child("HoldMutex", {name});
        ASSERT_TRUE(WaitFor("held"));
        if (heldHere)
        {
            EXPECT_EQ(WaitForSingleObject(mutex, 50), WAIT_TIMEOUT);
            child.Kill();
            EXPECT_EQ(WaitForSingleObject(mutex, 5000), WAIT_ABANDONED);
        }
        else
        {
            child.Kill();
            EXPECT_EQ(ErrorOfOpening(name), ERROR_FILE_NOT_FOUND);
        }
        const Handle again(CreateMutexOf(name));
        EXPECT_EQ(WaitForSingleObject(again, 0), WAIT_OBJECT_0) << "not abandoned any more, or a new one";
    }
}

SNDX_CHILD(HoldSection)
{
    const HANDLE section = CreateSection("sndxtest section");
    char* bytes = View(section);
    bytes[99] = static_cast<char>(bytes[0] + 1);
    Announce("held");
    return WaitFor("never", 60000);
}

TEST_F(NamedObjects, SectionIsSharedAndGoesWithItsLastHandleThoughViewsStay)
{
    const std::string name = "sndxtest section";
    Handle section(CreateSection(name));
    char* bytes = View(section);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes, 100), std::string(100, '\0'));
    bytes[0] = 41;
    ChildProcess child("HoldSection", {});
    ASSERT_TRUE(WaitFor("held"));
    EXPECT_EQ(bytes[99], 42);
    section.Close();
    EXPECT_EQ(ErrorOf(OpenSection(name)), ERROR_SUCCESS) << "the child has it";
    child.Kill();
    EXPECT_EQ(ErrorOf(OpenSection(name)), ERROR_FILE_NOT_FOUND);

    const Handle fresh(CreateSection(name));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    char* view = View(fresh);
    EXPECT_EQ(std::string(view, 100), std::string(100, '\0'));
    EXPECT_EQ(bytes[99], 42);
    EXPECT_TRUE(UnmapViewOfFile(bytes));
    EXPECT_FALSE(UnmapViewOfFile(bytes));
    EXPECT_TRUE(UnmapViewOfFile(view));
}
} // namespace
