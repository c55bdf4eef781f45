#include "tools/simulator/settings.h"

#include <windows.h>

#include "tools/contract.h"
#include "tools/results.h"
#include "tools/simulator/plan.h"
#include "tools/text.h"

namespace sndxtools::simulator
{
namespace
{
void WriteAccount(HKEY accounts, const WideString& name, unsigned folder)
{
    HKEY key = nullptr;
    Check("RegCreateKeyEx",
          ErrorResult(static_cast<DWORD>(RegCreateKeyExW(
              accounts, name.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_32KEY, nullptr, &key, nullptr))));
    const WideString text = Wide(FolderSetting(folder));
    const LONG error =
        RegSetValueExW(key, TEXT("LocalFolder"), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
    RegCloseKey(key);
    Check("RegSetValueEx", ErrorResult(static_cast<DWORD>(error)));
}
} // namespace

void WriteAccounts(std::uint32_t accounts)
{
    HKEY key = nullptr;
    const WideString path = Wide(std::string(contract::productKey) + "\\Accounts");
    Check("RegCreateKeyEx", ErrorResult(static_cast<DWORD>(
                                RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0,
                                                KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, &key, nullptr))));
    for (unsigned folder = 0; folder < folderCount; ++folder)
    {
        const WideString name = Wide("Simulator " + std::to_string(folder));
        if ((accounts >> folder & 1) != 0)
        {
            WriteAccount(key, name, folder);
        }
        else
        {
            RegDeleteTreeW(key, name.c_str());
        }
    }
    RegCloseKey(key);
}
} // namespace sndxtools::simulator
