// The request to the main program: what arrives at the other end of the pipe, in another process, and how the
// module bears a main program that is missing, slow or broken.

#include <chrono>
#include <fstream>
#include <memory>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include "tests/dll/modulehost.h"
#include "tests/tools/requestbytes.h"

using namespace sndxtest;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

namespace
{
using Clock = std::chrono::steady_clock;
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

std::string ZeroFilledSlot(const std::string& text)
{
    std::string bytes;
    for (const WCHAR unit : Wide(text))
    {
        bytes += Number(static_cast<std::uint32_t>(unit), 2);
    }
    bytes.resize(520);
    return bytes;
}

std::string RequestBytes(const std::string& word, const Paths& paths)
{
    std::string bytes;
    for (std::size_t at = 0; at < paths.size(); at += 127)
    {
        const std::size_t count = std::min<std::size_t>(127, paths.size() - at);
        const auto slots = static_cast<std::uint32_t>(count + 1);
        bytes += HeaderBytes(4 + 520 * slots) + Number(slots, 4) + ZeroFilledSlot(word);
        for (std::size_t i = 0; i < count; ++i)
        {
            bytes += ZeroFilledSlot(paths[at + i]);
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
    ~ModuleRequest() override { SetEnvironmentVariableW(Wide(optionsVariable).c_str(), nullptr); }

    // A running main program; its pipe exists when this returns.
    void Serve(Paths options)
    {
        // Clients that come while the instance is made ready for the next one wait for it.
        const Paths common = {"--raw",   Local("raw"),   "--output",          Local("output"),
                              "--ready", Local("ready"), "--default-timeout", "5000"};
        options.insert(options.begin(), common.begin(), common.end());
        server_ = std::make_unique<ChildProcess>(ChildProcess::Program(SNDX_MAINPROGRAM_PATH, options));
        ASSERT_TRUE(WaitForFile("ready"));
    }
    // What the main program is told when the module starts it.
    void SetStartOptions(const std::string& options)
    {
        const std::string all = "--raw \"" + Local("raw") + "\" --output \"" + Local("output") +
                                "\" --ready \"" + Local("ready") + "\" " + options;
        SetEnvironmentVariableW(Wide(optionsVariable).c_str(), Wide(all).c_str());
    }
    ChildProcess& Server() { return *server_; }

    HRESULT Invoke(UINT_PTR verb, const Paths& paths)
    {
        MenuHandler handler(module_, paths);
        return Invoke(verb, handler);
    }
    HRESULT Invoke(UINT_PTR verb, MenuHandler& handler)
    {
        trace_.Restart();
        const auto start = Clock::now();
        const HRESULT result = handler.Invoke(verb);
        milliseconds_ = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
        return result;
    }
    const Module& TheModule() const { return module_; }
    Lines TraceOfInvoke() const { return trace_.Texts(); }
    long long Milliseconds() const { return milliseconds_; } // of the last Invoke

    std::string Received() const
    {
        std::ifstream file(Local("raw"), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // The bytes are kept a moment after they were taken from the pipe.
    std::string ReceivedSoon(std::size_t size) const
    {
        for (int i = 0; i < 1000 && Received().size() < size; ++i)
        {
            Sleep(5);
        }
        return Received();
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Items().Local(name)); }
    bool WaitForFile(const std::string& name) const
    {
        for (int i = 0; i < 2000 && !Exists(name); ++i)
        {
            Sleep(5);
        }
        return Exists(name);
    }

  private:
    std::string Local(const std::string& name) const { return Items().Local(name).string(); }

    static constexpr char optionsVariable[] = "SENDORA_MAINPROGRAM_OPTIONS";
    Module module_;
    TraceCapture trace_;
    std::unique_ptr<ChildProcess> server_;
    long long milliseconds_ = 0;
};
} // namespace

TEST_F(ModuleRequest, EveryByteArrivesForEveryCommandAndCount)
{
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    Serve({"--requests", "12"});
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
            EXPECT_THAT(TraceOfInvoke(), AreLines(settingsLines));
            expected += RequestBytes(words[verb], paths);
            ASSERT_TRUE(ReceivedSoon(expected.size()) == expected) << words[verb] << " " << count;
        }
    }
    EXPECT_EQ(Server().Wait(), 0);
    EXPECT_TRUE(Received() == expected) << "more than the requests";
    EXPECT_FALSE(Exists("started")); // nothing is started while the pipe is there
}

TEST_F(ModuleRequest, PathsOfSeveralSelectionsArriveInOrderAndLongOnesCut)
{
    Serve({"--requests", "1"});
    MenuHandler handler(TheModule(), {"C:\\b", "C:\\" + std::string(300, 'l')});
    ASSERT_EQ(handler.Select({"C:\\a"}), S_OK);
    EXPECT_EQ(Invoke(1, handler), S_OK);
    EXPECT_EQ(Server().Wait(), 0);
    EXPECT_TRUE(Received() == RequestBytes(words[1], {"C:\\b", "C:\\" + std::string(256, 'l'), "C:\\a"}));
}

TEST_F(ModuleRequest, MainProgramIsStartedOnceAndReadyBeforeItIsSentAnything)
{
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    SetSharedString("Settings", "InstallerPath", "C:\\not the user's\\missing.exe");
    SetStartOptions("--requests 1 --idle-after 400");
    const Paths paths = ManyPaths(130);
    EXPECT_EQ(Invoke(upload, paths), S_OK);
    EXPECT_GE(Milliseconds(), 350);
    EXPECT_LT(Milliseconds(), 5000);
    EXPECT_THAT(TraceOfInvoke(), AreLines(Join({settingsLines, absentLines, secondOpenLines})));
    const std::string expected = RequestBytes(words[0], paths);
    EXPECT_TRUE(ReceivedSoon(expected.size()) == expected);
}

TEST_F(ModuleRequest, MachinesPathServesWithoutAUsersOwn)
{
    SetUserString("Settings", "InstallerPath", "");
    SetSharedString("Settings", "InstallerPath", MainProgramPath());
    SetStartOptions("--requests 1");
    EXPECT_EQ(Invoke(upload, {"C:\\a"}), S_OK);
    EXPECT_THAT(TraceOfInvoke(), AreLines(Join({settingsLines, sharedLines, absentLines, secondOpenLines})));
    const std::string expected = RequestBytes(words[0], {"C:\\a"});
    EXPECT_TRUE(ReceivedSoon(expected.size()) == expected);
}

TEST_F(ModuleRequest, MainProgramThatCannotBeStartedMeansFailure)
{
    const std::string text = Items().File("text.exe"); // no program
    for (const std::string& path :
         {std::string(), std::string("C:\\missing\\main.exe"), text, Items().Path()})
    {
        SetUserString("Settings", "InstallerPath", path);
        EXPECT_EQ(Invoke(upload, {"C:\\a"}), E_FAIL) << path;
        EXPECT_LT(Milliseconds(), 2000);
        EXPECT_THAT(TraceOfInvoke(), AreLines(Join({settingsLines, path.empty() ? sharedLines : Lines(),
                                                    absentLines, secondOpenLines, absentLines})));
    }
}

TEST_F(ModuleRequest, MainProgramWithoutItsPipeMeansFailure)
{
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    for (const char* options : {"--no-pipe --duration 500", "--exit-at-once"})
    {
        SetStartOptions(options);
        EXPECT_EQ(Invoke(upload, {"C:\\a"}), E_FAIL) << options;
        EXPECT_LT(Milliseconds(), 5000);
        EXPECT_THAT(TraceOfInvoke(),
                    AreLines(Join({settingsLines, absentLines, secondOpenLines, absentLines})));
    }
}

TEST_F(ModuleRequest, UnknownCommandsAreFoundOutOnceThePipeIsOpen)
{
    Serve({"--requests", "6"});
    MenuHandler empty(TheModule());
    for (const UINT_PTR verb : {UINT_PTR{3}, UINT_PTR{7}, UINT_PTR{0xFFFF}})
    {
        EXPECT_EQ(Invoke(verb, {"C:\\a", "C:\\b", "C:\\c"}), E_INVALIDARG);
        EXPECT_THAT(TraceOfInvoke(), AreLines(Join({settingsLines, sharedLines})));
        EXPECT_EQ(Invoke(verb, empty), S_OK); // no file, no message, no look at the command
    }
    EXPECT_EQ(Server().Wait(), 0);
    EXPECT_EQ(Received(), "");
}

TEST_F(ModuleRequest, UnknownCommandStartsTheMainProgramAllTheSame)
{
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    SetStartOptions("--requests 1");
    EXPECT_EQ(Invoke(7, {"C:\\a"}), E_INVALIDARG);
    EXPECT_TRUE(Exists("ready"));
    EXPECT_EQ(Received(), "");
}

TEST_F(ModuleRequest, EmptySelectionSendsNothing)
{
    Serve({"--requests", "1"});
    MenuHandler empty(TheModule());
    EXPECT_EQ(Invoke(upload, empty), S_OK);
    EXPECT_EQ(Server().Wait(), 0);
    EXPECT_EQ(Received(), "");
}

TEST_F(ModuleRequest, BusyPipeIsWaitedForTwice)
{
    Serve({"--busy", "--default-timeout", "300"});
    EXPECT_EQ(Invoke(upload, {"C:\\a"}), E_FAIL);
    EXPECT_GE(Milliseconds(), 550);
    EXPECT_LT(Milliseconds(), 3000);
    const std::string busy = "**LNamedPipe::_Open Pipe was busy";
    EXPECT_THAT(TraceOfInvoke(),
                AreLines(Join({settingsLines, sharedLines, {busy}, secondOpenLines, {busy}})));
}

TEST_F(ModuleRequest, SlowReaderGetsEverything)
{
    std::string expected;
    for (const auto& [count, buffer] : {std::pair{1, "65536"}, std::pair{130, "4096"}})
    {
        // What fits the buffer is waited for at the end, what does not at every write.
        Serve({"--requests", "1", "--read-after", "1000", "--buffer", buffer});
        const Paths paths = ManyPaths(static_cast<std::size_t>(count));
        EXPECT_EQ(Invoke(2, paths), S_OK);
        EXPECT_GE(Milliseconds(), 900);
        EXPECT_LT(Milliseconds(), 5000);
        EXPECT_EQ(Server().Wait(), 0);
        expected += RequestBytes(words[2], paths);
        EXPECT_TRUE(Received() == expected) << count;
        std::filesystem::remove(Items().Local("ready"));
    }
}

TEST_F(ModuleRequest, ReaderThatComesAfterTheTimeOutFindsThePayloadWithdrawn)
{
    Serve({"--requests", "1", "--read-after", "6500", "--buffer", "64"});
    EXPECT_EQ(Invoke(upload, {"C:\\a"}), S_OK);
    EXPECT_GE(Milliseconds(), 6000);
    EXPECT_LT(Milliseconds(), 10000);
    EXPECT_EQ(Server().Wait(), 0);
    EXPECT_TRUE(Received() == HeaderBytes(4 + 520 * 2));
}

TEST_F(ModuleRequest, ReaderThatNeverReadsIsGivenUpAfterTheTimeOut)
{
    Serve({"--never-read", "--buffer", "64", "--duration", "7000"});
    EXPECT_EQ(Invoke(upload, {"C:\\a"}), S_OK);
    // The header fits the buffer; the payload is withdrawn after five seconds; closing waits for the reader
    // of the header, who goes after seven.
    EXPECT_GE(Milliseconds(), 5000);
    EXPECT_LT(Milliseconds(), 10000);
    EXPECT_THAT(TraceOfInvoke(), AreLines(Join({settingsLines, sharedLines})));
}

TEST_F(ModuleRequest, ReaderThatClosesEarlyHoldsNobodyUp)
{
    Serve({"--close-early", "100", "--requests", "1"});
    const Paths paths = ManyPaths(130);
    EXPECT_EQ(Invoke(upload, paths), S_OK);
    EXPECT_LT(Milliseconds(), 4000);
    EXPECT_EQ(Server().Wait(), 0);
    EXPECT_TRUE(Received() == RequestBytes(words[0], paths).substr(0, 100));
}

TEST_F(ModuleRequest, OneRequestAfterTheOtherLeavesNoHandleOpen)
{
    const auto openHandles = []
    {
#ifdef _WIN32
        DWORD count = 0;
        GetProcessHandleCount(GetCurrentProcess(), &count);
        return static_cast<long>(count);
#else
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return static_cast<long>(std::distance(begin(files), end(files)));
#endif
    };
    SetUserString("Settings", "InstallerPath", MainProgramPath());
    SetStartOptions("--exit-at-once");
    Invoke(upload, {"C:\\a"}); // what is opened once for good is open now
    const long before = openHandles();
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(Invoke(upload, {"C:\\a"}), E_FAIL);
    }
    EXPECT_EQ(openHandles(), before);
}
