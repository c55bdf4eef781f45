#include "tests/support/traceoracle.h"

#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "tests/support/tracefile.h"
#include "tools/trace/inputfile.h"

namespace sndxtest
{
namespace
{
using namespace sndxtools;

bool g_foreignLines = false;
bool g_cutOffTraces = false;
std::bitset<trace::messageCount> g_seen;

std::vector<std::filesystem::path> LeftTraces()
{
    std::string file = TraceFilePath();
#ifndef _WIN32
    std::replace(file.begin(), file.end(), '\\', '/');
    file = std::string(std::getenv("SENDORA_ROOT")) + "/drive_c" + file.substr(2); // behind the drive
#endif
    std::vector<std::filesystem::path> found;
    std::error_code none; // no folder, no trace
    for (const auto& entry : std::filesystem::directory_iterator(trace::PathOf(file).parent_path(), none))
    {
        if (!trace::ProgramOf(entry.path()).empty())
        {
            found.push_back(entry.path());
        }
    }
    return found;
}

void Hold(const std::filesystem::path& path, int& openLives)
{
    trace::Reader reader(trace::OpenFile(path));
    trace::Line line;
    while (reader.Next(line))
    {
        const bool isKnown = line.id != trace::messageCount && trace::EntryOf(line.id).error == line.error;
        EXPECT_TRUE(isKnown || g_foreignLines)
            << "line " << line.number << " of " << path.filename() << " is not in docs/messages.toml"
            << (line.isStamped ? "" : " and has no stamp") << ": " << line.text;
        if (isKnown)
        {
            g_seen.set(line.id);
            openLives += (line.id == trace::L08) - (line.id == trace::U01);
        }
    }
}

class Oracle : public testing::EmptyTestEventListener
{
    void OnTestStart(const testing::TestInfo&) override
    {
        g_foreignLines = false;
        g_cutOffTraces = false;
        // Under Wine programs that are no tests of this kind have used the same prefix before, and some end
        // without the last lines on purpose.
        for (const auto& path : LeftTraces())
        {
            std::error_code held;
            std::filesystem::remove(path, held);
        }
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        // A process goes on in the newest file of its program's name when another one of that name has begun
        // it.
        std::map<std::string, int> openLives;
        for (const auto& path : LeftTraces())
        {
            Hold(path, openLives[trace::ProgramOf(path)]);
            std::filesystem::remove(path);
        }
        for (const auto& [program, count] : openLives)
        {
            EXPECT_TRUE(count <= 0 || g_cutOffTraces)
                << count << " traces of " << program << " do not end in order";
        }
    }
    void OnTestProgramEnd(const testing::UnitTest&) override
    {
        if (const char* const folder = std::getenv("SNDX_SEEN_MESSAGES"))
        {
            std::ofstream seen(std::filesystem::path(folder) / std::to_string(GetCurrentProcessId()),
                               std::ios::app);
            for (int i = 0; i < trace::messageCount; ++i)
            {
                seen << (g_seen[static_cast<std::size_t>(i)] ? std::string(trace::texts[i].name) + "\n"
                                                             : std::string());
            }
        }
    }
};
} // namespace

void ExpectForeignLines()
{
    g_foreignLines = true;
}

void ExpectCutOffTraces()
{
    g_cutOffTraces = true;
}

void HoldTracesOfEveryTest()
{
    testing::UnitTest::GetInstance()->listeners().Append(new Oracle); // GoogleTest's from then on
}
} // namespace sndxtest
