// A machine that has all that the module needs, and machines that lack something, each in one way. The
// registration is the installer's own list, what the module makes of an account is asked of the module
// itself.

#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/platform/handle.h"
#include "tests/support/child.h"
#include "tests/support/registrykey.h"
#include "tests/support/settings.h"
#include "tests/support/temporaryfolder.h"
#include "tests/support/traceoracle.h"
#include "tools/doctor/doctor.h"
#include "tools/doctor/examination.h"
#include "tools/paths.h"
#include "tools/registry.h"
#include "tools/shellhost/shellhost.h"

#ifndef _WIN32
#include "sndxposix.h"
#endif

using namespace sndxtest;
namespace contract = sndxtools::contract;
using sndxtools::doctor::List;

namespace
{
const std::string classes = "Software\\Classes\\";
const std::string overlayClass = classes + "CLSID\\" + contract::overlayClassText;
const std::string menuClass = classes + "CLSID\\" + contract::menuClassText;
const std::string menuClass32 = classes + "Wow6432Node\\CLSID\\" + contract::menuClassText;
const std::string menusOfFiles = classes + Utf8(sndxtools::MenuHandlersKey(sndxtools::filesKind));
const std::string menusOfFolders = classes + Utf8(sndxtools::MenuHandlersKey(sndxtools::foldersKind));
const std::string overlays = Utf8(sndxtools::overlayHandlersKey);
const std::string shell = "Software\\Microsoft\\Windows\\CurrentVersion\\Shell Extensions\\";
const std::string settings64 = contract::productKey;
const std::string settings32 = "Software\\Wow6432Node\\Taleno Software\\Sendora";
const std::string server = "\\InprocServer32";

const std::string module = Utf8(sndxtools::FilePath(SNDX_MODULE));
const std::string mainProgram = Utf8(sndxtools::FilePath(SNDX_MAINPROGRAM));

// The traces' folder, with a separator.
std::string TraceFolder()
{
    const std::string path = TraceFilePath("x");
    return path.substr(0, path.find_last_of('\\') + 1);
}

// One change of the registry: a key removed with all below (no name), a value removed (no text), a text set.
// In the text, %F is the machine's folder.
struct Change
{
    HKEY root;
    std::string key;
    std::optional<std::string> name = {};
    std::optional<std::string> text = {};

