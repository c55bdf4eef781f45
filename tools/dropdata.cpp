#include "tools/dropdata.h"

#include <cstring>

#include <shlobj.h>

namespace sndxtools
{
DropData::DropData(const std::vector<WideString>& paths, bool narrow) : ComObject(IID_IDataObject)
{
    WideString list;
    for (const WideString& path : paths)
    {
        list.append(path.c_str(), path.size() + 1);
    }
    // An empty string ends the list. Wine takes the first name unseen: the end of an empty list is made twice
    // as long, or it reads on behind the block (and counts one name, where Windows counts none).
    list.append(paths.empty() ? 2 : 1, WCHAR{});
    DROPFILES header = {};
    header.pFiles = sizeof header;
    header.fWide = narrow ? FALSE : TRUE;
    block_.assign(reinterpret_cast<const char*>(&header), sizeof header);
    if (narrow)
    {
        block_ += Encoded(list, CP_ACP);
        return;
    }
    block_.append(reinterpret_cast<const char*>(list.data()), list.size() * sizeof(WCHAR));
}

HRESULT DropData::QueryGetData(FORMATETC* format)
{
    if (format->cfFormat != CF_HDROP || format->ptd != nullptr || format->dwAspect != DVASPECT_CONTENT ||
        format->lindex != -1)
    {
        return DV_E_FORMATETC;
    }
    return (format->tymed & TYMED_HGLOBAL) != 0 ? S_OK : DV_E_TYMED;
}

HRESULT DropData::GetData(FORMATETC* format, STGMEDIUM* medium)
{
    *medium = {};
    const HRESULT offered = QueryGetData(format);
    if (offered != S_OK)
    {
        return offered;
    }
    const HGLOBAL block = GlobalAlloc(GHND, block_.size());
    void* const memory = block == nullptr ? nullptr : GlobalLock(block);
    if (memory == nullptr)
    {
        return E_OUTOFMEMORY;
    }
    std::memcpy(memory, block_.data(), block_.size());
    GlobalUnlock(block);
    medium->tymed = TYMED_HGLOBAL;
    medium->hGlobal = block;
    return S_OK;
}
} // namespace sndxtools
