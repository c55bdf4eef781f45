#pragma once
#include <stdexcept>
#include <string>
#include <vector>

namespace sndxtools
{
using Arguments = std::vector<std::string>;

// The command line cannot be understood; the program says why and ends with exit code 2.
class UsageError : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Splits a line of text into arguments at blanks. Double quotes around an argument hold it together; a
// backslash is an ordinary character, so that "C:\My Folder\" can be written. Throws UsageError for an open
// quote.
Arguments SplitCommandLine(const std::string& line);
} // namespace sndxtools
