#pragma once
// Data objects as the shell hands them to an extension: dropped files in global memory, and everything that
// can be wrong with them.

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <windows.h>
#include <shlobj.h>

namespace sndxtest
{
struct DropOptions
{
    bool noDropFormat = false; // does not know CF_HDROP
    bool failGetData = false;  // says that it has CF_HDROP, then fails
    bool nullBlock = false;    // succeeds with a null global block
    bool withOwner = false;    // the medium names an owner object, which is counted and frees the block
    bool narrow = false;       // paths in the system's narrow character set
};

// A moveable global block with the given paths (UTF-8) as CF_HDROP data. The caller frees it.
HGLOBAL MakeDrop(const std::vector<std::string>& paths, bool narrow = false);

// Offers the paths as CF_HDROP in TYMED_HGLOBAL; nothing else is implemented.
class DropDataObject final : public IDataObject
{
  public:
    explicit DropDataObject(std::vector<std::string> paths, DropOptions options = {});
    DropDataObject(const DropDataObject&) = delete;
    DropDataObject& operator=(const DropDataObject&) = delete;

    // Objects not yet released for the last time, and mediums with an owner that ReleaseStgMedium has not
    // been called for.
    static int LiveObjects();
    static int LiveMediums();
    // How often GetData was called on this object.
    int GetDataCalls() const { return getDataCalls_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** result) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override;
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC* format, STGMEDIUM* medium) override;
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) override;
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC* format, FORMATETC* result) override;
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC* format, STGMEDIUM* medium, BOOL release) override;
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD direction, IEnumFORMATETC** result) override;
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC* format, DWORD flags, IAdviseSink* sink,
                                      DWORD* connection) override;
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD connection) override;
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA** result) override;

  private:
    ~DropDataObject();

    std::atomic<ULONG> references_{1};
    std::atomic<int> getDataCalls_{0};
    const std::vector<std::string> paths_;
    const DropOptions options_;
};

struct ReleaseInterface
{
    void operator()(IUnknown* object) const { object->Release(); }
};
// Holds one reference.
using DropDataObjectRef = std::unique_ptr<DropDataObject, ReleaseInterface>;
DropDataObjectRef MakeDropDataObject(std::vector<std::string> paths, DropOptions options = {});
} // namespace sndxtest
