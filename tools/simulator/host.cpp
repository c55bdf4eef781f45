#include "tools/simulator/host.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include <windows.h>
#include <shlobj.h>

#include "tools/dropdata.h"
#include "tools/results.h"
#include "tools/shellhost/module.h"
#include "tools/simulator/plan.h"
#include "tools/simulator/world.h"

namespace sndxtools::simulator
{
namespace
{
using Clock = std::chrono::steady_clock;

constexpr auto nothingAdded = static_cast<HRESULT>(0x80000000u);

// The first fault of the process, whichever thread sees it.
class Faults
{
  public:
    void Add(const std::string& text)
    {
        const std::lock_guard lock(mutex_);
        first_ = first_.empty() ? text : first_;
        any_ = true;
    }
    bool Any() const { return any_; }
    std::string First() const { return first_; }

  private:
    std::mutex mutex_;
    std::string first_;
    std::atomic<bool> any_ = false;
};

// One thread of the host, in an apartment's manner: it uses only the objects that it made, but for the
// overlay, which the shell shares between threads.
class Worker
{
  public:
    Worker(const HostPlan& plan, const Module& module, IShellIconOverlayIdentifier& overlay,
           const World& world, Faults& faults, std::uint64_t seed)
        : plan_(plan), module_(module), overlay_(overlay), world_(world), faults_(faults), random_(seed)
    {
    }

    void Step()
    {
        switch (random_() % 12)
        {
        case 0:
            UseMenu();
            break;
        case 1:
            UseClasses();
            break;
        case 2:
            module_.StateChanged();
            break;
        case 3:
            Outside();
            break;
        default:
            AskOverlay();
            break;
        }
    }

  private:
    void Expect(bool holds, const std::string& what)
    {
        if (!holds)
        {
            faults_.Add(what);
        }
    }

    // Runs the question and holds its answer against the accounts of the epochs that it may have seen.
    template <class Question>
    void AskAbout(unsigned folder, const char* what, Question belongs)
    {
        const std::uint32_t first = world_->settled;
        const bool answer = belongs();
        const std::uint32_t last = world_->announced;
        bool possible = false;
        for (std::uint32_t epoch = first; epoch <= last; ++epoch)
        {
            possible = possible || Belongs(Accounts(plan_.seed, epoch), folder);
        }
        // While the keys change under a load it may miss one that stands in both tables; the next load
        // corrects that.
        const bool settled = first == last;
        Expect(answer ? possible : !settled || !possible,
               std::string(what) + " answers " + (answer ? "yes" : "no") + " for folder " +
                   std::to_string(folder) + " in epochs " + std::to_string(first) + " to " +
                   std::to_string(last));
    }

    void AskOverlay()
    {
        const unsigned folder = static_cast<unsigned>(random_() % folderCount);
        const WideString path = Wide(ItemPath(folder, random_));
        AskAbout(folder, "the overlay", [&] { return overlay_.IsMemberOf(path.c_str(), 0) == S_OK; });
    }

    void Outside()
    {
        const std::string odd[] = {"",   "C:\\Anderswo\\x.txt", "\\",      "/",
                                   "C:", std::string(400, 'l'), "C:\\Sim", "C:\\Sim\\Bilderrahmen\\x"};
        const std::string& path = odd[random_() % std::size(odd)];
        Expect(overlay_.IsMemberOf(Wide(path).c_str(), 0) == S_FALSE,
               "the overlay is drawn on '" + path + "'");
        Expect(overlay_.IsMemberOf(nullptr, 0) == S_FALSE, "the overlay is drawn on nothing");
        int index = -1;
        int priority = -1;
        DWORD flags = 0;
        WCHAR file[MAX_PATH] = {};
        Expect(overlay_.GetOverlayInfo(file, MAX_PATH, &index, &flags) == S_OK && index == 0 && file[0] != 0,
               "the icon's place is not told");
        Expect(overlay_.GetPriority(&priority) == S_OK && priority == 0, "the priority is not told");
    }

    void UseClasses()
    {
        const ComRef<IClassFactory> factory = module_.ClassFactory(contract::overlayClass);
        void* out = nullptr;
        Expect(factory->CreateInstance(nullptr, IID_IContextMenu, &out) == E_NOINTERFACE && out == nullptr,
               "the overlay class makes a menu");
        Expect(module_.CanUnloadNow() == S_FALSE, "the module lets itself be unloaded under an object");
    }

