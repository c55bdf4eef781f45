// Mutexes and sections that processes share by name.

#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using sndxtest::Announce;
using sndxtest::ChildProcess;
using sndxtest::WaitFor;
using sndxtest::Wide;

class NamedObjects : public ::testing::Test
{
  protected:
    NamedObjects() { sndxtest::ClearPoints(); }
};

DWORD ErrorOfOpening(const char* name)
{
    const HANDLE mutex = OpenMutexW(SYNCHRONIZE, FALSE, Wide(name).c_str());
    if (mutex != nullptr)
    {
        CloseHandle(mutex);
        return ERROR_SUCCESS;
    }
    return GetLastError();
}

HANDLE CreateSection(const char* name, DWORD size)
{
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, Wide(name).c_str());
}

// Holds the mutex of a name until it is killed or told to go. "announce" as second argument is the point.
SNDX_CHILD(HoldMutex)
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, Wide(arguments[0]).c_str());
    const DWORD result = WaitForSingleObject(mutex, 5000);
    Announce("held");
    WaitFor("release");
    if (arguments.size() > 1)
    {
        ReleaseMutex(mutex);
    }
    return static_cast<int>(result);
}

TEST_F(NamedObjects, PrefixesAndCaseTellNamesApart)
{
    const HANDLE global = CreateMutexW(nullptr, FALSE, TEXT("Global\\sndxtest name"));
    ASSERT_NE(nullptr, global);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, ErrorOfOpening("Global\\sndxtest name"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOfOpening("sndxtest name"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOfOpening("Local\\sndxtest name"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOfOpening("Global\\sndxtest Name"));
    CloseHandle(global);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOfOpening("Global\\sndxtest name"));

    const HANDLE local = CreateMutexW(nullptr, FALSE, TEXT("Local\\sndxtest/name%.\xE4"));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, ErrorOfOpening("sndxtest/name%.\xC3\xA4"));
    CloseHandle(local);
}

TEST_F(NamedObjects, BadNamesAreRefused)
{
    for (const char* name : {"Global\\a\\b", "a\\b", "Unknown\\a"})
    {
        EXPECT_EQ(nullptr, CreateMutexW(nullptr, FALSE, Wide(name).c_str())) << name;
        EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, GetLastError()) << name;
        EXPECT_EQ(nullptr, CreateSection(name, 8)) << name;
        EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, GetLastError()) << name;
    }
    const std::string longest(MAX_PATH - 1, 'x');
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, Wide(longest).c_str());
    EXPECT_NE(nullptr, mutex);
    // As long and different in the last letter only.
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOfOpening((longest.substr(1) + "y").c_str()));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, ErrorOfOpening(longest.c_str()));
    CloseHandle(mutex);
}

TEST_F(NamedObjects, SecondCreateOpensAndAnotherKindIsRefused)
{
    const HANDLE first = CreateMutexW(nullptr, FALSE, TEXT("sndxtest kind"));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, GetLastError());
    const HANDLE second = CreateMutexW(nullptr, TRUE, TEXT("Local\\sndxtest kind"));
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, GetLastError());
    ASSERT_NE(nullptr, second);
    EXPECT_FALSE(ReleaseMutex(second)) << "the wish to own counts for new mutexes only";
    EXPECT_EQ(nullptr, CreateSection("sndxtest kind", 8));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
    EXPECT_EQ(nullptr, OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, TEXT("sndxtest kind")));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
    CloseHandle(first);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, ErrorOfOpening("sndxtest kind"));
    CloseHandle(second);
    const HANDLE section = CreateSection("sndxtest kind", 8);
    EXPECT_NE(nullptr, section);
    CloseHandle(section);
}

TEST_F(NamedObjects, MutexExcludesAnotherProcess)
{
    ChildProcess child("HoldMutex", {"Global\\sndxtest mutex", "and release"});
    ASSERT_TRUE(WaitFor("held"));
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, TEXT("Global\\sndxtest mutex"));
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, GetLastError());
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(mutex, 100));
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(DWORD{ERROR_NOT_OWNER}, GetLastError());
    Announce("release");
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 5000));
    EXPECT_EQ(0, child.Wait());
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST_F(NamedObjects, MutexOfAKilledOwnerIsAbandonedOnce)
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, TEXT("Global\\sndxtest killed"));
    ChildProcess child("HoldMutex", {"Global\\sndxtest killed"});
    ASSERT_TRUE(WaitFor("held"));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(mutex, 20));
    child.Kill();
    EXPECT_EQ(DWORD{WAIT_ABANDONED}, WaitForSingleObject(mutex, 5000));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 0));
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST_F(NamedObjects, MutexThatOnlyKilledProcessesHeldIsNew)
{
    ChildProcess child("HoldMutex", {"Global\\sndxtest leftover"});
    ASSERT_TRUE(WaitFor("held"));
    child.Kill();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOfOpening("Global\\sndxtest leftover"));
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, TEXT("Global\\sndxtest leftover"));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, GetLastError());
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 0)) << "not abandoned: nobody had this one";
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

