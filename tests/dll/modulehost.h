#pragma once
// What the tests of the real module share: loading it as the shell does, its classes, a folder with items to
// ask about, and expectations in the words of the trace.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>
#include <shlobj.h>

#include "tests/support/child.h"
#include "tests/support/dataobject.h"
#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tools/comref.h"

namespace sndxtest
{
using sndxtools::ComRef;
using Lines = std::vector<std::string>;

// The class identifiers as the installer registers them.
inline constexpr GUID overlayClass = {
    0x041C6567, 0x1AB1, 0x4B57, {0xBD, 0x0F, 0xD9, 0x1A, 0xC4, 0x6B, 0x97, 0x3B}};
inline constexpr GUID menuClass = {
    0x75C582E7, 0x666B, 0x4191, {0x90, 0x85, 0x2B, 0x1F, 0x99, 0xD4, 0xCB, 0xCC}};
inline constexpr GUID unknownClass = {
    0x041C6567, 0x1AB1, 0x4B57, {0xBD, 0x0F, 0xD9, 0x1A, 0xC4, 0x6B, 0x97, 0x3C}};

inline constexpr char overlayGuidLine[] = "GUID = 041c6567 1ab1 4b57 bd0f d91ac46b973b";
inline constexpr char menuGuidLine[] = "GUID = 75c582e7 666b 4191 9085 2b1f99d4cbcc";

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
            throw std::runtime_error(ModulePath() + " cannot be loaded: error " +
                                     std::to_string(GetLastError()));
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
        void* address = reinterpret_cast<void*>(GetProcAddress(handle_, name));
        if (address == nullptr)
        {
            throw std::runtime_error(std::string("no export ") + name);
        }
        return reinterpret_cast<Function*>(address);
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
        Check(GetClassObject(classId, IID_IClassFactory, factory.Receive()));
        return factory;
    }
    template <class T>
    ComRef<T> Create(REFCLSID classId, REFIID interfaceId) const
    {
        ComRef<T> object;
        Check(Factory(classId)->CreateInstance(nullptr, interfaceId, object.Receive()));
        return object;
    }
    ComRef<IShellIconOverlayIdentifier> Overlay() const
    {
        return Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
    }

    static void Check(HRESULT result)
    {
        if (FAILED(result))
        {
            char text[32];
            std::snprintf(text, sizeof text, "result %08lx",
                          static_cast<unsigned long>(result) & 0xFFFFFFFFUL);
            throw std::runtime_error(text);
        }
    }

  private:
    HMODULE handle_ = nullptr;
};

// A context-menu handler with a selection, asked as the shell asks it.
class MenuHandler
{
  public:
    explicit MenuHandler(const Module& module)
        : init_(module.Create<IShellExtInit>(menuClass, IID_IShellExtInit))
    {
        Module::Check(init_->QueryInterface(IID_IContextMenu, menu_.Receive()));
    }
    MenuHandler(const Module& module, const std::vector<std::string>& paths) : MenuHandler(module)
    {
        Module::Check(Select(paths));
    }

    HRESULT Select(const std::vector<std::string>& paths, DropOptions options = {})
    {
        return init_->Initialize(nullptr, MakeDropDataObject(paths, options).get(), nullptr);
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
    IShellExtInit* Init() const { return init_.Get(); }

  private:
    ComRef<IShellExtInit> init_;
    ComRef<IContextMenu> menu_;
};

// A real folder with what a test puts into it, removed with all of it at the end.
class ItemFolder
{
  public:
    ItemFolder() = default;
    ~ItemFolder()
    {
        // A program that the test has started may still be about to end and hold a file open.
        std::error_code error;
        for (int i = 0; i < 100; ++i)
        {
            std::filesystem::remove_all(local_, error);
            if (!error)
            {
                return;
            }
            Sleep(20);
        }
    }
    ItemFolder(const ItemFolder&) = delete;
    ItemFolder& operator=(const ItemFolder&) = delete;

    // As the shell names it.
    const std::string& Path() const { return path_; }
    // Files and folders below it; missing folders in between are made.
    std::string File(const std::string& name) const
    {
        std::string path = path_ + "\\" + name;
        std::filesystem::create_directories(Local(name).parent_path());
        WriteWholeFile(path, "content");
        return path;
    }
    std::string Folder(const std::string& name) const
    {
        std::filesystem::create_directories(Local(name));
        return path_ + "\\" + name;
    }
    // The same file for the test's own library calls.
    std::filesystem::path Local(std::string name) const
    {
        std::replace(name.begin(), name.end(), '\\', '/');
        return local_ / name;
    }

