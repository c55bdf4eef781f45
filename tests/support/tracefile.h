#pragma once
// Reading trace files, independently of the product's own code for them.

#include <string>
#include <vector>

#include "tests/support/text.h"

namespace sndxtest
{
// One trace line. Its text keeps line breaks that stand inside it, without the CR LF at its end.
struct TraceLine
{
    std::string stamp;  // "hh:mm:ss.mmm"
    std::string thread; // four digits
    bool error;
    std::string text;
};

// The file that a module (or product code linked directly) in a process of this executable name writes:
// <application data>\tracedll_Sendora<title>.txt. Without a title: this process's. As UTF-8 Windows path.
std::string TraceFilePath(const std::string& title = {});

// The whole file as bytes; empty when it does not exist. Opens it sharing everything, so that no writer
// waits.
std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& bytes);

// Splits a trace file into lines. Fails the current test when the file does not consist of whole lines.
std::vector<TraceLine> ParseTrace(const std::string& content);

// "text", or "**text" for an error line: the form that expectations are written in.
Lines Texts(const std::vector<TraceLine>& lines);

// Deletes the trace file of the title and its older generations.
void RemoveTraceFiles(const std::string& title = {});

// What this process's trace file gains during a scope.
class TraceCapture
{
  public:
    explicit TraceCapture(const std::string& title = {});
    // Lines written since construction, or since the last call of Restart.
    std::vector<TraceLine> Lines() const;
    sndxtest::Lines Texts() const { return sndxtest::Texts(Lines()); }
    void Restart();

  private:
    std::string path_;
    std::size_t offset_ = 0;
};
} // namespace sndxtest