// Counts under the mutex in shared memory, with a read and a write apart.
SNDX_CHILD(Count)
{
    const HANDLE section = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, TEXT("sndxtest counter"));
    auto* counter =
        static_cast<volatile int*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(int)));
    const int rounds = std::stoi(arguments[0]);
    for (int i = 0; i < rounds; ++i)
    {
        const HANDLE mutex = CreateMutexW(nullptr, FALSE, TEXT("Global\\sndxtest counting"));
        if (WaitForSingleObject(mutex, 20000) != WAIT_OBJECT_0)
        {
            return 1;
        }
        const int value = *counter;
        Sleep(0);
        *counter = value + 1;
        ReleaseMutex(mutex);
        CloseHandle(mutex); // the object comes and goes all the time
    }
    return 0;
}

TEST_F(NamedObjects, CreatingLockingAndClosingInSeveralProcessesExcludes)
{
    const HANDLE section = CreateSection("sndxtest counter", sizeof(int));
    auto* counter = static_cast<volatile int*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(nullptr, counter);
    constexpr int rounds = 3000;
    ChildProcess first("Count", {std::to_string(rounds)});
    ChildProcess second("Count", {std::to_string(rounds)});
    ChildProcess third("Count", {std::to_string(rounds)});
    EXPECT_EQ(0, first.Wait(60000));
    EXPECT_EQ(0, second.Wait(60000));
    EXPECT_EQ(0, third.Wait(60000));
    EXPECT_EQ(3 * rounds, *counter);
    EXPECT_TRUE(UnmapViewOfFile(const_cast<int*>(counter)));
    CloseHandle(section);
}

SNDX_CHILD(HoldSection)
{
    const HANDLE section = CreateSection(arguments[0].c_str(), 100);
    const DWORD error = GetLastError();
    auto* bytes = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    bytes[99] = static_cast<char>(bytes[0] + 1);
    Announce("held");
    WaitFor("release");
    return static_cast<int>(error);
}

TEST_F(NamedObjects, SectionIsSharedAndStartsZeroed)
{
    const HANDLE section = CreateSection("sndxtest section", 100);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, GetLastError());
    auto* bytes = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_NE(nullptr, bytes);
    EXPECT_EQ(std::string(100, '\0'), std::string(bytes, 100));
    bytes[0] = 41;
    ChildProcess child("HoldSection", {"sndxtest section"});
    ASSERT_TRUE(WaitFor("held"));
    EXPECT_EQ(42, bytes[99]);
    Announce("release");
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, static_cast<DWORD>(child.Wait()));
    EXPECT_TRUE(UnmapViewOfFile(bytes));
    EXPECT_FALSE(UnmapViewOfFile(bytes));
    CloseHandle(section);
}

TEST_F(NamedObjects, SectionGoesWithItsLastHandleThoughViewsStay)
{
    const HANDLE old = CreateSection("sndxtest view", 8);
    auto* oldView = static_cast<char*>(MapViewOfFile(old, FILE_MAP_ALL_ACCESS, 0, 0, 8));
    oldView[0] = 1;
    CloseHandle(old);
    EXPECT_EQ(nullptr, OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, TEXT("sndxtest view")));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
    const HANDLE fresh = CreateSection("sndxtest view", 8);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, GetLastError());
    auto* view = static_cast<char*>(MapViewOfFile(fresh, FILE_MAP_ALL_ACCESS, 0, 0, 8));
    EXPECT_EQ(0, view[0]);
    view[0] = 2;
    EXPECT_EQ(1, oldView[0]);
    UnmapViewOfFile(oldView);
    UnmapViewOfFile(view);
    CloseHandle(fresh);
}

TEST_F(NamedObjects, SectionOfAKilledProcessIsGone)
{
    ChildProcess child("HoldSection", {"sndxtest gone"});
    ASSERT_TRUE(WaitFor("held"));
    // A view without a handle, of the section that the kill leaves behind.
    HANDLE section = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, TEXT("sndxtest gone"));
    auto* oldView = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    CloseHandle(section);
    EXPECT_EQ(1, oldView[99]);
    child.Kill();
    section = CreateSection("sndxtest gone", 100);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, GetLastError());
    auto* view = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    EXPECT_EQ(std::string(100, '\0'), std::string(view, 100));
    EXPECT_EQ(1, oldView[99]);
    UnmapViewOfFile(oldView);
    UnmapViewOfFile(view);
    CloseHandle(section);
}

TEST_F(NamedObjects, SectionParametersAreChecked)
{
    EXPECT_EQ(nullptr, CreateSection("sndxtest empty", 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    const HANDLE section =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 100000, nullptr);
    auto* view = static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 65536, 0));
    ASSERT_NE(nullptr, view);
    view[100000 - 65536 - 1] = 5;
    auto* whole = static_cast<char*>(MapViewOfFile(section, FILE_MAP_READ, 0, 0, 100000));
    EXPECT_EQ(5, whole[99999]);
    EXPECT_EQ(nullptr, MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 200000));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    UnmapViewOfFile(view);
    UnmapViewOfFile(whole);
    CloseHandle(section);
    EXPECT_EQ(nullptr, MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}
} // namespace
