#pragma once
// What the tests of the real module share: loading it as the shell does, its classes, a folder with items to
// ask about, and expectations in the words of the trace.

#include <algorithm>
#include <stdexcept>

#include <windows.h>
#include <shlobj.h>

#include "tests/support/child.h"
#include "tests/support/dataobject.h"
#include "tests/support/reports.h"
#include "tests/support/settings.h"
#include "tests/support/temporaryfolder.h"
#include "tools/comref.h"
#include "tools/contract.h"
#include "tools/results.h"

namespace sndxtest
{
using sndxtools::Check;
using sndxtools::ComRef;

using sndxtools::contract::menuClass;
using sndxtools::contract::overlayClass;

constexpr WCHAR blockName[] = TEXT("SharedMemoryForsndxdll");
constexpr WCHAR guardName[] = TEXT("Global\\fmmSharedMemoryForsndxdll");

// A path of the build machine as the target's: drive Z: is the root of its files.
inline std::string TargetPath(std::string path)
{
    std::replace(path.begin(), path.end(), '/', '\\');
    return path.starts_with('\\') ? "Z:" + path : path;
}

inline std::string ModulePath()
{
    return TargetPath(SNDX_MODULE_PATH);
}

inline std::string ModuleFileName()
{
    return ModulePath().substr(ModulePath().rfind('\\') + 1);
}

inline std::string MainProgramPath()
{
    return TargetPath(SNDX_MAINPROGRAM_PATH);
}

// The module, loaded; freed at the end unless that was done before.
class Module
{
  public:
    Module() { Load(); }
    ~Module() { Free(); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    void Load()
    {
        handle_ = LoadLibraryW(Wide(ModulePath()).c_str());
        if (handle_ == nullptr)
        {
            throw std::runtime_error("not loaded: error " + std::to_string(GetLastError()));
        }
    }
    void Free()
    {
        if (handle_ != nullptr)
        {
            FreeLibrary(handle_);
            handle_ = nullptr;
        }
    }
    HMODULE Handle() const { return handle_; }

    template <class Function>
    Function* Export(const char* name) const
    {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(handle_, name)));
    }

    HRESULT GetClassObject(REFCLSID classId, REFIID interfaceId, void** out) const
    {
        return Export<HRESULT WINAPI(REFCLSID, REFIID, void**)>("DllGetClassObject")(classId, interfaceId,
                                                                                     out);
    }
    HRESULT CanUnloadNow() const { return Export<HRESULT WINAPI()>("DllCanUnloadNow")(); }
    void StateChanged() const { Export<void WINAPI()>("StateChanged")(); }

    ComRef<IClassFactory> Factory(REFCLSID classId) const
    {
        ComRef<IClassFactory> factory;
        Check("DllGetClassObject", GetClassObject(classId, IID_IClassFactory, factory.Receive()));
        return factory;
    }
    template <class T>
    ComRef<T> Create(REFCLSID classId, REFIID interfaceId) const
    {
        ComRef<T> object;
        Check("CreateInstance", Factory(classId)->CreateInstance(nullptr, interfaceId, object.Receive()));
        return object;
    }
    ComRef<IShellIconOverlayIdentifier> Overlay() const
    {
        return Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
    }

  private:
    HMODULE handle_ = nullptr;
};

// A context-menu handler with a selection, asked as the shell asks it.
class MenuHandler
{
  public:
    explicit MenuHandler(ComRef<IShellExtInit> init) : init_(std::move(init))
    {
        Check("QueryInterface", init_->QueryInterface(IID_IContextMenu, menu_.Receive()));
    }
    explicit MenuHandler(const Module& module)
        : MenuHandler(module.Create<IShellExtInit>(menuClass, IID_IShellExtInit))
    {
    }
    MenuHandler(const Module& module, const std::vector<std::string>& paths) : MenuHandler(module)
    {
        Check("Initialize", Select(paths));
    }

