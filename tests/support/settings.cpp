#include "tests/support/settings.h"

#include "tests/support/registrykey.h"
#include "tools/contract.h"
#include "tools/results.h"

namespace sndxtest
{
namespace
{
// The 32-bit view of the machine's settings is a key in the native one.
const std::string userCompany = sndxtools::contract::companyKey;
const std::string sharedCompany = "Software\\Wow6432Node" + userCompany.substr(userCompany.find('\\'));

// The registry's functions answer with an error code.
void Check(LONG error, const std::string& what)
{
    sndxtools::Check(what.c_str(), sndxtools::ErrorResult(static_cast<DWORD>(error)));
}

std::string SectionPath(const std::string& company, const std::string& section)
{
    return company + "\\Sendora" + (section.empty() ? "" : "\\" + section);
}

void SetBytes(HKEY root, const std::string& path, const std::string& name, DWORD type, Bytes bytes)
{
    const Key key(Key::Create, root, path, KEY_WRITE);
    Check(key.error, "creating " + path);
    const auto size = static_cast<DWORD>(bytes.size());
    // Windows looks behind text that comes without a terminator, and stores the one that it finds there.
    bytes.insert(bytes.end(), 4, BYTE{'x'});
    Check(RegSetValueExW(key, Wide(name).c_str(), 0, type, bytes.data(), size), "setting " + name);
}
} // namespace

void RemoveAllSettings()
{
    for (const auto& [root, company] :
         {std::pair{HKEY_LOCAL_MACHINE, sharedCompany}, {HKEY_CURRENT_USER, userCompany}})
    {
        const LONG error = RegDeleteTreeW(root, Wide(company).c_str());
        Check(error == LONG{ERROR_FILE_NOT_FOUND} ? 0 : error, "deleting " + company);
    }
}

void SetSharedBytes(const std::string& section, const std::string& name, DWORD type, const Bytes& bytes)
{
    SetBytes(HKEY_LOCAL_MACHINE, SectionPath(sharedCompany, section), name, type, bytes);
}

void SetUserBytes(const std::string& section, const std::string& name, DWORD type, const Bytes& bytes)
{
    SetBytes(HKEY_CURRENT_USER, SectionPath(userCompany, section), name, type, bytes);
}

void SetSharedString(const std::string& section, const std::string& name, const std::string& text)
{
    SetSharedBytes(section, name, REG_SZ, TextBytes(text));
}

void SetUserString(const std::string& section, const std::string& name, const std::string& text)
{
    SetUserBytes(section, name, REG_SZ, TextBytes(text));
}

void SetMachineString(const std::string& path, const std::string& name, const std::string& text)
{
    SetBytes(HKEY_LOCAL_MACHINE, path, name, REG_SZ, TextBytes(text));
}

void AddAccount(const std::string& name, const std::string& localFolder, const std::string& lastUpdate)
{
    SetSharedString("Accounts\\" + name, "LocalFolder", localFolder);
    SetSharedString("Accounts\\" + name, "LastUpdate", lastUpdate);
}
} // namespace sndxtest
