#include "win32/settingsrecord.h"

LSharedSettings32Record::LSharedSettings32Record()
    : m_hRoot(HKEY_LOCAL_MACHINE), m_szPrimaryKey{}, m_szKeyPath{}
{
    LDebugTraceFunction("LSharedSettings32Record::LSharedSettings32Record", false, "");
}

LSharedSettings32Record::LSharedSettings32Record(const WCHAR* szSection)
    : m_hRoot(HKEY_LOCAL_MACHINE), m_szPrimaryKey{}, m_szKeyPath{}
{
    static_assert(offsetof(LSharedSettings32Record, m_szPrimaryKey) == 8 &&
                  offsetof(LSharedSettings32Record, m_szKeyPath) == 528); // contract.md M11
    LDebugTraceFunction("LSharedSettings32Record::LSharedSettings32Record", false, "");
    tstrlcpy(m_szPrimaryKey, szSection);
    LSettingsGetKeyPath(m_szKeyPath, szSection);
    LDebugTraceFunction("LSharedSettings32Record::LSharedSettings32Record", false, m_szKeyPath);
}

LSharedSettings32Record::LSharedSettings32Record(const LSharedSettings32Record& other)
    : m_hRoot(other.m_hRoot), m_szPrimaryKey{}, m_szKeyPath{}
{
    LDebugTraceFunction("LSharedSettings32Record::LSharedSettings32Record", false, "");
    tstrlcpy(m_szPrimaryKey, other.m_szPrimaryKey);
    tstrlcpy(m_szKeyPath, other.m_szKeyPath);
}

bool LSharedSettings32Record::IsValid() const
{
    LDebugTraceFunction("LSharedSettings32Record::IsValid", false, "");
    return HasKeyPath();
}

void LSharedSettings32Record::ReportIfInvalid(const char* szFunction) const
{
    if (!HasKeyPath())
    {
        LDebugTraceFunction(szFunction, true, "Attempting to access an invalid LSharedSettings32Record");
    }
}

void LSharedSettings32Record::GetString(const WCHAR* szValue, const WCHAR* szDefault, WCHAR* szOutput) const
{
    LDebugTraceFunction("LSharedSettings32Record::GetString", false, "");
    ReportIfInvalid("LSharedSettings32Record::GetString");
    RegGetString32BitStore(m_hRoot, m_szKeyPath, szValue, szDefault, szOutput);
}

std::int32_t LSharedSettings32Record::GetInt(const WCHAR* szValue, std::int32_t nDefault) const
{
    LDebugTraceFunction("LSharedSettings32Record::GetInt", false, "");
    ReportIfInvalid("LSharedSettings32Record::GetInt");
    WCHAR szText[LSTR];
    GetString(szValue, TEXT(""), szText);
    return LStringToIntDefault(szText, nDefault);
}

void LSharedSettings32Record::OpenSubRecord(const WCHAR* szName, LSharedSettings32Record& output) const
{
    LDebugTraceFunction("LSharedSettings32Record::OpenSubRecord", false, "");
    ReportIfInvalid("LSharedSettings32Record::OpenSubRecord");
    output.m_hRoot = m_hRoot;
    tstrlcpy(output.m_szPrimaryKey, szName, LSTR);
    tsnprintf(output.m_szKeyPath, LSTR, TEXT("%s\\%s"), m_szKeyPath, szName);
}
