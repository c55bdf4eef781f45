#include "tools/explorer/folder.h"

#include <algorithm>
#include <stdexcept>

#include <shlwapi.h>

#include "tools/results.h"

namespace sndxtools
{
namespace
{
WideString DisplayName(IShellFolder& folder, const ITEMIDLIST* id, DWORD kind)
{
    STRRET name = {};
    Check("IShellFolder::GetDisplayNameOf", folder.GetDisplayNameOf(id, kind, &name));
    LPWSTR text = nullptr;
    Check("StrRetToStr", StrRetToStrW(&name, id, &text));
    const OwnedMemory<WCHAR> owner(text);
    return text;
}
} // namespace

Folder::Folder(const WideString& path) : path_(path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
    {
        throw std::runtime_error("there is no folder " + Quoted(Utf8(path)));
    }
    ITEMIDLIST* id = nullptr;
    Check("SHParseDisplayName", SHParseDisplayName(path.c_str(), nullptr, &id, 0, nullptr));
    id_.reset(id);
    IShellFolder* found = nullptr;
    Check("SHGetDesktopFolder", SHGetDesktopFolder(&found));
    const auto desktop = ComRef<IShellFolder>::Adopt(found);
    Check("IShellFolder::BindToObject",
          desktop->BindToObject(id_.get(), nullptr, IID_IShellFolder, folder_.Receive()));
    Read();
}

void Folder::Read()
{
    IEnumIDList* list = nullptr;
    const HRESULT listed = folder_->EnumObjects(nullptr, SHCONTF_FOLDERS | SHCONTF_NONFOLDERS, &list);
    Check("IShellFolder::EnumObjects", listed);
    const auto entries = ComRef<IEnumIDList>::Adopt(list); // none with S_FALSE
    std::vector<FolderItem> items;
    ITEMIDLIST* id = nullptr;
    while (entries && entries->Next(1, &id, nullptr) == S_OK)
    {
        items.push_back(Describe(ItemId(id)));
    }
    std::ranges::sort(items,
                      [](const FolderItem& left, const FolderItem& right)
                      {
                          return left.isFolder != right.isFolder
                                     ? left.isFolder
                                     : StrCmpLogicalW(left.name.c_str(), right.name.c_str()) < 0;
                      });
    items_ = std::move(items);
}

FolderItem Folder::Describe(ItemId id)
{
    FolderItem item;
    item.name = DisplayName(*folder_.Get(), id.get(), SHGDN_INFOLDER);
    item.path = DisplayName(*folder_.Get(), id.get(), SHGDN_FORPARSING);
    item.attributes = SFGAO_FOLDER | SFGAO_FILESYSTEM | SFGAO_LINK | SFGAO_READONLY | SFGAO_HIDDEN;
    const ITEMIDLIST* child = id.get();
    Check("IShellFolder::GetAttributesOf", folder_->GetAttributesOf(1, &child, &item.attributes));
    item.isFolder = (item.attributes & SFGAO_FOLDER) != 0;

    // This is also what makes the system load the icon into its lists.
    const ItemId whole(ILCombine(id_.get(), id.get()));
    SHFILEINFOW info = {};
    SHGetFileInfoW(reinterpret_cast<LPCWSTR>(whole.get()), 0, &info, sizeof info,
                   SHGFI_PIDL | SHGFI_SYSICONINDEX | SHGFI_TYPENAME);
    item.icon = info.iIcon;
    item.type = info.szTypeName;
    item.id = std::move(id);
    return item;
}

ComRef<IDataObject> Folder::DataObject(const std::vector<std::size_t>& items) const
{
    std::vector<const ITEMIDLIST*> ids;
    ids.reserve(items.size());
    for (const std::size_t item : items)
    {
        ids.push_back(items_[item].id.get());
    }
    ComRef<IDataObject> data;
    Check("IShellFolder::GetUIObjectOf",
          folder_->GetUIObjectOf(nullptr, static_cast<UINT>(ids.size()), ids.data(), IID_IDataObject, nullptr,
                                 data.Receive()));
    return data;
}
} // namespace sndxtools