    void UseMenu()
    {
        const ComRef<IClassFactory> factory = module_.ClassFactory(contract::menuClass);
        ComRef<IShellExtInit> init;
        Check("CreateInstance", factory->CreateInstance(nullptr, IID_IShellExtInit, init.Receive()));
        const unsigned folder = static_cast<unsigned>(random_() % folderCount);
        std::vector<WideString> paths;
        const std::uint64_t count = random_() % 8 == 0 ? random_() % 300 : random_() % 4;
        while (paths.size() < count)
        {
            paths.push_back(
                Wide(paths.empty() ? ItemPath(folder, random_) : std::string(1 + random_() % 400, 'p')));
        }
        const auto data = ComRef<IDataObject>::Adopt(new DropData(paths));
        const HRESULT initialized = init->Initialize(nullptr, data.Get(), nullptr);
        Expect(initialized == (paths.empty() ? E_INVALIDARG : S_OK),
               "Initialize answers " + ResultText(initialized));
        ComRef<IContextMenu> menu;
        Check("QueryInterface", init->QueryInterface(IID_IContextMenu, menu.Receive()));
        const HMENU shown = CreatePopupMenu();
        HRESULT added = nothingAdded;
        const auto asks = [&]
        {
            added = menu->QueryContextMenu(shown, 0, 1, 100, CMF_NORMAL);
            return added != nothingAdded;
        };
        if (paths.empty())
        {
            Expect(!asks(), "an empty selection gets a menu");
        }
        else
        {
            AskAbout(folder, "the menu", asks);
            Expect(added == nothingAdded || added == 3, "QueryContextMenu answers " + ResultText(added));
        }
        DestroyMenu(shown);
        WCHAR help[64] = {};
        Expect(menu->GetCommandString(random_() % 3, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(help),
                                      64) == S_OK &&
                   help[0] != 0,
               "a command has no help text");
        if (random_() % 20 == 0)
        {
            CMINVOKECOMMANDINFO info = {};
            info.cbSize = sizeof info;
            info.lpVerb = reinterpret_cast<LPCSTR>(static_cast<UINT_PTR>(random_() % 3));
            const HRESULT sent =
                menu->InvokeCommand(&info); // whoever serves the pipe at the moment, or nobody
            Expect(sent == S_OK || sent == E_FAIL, "InvokeCommand answers " + ResultText(sent));
        }
    }

    const HostPlan& plan_;
    const Module& module_;
    IShellIconOverlayIdentifier& overlay_;
    const World& world_;
    Faults& faults_;
    Random random_;
};

// Grows by 4 with every handle that is left open: the highest of a few new ones, because the first may be
// values of closed handles.
std::uintptr_t HandleLevel()
{
    HANDLE handles[16];
    std::generate(std::begin(handles), std::end(handles),
                  [] { return CreateEventW(nullptr, TRUE, FALSE, nullptr); });
    std::for_each(std::begin(handles), std::end(handles), [](HANDLE handle) { CloseHandle(handle); });
    return reinterpret_cast<std::uintptr_t>(*std::max_element(std::begin(handles), std::end(handles)));
}

// One life of the module in the process.
void Live(const HostPlan& plan, const World& world, Random& random, Clock::time_point end, Faults& faults)
{
    const Module module(plan.module);
    {
        ComRef<IShellIconOverlayIdentifier> overlay;
        Check("CreateInstance",
              module.ClassFactory(contract::overlayClass)
                  ->CreateInstance(nullptr, IID_IShellIconOverlayIdentifier, overlay.Receive()));
        const Clock::time_point endOfLife = Clock::now() + std::chrono::milliseconds(50 + random() % 1500);
        const auto work = [&, stop = std::min(end, endOfLife)](std::uint64_t seed)
        {
            try
            {
                Worker worker(plan, module, *overlay.Get(), world, faults, seed);
                while ((plan.endsBusy || Clock::now() < stop) && !faults.Any())
                {
                    worker.Step();
                }
            }
            catch (const std::exception& error)
            {
                faults.Add(error.what());
            }
        };
        std::vector<std::jthread> threads;
        for (std::uint64_t count = 1 + random() % 4; count > 0; --count)
        {
            threads.emplace_back(work, random());
        }
        if (plan.endsBusy)
        {
            std::this_thread::sleep_until(end);
            ExitProcess(faults.Any() ? 3 : 0);
        }
    }
    if (module.CanUnloadNow() != S_OK)
    {
        faults.Add("an object lives behind the last release");
    }
}
} // namespace

int RunHost(const HostPlan& plan, std::ostream& out)
{
    const World world;
    Random random(plan.ownSeed);
    Faults faults;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(plan.milliseconds);
    try
    {
        Live(plan, world, random, end, faults); // the system opens some handles for good
        const std::uintptr_t before = HandleLevel();
        while (Clock::now() < end && world->ending == 0 && !faults.Any())
        {
            Live(plan, world, random, end, faults);
        }
        constexpr std::uintptr_t slack = 4 * 24; // threads and the like that come and go
        if (HandleLevel() > before + slack)
        {
            faults.Add(std::to_string((HandleLevel() - before) / 4) + " handles are left open");
        }
    }
    catch (const std::exception& error)
    {
        faults.Add(error.what());
    }
    if (faults.Any())
    {
        out << faults.First() << "\n";
        return 3;
    }
    return 0;
}
} // namespace sndxtools::simulator
