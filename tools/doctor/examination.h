#pragma once
// The examinations of a machine, in the order in which they are made, and what they share.

#include <algorithm>
#include <chrono>
#include <future>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

#include "tools/doctor/system.h"

namespace sndxtools::doctor
{
// Their numbers are the program's exit codes.
enum class Status
{
    Ok = 0,
    Attention = 1, // works for now, or for others, or only until the next change
    Wrong = 3,     // is the cause of a complaint
};
using enum Status;

using Lines = std::vector<std::string>;

struct Finding
{
    Status status;
    std::string item;   // what was examined, in the same words in every report
    std::string text;   // what was found
    std::string advice; // what to do about it; empty when nothing is to be done
    Lines details;
};

// A line of a decision table. Without an advice of its own it has the table's.
struct Rule
{
    bool applies;
    Status status;
    std::string text;
    std::string advice = {};
};

class Examination
{
  public:
    // How long it may take when something does not answer (drives, servers, processes).
    explicit Examination(std::chrono::milliseconds longest) : end_(Clock::now() + longest) {}

    // The first rule that applies becomes a finding. False when none does.
    bool Decide(const std::string& item, const std::string& advice, std::initializer_list<Rule> rules,
                const Lines& details = {})
    {
        const auto* const rule = std::ranges::find_if(rules, &Rule::applies);
        if (rule != rules.end())
        {
            const bool isOwn = rule->status == Ok || !rule->advice.empty();
            findings_.push_back({rule->status, item, rule->text, isOwn ? rule->advice : advice, details});
        }
        return rule != rules.end();
    }
    const std::vector<Finding>& Findings() const { return findings_; }

    // The result of work on a thread of its own; the other one when it does not come in time. The thread is
    // left behind then, until the program ends: work must own all that it uses.
    template <class Work, class Result = std::invoke_result_t<Work>>
    Result Bounded(Work work, Result otherwise)
    {
        std::packaged_task<Result()> task(std::move(work));
        auto answer = task.get_future();
        std::thread(std::move(task)).detach();
        const auto soon = Clock::now() + std::chrono::milliseconds(50); // what answers at once is not missed
        return answer.wait_until(std::max(end_, soon)) == std::future_status::ready ? answer.get()
                                                                                    : otherwise;
    }

  private:
    using Clock = std::chrono::steady_clock;
    std::vector<Finding> findings_;
    const Clock::time_point end_;
};

WideString ExamineRegistration(Examination& examination); // returns the module's path, empty for none
void ExamineAccounts(Examination& examination);
void ExamineMainProgram(Examination& examination);
// Asks for a free instance only: nothing is opened, nothing sent.
void ExaminePipe(Examination& examination);
// Returns who has the module loaded.
std::vector<Holder> ExamineHolders(Examination& examination, const WideString& module);
// Opens the shared block when it is there, and never makes it.
void ExamineStamp(Examination& examination, const std::vector<Holder>& holders);
void ExamineTraces(Examination& examination, const std::vector<Holder>& holders);
void ExamineMemoryMode(Examination& examination);
} // namespace sndxtools::doctor
