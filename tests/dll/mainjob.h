#pragma once
// The module's main job: all that a host does with it between load and unload, as steps with their results.

#include <atomic>
#include <thread>

#include "tests/dll/modulehost.h"
#include "tests/support/leakchecker.h"

namespace sndxtest
{
// A step of the job and its result.
inline std::string Step(const std::string& name, HRESULT result)
{
    return name + " " + sndxtools::Hex(static_cast<std::uint32_t>(result), 8);
}

// The steps of a job in which nothing fails: its end, which begins anew after a change, and the whole.
const Lines overlaySteps = {Step("DllGetClassObject", S_OK), Step("CreateInstance", S_OK),
                            Step("GetPriority", S_OK), Step("GetOverlayInfo", S_OK),
                            Step("IsMemberOf", S_OK)};
const std::string lastStep = Step("DllCanUnloadNow", S_OK);
const Lines afterTheChange = overlaySteps + Lines{lastStep};
const Lines allSteps =
    overlaySteps +
    Lines{Step("DllGetClassObject", S_OK), Step("CreateInstance", S_OK), Step("Initialize", S_OK),
          Step("QueryContextMenu", 3), Step("GetCommandString", S_OK)} +
    Lines(3, Step("InvokeCommand", S_OK)) + afterTheChange;

// One step after the other, whatever a step answers. The module finds one account whose folder holds the
// first file of the selection.
class MainJob : public ModuleTest
{
  protected:
    MainJob()
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
            paths.push_back(Items() / (std::to_string(i) + std::string(i % 97, 'n') + ".txt"));
        }
        return paths;
    }

    const Lines& Run(const Module& module, const std::vector<std::string>& paths)
    {
        steps_.clear();
        undisturbed_ = 0;
        AskOverlay(module, paths.front());
        UseMenu(module, paths);
        module.StateChanged();
        // With the settings loaded anew, and on another thread, so that a lock that was left taken holds it.
        std::thread([&] { AskOverlay(module, paths.front()); }).join();
        Do("DllCanUnloadNow", [&] { return module.CanUnloadNow(); });
        return steps_;
    }
    // Steps of the last run before something went wrong.
    std::size_t Undisturbed() const { return undisturbed_; }
    // What the job is doing.
    const char* CurrentStep() const { return step_; }
    void BeginStep(const char* name) { step_ = name; }

  private:
    virtual bool HasGoneWrong() const = 0;

    template <class Call>
    void Do(const char* name, Call call)
    {
        BeginStep(name);
        steps_.push_back(Step(name, call()));
        undisturbed_ += HasGoneWrong() ? 0 : 1;
    }
    // Empty when the module cannot make one.
    template <class T>
    ComRef<T> Create(const Module& module, REFCLSID classId, REFIID interfaceId)
    {
        ComRef<IClassFactory> factory;
        ComRef<T> object;
        Do("DllGetClassObject",
           [&]
           {
               const HRESULT found = module.GetClassObject(classId, IID_IClassFactory, factory.Receive());
               EXPECT_EQ(factory.Get() != nullptr, found == S_OK);
               return found;
           });
        if (factory)
        {
            Do("CreateInstance",
               [&]
               {
                   const HRESULT created = factory->CreateInstance(nullptr, interfaceId, object.Receive());
                   EXPECT_EQ(object.Get() != nullptr, created == S_OK);
                   return created;
               });
        }
        return object;
    }
    void AskOverlay(const Module& module, const std::string& path)
    {
        const auto overlay =
            Create<IShellIconOverlayIdentifier>(module, overlayClass, IID_IShellIconOverlayIdentifier);
        if (overlay)
        {
            int number = -1;
            DWORD flags = 0;
            WCHAR icon[MAX_PATH];
            Do("GetPriority", [&] { return overlay->GetPriority(&number); });
            Do("GetOverlayInfo", [&] { return overlay->GetOverlayInfo(icon, MAX_PATH, &number, &flags); });
            Do("IsMemberOf", [&] { return overlay->IsMemberOf(Wide(path).c_str(), 0); });
        }
    }
    void UseMenu(const Module& module, const std::vector<std::string>& paths)
    {
        auto init = Create<IShellExtInit>(module, menuClass, IID_IShellExtInit);
        if (!init)
        {
            return;
        }
        // A host that goes on after a failed Initialize must find a handler that works as far as it can.
        MenuHandler handler(std::move(init));
        Do("Initialize", [&] { return handler.Select(paths, {.withOwner = true}); });
        EXPECT_EQ(LiveDropMediums(), 0);
        const HMENU shown = CreatePopupMenu();
        Do("QueryContextMenu",
           [&]
           {
               const HRESULT added = handler.Query(shown);
               EXPECT_EQ(GetMenuItemCount(shown), added > 0 ? 1 : 0) << "no half a menu";
               return added;
           });
        DestroyMenu(shown);
        WCHAR help[100];
        Do("GetCommandString",
           [&] {
               return handler.Menu()->GetCommandString(0, GCS_HELPTEXTW, nullptr,
                                                       reinterpret_cast<LPSTR>(help), 100);
           });
        for (UINT_PTR verb = 0; verb < 3; ++verb)
        {
            Do("InvokeCommand", [&] { return handler.Invoke(verb); });
        }
    }

    Lines steps_;
    std::size_t undisturbed_ = 0;
    std::atomic<const char*> step_ = "";
};
} // namespace sndxtest
