#include <gtest/gtest.h>

#include "tools/commandline.h"
#include "tools/mainprogram/options.h"

using sndxtools::Arguments;
using sndxtools::ParseMainProgramOptions;
using sndxtools::SplitCommandLine;
using sndxtools::UsageError;

TEST(CommandLine, QuotesHoldArgumentsTogetherAndBackslashesAreOrdinary)
{
    EXPECT_EQ(SplitCommandLine("  a\t\"C:\\My Folder\\\" b\"c d\"e \"\"\r"),
              (Arguments{"a", "C:\\My Folder\\", "bc de", ""}));
    EXPECT_EQ(SplitCommandLine(" "), Arguments{});
    EXPECT_THROW(SplitCommandLine("a \"b"), UsageError);
}

TEST(MainProgramOptions, LaterOptionsWinAndValuesAreChecked)
{
    const auto options =
        ParseMainProgramOptions({"--instances", "2", "--busy", "--instances", "254", "--close-early", "0"});
    EXPECT_EQ(options.instances, 254u);
    EXPECT_TRUE(options.busy);
    EXPECT_EQ(options.closeEarly, DWORD{0});
    EXPECT_FALSE(options.requests);

    for (const Arguments& wrong : {Arguments{"--bogus"},
                                   {"file"},
                                   {"--output"},
                                   {"--output", ""},
                                   {"--instances", "0"},
                                   {"--instances", "255"},
                                   {"--duration", "-1"},
                                   {"--duration", "1x"},
                                   {"--duration", ""},
                                   {"--buffer", "99999999999999999999"}})
    {
        EXPECT_THROW(ParseMainProgramOptions(wrong), UsageError) << wrong.front() << " " << wrong.back();
    }
}