  private:
    static std::filesystem::path MakeNew()
    {
        for (int i = 1;; ++i) // process identifiers come again
        {
            auto folder =
                std::filesystem::temp_directory_path() /
                ("sendora-items-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(i));
            if (std::filesystem::create_directory(folder))
            {
                return folder;
            }
        }
    }

    const std::filesystem::path local_ = MakeNew();
    const std::string path_ = TargetPath(local_.string());
};

// No settings, no trace files, nobody who serves requests, one account whose folder exists.
class ModuleTest : public testing::Test
{
  protected:
    ModuleTest()
    {
        RemoveTraceFiles();
        // A main program that an earlier test has started may still be about to end.
        for (int i = 0; i < 250 && IsPipeThere(); ++i)
        {
            Sleep(20);
        }
        EXPECT_FALSE(IsPipeThere());
    }

    const ItemFolder& Items() const { return items_; }
    void AddItemsAsAccount() const { AddAccount("Items", items_.Path()); }

  private:
    static bool IsPipeThere()
    {
        return WaitNamedPipeW(TEXT("\\\\.\\pipe\\SendoraService"), 1) ||
               GetLastError() != ERROR_FILE_NOT_FOUND;
    }

    CleanSettings settings_;
    ItemFolder items_;
};

inline std::string ObjectLine(const void* object)
{
    return "LComDiagnostic::ObjectCreate this=" + std::to_string(reinterpret_cast<std::intptr_t>(object));
}

// The lines of a load of the account table, for accounts in the registry's order; folders may be empty.
inline Lines LoadLines(const Lines& folders, bool accountsExist = true)
{
    const std::string record = "LSharedSettings32Record::";
    Lines lines = {"LoadPaths",
                   "LoadPaths 64bit build, using 32bit registry",
                   record + "LSharedSettings32Record ",
                   record + "LSharedSettings32Record Software\\Taleno Software\\Sendora\\Accounts",
                   record + "LSharedSettings32Record ",
                   record + "LSharedSettings32Record ",
                   "LSettings32ListIteratorTemplate<class LSharedSettings32Record>::InitCommon "};
    if (!accountsExist)
    {
        lines.push_back("RegOpenKeyEx failed:..."); // the system's words
    }
    if (!folders.empty())
    {
        lines.push_back(record + "OpenSubRecord ");
    }
    for (std::size_t i = 0; i < folders.size(); ++i)
    {
        lines.insert(lines.end(), {record + "IsValid ", "LoadPaths got one", record + "GetString "});
        if (!folders[i].empty())
        {
            lines.insert(lines.end(),
                         {record + "GetInt ", record + "GetString ", "LoadPaths Add: pNew->szFolderPath"});
        }
        if (i + 1 < folders.size())
        {
            lines.push_back(record + "OpenSubRecord ");
        }
    }
    lines.push_back(record + "IsValid ");
    return lines;
}

inline Lines Join(std::initializer_list<Lines> parts)
{
    Lines all;
    for (const Lines& part : parts)
    {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// Whole lines in order; an expected line that ends in three dots only tells how the line begins.
inline testing::Matcher<Lines> AreLines(const Lines& expected)
{
    std::vector<testing::Matcher<std::string>> matchers;
    for (const std::string& line : expected)
    {
        if (line.ends_with("..."))
        {
            matchers.emplace_back(testing::StartsWith(line.substr(0, line.size() - 3)));
        }
        else
        {
            matchers.emplace_back(testing::Eq(line));
        }
    }
    return testing::ElementsAreArray(matchers);
}

inline Lines WholeTrace(const std::string& path = TraceFilePath())
{
    return Texts(ParseTrace(ReadWholeFile(path)));
}

// An older trace file; 1 is the newest.
inline std::string Generation(int number)
{
    const std::string path = TraceFilePath();
    return path.substr(0, path.size() - 4) + "." + std::to_string(number) + ".txt";
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

inline Lines ClosingLines()
{
    return {" --- No Memory Leak Detected ---", "Execution terminated gracefully.", std::string(68, '-')};
}
} // namespace sndxtest
