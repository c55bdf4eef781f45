#include "win32/settings.h"

#include "gen/debug.h"
#include "gen/stringtools.h"
#include "win32/regkey.h"

bool RegGetStringFlags(HKEY hRoot, const WCHAR* szKeyPath, const WCHAR* szValue, REGSAM uFlags,
                       const WCHAR* szDefault, WCHAR* szOutput)
{
    LCHECKMEMORYWRITEABLE(szOutput);
    LDEBUGVALIDWIN32STRINGF(szKeyPath);
    const LRegKey key(hRoot, szKeyPath, KEY_QUERY_VALUE | uFlags);
    if (!key.IsOpen())
    {
        tstrcpy(szOutput, szDefault);
        return false;
    }
    LCHECKMEMORYWRITEABLE(szOutput);
    LDEBUGVALIDWIN32STRINGF(szValue);
    // The type is not asked for: a value of another type than text gives the text units that its bytes make
    // (contract.md O20). Value and key names: S1 to S12.
    DWORD uBytes = LSTR * sizeof(WCHAR);
    if (RegQueryValueExW(key.Get(), szValue, nullptr, nullptr, reinterpret_cast<BYTE*>(szOutput), &uBytes) !=
        ERROR_SUCCESS)
    {
        tstrcpy(szOutput, szDefault);
        return false;
    }
    // Stored text need not carry its terminator.
    const std::size_t n = uBytes / sizeof(WCHAR);
    szOutput[n >= LSTR ? LSTR - 1 : n] = 0;
    return true;
}

bool RegGetString(HKEY hRoot, const WCHAR* szKeyPath, const WCHAR* szValue, const WCHAR* szDefault,
                  WCHAR* szOutput)
{
    return RegGetStringFlags(hRoot, szKeyPath, szValue, 0, szDefault, szOutput);
}

bool RegGetString32BitStore(HKEY hRoot, const WCHAR* szKeyPath, const WCHAR* szValue, const WCHAR* szDefault,
                            WCHAR* szOutput)
{
    return RegGetStringFlags(hRoot, szKeyPath, szValue, KEY_WOW64_32KEY, szDefault, szOutput);
}

void LSettingsGetKeyPath(WCHAR* szOutput, const WCHAR* szSection)
{
    LCHECKMEMORYWRITEABLE(szOutput);
    tsnprintf(szOutput, LSTR, TEXT("Software\\Taleno Software\\Sendora\\%s"), szSection);
}

void _LSharedSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                                WCHAR* szOutput)
{
    LDebugTraceFunction("_LSharedSetting32GetString", false, "");
    LCHECKMEMORYWRITEABLE(szOutput);
    WCHAR szKeyPath[LSTR];
    LSettingsGetKeyPath(szKeyPath, szSection);
    RegGetString32BitStore(HKEY_LOCAL_MACHINE, szKeyPath, szValue, szDefault, szOutput);
}

WCHAR* LSharedSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                                 WCHAR* szOutput)
{
    _LSharedSetting32GetString(szSection, szValue, szDefault, szOutput);
    return szOutput;
}

void _LUserSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                              WCHAR* szOutput)
{
    LDebugTraceFunction("_LUserSetting32GetString", false, "");
    WCHAR szKeyPath[LSTR];
    LSettingsGetKeyPath(szKeyPath, szSection);
    RegGetString32BitStore(HKEY_CURRENT_USER, szKeyPath, szValue, szDefault, szOutput);
}

WCHAR* LUserSetting32GetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                               WCHAR* szOutput)
{
    _LUserSetting32GetString(szSection, szValue, szDefault, szOutput);
    return szOutput;
}

void _LUserSettingGetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                            WCHAR* szOutput)
{
    WCHAR szKeyPath[LSTR];
    LSettingsGetKeyPath(szKeyPath, szSection);
    RegGetString(HKEY_CURRENT_USER, szKeyPath, szValue, szDefault, szOutput);
}

WCHAR* LUserSettingGetString(const WCHAR* szSection, const WCHAR* szValue, const WCHAR* szDefault,
                             WCHAR* szOutput)
{
    _LUserSettingGetString(szSection, szValue, szDefault, szOutput);
    return szOutput;
}

std::int32_t LUserSettingGet(const WCHAR* szSection, const WCHAR* szValue, std::int32_t nDefault)
{
    WCHAR szText[LSTR];
    return LStringToIntDefault(LUserSettingGetString(szSection, szValue, TEXT(""), szText), nDefault);
}
