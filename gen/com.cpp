#include "gen/com.h"

#include <string.h>

#include "gen/stringtools.h"

constinit std::atomic<std::int32_t> LComDiagnostic::s_nEnding{0};

bool LIsEqualGuid(const GUID& a, const GUID& b)
{
    return memcmp(&a, &b, sizeof(GUID)) == 0;
}

void LDebugTraceGuid(const GUID& guid)
{
    const auto big16 = [&guid](std::size_t i)
    { return static_cast<unsigned>(guid.Data4[i]) << 8 | guid.Data4[i + 1]; };
    LDebugTraceF("GUID = %8.8x %4.4x %4.4x %4.4x %4.4x%8.8x", static_cast<unsigned>(guid.Data1),
                 static_cast<unsigned>(guid.Data2), static_cast<unsigned>(guid.Data3), big16(0), big16(2),
                 big16(4) << 16 | big16(6));
}

bool LComDiagnostic::ObjectCreate(const void* pObject, const WCHAR* szName)
{
    LDebugTrace("LComDiagnostic::ObjectCreate this=",
                static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(pObject)));
    // The line is a constant of the allocation record: support tools look for it (contract.md T26).
    Item* pItem = new (__FILE__, "LComDiagnostic::ObjectCreate", 20) Item;
    if (pItem == nullptr)
    {
        return false;
    }
    pItem->pObject = pObject;
    tstrlcpy(pItem->szName, szName);
    LLockObject::ResetLockThread();
    LLockObjectScope lock(m_Lock);
    m_Items.AddTop(pItem);
    return true;
}

void LComDiagnostic::ObjectDelete(const void* pObject)
{
    bool bFound = false;
    {
        LLockObject::ResetLockThread();
        LLockObjectScope lock(m_Lock);
        LListIterator<Item> it(m_Items);
        while (!bFound && it.IsValid())
        {
            bFound = it->pObject == pObject;
            if (bFound)
            {
                m_Items.Delete(it);
            }
            else
            {
                it.Next();
            }
        }
    }
    if (!bFound)
    {
        LDebugTraceError("LComDiagnostic::ObjectDelete Possible attempt to delete an object twice!");
    }
}

bool LComDiagnostic::ObjectExists(const void* pObject)
{
    LLockObject::ResetLockThread();
    LLockObjectScope lock(m_Lock);
    for (LListIterator<Item> it(m_Items); it.IsValid(); it.Next())
    {
        if (it->pObject == pObject)
        {
            return true;
        }
    }
    return false;
}

bool LComDiagnostic::AnyObjectExists()
{
    LLockObject::ResetLockThread();
    LLockObjectScope lock(m_Lock);
    // In this order: an object is counted as ending before it leaves the list.
    return !m_Items.IsEmpty() || s_nEnding.load(std::memory_order_acquire) > 0;
}

LComDiagnostic::~LComDiagnostic()
{
    LDebugTrace("LComDiagnostic::~LComDiagnostic");
    for (LListIterator<Item> it(m_Items); it.IsValid(); it.Next())
    {
        LDebugTraceError("LComDiagnostic::~LComDiagnostic COM Object has not been properly released!");
        LDebugTraceError("LComDiagnostic::~LComDiagnostic szObjectName=", it->szName);
        LDebugTraceError("LComDiagnostic::~LComDiagnostic this=",
                         static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(it->pObject)));
    }
    m_Items.DeleteAll();
}

ULONG LComDetail::Counted::Release(const void* pObject)
{
    if (m_bRegistered && !g_ComDiagnostic.ObjectExists(pObject))
    {
        LDebugTraceError(
            "LComImplementation<I>::Release called on an object which possibly has already been deleted!");
    }
    if (m_uReferences == 0)
    {
        LDebugTraceError(
            "LComImplementation<I>::Release is being called too often (check AddRefs and Releases match)");
    }
    return --m_uReferences; // from 0 to 0xFFFFFFFF: the object is left alive (contract.md O5)
}

void LComDetail::Counted::Destroy(const void* pObject)
{
    if (m_uReferences != 0)
    {
        LDebugTraceError("LComImplementation<I>::~LComImplementation() is being deleted prematurely");
    }
    if (m_bRegistered)
    {
        g_ComDiagnostic.ObjectDelete(pObject);
    }
}
