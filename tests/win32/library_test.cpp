// Looking for functions of system libraries.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/tracefile.h"
#include "win32/library.h"

namespace
{
using sndxtest::TraceCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Library, AMissingLibraryIsReported)
{
    const TraceCapture trace;
    EXPECT_EQ(nullptr, LDLLLoad("sndxmissing.dll"));
    const LLibrary library("sndxmissing.dll");
    EXPECT_THAT(trace.Texts(), ElementsAre("LDLLLoad Cannot load the dll: sndxmissing.dll",
                                           "LDLLLoad Cannot load the dll: sndxmissing.dll"));
    // Without a library nothing is missing in it.
    EXPECT_EQ(nullptr, library.GetFunction("GetTickCount"));
    EXPECT_EQ(nullptr, LDLLLoadFunctionNoError(nullptr, "GetTickCount"));
    EXPECT_EQ(2u, trace.Texts().size());
}

TEST(Library, AMissingFunctionIsReported)
{
    const TraceCapture trace;
    const HMODULE kernel = LDLLLoad("kernel32.dll");
    ASSERT_NE(nullptr, kernel);
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(nullptr, LDLLLoadFunctionNoError(kernel, "SndxNoSuchFunction"));
    const LLibrary library("kernel32.dll");
    EXPECT_EQ(nullptr, library.GetFunction("SndxNoSuchFunction"));
    const std::string report = "LDLLLoadFunctionNoError Cannot find the library function: SndxNoSuchFunction";
    EXPECT_THAT(trace.Texts(), ElementsAre(report, report));
    FreeLibrary(kernel);
}
} // namespace
