// The request to the main program: what arrives at the other end of the pipe, in another process, and how the
// module bears a main program that is missing, slow or broken.

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "tests/dll/modulehost.h"
#include "tests/tools/requestbytes.h"

using namespace sndxtest;

namespace
{
using Paths = std::vector<std::string>;

constexpr UINT_PTR upload = 0;
const std::string words[] = {"-upload", "-download", "-deleteconfirmed"};

// Of equal length, so that no slot shows the rest of a longer path that stood in it before.
Paths ManyPaths(std::size_t count)
{
    Paths paths;
    for (std::size_t i = 0; i < count; ++i)
    {
        paths.push_back("C:\\Konto\\Übung " + std::to_string(1000 + i) + ".txt");
    }
    return paths;
}

std::string Slot(const std::string& text)
{
    std::string bytes;
    for (const WCHAR unit : Wide(text))
    {
        bytes += Number(static_cast<std::uint32_t>(unit), 2);
    }
    bytes.resize(520); // nothing of the host's memory behind the text
    return bytes;
}

std::string RequestBytes(const std::string& word, const Paths& paths)
{
    std::string bytes;
    for (std::size_t at = 0; at < paths.size(); at += 127)
    {
        const std::size_t count = std::min<std::size_t>(127, paths.size() - at);
        const auto slots = static_cast<std::uint32_t>(count + 1);
        bytes += HeaderBytes(4 + 520 * slots) + Number(slots, 4) + Slot(word);
        for (std::size_t i = 0; i < count; ++i)
        {
            bytes += Slot(paths[at + i]);
        }
    }
    return bytes;
}

const Lines absentLines = {"LNamedPipe::_Open CreateFile FAILED:...",
                           "LNamedPipe::_Open Could not open \"SendoraService\""};
const Lines secondOpenLines = {"LNamedPipe::Open  SendoraService"};
const Lines settingsLines = {"LSendoraContextMenu::InvokeCommand ", "_LUserSetting32GetString "};
const Lines sharedLines = {"_LSharedSetting32GetString "};

class ModuleRequest : public ModuleTest
{
  protected:
    HRESULT Invoke(UINT_PTR verb, const Paths& paths) { return Invoke(verb, MenuHandler(module_, paths)); }
    HRESULT Invoke(UINT_PTR verb, MenuHandler&& handler)
    {
        trace_.Restart();
        const DWORD start = GetTickCount();
        const HRESULT result = handler.Invoke(verb);
        milliseconds_ = GetTickCount() - start;
        return result;
    }
    // Of the last Invoke.
    void ExpectTime(DWORD least, DWORD most) const
    {
        EXPECT_GE(milliseconds_, least);
        EXPECT_LT(milliseconds_, most);
    }
    void ExpectTrace(const Lines& lines) const { EXPECT_TRUE(AreLines(trace_.Texts(), lines)); }
    const Module& TheModule() const { return module_; }

  private:
    Module module_;
    TraceCapture trace_;
    DWORD milliseconds_ = 0;
};
} // namespace

TEST_F(ModuleRequest, EveryByteArrivesForEveryCommandAndCount)
{
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    ChildProcess server = Serve({"--requests", "12"});
    SetStartOptions("--no-pipe --ready \"" + Items().Local("started").string() + "\" --duration 1");
    std::string expected;
    for (UINT_PTR verb = 0; verb < 3; ++verb)
    {
        for (const std::size_t count : {std::size_t{1}, std::size_t{127}, std::size_t{128}, std::size_t{300}})
        {
            const Paths paths = ManyPaths(count);
            {
#ifdef __SANITIZE_ADDRESS__
                // More than 200 blocks: the table of the allocation tracker grows, and is never released.
                const __lsan::ScopedDisabler noLeakCheck;
#endif
                EXPECT_EQ(Invoke(verb, paths), S_OK);
            }
            ExpectTrace(settingsLines);
            expected += RequestBytes(words[verb], paths);
            ASSERT_TRUE(Received(expected.size()) == expected) << words[verb] << " " << count;
        }
    }
    EXPECT_EQ(server.Wait(), 0);
    EXPECT_TRUE(Received() == expected) << "more than the requests";
    EXPECT_FALSE(Exists("started")); // nothing is started while the pipe is there
}

TEST_F(ModuleRequest, PathsOfSeveralSelectionsArriveInOrderAndLongOnesCut)
{
    ChildProcess server = Serve({"--requests", "1"});
    MenuHandler handler(TheModule(), {"C:\\b", "C:\\" + std::string(300, 'l')});
    ASSERT_EQ(handler.Select({"C:\\a"}), S_OK);
    EXPECT_EQ(Invoke(1, std::move(handler)), S_OK);
    EXPECT_EQ(server.Wait(), 0);
    EXPECT_TRUE(Received() == RequestBytes(words[1], {"C:\\b", "C:\\" + std::string(256, 'l'), "C:\\a"}));
}

