#include <cstdlib>
#include <regex>

#include "tools/contract.h"
#include "tools/doctor/examination.h"
#include "tools/paths.h"
#include "tools/registry.h"

namespace sndxtools::doctor
{
namespace
{
constexpr REGSAM shared = KEY_WOW64_32KEY; // the view of the product's machine-wide settings
constexpr std::size_t longestKeyPath = 259;
// A folder with a separator and a name of one unit, a program with its quotes: 259, the module's limit.
constexpr std::size_t longestPath = 257;

WideString Key(const char* section)
{
    return Wide(std::string(contract::productKey) + "\\" + section);
}

// For a value that is there and no text.
Rule WrongType(const char* name, const RegistryText& value)
{
    return {!value.text.empty() && value.type != REG_SZ, Attention,
            std::string(name) + " is stored as type " + std::to_string(value.type) +
                ", not as text (1, REG_SZ); the module reads it as " + Quoted(Utf8(value.text)) + ".",
            "Store it as text."};
}

// As the module compares it: one separator at the end taken off.
WideString Trimmed(const WideString& folder)
{
    const bool hasEnd = folder.ends_with(TEXT('\\')) || folder.ends_with(TEXT('/'));
    return folder.substr(0, folder.size() - (hasEnd ? 1 : 0));
}

// The fault of a folder as it is stored, if it has one.
Rule FolderFault(Examination& examination, const WideString& stored)
{
    const WideString folder = Trimmed(stored);
    const std::string name = Quoted(Utf8(stored));
    if (Trimmed(folder) != folder)
    {
        return {true, Wrong, name + " ends in two separators: the module takes off one and finds nothing."};
    }
    // Wildcards, empty elements, "." and "..": looked for, they would name something else.
    const std::regex odd(R"re([/*?<>|"]|.\\\\|\\\.\.?(\\|$))re");
    if (!IsFullTargetPath(Utf8(folder + TEXT("\\"))) || std::regex_search(Utf8(folder), odd) ||
        folder.size() > longestPath)
    {
        return {true, Wrong, name + " is no full path as Explorer spells it, of at most 257 characters."};
    }
    using Looks = std::pair<WideString, std::string>;
    const WideString end = folder.ends_with(TEXT(':')) ? TEXT("\\") : TEXT(""); // a drive's root
    const auto look = [folder, end] { return Looks(AsSpelled(folder), Fault(folder + end, true)); };
    const auto [spelled, fault] = examination.Bounded(look, Looks(folder, "no answer"));
    if (Folded(spelled) != Folded(folder))
    {
        return {true, Wrong, name + " is " + Quoted(Utf8(spelled)) + " to Explorer, not to the module."};
    }
    return {!fault.empty(), Attention, name + ": " + fault + ".", "Make the folder, or connect its drive."};
}

// Accounts, quoted, with their folders, trimmed and folded.
using Accounts = std::vector<std::pair<std::string, WideString>>;

// Adds the account to those seen when it has a folder.
void ExamineAccount(Examination& examination, const WideString& account, Accounts& seen)
{
    const std::string quoted = Quoted(Utf8(account));
    constexpr char advice[] = "Set its folder again in Sendora File Transfer.";
    const auto decide = [&](std::initializer_list<Rule> rules)
    { return examination.Decide("account " + quoted, advice, rules); };
    const WideString key = (Key("Accounts\\") + account).substr(0, longestKeyPath);
    const RegistryText value = ReadText(HKEY_LOCAL_MACHINE, key, TEXT("LocalFolder"), shared);
    const bool isMissing = value.error == ERROR_FILE_NOT_FOUND && key.size() < longestKeyPath;
    if (value.text.empty())
    {
        decide(
            {{value.error == 0 || isMissing, Attention, "Without a LocalFolder the module leaves it out."},
             {true, Wrong, "Left out, as its LocalFolder cannot be read: " + ErrorText(value.error) + "."}});
        return;
    }
    const WideString folder = Folded(Trimmed(value.text));
    int faults = decide({WrongType("LocalFolder", value)}) + decide({FolderFault(examination, value.text)});
    for (const auto& [other, otherFolder] : seen)
    {
        const bool isInside =
            folder.starts_with(otherFolder + TEXT("\\")) || otherFolder.starts_with(folder + TEXT("\\"));
        faults += decide({{folder == otherFolder, Attention, "It has the folder of account " + other + "."},
                          {isInside, Attention, "Its folder and that of account " + other + " are nested."}});
    }
    const RegistryText update = ReadText(HKEY_LOCAL_MACHINE, key, TEXT("LastUpdate"), shared);
    const bool isNumber = std::regex_match(Utf8(update.text), std::regex("([ \t]*[+-]?[0-9]+)?"));
    faults += decide({WrongType("LastUpdate", update),
                      {!isNumber, Attention, "LastUpdate is no number: " + Quoted(Utf8(update.text)) + ".",
                       "The module needs it for nothing; whoever wrote it may have damaged more."}});
    decide({{faults == 0, Ok, Quoted(Utf8(value.text)) + "."}});
    seen.push_back({quoted, folder});
}
} // namespace

