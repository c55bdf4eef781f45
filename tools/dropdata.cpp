#include "tools/dropdata.h"

#include <atomic>
#include <cstring>

#include <shlobj.h>

namespace sndxtools
{
namespace
{
// Offers one format, CF_HDROP in a global memory block that the receiver frees.
class DropData final : public IDataObject
{
  public:
    explicit DropData(const std::vector<WideString>& paths)
    {
        for (const WideString& path : paths)
        {
            list_.append(path.c_str(), path.size() + 1);
        }
        list_.push_back(WCHAR{}); // an empty string ends the list
    }
    virtual ~DropData() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDataObject))
        {
            *out = static_cast<IDataObject*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --references_;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) override
    {
        if (format->cfFormat != CF_HDROP || format->dwAspect != DVASPECT_CONTENT || format->lindex != -1)
        {
            return DV_E_FORMATETC;
        }
        return (format->tymed & TYMED_HGLOBAL) != 0 ? S_OK : DV_E_TYMED;
    }

    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override
    {
        const HRESULT offered = QueryGetData(format);
        if (offered != S_OK)
        {
            return offered;
        }
        const std::size_t listBytes = list_.size() * sizeof(WCHAR);
        HGLOBAL block = GlobalAlloc(GHND, sizeof(DROPFILES) + listBytes);
        void* memory = block == nullptr ? nullptr : GlobalLock(block);
        if (memory == nullptr)
        {
            return E_OUTOFMEMORY;
        }
        DROPFILES header = {};
        header.pFiles = sizeof(DROPFILES);
        header.fWide = TRUE;
        std::memcpy(memory, &header, sizeof header);
        std::memcpy(static_cast<char*>(memory) + sizeof header, list_.data(), listBytes);
        GlobalUnlock(block);
        *medium = {};
        medium->tymed = TYMED_HGLOBAL;
        medium->hGlobal = block;
        return S_OK;
    }

    // A handler only takes the paths; nothing can be put in or watched.
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return E_NOTIMPL; }

  private:
    std::atomic<ULONG> references_ = 1;
    WideString list_; // every path with its NUL, then one NUL more
};
} // namespace

ComRef<IDataObject> CreateDropData(const std::vector<WideString>& paths)
{
    return ComRef<IDataObject>::Adopt(new DropData(paths));
}
} // namespace sndxtools
