#pragma once
// Holds every trace that a test leaves, of whatever process, against the grammar of lines, the catalogue of
// messages and the end that is expected. At the end of each test, because what it leaves is still there then,
// also of the programs that it has started.

#include <gtest/gtest.h>

namespace sndxtest
{
// For the rest of the test: lines and files of its own are among the traces.
void ExpectForeignLines();
// For the rest of the test: a process is ended before it can end its trace.
void ExpectCutOffTraces();

// Of the operations that write traces, with whatever texts.
class ForeignLinesTest : public testing::Test
{
  protected:
    ForeignLinesTest() { ExpectForeignLines(); }
};

// Once, before the tests run. What was seen of the catalogue goes to a file of the folder that the
// environment variable SNDX_SEEN_MESSAGES names.
void HoldTracesOfEveryTest();
} // namespace sndxtest
