#include "tests/support/dataobject.h"

#include "tests/support/text.h"

namespace sndxtest
{
namespace
{
std::atomic<int> liveObjects{0};
std::atomic<int> liveMediums{0};

// Owner of one medium: its last release is what ReleaseStgMedium does to a medium with an owner.
class MediumOwner final : public sndxtools::ComObject<IUnknown>
{
  public:
    explicit MediumOwner(HGLOBAL block) : ComObject(IID_IUnknown), block_(block) { ++liveMediums; }
    ~MediumOwner() override
    {
        GlobalFree(block_);
        --liveMediums;
    }

  private:
    HGLOBAL block_;
};

class Object final : public sndxtools::DropData
{
  public:
    Object(const std::vector<WideString>& paths, DropOptions options)
        : DropData(paths, options.narrow), options_(options)
    {
        ++liveObjects;
    }
    ~Object() override { --liveObjects; }
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC* format) override
    {
        return options_.noDropFormat ? DV_E_FORMATETC : DropData::QueryGetData(format);
    }
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC* format, STGMEDIUM* medium) override
    {
        HRESULT result = DropData::GetData(format, medium);
        if (result == S_OK && (options_.failGetData || options_.nullBlock))
        {
            GlobalFree(medium->hGlobal);
            medium->hGlobal = nullptr;
        }
        if (result == S_OK && options_.failGetData)
        {
            medium->tymed = TYMED_NULL;
            result = E_OUTOFMEMORY;
        }
        if (result == S_OK && options_.withOwner)
        {
            medium->pUnkForRelease = new MediumOwner(medium->hGlobal);
        }
        return result;
    }

  private:
    const DropOptions options_;
};
} // namespace

sndxtools::ComRef<IDataObject> MakeDropDataObject(const std::vector<std::string>& paths, DropOptions options)
{
    std::vector<WideString> wide;
    for (const std::string& path : paths)
    {
        wide.push_back(Wide(path));
    }
    return sndxtools::ComRef<IDataObject>::Adopt(new Object(wide, options));
}

int LiveDropObjects()
{
    return liveObjects;
}

int LiveDropMediums()
{
    return liveMediums;
}
} // namespace sndxtest
