#pragma once
// A data object as the shell hands it to a handler: a selection of items in the CF_HDROP format.

#include <string>
#include <vector>

#include "tools/comobject.h"
#include "tools/comref.h"
#include "tools/text.h"

namespace sndxtools
{
// Offers one format, CF_HDROP in a global memory block that the receiver frees. A handler only takes the
// paths; nothing can be put in or watched.
class DropData : public ComObject<IDataObject>
{
  public:
    // The paths need not exist, may lie in several folders and have any length; they are passed on as given,
    // or narrow, in the system's narrow character set.
    explicit DropData(const std::vector<WideString>& paths, bool narrow = false);

    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) override;
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override;
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC*, STGMEDIUM*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC*, FORMATETC*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC*, STGMEDIUM*, BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD, IEnumFORMATETC**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC*, DWORD, IAdviseSink*, DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA**) override { return E_NOTIMPL; }

  private:
    std::string block_; // a DROPFILES structure, then the paths
};
} // namespace sndxtools
