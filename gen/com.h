#pragma once
// The frame of every COM object of the module: implementation bases for one and two interfaces, a class
// factory, an owning holder, and a registry of live objects that catches double deletes, over-releases and
// leaks. Misuse is reported as an error line and the operation carries on.
//
// Reference counts are plain 32-bit integers: AddRef and Release of an object belong to one thread at a time,
// as its apartment guarantees; other methods may run on several (dll/overlay.h). The registry may be used on
// any thread.

#include <atomic>

#include <unknwn.h>

#include "gen/compiler.h"
#include "gen/debug.h"
#include "gen/list.h"
// The one include that runs up from gen/: the registry owns its lock, and its name and place are fixed by the
// reports that name gen/com (contract.md T23).
#include "win32/mutex.h"

// Byte-for-byte equality.
bool LIsEqualGuid(const GUID& a, const GUID& b);
// One trace line "GUID = …".
void LDebugTraceGuid(const GUID& guid);

// Registry of the live COM objects of the module; g_ComDiagnostic is the only one in it.
class LComDiagnostic
{
  public:
    struct Item : LListable
    {
        const void* pObject;
        WCHAR szName[LSTR];
    };
    static_assert(sizeof(Item) == 544); // contract.md M22

    LComDiagnostic() = default;
    // Reports every object that is still registered.
    ~LComDiagnostic();
    LComDiagnostic(const LComDiagnostic&) = delete;
    LComDiagnostic& operator=(const LComDiagnostic&) = delete;

    // False when there is no memory for the item; the object is then not registered.
    bool ObjectCreate(const void* pObject, const WCHAR* szName);
    void ObjectDelete(const void* pObject);
    bool ObjectExists(const void* pObject);
    // True while any object is registered or is just ending: the module must not be unloaded then.
    bool AnyObjectExists();

    // Covers the end of an object, from before it leaves the registry until its memory is released: another
    // thread that asks meanwhile must not be told that the module can go. What is left behind it are the few
    // instructions of the return from Release, as in every COM server.
    class Ending
    {
      public:
        Ending() { s_nEnding.fetch_add(1, std::memory_order_relaxed); }
        ~Ending() { s_nEnding.fetch_sub(1, std::memory_order_release); }
        Ending(const Ending&) = delete;
        Ending& operator=(const Ending&) = delete;
    };

  private:
    static std::atomic<std::int32_t> s_nEnding; // objects that are just ending

    LLockObject m_Lock;
    LList<Item> m_Items;
};
static_assert(sizeof(LComDiagnostic) == 64); // contract.md M22

extern LComDiagnostic g_ComDiagnostic;

namespace LComDetail
{
// The bookkeeping that both implementation bases share: reference count, plain (contract.md O2), and
// registration, under one name for all (T30).
class Counted
{
  public:
    explicit Counted(const void* pObject)
        : m_uReferences(0), m_bRegistered(g_ComDiagnostic.ObjectCreate(pObject, TEXT("LComImplementation")))
    {
    }

    ULONG AddRef() { return ++m_uReferences; }
    // The new count; the caller deletes the object when it is 0.
    ULONG Release(const void* pObject);
    void Destroy(const void* pObject);
    bool IsRegistered() const { return m_bRegistered; }

  private:
    std::uint32_t m_uReferences;
    bool m_bRegistered;
};
static_assert(sizeof(Counted) == 8); // contract.md M19, M20
} // namespace LComDetail

// The body of both implementation bases: reference count, registration and the end of the object. The
// concrete class supplies QueryInterface and the interfaces' methods. The destructor stands behind the
// methods of the first table, in two slots; with two interfaces the identity pointer is the first table's,
// and the IUnknown entries of the second adjust the pointer and share the count (contract.md M19, M20).
template <class... Interfaces>
class LComImplementationOf : public Interfaces...
{
  public:
    LComImplementationOf() : m_Counted(this) {}
    LComImplementationOf(const LComImplementationOf&) = delete;
    LComImplementationOf& operator=(const LComImplementationOf&) = delete;

