#include "tools/simulator/worker.h"

#include <iterator>
#include <vector>

#include "tools/dropdata.h"
#include "tools/results.h"

namespace sndxtools::simulator
{
namespace
{
constexpr auto nothingAdded = static_cast<HRESULT>(0x80000000u);
constexpr unsigned commandCount = 3;
} // namespace

Worker::Worker(const HostPlan& plan, const Module& module, IShellIconOverlayIdentifier& overlay,
               const World& world, Faults& faults, std::uint64_t seed, bool isMain)
    : plan_(plan), module_(module), overlay_(overlay), world_(world), faults_(faults), random_(seed),
      isMain_(isMain)
{
    Check("CoInitializeEx", CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
}

Worker::~Worker()
{
    CoUninitialize();
}

void Worker::Step()
{
    if (plan_.manner == HostManner::storm)
    {
        AskOverlay();
        return;
    }
    switch (random_() % 24)
    {
    case 0:
    case 1:
        UseMenu();
        break;
    case 2:
    case 3:
        UseModule();
        break;
    case 4:
        Announce();
        break;
    case 5:
        Outside();
        break;
    default:
        AskOverlay();
        break;
    }
}

void Worker::Expect(bool holds, const std::string& what)
{
    if (!holds)
    {
        faults_.Add(what);
    }
}

// Runs the question and holds its answer against the accounts of the epochs that it may have seen.
template <class Question>
void Worker::AskAbout(unsigned folder, const char* what, Question belongs)
{
    const std::uint32_t first = world_->settled;
    const bool answer = belongs();
    const std::uint32_t last = world_->announced;
    ++world_->answers;
    bool possible = false;
    for (std::uint32_t epoch = first; epoch <= last; ++epoch)
    {
        possible = possible || Belongs(SettingsOf(plan_.seed, epoch), folder);
    }
    // While the keys change under a load it may miss one that stands in both tables; the next load corrects
    // that.
    const bool settled = first == last;
    Expect(answer ? possible : !settled || !possible,
           std::string(what) + " answers " + (answer ? "yes" : "no") + " for folder " +
               std::to_string(folder) + " in epochs " + std::to_string(first) + " to " +
               std::to_string(last));
}

void Worker::AskOverlay()
{
    const auto folder = static_cast<unsigned>(random_() % folderCount);
    const WideString path = Wide(ItemPath(folder, random_));
    AskAbout(folder, "the overlay", [&] { return overlay_.IsMemberOf(path.c_str(), 0) == S_OK; });
}

void Worker::Outside()
{
    const std::string odd[] = {"",   "C:\\Anderswo\\x.txt", "\\",      "/",
                               "C:", std::string(400, 'l'), "C:\\Sim", "C:\\Sim\\Bilderrahmen 2\\x"};
    const std::string& path = odd[random_() % std::size(odd)];
    Expect(overlay_.IsMemberOf(Wide(path).c_str(), 0) == S_FALSE, "the overlay is drawn on '" + path + "'");
    Expect(overlay_.IsMemberOf(nullptr, 0) == S_FALSE, "the overlay is drawn on nothing");
    int index = -1;
    int priority = -1;
    DWORD flags = 0;
    WCHAR file[MAX_PATH] = {};
    Expect(overlay_.GetOverlayInfo(file, MAX_PATH, &index, &flags) == S_OK && index == 0 && file[0] != 0,
           "the icon's place is not told");
    Expect(overlay_.GetPriority(&priority) == S_OK && priority == 0, "the priority is not told");
}

void Worker::UseModule()
{
    const Module second(plan_.module); // loaded once more
    const ComRef<IClassFactory> factory = second.ClassFactory(contract::overlayClass);
    void* out = nullptr;
    Expect(factory->CreateInstance(nullptr, IID_IContextMenu, &out) == E_NOINTERFACE && out == nullptr,
           "the overlay class makes a menu");
    Expect(second.CanUnloadNow() == S_FALSE, "the module lets itself be unloaded under an object");
}

void Worker::Announce()
{
    for (std::uint64_t times = random_() % 8 == 0 ? 100 : 1; times > 0; --times)
    {
        module_.StateChanged();
        ++world_->changes;
    }
}

// From the module itself, or from the system, which knows the module by its registration.
ComRef<IShellExtInit> Worker::NewMenu()
{
    ComRef<IShellExtInit> menu;
#ifdef _WIN32
    if (isMain_ && random_() % 2 == 0)
    {
        Check("CoCreateInstance", CoCreateInstance(contract::menuClass, nullptr, CLSCTX_INPROC_SERVER,
                                                   IID_IShellExtInit, menu.Receive()));
        return menu;
    }
#endif
    Check("CreateInstance", module_.ClassFactory(contract::menuClass)
                                ->CreateInstance(nullptr, IID_IShellExtInit, menu.Receive()));
    return menu;
}

void Worker::UseMenu()
{
    ++world_->menus;
    const ComRef<IShellExtInit> init = NewMenu();
    const auto folder = static_cast<unsigned>(random_() % folderCount);
    std::vector<WideString> paths;
    const std::uint64_t count = random_() % 8 == 0 ? random_() % 300 : random_() % 4;
    while (paths.size() < count)
    {
        paths.push_back(
            Wide(paths.empty() ? ItemPath(folder, random_) : std::string(1 + random_() % 400, 'p')));
    }
    if (random_() % 8 == 0)
    {
        Expect(init->Initialize(nullptr, nullptr, nullptr) == E_INVALIDARG,
               "a menu takes no selection for one");
    }
    const bool narrow = folder != 3 && random_() % 8 == 0;  // that folder's name is not every system's
    const std::uint64_t times = random_() % 8 == 0 ? 2 : 1; // the second time's paths are added
    for (std::uint64_t time = 0; time < times; ++time)
    {
        const auto data = ComRef<IDataObject>::Adopt(new DropData(paths, narrow));
        const HRESULT initialized = init->Initialize(nullptr, data.Get(), nullptr);
        Expect(initialized == (paths.empty() ? E_INVALIDARG : S_OK),
               "Initialize answers " + ResultText(initialized));
    }
    ComRef<IContextMenu> menu;
    Check("QueryInterface", init->QueryInterface(IID_IContextMenu, menu.Receive()));
    AskMenu(*menu.Get(), folder, paths.empty());
    AskHelp(*menu.Get());
    if (random_() % 6 == 0 && !(plan_.lasting && MayStartProgram()))
    {
        Send(*menu.Get(), paths.size() * times);
    }
}

void Worker::AskMenu(IContextMenu& menu, unsigned folder, bool empty)
{
    const HMENU shown = CreatePopupMenu();
    const bool noRoom = random_() % 8 == 0;
    const bool defaultOnly = random_() % 8 == 0;
    HRESULT added = nothingAdded;
    const auto asks = [&]
    {
        added = menu.QueryContextMenu(shown, 0, 98, noRoom ? 99 : 100,
                                      defaultOnly ? CMF_DEFAULTONLY : CMF_NORMAL);
        return added != nothingAdded;
    };
    if (empty || noRoom)
    {
        Expect(!asks(), "an empty selection, or one without room, gets a menu");
    }
    else
    {
        AskAbout(folder, "the menu", asks);
        Expect(added == nothingAdded || added == static_cast<HRESULT>(defaultOnly ? 0 : commandCount),
               "QueryContextMenu answers " + ResultText(added));
    }
    DestroyMenu(shown);
}

void Worker::AskHelp(IContextMenu& menu)
{
    WCHAR help[64] = {};
    const auto command = static_cast<UINT_PTR>(random_() % (commandCount + 1));
    const HRESULT told =
        menu.GetCommandString(command, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(help), 64);
    Expect(command < commandCount ? told == S_OK && help[0] != 0 : told == E_INVALIDARG && help[0] == 0,
           "GetCommandString answers " + ResultText(told) + " for command " + std::to_string(command));
}

// Wine keeps a handle for each wait until a started program is idle: a host that is watched for growth waits
// for none. The settings may change once meanwhile.
bool Worker::MayStartProgram() const
{
    for (std::uint32_t epoch = world_->settled, last = world_->announced + 1; epoch <= last; ++epoch)
    {
        if (SettingsOf(plan_.seed, epoch).program == InstalledProgram::present)
        {
            return true;
        }
    }
    return false;
}

// To whoever serves the pipe at the moment, or to nobody.
void Worker::Send(IContextMenu& menu, std::size_t paths)
{
    using Clock = std::chrono::steady_clock;
    ++world_->requests;
    CMINVOKECOMMANDINFO info = {};
    info.cbSize = sizeof info;
    info.lpVerb = reinterpret_cast<LPCSTR>(static_cast<UINT_PTR>(random_() % commandCount));
    const Clock::time_point begin = Clock::now();
    const HRESULT sent = menu.InvokeCommand(&info);
    const auto took = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin).count();
    Expect(sent == S_OK || sent == E_FAIL, "InvokeCommand answers " + ResultText(sent));
    // A message for every 127 paths, and for each two writes that are cancelled after five seconds. Whatever
    // else a request waits for ends with its main program, and all of those go within three seconds but for
    // the one that takes not a single byte, where nothing else is waited for. The rest is for a busy machine.
    const auto longest = static_cast<std::int64_t>((paths + 126) / 127 * 10 + 8);
    Expect(took <= longest, "a request took " + std::to_string(took) + " s, which must not take more than " +
                                std::to_string(longest) + " s");
}
} // namespace sndxtools::simulator
