#include <array>

#include "tools/contract.h"
#include "tools/doctor/examination.h"
#include "tools/paths.h"
#include "tools/registry.h"

namespace sndxtools::doctor
{
namespace
{
constexpr char installAgain[] = "Run the installer again, or import register.reg.";
const WideString classes = TEXT("Software\\Classes\\");
const WideString windows = TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\");

// An image list has four bits for overlays, and the shell has four of its own.
constexpr std::size_t overlaySlots = 15 - 4;

WideString ClassOf(const RegisteredHandler& handler)
{
    return Folded(handler.classText);
}

// The registered file of the class; empty when there is none.
WideString ExamineClass(Examination& examination, const std::string& item, const char* classText)
{
    const WideString place = TEXT("CLSID\\") + Wide(classText) + TEXT("\\InprocServer32");
    const RegistryText user = ReadText(HKEY_CURRENT_USER, classes + place, {});
    const bool isUsers = user.error != ERROR_FILE_NOT_FOUND;
    const HKEY root = isUsers ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
    const RegistryText server = isUsers ? user : ReadText(root, classes + place, {});
    const WideString model = ReadText(root, classes + place, TEXT("ThreadingModel")).text;
    const bool is32Bit = ReadText(HKEY_LOCAL_MACHINE, classes + TEXT("Wow6432Node\\") + place, {}).error == 0;
    const bool isOnly32Bit = is32Bit && server.error == ERROR_FILE_NOT_FOUND;
    const std::string file = Quoted(Utf8(server.text));
    examination.Decide(
        item, installAgain,
        {{isOnly32Bit, Wrong, "Registered in the 32-bit view only, which Explorer does not read."},
         {server.error != 0, Wrong, "Not registered: " + ErrorText(server.error) + "."},
         {server.text.empty(), Wrong, "Registered without a file."},
         {server.type != REG_SZ, Attention, "Its file is not stored as text (REG_SZ): " + file + "."},
         {Folded(model) != TEXT("apartment"), Wrong,
          "ThreadingModel is " + Quoted(Utf8(model)) + ", not \"Apartment\"."},
         {isUsers, Attention, "An entry of this user goes before the machine's: " + file + ".",
          "Remove HKEY_CURRENT_USER\\" + Utf8(classes) + "CLSID\\" + classText + "."},
         {true, Ok, "Registered: " + file + "."}});
    const auto isListed = [classText](HKEY in, const WCHAR* list)
    { return ReadText(in, windows + TEXT("Shell Extensions\\") + list, Wide(classText)).error == 0; };
    const bool isBlocked =
        isListed(HKEY_LOCAL_MACHINE, TEXT("Blocked")) || isListed(HKEY_CURRENT_USER, TEXT("Blocked"));
    const bool isApproved = isListed(HKEY_LOCAL_MACHINE, TEXT("Approved"));
    examination.Decide(item, installAgain,
                       {{isBlocked, Wrong, "It is blocked.", "Remove it below …\\Shell Extensions\\Blocked."},
                        {!isApproved, Attention, "It is not approved, which a policy may demand."}});
    return server.type == REG_SZ ? server.text : WideString();
}

void ExamineModuleFile(Examination& examination, const WideString& path)
{
    using Facts = std::array<std::string, 3>;
    const auto look = [path] { return Facts{Fault(path), ImageFault(ReadPart(path)), ImageVersion(path)}; };
    const auto [fault, imageFault, version] = examination.Bounded(look, Facts{"no answer"});
    const std::string name = Quoted(Utf8(path));
    const std::string all = name + ", version " + (version.empty() ? "not examined." : version + ".");
    const bool isOther = !version.empty() && version != SNDX_VERSION;
    examination.Decide(
        "module file", installAgain,
        {{path.empty(), Wrong, "None is registered."},
         {!IsFullTargetPath(Utf8(path)), Wrong, name + " is no full path."},
         {!fault.empty(), Wrong, name + ": " + fault + "."},
         {!imageFault.empty(), Wrong, name + " " + imageFault + "."},
         {isOther, Attention, all + " This program is of " SNDX_VERSION ".", "Use one package."},
         {true, Ok, all}});
}

void ExamineMenus(Examination& examination)
{
    for (const auto& [kind, item] : {std::pair{filesKind, "menu of files"}, {foldersKind, "menu of folders"}})
    {
        const auto handlers = RegisteredHandlers(HKEY_LOCAL_MACHINE, classes + MenuHandlersKey(kind));
        const auto ours = std::ranges::find(handlers, Folded(Wide(contract::menuClassText)), ClassOf);
        const std::string among = "among " + std::to_string(handlers.size()) + " handlers.";
        examination.Decide(item, installAgain,
                           {{ours != handlers.end(), Ok, "Entered " + among},
                            {true, Wrong, "The menu class is not " + among}});
    }
}

void ExamineOverlayRank(Examination& examination)
{
    const auto handlers = RegisteredHandlers(HKEY_LOCAL_MACHINE, overlayHandlersKey);
    const auto ours = std::ranges::find(handlers, Folded(Wide(contract::overlayClassText)), ClassOf);
    Lines before;
    for (auto other = handlers.begin(); other != ours; ++other)
    {
        before.push_back(std::to_string(before.size() + 1) + " " + Quoted(Utf8(other->name)));
    }
    const std::string rank = "Number " + std::to_string(before.size() + 1) + " of " +
                             std::to_string(handlers.size()) + "; Explorer has room for the first " +
                             std::to_string(overlaySlots) + ".";
    const std::string advice =
        "Rename or remove names in front, of programs whose icons are not needed, below "
        "HKEY_LOCAL_MACHINE\\" +
        Utf8(overlayHandlersKey) + ", and restart Explorer.";
    examination.Decide(
        "overlay rank", advice,
        {{ours == handlers.end(), Wrong, "The overlay class is not in the list.", installAgain},
         {true, before.size() < overlaySlots ? Ok : Wrong, rank}},
        before);
}
} // namespace

WideString ExamineRegistration(Examination& examination)
{
    const WideString overlay = ExamineClass(examination, "overlay class", contract::overlayClassText);
    const WideString menu = ExamineClass(examination, "menu class", contract::menuClassText);
    const WideString& module = overlay.empty() ? menu : overlay;
    ExamineModuleFile(examination, module);
    if (!menu.empty() && Folded(menu) != Folded(module))
    {
        examination.Decide("module file", installAgain,
                           {{true, Attention, "The classes have different ones."}});
        ExamineModuleFile(examination, menu);
    }
    ExamineMenus(examination);
    ExamineOverlayRank(examination);
    return module;
}
} // namespace sndxtools::doctor
