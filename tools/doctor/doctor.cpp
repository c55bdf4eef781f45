#include "tools/doctor/doctor.h"

#include <iomanip>
#include <regex>

#include <nlohmann/json.hpp>

#include "tools/doctor/examination.h"
#include "tools/options.h"

namespace sndxtools
{
namespace doctor
{
namespace
{
constexpr std::size_t width = 79;  // columns of a console
constexpr std::size_t indent = 11; // behind the longest status
const char* TextOf(Status status)
{
    return status == Ok ? "ok" : status == Attention ? "attention" : "wrong";
}

// Writes words behind each other from the indent on. What stands in quotes is one word: paths can be copied.
void WriteWrapped(std::ostream& out, const std::string& text)
{
    const std::regex words("(\"[^\"]*\"|[^ \"])+|\"");
    std::size_t column = indent;
    for (std::sregex_iterator word(text.begin(), text.end(), words); word != std::sregex_iterator(); ++word)
    {
        const std::size_t length = Wide(word->str()).size();
        const bool breaks = column > indent && column + 1 + length > width;
        out << (breaks ? "\n" + std::string(indent, ' ') : column > indent ? " " : "") << word->str();
        column = (breaks ? indent : column + (column > indent ? 1 : 0)) + length;
    }
    out << "\n";
}

void WriteFinding(std::ostream& out, const Finding& finding, bool withDetails)
{
    out << std::left << std::setw(indent) << TextOf(finding.status);
    WriteWrapped(out, finding.item + ": " + finding.text);
    for (const std::string& detail : withDetails ? finding.details : Lines())
    {
        out << std::string(indent + 2, ' ') << detail << "\n";
    }
}

// Every finding, then those that ask for something again, worst first.
void WriteText(std::ostream& out, const std::vector<Finding>& findings, Status worst)
{
    for (const Finding& finding : findings)
    {
        WriteFinding(out, finding, true);
    }
    out << (worst == Ok ? "\nThis machine has what the shell extension needs.\n"
                        : "\nWhat to do, worst first:\n\n");
    for (const Status status : {Wrong, Attention})
    {
        for (const Finding& finding : findings)
        {
            if (finding.status == status)
            {
                WriteFinding(out, finding, false);
                out << std::setw(indent) << "   to do:";
                WriteWrapped(out, finding.advice);
            }
        }
    }
}

void WriteJson(std::ostream& out, const std::vector<Finding>& findings, Status worst)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Finding& finding : findings)
    {
        list.push_back({{"item", finding.item},
                        {"status", TextOf(finding.status)},
                        {"text", finding.text},
                        {"advice", finding.advice},
                        {"details", finding.details}});
    }
    const nlohmann::ordered_json all = {
        {"version", SNDX_VERSION}, {"status", TextOf(worst)}, {"findings", list}};
    out << all.dump(2) << "\n";
}
} // namespace
} // namespace doctor

int RunDoctor(const Arguments& arguments, std::ostream& out, std::ostream& err)
{
    using namespace doctor;
    bool json = false;
    CLI::App parser("Examines what this machine and this user have of the Sendora shell extension, and says\n"
                    "what to do where something is missing. It reads only and changes nothing.",
                    "sndxdoctor");
    try
    {
        SetUp(parser);
        parser.add_flag("--json", json, "one JSON object for programs");
        parser.footer(
            "Run it as the user who complains: settings, traces and processes are that user's.\n"
            "Exit codes: 0 all is well; 1 something needs attention; 2 wrong usage; 3 something is wrong.");
        if (!Parse(parser, arguments, out))
        {
            return 0;
        }
    }
    catch (const UsageError& error)
    {
        err << "sndxdoctor: " << error.what() << " (see --help)\n";
        return 2;
    }
    Examination examination{std::chrono::seconds(10)};
    const WideString module = ExamineRegistration(examination);
    ExamineAccounts(examination);
    ExamineMainProgram(examination);
    ExaminePipe(examination);
    const std::vector<Holder> holders = ExamineHolders(examination, module);
    ExamineStamp(examination, holders);
    ExamineTraces(examination, holders);
    ExamineMemoryMode(examination);
    const std::vector<Finding>& findings = examination.Findings();
    const Status worst = std::ranges::max(findings, {}, &Finding::status).status;
    json ? WriteJson(out, findings, worst) : WriteText(out, findings, worst);
    out << std::flush;
    return static_cast<int>(worst);
}
} // namespace sndxtools
