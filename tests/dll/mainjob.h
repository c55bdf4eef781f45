#pragma once
// All that a host does with the module between load and unload, one step after the other, whatever a step
// answers.

#include <ostream>
#include <string>
#include <vector>

#include "tests/dll/modulehost.h"

namespace sndxtest
{
struct JobStep
{
    std::string name;
    HRESULT result;

    bool operator==(const JobStep&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const JobStep& step)
{
    return stream << step.name << " " << std::hex << step.result << std::dec;
}

// The paths of a selection: files of the folder, which need not exist, with names of many lengths.
inline std::vector<std::string> Selection(const ItemFolder& folder, std::size_t count)
{
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < count; ++i)
    {
        paths.push_back(folder.Path() + "\\" + std::to_string(i) + " " + std::string(i % 97, 'n') + ".txt");
    }
    return paths;
}

class MainJob
{
  public:
    // afterStep is called with every step as soon as it is done.
    template <class AfterStep>
    static void Run(const Module& module, const std::vector<std::string>& paths, AfterStep afterStep)
    {
        const auto step = [&](const char* name, HRESULT result) { afterStep(JobStep{name, result}); };
        AskOverlay(module, paths.front(), step);
        UseMenu(module, paths, step);
        module.StateChanged();
        AskOverlay(module, paths.front(), step); // with the settings loaded anew
        step("DllCanUnloadNow", module.CanUnloadNow());
    }

    // As they come from a run in which nothing fails.
    static std::vector<JobStep> Expected()
    {
        std::vector<JobStep> steps;
        const auto overlay = [&]
        {
            for (const char* name :
                 {"DllGetClassObject", "CreateInstance", "GetPriority", "GetOverlayInfo", "IsMemberOf"})
            {
                steps.push_back({name, S_OK});
            }
        };
        overlay();
        steps.insert(steps.end(), {{"DllGetClassObject", S_OK},
                                   {"CreateInstance", S_OK},
                                   {"Initialize", S_OK},
                                   {"QueryContextMenu", 3},
                                   {"GetCommandString", S_OK},
                                   {"InvokeCommand", S_OK},
                                   {"InvokeCommand", S_OK},
                                   {"InvokeCommand", S_OK}});
        overlay();
        steps.push_back({"DllCanUnloadNow", S_OK});
        return steps;
    }

  private:
    // Empty when the module cannot make one.
    template <class T, class Step>
    static ComRef<T> Create(const Module& module, REFCLSID classId, REFIID interfaceId, Step step)
    {
        ComRef<IClassFactory> factory;
        ComRef<T> object;
        const HRESULT found = module.GetClassObject(classId, IID_IClassFactory, factory.Receive());
        EXPECT_EQ(factory.Get() != nullptr, found == S_OK);
        step("DllGetClassObject", found);
        if (factory)
        {
            const HRESULT created = factory->CreateInstance(nullptr, interfaceId, object.Receive());
            EXPECT_EQ(object.Get() != nullptr, created == S_OK);
            step("CreateInstance", created);
        }
        return object;
    }

    template <class Step>
    static void AskOverlay(const Module& module, const std::string& path, Step step)
    {
        const auto overlay =
            Create<IShellIconOverlayIdentifier>(module, overlayClass, IID_IShellIconOverlayIdentifier, step);
        if (!overlay)
        {
            return;
        }
        int number = -1;
        DWORD flags = 0;
        WCHAR icon[MAX_PATH];
        step("GetPriority", overlay->GetPriority(&number));
        step("GetOverlayInfo", overlay->GetOverlayInfo(icon, MAX_PATH, &number, &flags));
        step("IsMemberOf", overlay->IsMemberOf(Wide(path).c_str(), 0));
    }

    template <class Step>
    static void UseMenu(const Module& module, const std::vector<std::string>& paths, Step step)
    {
        const auto init = Create<IShellExtInit>(module, menuClass, IID_IShellExtInit, step);
        if (!init)
        {
            return;
        }
        // A host that goes on after a failed Initialize must find a handler that works as far as it can.
        step("Initialize", init->Initialize(nullptr, MakeDropDataObject(paths).get(), nullptr));
        ComRef<IContextMenu> menu;
        Module::Check(init->QueryInterface(IID_IContextMenu, menu.Receive()));
        const HMENU shown = CreatePopupMenu();
        step("QueryContextMenu", menu->QueryContextMenu(shown, 0, 100, 200, CMF_NORMAL));
        DestroyMenu(shown);
        WCHAR help[100];
        step("GetCommandString",
             menu->GetCommandString(0, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(help), 100));
        for (UINT_PTR verb = 0; verb < 3; ++verb)
        {
            CMINVOKECOMMANDINFO info = {};
            info.cbSize = sizeof info;
            info.lpVerb = reinterpret_cast<LPCSTR>(verb);
            step("InvokeCommand", menu->InvokeCommand(&info));
        }
    }
};

// The module as the first host of the day finds it: one account whose folder holds the first file of a
// selection.
class MainJobTest : public ModuleTest
{
  protected:
    MainJobTest()
    {
        AddItemsAsAccount();
        SetUserString("Settings", "InstallerPath", MainProgramPath());
    }
    ~MainJobTest() override { SetEnvironmentVariableW(Wide(optionsVariable).c_str(), nullptr); }

    std::vector<std::string> Select(std::size_t count) const
    {
        auto paths = Selection(Items(), count);
        Items().File(paths.front().substr(Items().Path().size() + 1));
        return paths;
    }

    // For the main program that the module starts.
    void SetStartOptions(const std::string& options) const
    {
        SetEnvironmentVariableW(
            Wide(optionsVariable).c_str(),
            Wide(options + " --output \"" + Items().Local("output").string() + "\"").c_str());
    }

    // A main program that runs already; its pipe exists when this returns.
    ChildProcess Serve(const std::string& milliseconds) const
    {
        const std::string ready = Items().Local("ready").string();
        ChildProcess server =
            ChildProcess::Program(SNDX_MAINPROGRAM_PATH, {"--output", Items().Local("output").string(),
                                                          "--ready", ready, "--duration", milliseconds});
        for (int i = 0; i < 2000 && !std::filesystem::exists(ready); ++i)
        {
            Sleep(5);
        }
        EXPECT_TRUE(std::filesystem::exists(ready));
        return server;
    }

    static std::string ModuleFileName() { return ModulePath().substr(ModulePath().rfind('\\') + 1); }

  private:
    static constexpr char optionsVariable[] = "SENDORA_MAINPROGRAM_OPTIONS";
};
} // namespace sndxtest
