#pragma once
// Records and their iteration: a record names one key of the machine-wide settings, the iterator walks the
// sub-keys of a record. A record holds no open key and can be copied freely; only the iterator holds one.

#include "gen/compiler.h"
#include "gen/debug.h"
#include "gen/stringtools.h"
#include "win32/regkey.h"
#include "win32/settings.h"

class LSharedSettings32Record
{
  public:
    // An invalid record: no key path.
    LSharedSettings32Record();
    explicit LSharedSettings32Record(const WCHAR* szSection);
    LSharedSettings32Record(const LSharedSettings32Record& other);
    LSharedSettings32Record& operator=(const LSharedSettings32Record&) = delete;

    bool IsValid() const;

    // On an invalid record these are reported and go on with the root key itself (contract.md O29).
    void GetString(const WCHAR* szValue, const WCHAR* szDefault, WCHAR* szOutput) const;
    std::int32_t GetInt(const WCHAR* szValue, std::int32_t nDefault) const;
    void OpenSubRecord(const WCHAR* szName, LSharedSettings32Record& output) const;

    HKEY GetRoot() const { return m_hRoot; }
    const WCHAR* GetPrimaryKey() const { return m_szPrimaryKey; }
    const WCHAR* GetKeyPath() const { return m_szKeyPath; }
    // Makes the record invalid.
    void Invalidate() { m_szKeyPath[0] = 0; }

    // The registry view of every record.
    static constexpr REGSAM uView = KEY_WOW64_32KEY;

  private:
    bool HasKeyPath() const { return m_szKeyPath[0] != 0; }
    void ReportIfInvalid(const char* szFunction) const;

    HKEY m_hRoot;               // HKEY_LOCAL_MACHINE
    WCHAR m_szPrimaryKey[LSTR]; // section, or the name of the sub-key alone
    WCHAR m_szKeyPath[LSTR];    // full path below the root; empty means invalid
};
static_assert(sizeof(LSharedSettings32Record) == 1048); // contract.md M11

template <class TRecord>
class LSettings32ListIteratorTemplate
{
  public:
    explicit LSettings32ListIteratorTemplate(const TRecord& parent) : m_uIndex(0), m_Parent(parent)
    {
        InitCommon();
    }
    LSettings32ListIteratorTemplate(const LSettings32ListIteratorTemplate&) = delete;
    LSettings32ListIteratorTemplate& operator=(const LSettings32ListIteratorTemplate&) = delete;

    bool IsValid() const { return m_Current.IsValid(); }
    // The sub-record of the current sub-key, inside the iterator.
    const TRecord& GetRecord() const { return m_Current; }

    // To the next sub-key, in the registry's own order; invalid behind the last one and ever after.
    void Next()
    {
        const std::uint32_t uIndex = m_uIndex;
        ++m_uIndex;
        WCHAR szName[LSTR];
        if (m_Key.IsOpen() && RegEnumKeyW(m_Key.Get(), uIndex, szName, LSTR) == ERROR_SUCCESS)
        {
            m_Parent.OpenSubRecord(szName, m_Current);
        }
        else
        {
            m_Current.Invalidate();
        }
    }

  private:
    void InitCommon()
    {
        static_assert(sizeof(LSettings32ListIteratorTemplate) == 2112 &&
                      offsetof(LSettings32ListIteratorTemplate, m_Current) == 1064); // contract.md M12
        LDebugTraceFunction(
            LTemplateFunctionName<"LSettings32ListIteratorTemplate<", TRecord, ">::InitCommon">::value, false,
            "");
        m_uIndex = 0;
        const LONG nError =
            m_Key.Open(m_Parent.GetRoot(), m_Parent.GetKeyPath(), KEY_ENUMERATE_SUB_KEYS | TRecord::uView);
        if (nError != ERROR_SUCCESS)
        {
            LDebugTraceSystemError("RegOpenKeyEx failed:", static_cast<DWORD>(nError));
            return;
        }
        Next();
    }

    std::uint32_t m_uIndex;
    LRegKey m_Key;
    TRecord m_Parent;
    TRecord m_Current;
};