    void Make(const std::string& folder) const
    {
        if (!name)
        {
            RegDeleteTreeW(root, Wide(key).c_str());
            return;
        }
        const Key opened(Key::Create, root, key);
        const std::size_t mark = text.value_or("").find("%F");
        const std::string value =
            mark == std::string::npos ? text.value_or("") : std::string(*text).replace(mark, 2, folder);
        EXPECT_EQ(text ? opened.Set(*name, value) : RegDeleteValueW(opened, Wide(*name).c_str()), 0) << key;
    }
};

const HKEY user = HKEY_CURRENT_USER;
const HKEY machine = HKEY_LOCAL_MACHINE;

// One that has all it needs. Its folder, an account's, holds damaged copies of the module.
class Machine
{
  public:
    Machine()
    {
        ClearPoints();
#ifdef _WIN32
        const std::string list = Utf8(sndxtools::FilePath(SNDX_REGISTER));
        EXPECT_EQ(ChildProcess::Program("C:\\windows\\regedit.exe", {"/S", list}).Wait(), 0);
#else
        std::filesystem::copy_file(SNDX_REGISTER, std::string(std::getenv("SENDORA_ROOT")) + "/registry.reg",
                                   std::filesystem::copy_options::overwrite_existing);
#endif
        for (const auto& trace : sndxtools::doctor::List(Wide(TraceFolder() + "tracedll_Sendora*.txt")))
        {
            DeleteFileW((Wide(TraceFolder()) + trace.name).c_str());
        }
        AddAccount("A", folder.Path());
        SetSharedString("Settings", "InstallerPath", mainProgram);
        std::string bytes = ReadWholeFile(module);
        WriteWholeFile(folder / "sndxdll.dll.1.old", bytes);
#ifdef _WIN32
        bytes[bytes.find("PE") + 4] = '\x4C'; // the 32-bit machine
#else
        bytes[4] = 1; // the 32-bit class
#endif
        WriteWholeFile(folder / "32.dll", bytes);
        folder.File("text.dll");
    }
    ~Machine()
    {
        RegDeleteTreeW(user, Wide(menuClass).c_str());
        for (const std::string& key : {overlays, shell + "Blocked", settings64, menusOfFiles, menusOfFolders,
                                       overlayClass, menuClass, menuClass32})
        {
            RegDeleteTreeW(machine, Wide(key).c_str());
        }
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    const CleanSettings settings;
    const TemporaryFolder folder;
};

// Loads a module, announces a change of the settings, and keeps it until it is told to end.
SNDX_CHILD(HoldModule)
{
    const HMODULE held = LoadLibraryW(Wide(arguments.at(0)).c_str());
    reinterpret_cast<void(WINAPI*)()>(reinterpret_cast<void*>(GetProcAddress(held, "StateChanged")))();
    Announce("held");
    return WaitFor("end", 60000) && FreeLibrary(held) ? 0 : 1;
}

ChildProcess Hold(const std::string& file)
{
    ChildProcess host("HoldModule", {file});
    EXPECT_TRUE(WaitFor("held"));
    return host;
}

ChildProcess Serve(const Machine& where, const std::string& how)
{
    const std::string ready = where.folder.Local("ready").string();
    ChildProcess program = ChildProcess::Program(mainProgram, {"--ready", ready, "--duration", "60000", how});
    EXPECT_TRUE(Within(20000, [&] { return std::filesystem::exists(ready); }))
        << "the main program is not ready";
    return program;
}

struct Report
{
    int exitCode;
    std::string out;
};

Report Examine(const sndxtools::Arguments& arguments = {})
{
    std::ostringstream out;
    std::ostringstream err;
    const int exitCode = sndxtools::RunDoctor(arguments, out, err);
    return {exitCode, out.str() + err.str()};
}

// The doctor's complaints are just these, in this order, each "status item|part of its text".
void ExpectComplaints(const Lines& expected)
{
    const auto [exitCode, json] = Examine({"--json"});
    Lines complaints;
    const auto report = nlohmann::json::parse(json);
    for (const auto& finding : report["findings"])
    {
        const bool isOk = finding["status"] == "ok";
        EXPECT_EQ(isOk, finding["advice"] == "") << finding;
        const std::string item = std::string(finding["status"]) + " " + std::string(finding["item"]);
        complaints.insert(complaints.end(), isOk ? 0 : 1, item + ": " + std::string(finding["text"]));
    }
    ASSERT_EQ(complaints.size(), expected.size()) << testing::PrintToString(complaints);
    bool isWrong = false;
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        const std::string part = expected[i].substr(expected[i].find('|') + 1);
        EXPECT_TRUE(complaints[i].starts_with(expected[i].substr(0, expected[i].find('|')))) << complaints[i];
        EXPECT_PRED_FORMAT2(testing::IsSubstring, part, complaints[i]);
        isWrong = isWrong || expected[i].starts_with("wrong");
    }
    EXPECT_EQ(exitCode, isWrong ? 3 : expected.empty() ? 0 : 1);
}

std::string ContentOf(const std::filesystem::path& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// All that the doctor could change: the registry, files, natively also named objects.
std::map<std::string, std::string> Everything(const Machine& where)
{
    std::map<std::string, std::string> all;
    const auto add = [&all](auto entries)
    {
        for (const auto& entry : entries)
        {
            all[entry.path().string()] = entry.is_regular_file() ? ContentOf(entry.path()) : "";
        }
    };
#ifdef _WIN32
    for (const std::string key :
         {"HKEY_CURRENT_USER\\Software", "HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\Taleno Software",
          "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer"})
    {
        EXPECT_EQ(ChildProcess::Program("C:\\windows\\regedit.exe", {"/E", "C:\\sndx.reg", key}).Wait(), 0);
        all[key] = ReadWholeFile("C:\\sndx.reg");
        DeleteFileW(L"C:\\sndx.reg");
    }
    EXPECT_NE(all["HKEY_CURRENT_USER\\Software"], "");
    add(std::filesystem::directory_iterator(TraceFolder())); // not what is below: links lead round in circles
    add(std::filesystem::directory_iterator(where.folder.Local("")));
#else
    add(std::filesystem::recursive_directory_iterator(std::getenv("SENDORA_ROOT")));
    EXPECT_TRUE(all.contains(where.folder.Local("32.dll")));
#endif
    return all;
}

bool BlockExists()
{
    return Handle(OpenFileMappingW(FILE_MAP_READ, FALSE, Wide(contract::stateBlockName).c_str())).IsOpen();
}
} // namespace

TEST(Doctor, CallsAHealthyMachineHealthyAndChangesNothing)
{
    const Machine healthy;
    ExpectComplaints({}); // at rest, without any trace
    EXPECT_FALSE(BlockExists());
    {
        ChildProcess host = Hold(module);
        const ChildProcess program = Serve(healthy, "--never-read");
        const auto before = Everything(healthy);
        ExpectComplaints({});
        const auto [exitCode, text] = Examine();
        EXPECT_TRUE(before == Everything(healthy));
        EXPECT_EQ(exitCode, 0);
        for (const char* const part : {"ok         overlay rank: Number 1 of 1;",
                                       "pipe: The main program serves it.", "programs: 1 with the module",
                                       "A change of the settings was announced", "\nThis machine has what"})
        {
            EXPECT_PRED_FORMAT2(testing::IsSubstring, part, text);
        }
        EXPECT_PRED_FORMAT2(testing::IsSubstring, "bytes, the program is running.", Examine({"--json"}).out);
        Announce("end");
        EXPECT_EQ(host.Wait(), 0);
    }
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "bytes, ended gracefully.", Examine({"--json"}).out);
    EXPECT_EQ(ChildProcess::Program(SNDX_DOCTOR, {}).Wait(), 0) << "the program itself";
    EXPECT_EQ(ChildProcess::Program(SNDX_DOCTOR, {"--jason"}).Wait(), 2);
}

