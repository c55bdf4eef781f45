#pragma once
// Owner of an open registry key.

#include "gen/types.h"

class LRegKey
{
  public:
    LRegKey() : m_hKey(nullptr) {}
    LRegKey(HKEY hRoot, const WCHAR* szKeyPath, REGSAM uAccess) : m_hKey(nullptr)
    {
        Open(hRoot, szKeyPath, uAccess);
    }
    ~LRegKey() { Close(); }
    LRegKey(const LRegKey&) = delete;
    LRegKey& operator=(const LRegKey&) = delete;

    // The system's error code; ERROR_SUCCESS when the key is open.
    LONG Open(HKEY hRoot, const WCHAR* szKeyPath, REGSAM uAccess)
    {
        Close();
        HKEY hKey = nullptr;
        const LONG nError = RegOpenKeyExW(hRoot, szKeyPath, 0, uAccess, &hKey);
        if (nError == ERROR_SUCCESS)
        {
            m_hKey = hKey;
        }
        return nError;
    }

    void Close()
    {
        if (m_hKey != nullptr)
        {
            RegCloseKey(m_hKey);
            m_hKey = nullptr;
        }
    }

    bool IsOpen() const { return m_hKey != nullptr; }
    HKEY Get() const { return m_hKey; }

  private:
    HKEY m_hKey;
};