TEST_F(ModuleRequest, MainProgramIsStartedOnceAndReadyBeforeItIsSentAnything)
{
    SetStartOptions("--requests 1 --idle-after 400");
    const Paths paths = ManyPaths(130);
    std::string expected;
    for (const bool usersOwn : {true, false}) // the machine's path serves without a user's own
    {
        SetUserString("Settings", "InstallerPath", usersOwn ? MainProgramPath() : "");
        SetSharedString("Settings", "InstallerPath", usersOwn ? "C:\\missing.exe" : MainProgramPath());
        WaitUntilNobodyServes();
        EXPECT_EQ(Invoke(upload, paths), S_OK);
        ExpectTime(350, 5000);
        ExpectTrace(settingsLines + (usersOwn ? Lines() : sharedLines) + absentLines + secondOpenLines);
        expected += RequestBytes(words[0], paths);
        EXPECT_TRUE(Received(expected.size()) == expected) << usersOwn;
    }
}

TEST_F(ModuleRequest, MainProgramThatDoesNotComeUpMeansFailure)
{
    const std::pair<std::string, const char*> cases[] = {{"", ""},
                                                         {"C:\\missing\\main.exe", ""},
                                                         {Items().File("text.exe"), ""}, // no program
                                                         {MainProgramPath(), "--no-pipe --duration 500"},
                                                         {MainProgramPath(), "--exit-at-once"}};
    for (const auto& [path, options] : cases)
    {
        SetUserString("Settings", "InstallerPath", path);
        SetStartOptions(options);
        EXPECT_EQ(Invoke(upload, {"C:\\a"}), E_FAIL) << path << options;
        ExpectTime(0, 5000);
        ExpectTrace(settingsLines + (path.empty() ? sharedLines : Lines()) + absentLines + secondOpenLines +
                    absentLines);
    }
}

TEST_F(ModuleRequest, UnknownCommandsAreFoundOutOnceThePipeIsOpen)
{
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    ChildProcess server = Serve({"--requests", "4"});
    for (const UINT_PTR verb : {UINT_PTR{3}, UINT_PTR{0xFFFF}})
    {
        EXPECT_EQ(Invoke(verb, {"C:\\a", "C:\\b", "C:\\c"}), E_INVALIDARG);
        ExpectTrace(settingsLines);
        EXPECT_EQ(Invoke(verb, MenuHandler(TheModule())),
                  S_OK); // no file, no message, no look at the command
    }
    EXPECT_EQ(server.Wait(), 0);
    EXPECT_EQ(Received(), "");

    std::filesystem::remove(Items().Local("ready"));
    SetStartOptions("--requests 1");
    EXPECT_EQ(Invoke(7, {"C:\\a"}), E_INVALIDARG);
    EXPECT_TRUE(Exists("ready")); // started for nothing
    EXPECT_EQ(Received(), "");
}

TEST_F(ModuleRequest, BusyPipeIsWaitedForTwice)
{
    const ChildProcess server = Serve({"--busy", "--default-timeout", "300"});
    EXPECT_EQ(Invoke(upload, {"C:\\a"}), E_FAIL);
    ExpectTime(550, 3000);
    const Lines busy = {"**LNamedPipe::_Open Pipe was busy"};
    ExpectTrace(settingsLines + sharedLines + busy + secondOpenLines + busy);
}

TEST_F(ModuleRequest, ReaderThatNeverReadsIsGivenUpAfterTheTimeOut)
{
    // Options, the least time in milliseconds, what arrives. Closing waits for the reader, until it goes.
    const std::tuple<Paths, DWORD, std::string> cases[] = {
        {{"--requests", "1", "--read-after", "4000"}, 3900, RequestBytes(words[0], {"C:\\a"})},
        // The header fits the buffer; the payload is withdrawn after five seconds.
        {{"--requests", "1", "--read-after", "6000"}, 5900, HeaderBytes(4 + 520 * 2)},
        {{"--never-read", "--duration", "6000"}, 5000, ""},
    };
    std::string expected;
    for (const auto& [options, least, received] : cases)
    {
        Paths all = {"--buffer", "64"};
        all.insert(all.end(), options.begin(), options.end());
        ChildProcess server = Serve(all);
        EXPECT_EQ(Invoke(upload, {"C:\\a"}), S_OK);
        ExpectTime(least, 10000);
        ExpectTrace(settingsLines + sharedLines);
        server.Wait();
        expected += received;
        EXPECT_TRUE(Received() == expected) << least;
    }
}

TEST_F(ModuleRequest, ReaderThatClosesEarlyHoldsNobodyUp)
{
    ChildProcess server = Serve({"--close-early", "100", "--requests", "1"});
    const Paths paths = ManyPaths(130);
    EXPECT_EQ(Invoke(upload, paths), S_OK);
    ExpectTime(0, 4000);
    EXPECT_EQ(server.Wait(), 0);
    EXPECT_TRUE(Received() == RequestBytes(words[0], paths).substr(0, 100));
}
