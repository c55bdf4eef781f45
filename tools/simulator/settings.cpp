#include "tools/simulator/settings.h"

#include <iterator>

#include <windows.h>

#include "tools/contract.h"
#include "tools/results.h"

namespace sndxtools::simulator
{
namespace
{
// A key of the registry, made where it does not exist.
class SettingsKey
{
  public:
    SettingsKey(HKEY root, const std::string& path, REGSAM view)
    {
        Check("RegCreateKeyEx",
              ErrorResult(static_cast<DWORD>(RegCreateKeyExW(
                  root, Wide(path).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key_, nullptr))));
    }
    ~SettingsKey() { RegCloseKey(key_); }
    SettingsKey(const SettingsKey&) = delete;
    SettingsKey& operator=(const SettingsKey&) = delete;

    HKEY Get() const { return key_; }
    void Put(const char* name, DWORD type, const void* data, std::size_t bytes) const
    {
        Check("RegSetValueEx", ErrorResult(static_cast<DWORD>(RegSetValueExW(
                                   key_, Wide(name).c_str(), 0, type, static_cast<const BYTE*>(data),
                                   static_cast<DWORD>(bytes)))));
    }
    void Put(const char* name, const WideString& text) const
    {
        Put(name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    }

  private:
    HKEY key_ = nullptr;
};

constexpr char accountFolder[] = "LocalFolder";
const std::string accountsPath = std::string(contract::productKey) + "\\Accounts";

// What stands in place of a folder in the accounts that have none that anybody asks for.
struct OddFolder
{
    DWORD type;
    WideString text;
    std::size_t bytes;
};
const OddFolder oddFolders[] = {
    {REG_SZ, {}, 0},
    {REG_SZ, {}, sizeof(WCHAR)},
    {REG_DWORD, TEXT("CC"), 4},
    {REG_SZ, WideString(5000, TEXT('C')), 10000}, // longer than the module takes, without an end
    {REG_BINARY, TEXT("Rahmen"), 7},              // ends in the middle of a character
    {REG_MULTI_SZ, TEXT("Rahmen"), 12},
};

void WriteOrDelete(const SettingsKey& accounts, const std::string& name, bool wanted, auto write)
{
    wanted ? write(SettingsKey(accounts.Get(), name, KEY_WOW64_32KEY))
           : static_cast<void>(RegDeleteTreeW(accounts.Get(), Wide(name).c_str()));
}
} // namespace

void WriteSettings(const Settings& settings, const WideString& mainProgram)
{
    const SettingsKey accounts(HKEY_LOCAL_MACHINE, accountsPath, KEY_WOW64_32KEY);
    if (settings.fromScratch)
    {
        RegDeleteTreeW(accounts.Get(), nullptr);
    }
    for (unsigned folder = 0; folder < folderCount; ++folder)
    {
        WriteOrDelete(accounts, "Simulator " + std::to_string(folder), (settings.accounts >> folder & 1) != 0,
                      [folder](const SettingsKey& account)
                      { account.Put(accountFolder, Wide(FolderSetting(folder))); });
    }
    for (unsigned odd = 0; odd < std::size(oddFolders); ++odd)
    {
        WriteOrDelete(accounts, "Odd " + std::to_string(odd), (settings.oddAccounts >> odd & 1) != 0,
                      [&folder = oddFolders[odd]](const SettingsKey& account)
                      {
                          account.Put(accountFolder, folder.type, folder.text.c_str(), folder.bytes);
                          account.Put("LastUpdate", TEXT("-99999999999999999999 and more"));
                      });
    }
    const SettingsKey program(HKEY_LOCAL_MACHINE, std::string(contract::productKey) + "\\Settings",
                              KEY_WOW64_32KEY);
    program.Put("InstallerPath", settings.program == InstalledProgram::present   ? mainProgram
                                 : settings.program == InstalledProgram::missing ? Wide("C:\\nicht da.exe")
                                                                                 : WideString());
    const SettingsKey debug(HKEY_CURRENT_USER, std::string(contract::productKey) + "\\Debug", 0);
    debug.Put("Memory Mode", Wide(settings.guarded ? "2" : "0"));
}

void ClearSettings()
{
    WriteSettings({}, {});
}

void RegisterClasses(const WideString& module)
{
    for (const char* classText : {contract::overlayClassText, contract::menuClassText})
    {
        const std::string path = std::string("Software\\Classes\\CLSID\\") + classText;
        if (module.empty())
        {
            RegDeleteTreeW(HKEY_LOCAL_MACHINE, Wide(path).c_str());
            continue;
        }
        const SettingsKey server(HKEY_LOCAL_MACHINE, path + "\\InprocServer32", 0);
        server.Put("", module);
        server.Put("ThreadingModel", TEXT("Apartment"));
    }
}
} // namespace sndxtools::simulator
