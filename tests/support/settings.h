#pragma once
// The product's settings as its installer and main program write them: machine-wide ones in the 32-bit view
// of HKEY_LOCAL_MACHINE, a user's own in HKEY_CURRENT_USER, one key a section below
// sndxtools::contract::productKey. Every function throws sndxtools::CallError when the registry refuses.

#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include "tools/contract.h"

namespace sndxtest
{
// Deletes every setting of the product, machine-wide and of this user, and nothing else.
void RemoveAllSettings();

// No settings before and after the lifetime of one; a member of fixtures that write settings.
class CleanSettings
{
  public:
    CleanSettings() { RemoveAllSettings(); }
    ~CleanSettings() { RemoveAllSettings(); }
    CleanSettings(const CleanSettings&) = delete;
    CleanSettings& operator=(const CleanSettings&) = delete;
};

// Text is UTF-8 and stored with its terminator. A section may be a path ("Accounts\\A1"); an empty name is
// the key's default value.
void SetSharedString(std::string_view section, std::string_view name, std::string_view text);
void SetUserString(std::string_view section, std::string_view name, std::string_view text);

// Exactly these bytes, whatever the type: also text without terminator and half characters.
void SetSharedBytes(std::string_view section, std::string_view name, DWORD type,
                    const std::vector<BYTE>& bytes);
void SetUserBytes(std::string_view section, std::string_view name, DWORD type,
                  const std::vector<BYTE>& bytes);

// A string anywhere in HKEY_LOCAL_MACHINE, in the native view; RegDeleteTreeW removes it.
void SetMachineString(std::string_view path, std::string_view name, std::string_view text);

// One account of the product: a key below the section Accounts. localFolder is a Windows path.
void AddAccount(std::string_view name, std::string_view localFolder, std::string_view lastUpdate = "0");
} // namespace sndxtest
