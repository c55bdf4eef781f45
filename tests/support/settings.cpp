#include "tests/support/settings.h"

#include "tests/support/text.h"
#include "tools/contract.h"
#include "tools/results.h"

namespace sndxtest
{
namespace
{
// The registry's functions answer with an error code.
void CheckError(const char* call, LONG error)
{
    sndxtools::Check(call, sndxtools::ErrorResult(static_cast<DWORD>(error)));
}

void RemoveCompanyKey(HKEY root, REGSAM view)
{
    const std::string_view path = sndxtools::contract::companyKey;
    const std::size_t separator = path.find('\\');
    HKEY software = nullptr;
    CheckError("RegOpenKeyEx", RegOpenKeyExW(root, Wide(path.substr(0, separator)).c_str(), 0,
                                             KEY_ALL_ACCESS | view, &software));
    const LONG deleted = RegDeleteTreeW(software, Wide(path.substr(separator + 1)).c_str());
    RegCloseKey(software);
    CheckError("RegDeleteTree", deleted == LONG{ERROR_FILE_NOT_FOUND} ? 0 : deleted);
}

std::string SectionPath(std::string_view section)
{
    const std::string path = sndxtools::contract::productKey;
    return section.empty() ? path : path + "\\" + std::string(section);
}

void SetBytes(HKEY root, REGSAM view, std::string_view path, std::string_view name, DWORD type,
              const BYTE* bytes, std::size_t size)
{
    HKEY key = nullptr;
    CheckError("RegCreateKeyEx",
               RegCreateKeyExW(root, Wide(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_WRITE | view, nullptr, &key, nullptr));
    // Windows looks behind text that comes without a terminator, and stores the one that it finds there.
    std::vector<BYTE> guarded(bytes, bytes + size);
    guarded.insert(guarded.end(), 4, BYTE{'x'});
    const LONG error =
        RegSetValueExW(key, Wide(name).c_str(), 0, type, guarded.data(), static_cast<DWORD>(size));
    RegCloseKey(key);
    CheckError("RegSetValueEx", error);
}

void SetString(HKEY root, REGSAM view, std::string_view path, std::string_view name, std::string_view text)
{
    const WideString wide = Wide(text);
    SetBytes(root, view, path, name, REG_SZ, reinterpret_cast<const BYTE*>(wide.c_str()),
             (wide.size() + 1) * sizeof(WCHAR));
}
} // namespace

void RemoveAllSettings()
{
    RemoveCompanyKey(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY);
    RemoveCompanyKey(HKEY_CURRENT_USER, 0);
}

void SetSharedString(std::string_view section, std::string_view name, std::string_view text)
{
    SetString(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY, SectionPath(section), name, text);
}

void SetUserString(std::string_view section, std::string_view name, std::string_view text)
{
    SetString(HKEY_CURRENT_USER, 0, SectionPath(section), name, text);
}

void SetSharedBytes(std::string_view section, std::string_view name, DWORD type,
                    const std::vector<BYTE>& bytes)
{
    SetBytes(HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY, SectionPath(section), name, type, bytes.data(),
             bytes.size());
}

void SetUserBytes(std::string_view section, std::string_view name, DWORD type, const std::vector<BYTE>& bytes)
{
    SetBytes(HKEY_CURRENT_USER, 0, SectionPath(section), name, type, bytes.data(), bytes.size());
}

void SetMachineString(std::string_view path, std::string_view name, std::string_view text)
{
    SetString(HKEY_LOCAL_MACHINE, 0, path, name, text);
}

void AddAccount(std::string_view name, std::string_view localFolder, std::string_view lastUpdate)
{
    const std::string section = "Accounts\\" + std::string(name);
    SetSharedString(section, "LocalFolder", localFolder);
    SetSharedString(section, "LastUpdate", lastUpdate);
}
} // namespace sndxtest
