// Looking for functions of system libraries.

#include <gmock/gmock.h>

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
    const LLibrary library("sndxmissing.dll");
    // Without a library nothing is missing in it.
    EXPECT_EQ(library.GetFunction("GetTickCount"), nullptr);
    EXPECT_THAT(trace.Texts(), ElementsAre("LDLLLoad Cannot load the dll: sndxmissing.dll"));
}

TEST(Library, AMissingFunctionIsReported)
{
    const TraceCapture trace;
    const LLibrary library("kernel32.dll");
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(library.GetFunction("SndxNoSuchFunction"), nullptr);
    EXPECT_THAT(trace.Texts(),
                ElementsAre("LDLLLoadFunctionNoError Cannot find the library function: SndxNoSuchFunction"));
}

} // namespace
