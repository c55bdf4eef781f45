// The build stamp that the module shows was made by its link, when everything else in it was compiled
// already.

#include <ctime>

#include <sys/stat.h>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
using ModuleStamp = ModuleTest;

std::time_t FileTime(const char* path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path, &status), 0) << path;
    return status.st_mtime;
}

TEST_F(ModuleStamp, IsMadeByTheLink)
{
    EXPECT_GE(FileTime(SNDX_MODULE_STAMP), FileTime(SNDX_MODULE_PARTS)) << "older than a part of the module";
    EXPECT_LE(FileTime(SNDX_MODULE_STAMP), FileTime(SNDX_MODULE_PATH));
    {
        const Module module;
    }
    const std::string prefix = "Build Date/Time: ";
    const std::string line = Texts(ParseTrace(ReadWholeFile(TraceFilePath()))).at(1);
    ASSERT_EQ(line.substr(0, prefix.size()), prefix);
    const std::string stamp = line.substr(prefix.size());
    EXPECT_EQ(stamp.size(), std::string("Nov 23 2026 10:41:38").size()) << line;
    EXPECT_NE(ReadWholeFile(SNDX_MODULE_STAMP).find(stamp + '\0'), std::string::npos) << line;
}
} // namespace
