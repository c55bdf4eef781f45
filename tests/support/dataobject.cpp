#include "tests/support/dataobject.h"

#include <atomic>
#include <cstring>
#include <utility>

#include "tests/support/text.h"

namespace sndxtest
{
namespace
{
std::atomic<int> liveObjects{0};
std::atomic<int> liveMediums{0};

// An object of the interface, counted in a number of live ones.
template <class Interface>
class Counted : public Interface
{
  public:
    Counted(REFIID ownId, std::atomic<int>& live) : ownId_(ownId), live_(live) { ++live_; }
    virtual ~Counted() { --live_; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** result) override
    {
        *result = interfaceId == IID_IUnknown || interfaceId == ownId_ ? this : nullptr;
        references_ += *result == nullptr ? 0 : 1;
        return *result == nullptr ? E_NOINTERFACE : S_OK;
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

  private:
    std::atomic<ULONG> references_{1};
    const IID ownId_;
    std::atomic<int>& live_;
};

// Owner of one medium: its last release is what ReleaseStgMedium does to a medium with an owner.
class MediumOwner final : public Counted<IUnknown>
{
  public:
    explicit MediumOwner(HGLOBAL block) : Counted(IID_IUnknown, liveMediums), block_(block) {}
    ~MediumOwner() override { GlobalFree(block_); }

  private:
    HGLOBAL block_;
};

std::string Narrow(const WideString& text)
{
    const int units = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_ACP, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), units, result.data(), length, nullptr, nullptr);
    return result;
}

// A moveable global block with the paths as CF_HDROP data.
HGLOBAL MakeDrop(const std::vector<std::string>& paths, bool narrow)
{
    WideString list;
    for (const std::string& path : paths)
    {
        list += Wide(path);
        list += WCHAR{};
    }
    // Wine takes the first name unseen: the end of an empty list is made twice as long, or it reads on
    // behind the block (and counts one name, where Windows counts none).
    list.append(paths.empty() ? 2 : 1, WCHAR{});
    const std::string narrowList = narrow ? Narrow(list) : std::string();
    const void* const bytes = narrow ? static_cast<const void*>(narrowList.data()) : list.data();
    const std::size_t size = narrow ? narrowList.size() : list.size() * sizeof(WCHAR);

    HGLOBAL block = GlobalAlloc(GHND, sizeof(DROPFILES) + size);
    DROPFILES* drop = static_cast<DROPFILES*>(GlobalLock(block));
    drop->pFiles = sizeof(DROPFILES);
    drop->fWide = narrow ? FALSE : TRUE;
    std::memcpy(drop + 1, bytes, size);
    GlobalUnlock(block);
    return block;
}

class Object final : public Counted<DropDataObject>
{
  public:
    Object(std::vector<std::string> paths, DropOptions options)
        : Counted(IID_IDataObject, liveObjects), paths_(std::move(paths)), options_(options)
    {
    }
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override
    {
        *medium = STGMEDIUM{};
        const HRESULT known = QueryGetData(format);
        if (known != S_OK || options_.failGetData)
        {
            return known != S_OK ? known : E_OUTOFMEMORY;
        }
        medium->tymed = TYMED_HGLOBAL;
        medium->hGlobal = options_.nullBlock ? nullptr : MakeDrop(paths_, options_.narrow);
        medium->pUnkForRelease = options_.withOwner ? new MediumOwner(medium->hGlobal) : nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) override
    {
        if (options_.noDropFormat || format->cfFormat != CF_HDROP || format->ptd != nullptr ||
            format->dwAspect != DVASPECT_CONTENT || format->lindex != -1)
        {
            return DV_E_FORMATETC;
        }
        return (format->tymed & TYMED_HGLOBAL) != 0 ? S_OK : DV_E_TYMED;
    }
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return E_NOTIMPL; }

  private:
    const std::vector<std::string> paths_;
    const DropOptions options_;
};
} // namespace

int DropDataObject::LiveObjects()
{
    return liveObjects;
}

int DropDataObject::LiveMediums()
{
    return liveMediums;
}

DropDataObjectRef MakeDropDataObject(std::vector<std::string> paths, DropOptions options)
{
    return DropDataObjectRef(new Object(std::move(paths), options));
}
} // namespace sndxtest