TEST(Doctor, NamesWhatIsWrongInTheRegistry)
{
    const auto both = [](const std::string& file)
    {
        return std::vector<Change>{{machine, overlayClass + server, "", file},
                                   {machine, menuClass + server, "", file}};
    };
    std::vector<Change> full;
    for (const char name : std::string("123456789ab"))
    {
        full.push_back({machine, overlays + "\\   " + name, "", contract::menuClassText});
    }
    const struct
    {
        std::string complaint;
        std::vector<Change> changes;
    } machines[] = {
        {"wrong overlay class|Not registered: not found", {{machine, overlayClass}}},
        {"wrong menu class|32-bit view", {{machine, menuClass}, {machine, menuClass32 + server, "", module}}},
        {"wrong overlay class|ThreadingModel is \"Both\"",
         {{machine, overlayClass + server, "ThreadingModel", "Both"}}},
        {"attention menu class|this user goes before",
         {{user, menuClass + server, "", module}, {user, menuClass + server, "ThreadingModel", "Apartment"}}},
        {"wrong overlay class|blocked", {{machine, shell + "Blocked", contract::overlayClassText, ""}}},
        {"attention menu class|approved", {{machine, shell + "Approved", contract::menuClassText}}},
        {"wrong module file|none.dll\": not found.", both("%F\\none.dll")},
        {"wrong module file|\"sndxdll.dll\" is no full path", both("sndxdll.dll")},
        {"wrong module file|text.dll\" is no image", both("%F\\text.dll")},
        {"wrong module file|32.dll\" is no 64-bit image", both("%F\\32.dll")},
        {"attention module file|different ones",
         {{machine, menuClass + server, "", "%F\\sndxdll.dll.1.old"}}},
        {"wrong menu of folders|not among 0 handlers", {{machine, menusOfFolders}}},
        {"wrong overlay rank|not in the list", {{machine, overlays}}},
        {"wrong overlay rank|Number 12 of 12;", full},
        {"wrong accounts|There are none", {{machine, settings32 + "\\Accounts"}}},
        {"wrong accounts|64-bit view",
         {{machine, settings32 + "\\Accounts"},
          {machine, settings64 + "\\Accounts\\A", "LocalFolder", "%F"}}},
        {"wrong main program|No path is set", {{machine, settings32 + "\\Settings"}}},
        {"wrong main program|which go before the machine's: not found",
         {{user, settings64 + "\\Settings", "InstallerPath", "%F\\none.exe"}}},
        {"attention memory mode|5 is for developers", {{user, settings64 + "\\Debug", "Memory Mode", "5"}}},
        {"attention memory mode|\"x\" is none", {{user, settings64 + "\\Debug", "Memory Mode", "x"}}},
    };
    for (const auto& [complaint, changes] : machines)
    {
        const Machine broken;
        for (const Change& change : changes)
        {
            change.Make(broken.folder.Path());
        }
        ExpectComplaints({complaint});
    }
}

TEST(Doctor, NamesWhatIsWrongWithWhatRuns)
{
    ExpectCutOffTraces();
    ExpectForeignLines();
    const Machine broken;
    {
        const ChildProcess busy = Serve(broken, "--busy");
        ExpectComplaints({"wrong pipe|took nobody"});
    }
    {
        const Handle mutex(CreateMutexW(nullptr, FALSE, Wide(contract::stateBlockName).c_str()));
        ExpectComplaints({"wrong state stamp|Another program uses the name"});
    }
    ChildProcess host = Hold(broken.folder / "sndxdll.dll.1.old");
    ExpectComplaints({"attention programs|Some go on with another file"});
    host.Kill();
    ExpectComplaints({"attention trace \"tracedll_Sendora|cut off"});
    ASSERT_TRUE(DeleteFileW(Wide(TraceFilePath()).c_str()));
    WriteWholeFile(TraceFilePath("shell.1"), "a line"); // of an earlier start
    ExpectComplaints({});
#ifndef _WIN32
    // What this user may not read, by the number of the call.
    sndxposix::FailCall("RegEnumKeyW", ERROR_ACCESS_DENIED, 6);
    ExpectComplaints({"wrong accounts|They cannot be read: access denied"});
    sndxposix::FailCall("RegQueryValueExW", ERROR_ACCESS_DENIED, 0);
    ExpectComplaints({"wrong overlay class|Not registered: access denied"});
#endif
}