    ULONG STDMETHODCALLTYPE AddRef() override { return m_Counted.AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG uReferences = m_Counted.Release(this);
        if (uReferences == 0)
        {
            const LComDiagnostic::Ending ending;
            delete this;
        }
        return uReferences;
    }

    // False when the registry had no memory for the object: it must not be handed out then.
    bool IsRegistered() const { return m_Counted.IsRegistered(); }

    virtual ~LComImplementationOf() { m_Counted.Destroy(this); }

  private:
    LComDetail::Counted m_Counted;
};

// The names under which the bases are used; reports call both "LComImplementation" (contract.md T29).
template <class I>
using LComImplementation = LComImplementationOf<I>;
template <class I1, class I2>
using LComImplementation2 = LComImplementationOf<I1, I2>;

// Non-owning reference with a tested-before-use rule; contract.md M21.
template <class T>
class LComInterfaceRef
{
  public:
    LComInterfaceRef() : m_p(nullptr), m_bTested(false)
    {
        static_assert(sizeof(LComInterfaceRef) == 16 && offsetof(LComInterfaceRef, m_bTested) == 8); // M21
    }

    T* operator->() const
    {
        if (!m_bTested)
        {
            LDebugTraceError(
                "LComInterfaceRef<T>::operator->() - attempting to dereference a COM object without "
                "testing it first");
        }
        if (m_p == nullptr)
        {
            LDebugTraceError("LComInterfaceRef<T>::operator->() - attempting to dereference a NULL object");
        }
        return m_p;
    }

  protected:
    T* m_p;
    bool m_bTested;
};

// Owning holder of a newly created implementation object: one reference for the holder's life.
template <class T>
class LComObject : public LComInterfaceRef<T>
{
  public:
    explicit LComObject(T* pNewImplementation)
    {
        if (pNewImplementation == nullptr)
        {
            // The line is a constant of the report: support tools look for it (contract.md T24).
            LDebugAssertFailed(LTemplateFunctionName<"LComObject<", T, ">::LComObject">::value,
                               "pNewImplementation != NULL", __FILE__, 755);
        }
        this->m_bTested = true;
        this->m_p = pNewImplementation;
        if (this->m_p != nullptr)
        {
            this->m_p->AddRef();
        }
    }
    ~LComObject()
    {
        if (this->m_p != nullptr)
        {
            this->m_p->Release();
        }
    }
    LComObject(const LComObject&) = delete;
    LComObject& operator=(const LComObject&) = delete;

    // Queries the new object for the interface that its creator was asked for. Without memory for the object
    // or its registration nothing is handed out: E_OUTOFMEMORY, *ppv null.
    HRESULT QueryNew(REFIID riid, void** ppv)
    {
        if (this->m_p == nullptr || !(*this)->IsRegistered())
        {
            *ppv = nullptr;
            return E_OUTOFMEMORY;
        }
        return (*this)->QueryInterface(riid, ppv);
    }
};

template <class T>
class LComClassFactory : public LComImplementation<IClassFactory>
{
  public:
    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (ppv == nullptr)
        {
            return E_POINTER;
        }
        *ppv = nullptr;
        if (!LIsEqualGuid(riid, IID_IClassFactory) && !LIsEqualGuid(riid, IID_IUnknown))
        {
            return E_NOINTERFACE;
        }
        *ppv = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }

    // IClassFactory
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pOuter, REFIID riid, void** ppv) override
    {
        if (ppv == nullptr)
        {
            return E_POINTER;
        }
        *ppv = nullptr;
        if (pOuter != nullptr)
        {
            return CLASS_E_NOAGGREGATION;
        }
        // The line is a constant of the allocation record: support tools look for it (contract.md T25).
        LComObject<T> object(
            new (__FILE__, LTemplateFunctionName<"LComClassFactory<", T, ">::CreateInstance">::value, 804) T);
        return object.QueryNew(riid, ppv);
    }

    // Nothing is counted: every live object keeps the module loaded by itself (contract.md O4).
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};