void ExamineAccounts(Examination& examination)
{
    const SubKeys accounts(HKEY_LOCAL_MACHINE, Key("Accounts"), shared);
    const bool isElsewhere = !SubKeys(HKEY_LOCAL_MACHINE, Key("Accounts"), KEY_WOW64_64KEY).names.empty();
    const bool isRefused = accounts.error != 0 && accounts.error != ERROR_FILE_NOT_FOUND;
    const bool isNone = accounts.names.empty();
    examination.Decide(
        "accounts", "Set up an account with a local folder in Sendora File Transfer.",
        {{isRefused, Wrong, "They cannot be read: " + ErrorText(accounts.error) + ".", "Let users read."},
         {isNone && isElsewhere, Wrong, "They stand in the 64-bit view, which the module does not read."},
         {isNone, Wrong, "There are none: no item gets an icon or a menu."},
         {true, Ok, std::to_string(accounts.names.size()) + " in the registry's 32-bit view."}});
    Accounts seen;
    for (const WideString& name : accounts.names)
    {
        ExamineAccount(examination, name, seen);
    }
}

void ExamineMainProgram(Examination& examination)
{
    constexpr char item[] = "main program";
    constexpr char advice[] = "Install Sendora File Transfer again, or set InstallerPath below Settings.";
    const RegistryText user = ReadText(HKEY_CURRENT_USER, Key("Settings"), TEXT("InstallerPath"), shared);
    const RegistryText machine = ReadText(HKEY_LOCAL_MACHINE, Key("Settings"), TEXT("InstallerPath"), shared);
    const RegistryText& value = user.text.empty() ? machine : user;
    const char* const hidden = machine.text.empty() ? "the user" : "the user, which go before the machine's";
    const std::string name =
        Quoted(Utf8(value.text)) + ", from the settings of " + (user.text.empty() ? "the machine" : hidden);
    const auto look = [path = value.text] { return Fault(path); };
    const std::string fault = examination.Bounded(look, std::string("no answer"));
    const bool isFull = IsFullTargetPath(Utf8(value.text)) && value.text.size() <= longestPath;
    examination.Decide(item, advice, {WrongType("InstallerPath", value)});
    examination.Decide(item, advice,
                       {{value.text.empty(), Wrong,
                         "No path is set, so that a command starts nothing: " + ErrorText(value.error) + "."},
                        {!isFull, Wrong, name + ": no full path of at most 257 characters."},
                        {!fault.empty(), Wrong, name + ": " + fault + "."},
                        {true, Ok, name + "."}});
}

void ExamineMemoryMode(Examination& examination)
{
    const RegistryText value = ReadText(HKEY_CURRENT_USER, Key("Debug"), TEXT("Memory Mode"));
    const std::string mode = Utf8(value.text);
    const bool isPlain = mode.empty() || mode == "0" || mode == "1";
    const long number = std::strtol(mode.c_str(), nullptr, 10); // as the module converts it
    const bool isGuarded = number == 2 || number == 3 || number == 5;
    examination.Decide(
        "memory mode", "Remove it below HKEY_CURRENT_USER\\" + Utf8(Key("Debug")) + ".",
        {WrongType("Memory Mode", value),
         {isPlain, Ok, mode.empty() ? "Not set." : mode + ", a plain one."},
         {isGuarded, Attention, mode + " is for developers: programs grow, slow down, stop at faults."},
         {true, Attention, Quoted(mode) + " is none that the module knows."}});
}
} // namespace sndxtools::doctor
