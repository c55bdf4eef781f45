#include "tests/support/settings.h"

#include <stdexcept>

#include "tests/support/text.h"

namespace sndxtest
{
namespace
{
constexpr std::string_view companyKey = "Taleno Software";

void Check(LONG error, const char* what)
{
    if (error != 0)
    {
        throw std::runtime_error(std::string(what) + ": error " + std::to_string(error));
    }
}

void RemoveCompanyKey(HKEY root, REGSAM view)
{
    HKEY software = nullptr;
    Check(RegOpenKeyExW(root, TEXT("Software"), 0, KEY_ALL_ACCESS | view, &software), "opening Software");
    const LONG deleted = RegDeleteTreeW(software, Wide(companyKey).c_str());
    RegCloseKey(software);
    if (deleted != LONG{ERROR_FILE_NOT_FOUND})
    {
        Check(deleted, "deleting the settings");
    }
}

std::string SectionPath(std::string_view section)
{
    const std::string path = "Software\\" + std::string(companyKey) + "\\Sendora";
    return section.empty() ? path : path + "\\" + std::string(section);
}

void SetBytes(HKEY root, REGSAM view, std::string_view path, std::string_view name, DWORD type,
              const BYTE* bytes, std::size_t size)
{
    HKEY key = nullptr;
    Check(RegCreateKeyExW(root, Wide(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE | view,
                          nullptr, &key, nullptr),
          "creating a section");
    // Windows looks behind text that comes without a terminator, and stores the one that it finds there.
    std::vector<BYTE> guarded(bytes, bytes + size);
    guarded.insert(guarded.end(), 4, BYTE{'x'});
    const LONG error =
        RegSetValueExW(key, Wide(name).c_str(), 0, type, guarded.data(), static_cast<DWORD>(size));
    RegCloseKey(key);
    Check(error, "setting a value");
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
