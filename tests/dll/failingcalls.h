#pragma once
// The table of the calls that can fail, failingcalls.txt; its beginning says how to read it.

#include <fstream>
#include <stdexcept>

#include <windows.h>

#include "tests/dll/modulecalls.h"
#include "tests/support/text.h"

namespace sndxtest
{
struct FailingCall
{
    std::string call;
    std::vector<SourcePlace> places;
    std::string by;                    // a function further out, or empty
    std::vector<std::uint32_t> errors; // none for a call that the sweep leaves out
    Lines answers;
    Lines lines;
    std::string lost = "0"; // lines that the trace file lacks, or "all"
    std::string text;       // of the row, for messages

    // The call's place is the innermost one; what "by" names may be anywhere.
    bool Fits(const std::string& name, const std::vector<SourcePlace>& chain) const
    {
        const auto has = [&](const std::string& wanted)
        {
            return std::any_of(chain.begin(), chain.end(),
                               [&](const SourcePlace& each)
                               { return each.function.find(wanted) != std::string::npos; });
        };
        const auto isAt = [&](const SourcePlace& place)
        { return !chain.empty() && chain.front().file == place.file && has(place.function); };
        return name == call && has(by) && std::any_of(places.begin(), places.end(), isAt);
    }
};

inline std::uint32_t ErrorCode(const std::string& name)
{
#define SNDX_CODE(code)                                                                                      \
    {                                                                                                        \
#code, ERROR_##code                                                                                  \
    }
    static const std::map<std::string, std::uint32_t> codes = {
        SNDX_CODE(ACCESS_DENIED),  SNDX_CODE(BROKEN_PIPE),       SNDX_CODE(DISK_FULL),
        SNDX_CODE(FILE_NOT_FOUND), SNDX_CODE(GEN_FAILURE),       SNDX_CODE(INVALID_HANDLE),
        SNDX_CODE(MORE_DATA),      SNDX_CODE(NOT_ENOUGH_MEMORY), SNDX_CODE(PIPE_BUSY)};
#undef SNDX_CODE
    return codes.at(name);
}

inline std::vector<FailingCall> ReadFailingCalls(const std::string& path)
{
    const auto split = [](const std::string& text, const std::string& separator)
    {
        Lines parts;
        for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + separator.size())
        {
            end = text.find(separator, at);
            parts.push_back(text.substr(at, end - at));
        }
        return parts;
    };
    std::vector<FailingCall> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
    {
        if (line.empty() || line[0] == '#')
        {
            continue;
        }
        if (line[0] == ' ')
        {
            rows.back().lines.push_back(line.substr(line.find_first_not_of(' ')));
            continue;
        }
        const Lines fields = split(line, " | ");
        const Lines by = split(fields.at(1), " by ");
        FailingCall row;
        row.text = line;
        row.call = fields.at(0);
        row.by = by.size() > 1 ? by[1] : "";
        for (const std::string& place : split(by[0], ", "))
        {
            const std::size_t blank = place.find(' ');
            row.places.push_back(
                {blank == std::string::npos ? "" : place.substr(blank + 1), place.substr(0, blank)});
        }
        for (const std::string& name : split(fields.at(2), " "))
        {
            if (name != "-")
            {
                row.errors.push_back(ErrorCode(name));
            }
        }
        for (const std::string& answer :
             split(row.errors.empty() || fields.size() < 4 ? "" : fields[3], ", "))
        {
            if (answer.starts_with("lost "))
            {
                row.lost = answer.substr(5);
            }
            else if (!answer.empty())
            {
                row.answers.push_back(answer);
            }
        }
        rows.push_back(row);
    }
    return rows;
}
} // namespace sndxtest
