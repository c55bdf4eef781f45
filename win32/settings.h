#pragma once
// Read-only access to the product's settings in the registry: one key per section below
// "Software\Taleno Software\Sendora", every setting a string value; an integer is decimal text. Machine-wide
// settings live in the 32-bit registry view. Nothing is cached: each read opens and closes its key.
//
// Outputs are buffers of LSTR characters. The getters give the caller's default when key or value cannot be
// read, without saying so.

#include "gen/types.h"

// --- Registry primitives: true when the value was read, false when the output received the default ---

// uFlags is added to the access mask of the open: 0 or KEY_WOW64_32KEY.
bool RegGetStringFlags(HKEY hRoot, const WCHAR* szKeyPath, const WCHAR* szValue, REGSAM uFlags,
                       const WCHAR* szDefault, WCHAR* szOutput);
bool RegGetString(HKEY hRoot, const WCHAR* szKeyPath, const WCHAR* szValue, const WCHAR* szDefault,
                  WCHAR* szOutput);
bool RegGetString32BitStore(HKEY hRoot, const WCHAR* szKeyPath, const WCHAR* szValue, const WCHAR* szDefault,
                            WCHAR* szOutput);

// --- Settings by section and value name ---

// The key path of a section, below the root key.
void LSettingsGetKeyPath(WCHAR* szOutput, const WCHAR* szSection);

// Machine-wide, 32-bit view. The forms without underscore return the output.
void _LSharedSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                                WCHAR* szOutput);
WCHAR* LSharedSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                                 WCHAR* szOutput);

// Of the user, 32-bit view.
void _LUserSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                              WCHAR* szOutput);
WCHAR* LUserSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                               WCHAR* szOutput);

// Of the user, native view; no trace line, so that the diagnostics can use them.
void _LUserSettingGetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                            WCHAR* szOutput);
WCHAR* LUserSettingGetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                             WCHAR* szOutput);
std::int32_t LUserSettingGet(const WCHAR* szSection, const WCHAR* szValue, std::int32_t nDefault);