    HRESULT Select(const std::vector<std::string>& paths, DropOptions options = {})
    {
        return init_->Initialize(nullptr, MakeDropDataObject(paths, options).Get(), nullptr);
    }
    HRESULT Query(HMENU menu, UINT position = 0, UINT first = 100, UINT last = 200, UINT flags = CMF_NORMAL)
    {
        return menu_->QueryContextMenu(menu, position, first, last, flags);
    }
    HRESULT Invoke(UINT_PTR verb)
    {
        CMINVOKECOMMANDINFO info = {};
        info.cbSize = sizeof info;
        info.lpVerb = reinterpret_cast<LPCSTR>(verb);
        return menu_->InvokeCommand(&info);
    }
    IContextMenu* Menu() const { return menu_.Get(); }

  private:
    ComRef<IShellExtInit> init_;
    ComRef<IContextMenu> menu_;
};

// No settings, no trace files, nobody who serves requests, one folder.
class ModuleTest : public testing::Test
{
  protected:
    ModuleTest()
    {
        RemoveTraceFiles();
        WaitUntilNobodyServes();
    }
    ~ModuleTest() override { SetEnvironmentVariableW(optionsVariable.c_str(), nullptr); }

    // A main program that was started earlier may still be about to end.
    static void WaitUntilNobodyServes()
    {
        const WideString pipe = Wide("\\\\.\\pipe\\" + std::string(sndxtools::contract::pipeName));
        const auto gone = [&pipe]
        { return !WaitNamedPipeW(pipe.c_str(), 1) && GetLastError() == ERROR_FILE_NOT_FOUND; };
        EXPECT_TRUE(Within(20000, gone)) << "somebody still serves requests";
    }

    const TemporaryFolder& Items() const { return items_; }
    void AddItemsAsAccount() const { AddAccount("Items", items_.Path()); }

    // A running main program; its pipe exists when this returns.
    ChildProcess Serve(std::vector<std::string> options) const
    {
        std::filesystem::remove(Items().Local("ready"));
        const auto common = CommonOptions();
        options.insert(options.begin(), common.begin(), common.end());
        ChildProcess server = ChildProcess::Program(SNDX_MAINPROGRAM_PATH, options);
        EXPECT_TRUE(Within(20000, [this] { return Exists("ready"); })) << "the main program does not serve";
        return server;
    }
    // What the main program is told when the module starts it.
    void SetStartOptions(const std::string& options) const
    {
        std::string all;
        for (const std::string& option : CommonOptions())
        {
            all += "\"" + option + "\" ";
        }
        SetEnvironmentVariableW(optionsVariable.c_str(), Wide(all + options).c_str());
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Items().Local(name)); }
    // Everything that main programs have taken from the pipe; it is kept a moment after that.
    std::string Received(std::size_t atLeast = 0) const
    {
        std::string bytes;
        const auto arrived = [&] { return (bytes = ReadWholeFile(items_ / "raw")).size() >= atLeast; };
        EXPECT_TRUE(Within(20000, arrived)) << bytes.size() << " of " << atLeast << " bytes have arrived";
        return bytes;
    }

  private:
    inline static const WideString optionsVariable = Wide(sndxtools::contract::mainProgramOptions);

    std::vector<std::string> CommonOptions() const
    {
        const auto local = [this](const char* name) { return Items().Local(name).string(); };
        // Clients that come while the instance is made ready for the next one wait for it.
        return {"--raw",   local("raw"),   "--output",          local("output"),
                "--ready", local("ready"), "--default-timeout", "5000"};
    }

    CleanSettings settings_;
    TemporaryFolder items_;
};

inline std::string ObjectLine(const void* object)
{
    return "LComDiagnostic::ObjectCreate this=" + std::to_string(reinterpret_cast<std::intptr_t>(object));
}

inline Lines WholeTrace(const std::string& path = TraceFilePath())
{
    return Texts(ParseTrace(ReadWholeFile(path)));
}

// Two lines for each folder looked at.
inline Lines WalkLines(const std::string& file, const Lines& folders)
{
    Lines lines;
    for (const std::string& folder : folders)
    {
        lines.insert(lines.end(), {"FileBelongsToFolder: " + file, "Folder: " + folder});
    }
    return lines;
}

const std::string ruler = "--------------------------------------------------------------------";

inline Lines ClosingLines()
{
    return {" --- No Memory Leak Detected ---", "Execution terminated gracefully.", ruler};
}

inline Lines LastLines(const Lines& lines, std::size_t count = 3)
{
    return {lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}
} // namespace sndxtest