TEST(Doctor, SeesAccountsAsTheModuleDoes)
{
    const Machine broken;
    const std::string all = broken.folder.Path() + "\\";
    const std::string part = all + "\u00DCbung\\";
    const std::string longest = all + std::string(257 - all.size(), 'x') + "\\";
    std::filesystem::create_directory(broken.folder.Local("") / std::filesystem::path(u8"\u00DCbung"));
    const struct
    {
        std::string folder; // with $ behind it, it is stored without a terminator
        std::string complaint;
        std::string where; // the folder of an item that the module is asked about
        bool isFound;
        DWORD type = REG_SZ;
        std::string account = "A";
    } accounts[] = {
        {broken.folder.Path(), "", all, true},
        {all, "", all, true},
        {part + "$", "", part, true},
        {broken.folder.Path(), "attention|stored as type 2", all, true, REG_EXPAND_SZ},
        {all + "none", "attention|none\": not found", all + "none\\", true},
        {all + "text.dll", "attention|text.dll\": a file", all + "text.dll\\", true},
        {all + "\u00FCbung", "wrong|\u00DCbung\" to Explorer", part, false},
        {all + "\\", "wrong|two separators", all, false},
        {all + ".", "wrong|no full path", all, false},
        {all + "\\\u00DCbung", "wrong|no full path", part, false},
        {"C:/windows", "wrong|no full path", "C:\\windows\\", false},
        {"windows", "wrong|no full path", "C:\\windows\\", false},
        {"\\", "wrong|no full path", "C:\\windows\\", true}, // every item
        {longest, "attention|not found", longest, true},
        {longest + "x", "wrong|at most 257 characters", longest + "x\\", false},
        {longest + "xx$", "wrong|at most 257 characters", longest, false},
        {longest + "xxx", "wrong|cannot be read: too long", longest, false},
        {"", "attention|Without a LocalFolder", all, false},
        {broken.folder.Path(), "wrong|not found", all, true, REG_SZ, std::string(230, 'n')}, // by account A
        {broken.folder.Path(), "attention|the folder of account \"A\"", all, true, REG_SZ, "B"},
        {part, "attention|\"A\" are nested", all, true, REG_SZ, "B"},
    };
    for (const auto& [folder, complaint, where, isFound, type, account] : accounts)
    {
        SCOPED_TRACE(folder);
        RegDeleteTreeW(machine, Wide(settings32 + "\\Accounts").c_str());
        AddAccount("A", broken.folder.Path(), "-17");
        Bytes bytes = TextBytes(folder);
        bytes.resize(bytes.size() - (folder.ends_with('$') ? 4 : 0));
        SetSharedBytes("Accounts\\" + account, "LocalFolder", type, bytes);
        const std::size_t bar = complaint.find('|');
        ExpectComplaints(complaint.empty() ? Lines()
                                           : Lines{complaint.substr(0, bar) + " account \"" + account + "\"" +
                                                   complaint.substr(bar)});
        std::istringstream in;
        std::ostringstream out;
        sndxtools::RunShellHost({"--module", SNDX_MODULE, "overlay", where + "i"}, in, out, out);
        EXPECT_PRED_FORMAT2(testing::IsSubstring, where + "i: " + (isFound ? "overlay\n" : "no overlay\n"),
                            out.str());
    }
    RegDeleteTreeW(machine, Wide(settings32 + "\\Accounts").c_str());
    SetSharedBytes("Accounts\\A", "LocalFolder", REG_DWORD, {'A', 0, 0, 0});
    SetSharedString("Accounts\\A", "LastUpdate", "soon");
    ExpectComplaints({"attention account \"A\"|stored as type 4", "wrong account \"A\"|\"A\" is no full path",
                      "attention account \"A\"|LastUpdate is no number: \"soon\""});
}

TEST(Doctor, DoesNotWaitForWhatDoesNotAnswer)
{
    using namespace std::chrono;
    sndxtools::doctor::Examination examination{milliseconds(200)};
    const auto never = []
    {
        std::this_thread::sleep_for(hours(1));
        return 1;
    };
    const Stopwatch stopwatch;
    EXPECT_EQ(examination.Bounded(never, 2), 2);
    EXPECT_EQ(examination.Bounded(never, 2), 2);
    EXPECT_EQ(examination.Bounded([] { return 1; }, 2), 1);
    EXPECT_LT(stopwatch.Milliseconds(), 5000);
}
