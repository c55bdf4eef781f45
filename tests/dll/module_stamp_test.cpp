// The build stamp that the module shows: the moment of its link, when everything else in it was compiled
// already.

#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <sstream>

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

TEST_F(ModuleStamp, IsTheMomentOfTheLink)
{
    {
        const Module module;
    }
    const std::string prefix = "Build Date/Time: ";
    const std::string line = Texts(ParseTrace(ReadWholeFile(TraceFilePath()))).at(1);
    ASSERT_EQ(line.substr(0, prefix.size()), prefix);
    std::istringstream text(line.substr(prefix.size()));
    std::tm parsed = {};
    text >> std::get_time(&parsed, "%b %d %Y %H:%M:%S");
    ASSERT_FALSE(text.fail()) << line;
    if (const char* fixed = std::getenv("SOURCE_DATE_EPOCH"))
    {
        const std::time_t epoch = std::atoll(fixed);
        std::tm wanted = *std::gmtime(&epoch);
        EXPECT_EQ(std::mktime(&parsed), std::mktime(&wanted));
        return;
    }
    parsed.tm_isdst = -1; // whatever held then
    const std::time_t stamp = std::mktime(&parsed);
    EXPECT_GE(stamp, FileTime(SNDX_MODULE_PARTS)) << "older than a part of the module: " << line;
    EXPECT_LE(stamp, FileTime(SNDX_MODULE_PATH)) << line;
}
} // namespace
