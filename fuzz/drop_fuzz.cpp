// A selection of any content: what the menu takes from it, what it decides, and that it gives everything
// back.

#include <cstring>

#include <shlobj.h>

#include "dll/contextmenu.h"
#include "dll/folders.h"
#include "fuzz/fuzz.h"
#include "tools/comobject.h"
#include "tools/dropdata.h"

using namespace sndxfuzz;

namespace
{
int g_mediums = 0; // not released yet

class Owner final : public sndxtools::ComObject<IUnknown>
{
  public:
    explicit Owner(HGLOBAL block) : ComObject(IID_IUnknown), block_(block) { ++g_mediums; }
    ~Owner() override
    {
        GlobalFree(block_);
        --g_mediums;
    }

  private:
    HGLOBAL block_;
};

// Hands out the bytes as they are, in a medium of the given kind and with the given result.
class Selection final : public sndxtools::DropData
{
  public:
    Selection(std::string bytes, DWORD tymed, HRESULT result)
        : DropData({}), bytes_(std::move(bytes)), tymed_(tymed), result_(result)
    {
    }
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC*, STGMEDIUM* medium) override
    {
        *medium = {};
        medium->tymed = tymed_;
        if (FAILED(result_))
        {
            // What a failed call leaves is nobody's to release: neither the block nor this object.
            medium->hGlobal = reinterpret_cast<HGLOBAL>(std::uintptr_t{0x77});
            medium->pUnkForRelease = this;
            return result_;
        }
        const HGLOBAL block = GlobalAlloc(GHND, bytes_.size());
        void* const memory = bytes_.empty() ? nullptr : GlobalLock(block);
        if (memory != nullptr)
        {
            std::memcpy(memory, bytes_.data(), bytes_.size());
            GlobalUnlock(block);
        }
        medium->hGlobal = block;
        medium->pUnkForRelease = new Owner(block);
        return result_;
    }

  private:
    const std::string bytes_;
    const DWORD tymed_;
    const HRESULT result_;
};

// The paths in a block of dropped files, up to an empty one or the end of the block.
std::vector<WideString> Paths(const std::string& bytes)
{
    DROPFILES header;
    if (bytes.size() < sizeof header)
    {
        return {};
    }
    std::memcpy(&header, bytes.data(), sizeof header);
    if (header.pFiles > bytes.size())
    {
        return {};
    }
    std::string list = bytes.substr(header.pFiles);
    WideString units((list.size() + 1) / 2, WCHAR{});
    units.resize(list.size() / 2);
    std::memcpy(units.data(), list.data(), units.size() * sizeof(WCHAR));
    std::vector<WideString> paths;
    if (!header.fWide)
    {
        for (std::size_t at = 0; at < list.size() && list[at] != 0;
             at += paths.back().empty() ? 1 : std::strlen(&list[at]) + 1)
        {
            paths.push_back(sndxtools::Wide(&list[at]));
        }
        return paths;
    }
    for (std::size_t at = 0; at < units.size() && units[at] != 0; at += paths.back().size() + 1)
    {
        paths.emplace_back(units.c_str() + at);
    }
    return paths;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    // A sound header comes often; so does a block that ends inside its list.
    DROPFILES header = {};
    header.pFiles = input.ConsumeBool() ? sizeof header : input.ConsumeIntegral<std::uint16_t>();
    header.fWide = input.ConsumeBool();
    const DWORD tymed = input.ConsumeIntegralInRange(0, 3) == 0 ? TYMED_NULL : TYMED_HGLOBAL;
    const HRESULT result = input.PickValueInArray({S_OK, S_OK, S_OK, S_FALSE, E_OUTOFMEMORY});
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes += input.ConsumeRandomLengthString(4000);
    bytes.resize(bytes.size() -
                 input.ConsumeIntegralInRange<std::size_t>(0, std::min<std::size_t>(bytes.size(), 24)));

    const bool received = SUCCEEDED(result) && tymed == TYMED_HGLOBAL;
    const std::vector<WideString> paths = received ? Paths(bytes) : std::vector<WideString>();
    auto* const selection = new Selection(bytes, tymed, result);
    auto* const menu = LNEW("drop_fuzz") LSendoraContextMenu;
    menu->AddRef();
    TakeLines();
    MUST(menu->Initialize(nullptr, selection, nullptr) == (paths.empty() ? E_INVALIDARG : S_OK));
    MUST(g_mediums == 0);
    selection->Release();
    Lines expected = {"LSendoraContextMenu::Initialize "};
    for (const WideString& path : paths)
    {
        expected.push_back("LSendoraContextMenu::Initialize " + sndxtools::Utf8(path.substr(0, LSTR - 1)));
    }
    MUST(TakeLines() == expected);

    // The first path decides; the one account has the folder "C:\a".
    const std::u16string folder = u"c:\\a\\";
    std::u16string first = paths.empty() ? u"" : paths[0].substr(0, LSTR - 1);
    std::transform(first.begin(),
                   first.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(first.size(), 4)),
                   first.begin(),
                   [](char16_t c) {
                       return c == u'A' ? u'a' : c == u'C' ? u'c' : c == u'/' ? u'\\' : c;
                   });
    const HMENU popup = CreatePopupMenu();
    const HRESULT added = menu->QueryContextMenu(popup, 0, 100, 200, 0);
    const bool within = first.starts_with(folder) && first[2] == u'\\';
    MUST(within || added == static_cast<HRESULT>(0x80000000u));
    MUST(GetMenuItemCount(popup) == (added > 0 ? 1 : 0));
    DestroyMenu(popup);
    MUST(menu->Release() == 0);
    MUST(!g_ComDiagnostic.AnyObjectExists());
    TakeLines();
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    auto* const item = LNEW("drop_fuzz") FolderPathItem;
    std::copy_n(TEXT("C:\\a"), 5, item->szFolderPath);
    g_FolderList.AddTop(item);
    g_uLoadedState = *g_SharedState.Get();
    return 0;
}
