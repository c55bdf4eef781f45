// Mutexes and sections whose owners are killed: what is shared by name goes with its last handle.

#include <string>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

constexpr WCHAR mutexName[] = TEXT("Global\\sndxtest/name%");
constexpr WCHAR sectionName[] = TEXT("sndxtest section");

HANDLE CreateSection()
{
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 100, sectionName);
}

// The whole section.
char* View(HANDLE section)
{
    return static_cast<char*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
}

DWORD ErrorOfOpeningMutex(const WCHAR* name = mutexName)
{
    return ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, name));
}

DWORD ErrorOfOpeningSection()
{
    return ErrorOf(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, sectionName));
}

// Owns the mutex and has the section until it is killed.
SNDX_CHILD(HoldObjects)
{
    WaitForSingleObject(CreateMutexW(nullptr, FALSE, mutexName), 5000);
    char* bytes = View(CreateSection());
    bytes[99] = static_cast<char>(bytes[0] + 1);
    Announce("held");
    return WaitFor("never", 60000);
}

TEST(NamedObjects, OfAKilledProcessAreAbandonedOrGoneAndViewsStay)
{
    for (const bool held : {true, false}) // here, too
    {
        ClearPoints();
        const Handle mutex(held ? CreateMutexW(nullptr, FALSE, mutexName) : nullptr);
        Handle section(CreateSection());
        char* bytes = View(section);
        EXPECT_EQ(std::string(bytes, 100), std::string(100, '\0'));
        bytes[0] = 41;
        ChildProcess child("HoldObjects", {});
        ASSERT_TRUE(WaitFor("held"));
        EXPECT_EQ(bytes[99], 42);
        EXPECT_EQ(ErrorOfOpeningMutex(), ERROR_SUCCESS);
        EXPECT_EQ(ErrorOfOpeningMutex(TEXT("Global\\sndxtest/Name%")), ERROR_FILE_NOT_FOUND) << "case counts";
        EXPECT_EQ(WaitForSingleObject(mutex, 50), held ? WAIT_TIMEOUT : WAIT_FAILED);
        section.Close();
        EXPECT_EQ(ErrorOfOpeningSection(), ERROR_SUCCESS) << "the child has it";
        child.Kill();
        EXPECT_EQ(ErrorOfOpeningSection(), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(ErrorOfOpeningMutex(), held ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(WaitForSingleObject(mutex, 5000), held ? WAIT_ABANDONED : WAIT_FAILED);
        EXPECT_EQ(bytes[99], 42);
        EXPECT_TRUE(UnmapViewOfFile(bytes));
        const Handle again(CreateMutexW(nullptr, FALSE, mutexName));
        EXPECT_EQ(WaitForSingleObject(again, 0), WAIT_OBJECT_0) << "not abandoned any more, or a new one";
    }
}
} // namespace
