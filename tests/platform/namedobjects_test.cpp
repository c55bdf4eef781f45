// Mutexes and sections that processes share by name.

#include <string>

#include <gtest/gtest.h>
#include <windows.h>

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

HANDLE CreateMutexOf(const std::string& name, BOOL owned = FALSE)
{
    return CreateMutexW(nullptr, owned, Wide(name).c_str());
}

DWORD ErrorOfOpening(const std::string& name)
{
    return ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, Wide(name).c_str()));
}

HANDLE CreateSection(const std::string& name, DWORD size)
{
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, Wide(name).c_str());
}

HANDLE OpenSection(const std::string& name)
{
    return OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, Wide(name).c_str());
}

// A whole section as the given type.
template <class T>
T* View(HANDLE section)
{
    return static_cast<T*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
}

TEST_F(NamedObjects, PrefixesAndCaseTellNamesApart)
{
    Handle global(CreateMutexOf("Global\\sndxtest name"));
    EXPECT_EQ(ErrorOfOpening("Global\\sndxtest name"), ERROR_SUCCESS);
    for (const char* other : {"sndxtest name", "Local\\sndxtest name", "Global\\sndxtest Name"})
    {
        EXPECT_EQ(ErrorOfOpening(other), ERROR_FILE_NOT_FOUND) << other;
    }
    global.Close();
    EXPECT_EQ(ErrorOfOpening("Global\\sndxtest name"), ERROR_FILE_NOT_FOUND);
    const Handle local(CreateMutexOf("Local\\sndxtest/name%.\xC3\xA4"));
    EXPECT_EQ(ErrorOfOpening("sndxtest/name%.\xC3\xA4"), ERROR_SUCCESS);

    for (const char* name : {"Global\\a\\b", "a\\b", "Unknown\\a"})
    {
        EXPECT_EQ(ErrorOf(CreateMutexOf(name)), ERROR_PATH_NOT_FOUND) << name;
        EXPECT_EQ(ErrorOf(CreateSection(name, 8)), ERROR_PATH_NOT_FOUND) << name;
    }
    // As long and different in the last letter only.
    const std::string longest(MAX_PATH - 1, 'x');
    const Handle mutex(CreateMutexOf(longest));
    EXPECT_EQ(ErrorOfOpening(longest.substr(1) + "y"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpening(longest), ERROR_SUCCESS);
}

TEST_F(NamedObjects, SecondCreateOpensAndAnotherKindIsRefused)
{
    Handle first(CreateMutexOf("sndxtest kind"));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    Handle second(CreateMutexOf("Local\\sndxtest kind", TRUE));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(ReleaseMutex(second)) << "the wish to own counts for new mutexes only";
    EXPECT_EQ(ErrorOf(CreateSection("sndxtest kind", 8)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ErrorOf(OpenSection("sndxtest kind")), ERROR_INVALID_HANDLE);
    first.Close();
    EXPECT_EQ(ErrorOfOpening("sndxtest kind"), ERROR_SUCCESS);
    second.Close();
    EXPECT_EQ(ErrorOf(CreateSection("sndxtest kind", 8)), ERROR_SUCCESS);
}

// Holds the mutex of a name until it is killed or told to go.
SNDX_CHILD(HoldMutex)
{
    const HANDLE mutex = CreateMutexOf(arguments[0]);
    const DWORD result = WaitForSingleObject(mutex, 5000);
    Announce("held");
    WaitFor("release");
    ReleaseMutex(mutex);
    return static_cast<int>(result);
}

TEST_F(NamedObjects, MutexExcludesAnotherProcess)
{
    ChildProcess child("HoldMutex", {"Global\\sndxtest mutex"});
    ASSERT_TRUE(WaitFor("held"));
    const Handle mutex(CreateMutexOf("Global\\sndxtest mutex", TRUE));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(WaitForSingleObject(mutex, 100), WAIT_TIMEOUT);
    EXPECT_EQ(ErrorOf(ReleaseMutex(mutex)), ERROR_NOT_OWNER);
    Announce("release");
    EXPECT_EQ(WaitForSingleObject(mutex, 5000), WAIT_OBJECT_0);
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_TRUE(ReleaseMutex(mutex));
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
        child.Kill();
        if (heldHere)
        {
            EXPECT_EQ(WaitForSingleObject(mutex, 5000), WAIT_ABANDONED);
            EXPECT_TRUE(ReleaseMutex(mutex));
            EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
            EXPECT_TRUE(ReleaseMutex(mutex));
            continue;
        }
        EXPECT_EQ(ErrorOfOpening(name), ERROR_FILE_NOT_FOUND);
        const Handle fresh(CreateMutexOf(name));
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        EXPECT_EQ(WaitForSingleObject(fresh, 0), WAIT_OBJECT_0) << "not abandoned: nobody had this one";
        EXPECT_TRUE(ReleaseMutex(fresh));
    }
}

// Counts under the mutex in shared memory, with a read and a write apart.
SNDX_CHILD(Count)
{
    auto* counter = View<volatile int>(OpenSection("sndxtest counter"));
    for (int i = 0; i < std::stoi(arguments[0]); ++i)
    {
        const Handle mutex(CreateMutexOf("Global\\sndxtest counting")); // comes and goes all the time
        if (WaitForSingleObject(mutex, 20000) != WAIT_OBJECT_0)
        {
            return 1;
        }
        const int value = *counter;
        Sleep(0);
        *counter = value + 1;
        ReleaseMutex(mutex);
    }
    return 0;
}

TEST_F(NamedObjects, CreatingLockingAndClosingInSeveralProcessesExcludes)
{
    const Handle section(CreateSection("sndxtest counter", sizeof(int)));
    auto* counter = View<volatile int>(section);
    ASSERT_NE(counter, nullptr);
    constexpr int rounds = 3000;
    ChildProcess first("Count", {std::to_string(rounds)});
    ChildProcess second("Count", {std::to_string(rounds)});
    ChildProcess third("Count", {std::to_string(rounds)});
    for (ChildProcess* child : {&first, &second, &third})
    {
        EXPECT_EQ(child->Wait(60000), 0);
    }
    EXPECT_EQ(*counter, 3 * rounds);
    EXPECT_TRUE(UnmapViewOfFile(const_cast<int*>(counter)));
}

SNDX_CHILD(HoldSection)
{
    const HANDLE section = CreateSection(arguments[0], 100);
    const DWORD error = GetLastError();
    char* bytes = View<char>(section);
    bytes[99] = static_cast<char>(bytes[0] + 1);
    Announce("held");
    WaitFor("release");
    return static_cast<int>(error);
}

TEST_F(NamedObjects, SectionIsSharedAndGoesWithItsLastHandleThoughViewsStay)
{
    const std::string name = "sndxtest section";
    Handle section(CreateSection(name, 100));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    char* bytes = View<char>(section);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes, 100), std::string(100, '\0'));
    bytes[0] = 41;
    ChildProcess child("HoldSection", {name});
    ASSERT_TRUE(WaitFor("held"));
    EXPECT_EQ(bytes[99], 42);
    Announce("release");
    EXPECT_EQ(static_cast<DWORD>(child.Wait()), ERROR_ALREADY_EXISTS);

    section.Close();
    EXPECT_EQ(ErrorOf(OpenSection(name)), ERROR_FILE_NOT_FOUND);
    const Handle fresh(CreateSection(name, 8));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    char* view = View<char>(fresh);
    EXPECT_EQ(view[0], 0);
    EXPECT_EQ(bytes[0], 41);
    EXPECT_TRUE(UnmapViewOfFile(bytes));
    EXPECT_FALSE(UnmapViewOfFile(bytes));
    EXPECT_TRUE(UnmapViewOfFile(view));
}

TEST_F(NamedObjects, SectionOfAKilledProcessIsGone)
{
    ChildProcess child("HoldSection", {"sndxtest gone"});
    ASSERT_TRUE(WaitFor("held"));
    // A view without a handle, of the section that the kill leaves behind.
    Handle section(OpenSection("sndxtest gone"));
    char* oldView = View<char>(section);
    section.Close();
    child.Kill();
    const Handle fresh(CreateSection("sndxtest gone", 100));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    char* view = View<char>(fresh);
    EXPECT_EQ(std::string(view, 100), std::string(100, '\0'));
    EXPECT_EQ(oldView[99], 1);
    UnmapViewOfFile(oldView);
    UnmapViewOfFile(view);
}
} // namespace
