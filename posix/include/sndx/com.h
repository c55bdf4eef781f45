#pragma once
// COM's basic interfaces and data transfer, with Windows' slot order.

#include "sndx/types.h"

inline bool operator==(REFGUID first, REFGUID second)
{
    return __builtin_memcmp(&first, &second, sizeof(GUID)) == 0;
}
#define IsEqualIID(first, second) ((first) == (second))
#define IsEqualCLSID(first, second) ((first) == (second))

struct IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** result) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
};

struct IClassFactory : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID interfaceId, void** result) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) = 0;
};

// Data transfer.
using CLIPFORMAT = WORD;
#define CF_HDROP 15

#define DVASPECT_CONTENT 1u

#define TYMED_NULL 0u
#define TYMED_HGLOBAL 1u

struct DVTARGETDEVICE;
struct IEnumFORMATETC;
struct IEnumSTATDATA;
struct IAdviseSink;

struct FORMATETC
{
    CLIPFORMAT cfFormat;
    DVTARGETDEVICE* ptd;
    DWORD dwAspect;
    LONG lindex;
    DWORD tymed;
};
static_assert(sizeof(FORMATETC) == 32);

// Of the kinds of medium only global memory is known here.
struct STGMEDIUM
{
    DWORD tymed;
    union
    {
        HGLOBAL hGlobal;
        void* pstm;
    };
    IUnknown* pUnkForRelease;
};
static_assert(sizeof(STGMEDIUM) == 24);

struct IDataObject : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC* format, STGMEDIUM* medium) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC* format, FORMATETC* result) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetData(FORMATETC* format, STGMEDIUM* medium, BOOL release) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD direction, IEnumFORMATETC** result) = 0;
    virtual HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC* format, DWORD flags, IAdviseSink* sink,
                                              DWORD* connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE DUnadvise(DWORD connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA** result) = 0;
};

#define COINIT_APARTMENTTHREADED 2u

extern "C"
{
    extern const IID IID_IUnknown;
    extern const IID IID_IClassFactory;
    extern const IID IID_IDataObject;

    // Frees the medium, or leaves that to its owner object when it names one, and empties it.
    void WINAPI ReleaseStgMedium(STGMEDIUM* medium);

    // There are no apartments here: any thread may call any object.
    HRESULT WINAPI CoInitializeEx(LPVOID reserved, DWORD model);
    void WINAPI CoUninitialize();
}
