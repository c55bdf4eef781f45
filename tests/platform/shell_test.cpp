// Dropped files, storage mediums and well-known folders.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/dataobject.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

const std::vector<std::string> somePaths = {"C:\\one.txt", "C:\\Gr\u00F6\u00DFe\\\u4E2D", "Z:\\x"};

// The paths of a block that is locked meanwhile, as the product reads it.
std::vector<std::string> Paths(HGLOBAL block)
{
    std::vector<std::string> paths;
    const HDROP drop = static_cast<HDROP>(GlobalLock(block));
    const UINT count = DragQueryFileW(drop, 0xFFFFFFFFu, nullptr, 0);
    WCHAR path[260];
    for (UINT index = 0; DragQueryFileW(drop, index, path, 260) != 0; ++index)
    {
        paths.push_back(Utf8(path));
    }
    EXPECT_EQ(count, paths.size());
    GlobalUnlock(block);
    return paths;
}

TEST(DroppedFiles, GivesThePathsOfWideAndNarrowLists)
{
    const HGLOBAL wide = MakeDrop(somePaths);
    EXPECT_EQ(somePaths, Paths(wide));
    GlobalFree(wide);
    const std::vector<std::string> plain = {"C:\\one.txt", "C:\\two"};
    const HGLOBAL narrow = MakeDrop(plain, true);
    EXPECT_EQ(plain, Paths(narrow));
    GlobalFree(narrow);
    // The number of names of an empty list is not the same everywhere, but it yields none.
    const HGLOBAL empty = MakeDrop({});
    WCHAR path[4] = {};
    EXPECT_EQ(0u, DragQueryFileW(static_cast<HDROP>(empty), 0, path, 4));
    GlobalFree(empty);
}

TEST(DroppedFiles, CutsToTheBuffer)
{
    for (const bool narrow : {false, true})
    {
        const HGLOBAL block = MakeDrop({"C:\\one.txt", "C:\\" + std::string(300, 'l')}, narrow);
        const HDROP drop = static_cast<HDROP>(block);
        EXPECT_EQ(10u, DragQueryFileW(drop, 0, nullptr, 0));
        WCHAR path[261] = {};
        EXPECT_EQ(4u, DragQueryFileW(drop, 0, path, 5));
        EXPECT_EQ("C:\\o", Utf8(path));
        EXPECT_EQ(10u, DragQueryFileW(drop, 0, path, 11));
        EXPECT_EQ("C:\\one.txt", Utf8(path));
        EXPECT_EQ(303u, DragQueryFileW(drop, 1, nullptr, 0));
        path[260] = WCHAR{'#'};
        EXPECT_EQ(259u, DragQueryFileW(drop, 1, path, 260));
        EXPECT_EQ("C:\\" + std::string(256, 'l'), Utf8(path).substr(0, 259));
        EXPECT_EQ(WCHAR{}, path[259]);
        EXPECT_EQ(WCHAR{'#'}, path[260]);
        EXPECT_EQ(0u, DragQueryFileW(drop, 2, path, 260));
        EXPECT_EQ(0u, DragQueryFileW(drop, 2, nullptr, 0));
        GlobalFree(block);
    }
}

TEST(StorageMedium, FreesTheBlockOrLeavesItToItsOwner)
{
    FORMATETC format = {CF_HDROP, nullptr, DVASPECT_CONTENT, -1, TYMED_HGLOBAL};
    for (const bool owned : {true, false})
    {
        DropOptions options;
        options.withOwner = owned;
        const DropDataObjectRef object = MakeDropDataObject(somePaths, options);
        STGMEDIUM medium = {};
        ASSERT_EQ(S_OK, object->GetData(&format, &medium));
        EXPECT_EQ(somePaths, Paths(medium.hGlobal));
        EXPECT_EQ(owned ? 1 : 0, DropDataObject::LiveMediums());
        ReleaseStgMedium(&medium);
        EXPECT_EQ(0, DropDataObject::LiveMediums());
        EXPECT_EQ(DWORD{TYMED_NULL}, medium.tymed);
        ReleaseStgMedium(&medium);
    }
    EXPECT_EQ(0, DropDataObject::LiveObjects());
}

TEST(FolderPath, NamesAFolderThatIsThere)
{
    WCHAR path[MAX_PATH] = {};
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path));
    EXPECT_NE(std::string::npos, Utf8(path).find("\\AppData\\Roaming"));
    EXPECT_EQ("C:\\", Utf8(path).substr(0, 3));
    const DWORD attributes = GetFileAttributesW(path);
    ASSERT_NE(INVALID_FILE_ATTRIBUTES, attributes);
    EXPECT_NE(0u, attributes & FILE_ATTRIBUTE_DIRECTORY);
}
} // namespace
