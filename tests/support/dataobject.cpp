#include "tests/support/dataobject.h"

#include <cstring>
#include <utility>

#include "tests/support/text.h"

namespace sndxtest
{
namespace
{
std::atomic<int> liveObjects{0};
std::atomic<int> liveMediums{0};

// Owner of one medium: its last release is what ReleaseStgMedium does to a medium with an owner.
class MediumOwner final : public IUnknown
{
  public:
    explicit MediumOwner(HGLOBAL block) : block_(block) { ++liveMediums; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** result) override
    {
        *result = interfaceId == IID_IUnknown ? this : nullptr;
        if (*result == nullptr)
        {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
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
    ~MediumOwner()
    {
        GlobalFree(block_);
        --liveMediums;
    }

    std::atomic<ULONG> references_{1};
    HGLOBAL block_;
};

std::string Narrow(const WideString& text)
{
    if (text.empty())
    {
        return {};
    }
    const int units = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_ACP, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), units, result.data(), length, nullptr, nullptr);
    return result;
}
} // namespace

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

DropDataObject::DropDataObject(std::vector<std::string> paths, DropOptions options)
    : paths_(std::move(paths)), options_(options)
{
    ++liveObjects;
}

DropDataObject::~DropDataObject()
{
    --liveObjects;
}

int DropDataObject::LiveObjects()
{
    return liveObjects;
}

int DropDataObject::LiveMediums()
{
    return liveMediums;
}

HRESULT DropDataObject::QueryInterface(REFIID interfaceId, void** result)
{
    *result = interfaceId == IID_IUnknown || interfaceId == IID_IDataObject ? this : nullptr;
    if (*result == nullptr)
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG DropDataObject::AddRef()
{
    return ++references_;
}

ULONG DropDataObject::Release()
{
    const ULONG left = --references_;
    if (left == 0)
    {
        delete this;
    }
    return left;
}

HRESULT DropDataObject::GetData(FORMATETC* format, STGMEDIUM* medium)
{
    ++getDataCalls_;
    *medium = STGMEDIUM{};
    const HRESULT known = QueryGetData(format);
    if (known != S_OK)
    {
        return known;
    }
    if (options_.failGetData)
    {
        return E_OUTOFMEMORY;
    }
    medium->tymed = TYMED_HGLOBAL;
    if (!options_.nullBlock)
    {
        medium->hGlobal = MakeDrop(paths_, options_.narrow);
    }
    if (options_.withOwner)
    {
        medium->pUnkForRelease = new MediumOwner(medium->hGlobal);
    }
    return S_OK;
}

HRESULT DropDataObject::QueryGetData(FORMATETC* format)
{
    if (options_.noDropFormat || format->cfFormat != CF_HDROP)
    {
        return DV_E_FORMATETC;
    }
    if (format->ptd != nullptr || format->dwAspect != DVASPECT_CONTENT || format->lindex != -1)
    {
        return DV_E_FORMATETC;
    }
    return (format->tymed & TYMED_HGLOBAL) != 0 ? S_OK : DV_E_TYMED;
}

HRESULT DropDataObject::GetDataHere(FORMATETC*, STGMEDIUM*)
{
    return E_NOTIMPL;
}

HRESULT DropDataObject::GetCanonicalFormatEtc(FORMATETC*, FORMATETC*)
{
    return E_NOTIMPL;
}

HRESULT DropDataObject::SetData(FORMATETC*, STGMEDIUM*, BOOL)
{
    return E_NOTIMPL;
}

HRESULT DropDataObject::EnumFormatEtc(DWORD, IEnumFORMATETC**)
{
    return E_NOTIMPL;
}

HRESULT DropDataObject::DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*)
{
    return OLE_E_ADVISENOTSUPPORTED;
}

HRESULT DropDataObject::DUnadvise(DWORD)
{
    return OLE_E_ADVISENOTSUPPORTED;
}

HRESULT DropDataObject::EnumDAdvise(IEnumSTATDATA**)
{
    return OLE_E_ADVISENOTSUPPORTED;
}

DropDataObjectRef MakeDropDataObject(std::vector<std::string> paths, DropOptions options)
{
    return DropDataObjectRef(new DropDataObject(std::move(paths), options));
}
} // namespace sndxtest
