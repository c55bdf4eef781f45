#pragma once
// The product's settings as its installer and main program write them: machine-wide ones in the 32-bit view
// of HKEY_LOCAL_MACHINE, a user's own in HKEY_CURRENT_USER, one key a section below
// sndxtools::contract::productKey. Every function throws sndxtools::CallError when the registry refuses.

#include <string>
#include <vector>

#include <windows.h>

#include "tools/contract.h"

namespace sndxtest
{
using Bytes = std::vector<BYTE>;

// Deletes the company's whole key, machine-wide in the 32-bit view and of this user: settings of other
// products go, too, so a user's own registry is no place for tests.
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
void SetSharedString(const std::string& section, const std::string& name, const std::string& text);
void SetUserString(const std::string& section, const std::string& name, const std::string& text);

// Exactly these bytes, whatever the type: also text without terminator and half characters.
void SetSharedBytes(const std::string& section, const std::string& name, DWORD type, const Bytes& bytes);
void SetUserBytes(const std::string& section, const std::string& name, DWORD type, const Bytes& bytes);

// A string anywhere in HKEY_LOCAL_MACHINE, in the native view; RegDeleteTreeW removes it.
void SetMachineString(const std::string& path, const std::string& name, const std::string& text);

// One account of the product: a key below the section Accounts. localFolder is a Windows path.
void AddAccount(const std::string& name, const std::string& localFolder, const std::string& lastUpdate = "0");
} // namespace sndxtest
