#pragma once
// All that a host does with the module between load and unload, one step after the other, whatever a step
// answers.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/dll/modulehost.h"
#include "tests/support/leakchecker.h"

namespace sndxtest
{
using JobStep = std::pair<std::string, HRESULT>;
using JobSteps = std::vector<JobStep>;

class MainJob
{
  public:
    MainJob(
        const Module& module, const std::vector<std::string>& paths,
        const std::function<void()>& afterStep = [] {})
        : module_(module), paths_(paths), afterStep_(afterStep)
    {
        AskOverlay();
        UseMenu();
        module.StateChanged();
        AskOverlay(); // with the settings loaded anew
        Do("DllCanUnloadNow", module.CanUnloadNow());
    }

    const JobSteps& Steps() const { return steps_; }

    // As they come from a run in which nothing fails.
    static JobSteps Expected()
    {
        const JobSteps menu = {{"DllGetClassObject", S_OK}, {"CreateInstance", S_OK},
                               {"Initialize", S_OK},        {"QueryContextMenu", 3},
                               {"GetCommandString", S_OK},  {"InvokeCommand", S_OK},
                               {"InvokeCommand", S_OK},     {"InvokeCommand", S_OK}};
        const JobSteps rest = AfterTheChange();
        JobSteps steps(rest.begin(), rest.end() - 1);
        steps.insert(steps.end(), menu.begin(), menu.end());
        steps.insert(steps.end(), rest.begin(), rest.end());
        return steps;
    }
    // The part that begins anew.
    static JobSteps AfterTheChange()
    {
        return {{"DllGetClassObject", S_OK}, {"CreateInstance", S_OK}, {"GetPriority", S_OK},
                {"GetOverlayInfo", S_OK},    {"IsMemberOf", S_OK},     {"DllCanUnloadNow", S_OK}};
    }

  private:
    void Do(const char* name, HRESULT result)
    {
        steps_.emplace_back(name, result);
        afterStep_();
    }

    // Empty when the module cannot make one.
    template <class T>
    ComRef<T> Create(REFCLSID classId, REFIID interfaceId)
    {
        ComRef<IClassFactory> factory;
        ComRef<T> object;
        const HRESULT found = module_.GetClassObject(classId, IID_IClassFactory, factory.Receive());
        EXPECT_EQ(factory.Get() != nullptr, found == S_OK);
        Do("DllGetClassObject", found);
        if (factory)
        {
            const HRESULT created = factory->CreateInstance(nullptr, interfaceId, object.Receive());
            EXPECT_EQ(object.Get() != nullptr, created == S_OK);
            Do("CreateInstance", created);
        }
        return object;
    }

    void AskOverlay()
    {
        const auto overlay =
            Create<IShellIconOverlayIdentifier>(overlayClass, IID_IShellIconOverlayIdentifier);
        if (overlay)
        {
            int number = -1;
            DWORD flags = 0;
            WCHAR icon[MAX_PATH];
            Do("GetPriority", overlay->GetPriority(&number));
            Do("GetOverlayInfo", overlay->GetOverlayInfo(icon, MAX_PATH, &number, &flags));
            Do("IsMemberOf", overlay->IsMemberOf(Wide(paths_.front()).c_str(), 0));
        }
    }

    void UseMenu()
    {
        auto init = Create<IShellExtInit>(menuClass, IID_IShellExtInit);
        if (!init)
        {
            return;
        }
        // A host that goes on after a failed Initialize must find a handler that works as far as it can.
        MenuHandler handler(std::move(init));
        Do("Initialize", handler.Select(paths_, {.withOwner = true}));
        EXPECT_EQ(LiveDropMediums(), 0);
        const HMENU shown = CreatePopupMenu();
        Do("QueryContextMenu", handler.Query(shown));
        DestroyMenu(shown);
        WCHAR help[100];
        Do("GetCommandString",
           handler.Menu()->GetCommandString(0, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(help), 100));
        for (UINT_PTR verb = 0; verb < 3; ++verb)
        {
            Do("InvokeCommand", handler.Invoke(verb));
        }
    }

    const Module& module_;
    const std::vector<std::string>& paths_;
    const std::function<void()> afterStep_;
    JobSteps steps_;
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

    static void SetMemoryMode(int mode)
    {
        SetUserString("Debug", "Memory Mode", std::to_string(mode));
        leakCheckerIsOff = mode == 5;
    }

    // Files with names of many lengths; the first one exists.
    std::vector<std::string> Select(std::size_t count) const
    {
        std::vector<std::string> paths = {Items().File("0.txt")};
        while (paths.size() < count)
        {
            const std::size_t i = paths.size();
            paths.push_back(Items().Path() + "\\" + std::to_string(i) + std::string(i % 97, 'n') + ".txt");
        }
        return paths;
    }

    static std::string ModuleFileName() { return ModulePath().substr(ModulePath().rfind('\\') + 1); }
};
} // namespace sndxtest
