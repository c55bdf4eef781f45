// The shipped sndxdll.dll as a file: what it exports, what it needs of the system, its icon, its version
// information, its size. Windows only, because all of this is of the PE image and its resources; the
// module over the POSIX layer has neither.

#include <bit>
#include <numeric>

#include <windows.h>
#include <shellapi.h>
#include <winver.h>

#include "tests/dll/modulehost.h"

using namespace sndxtest;

namespace
{
// The module as it lies in the process, read by its own tables.
class ModuleImage : public ModuleTest
{
  protected:
    IMAGE_DATA_DIRECTORY Directory(std::size_t index) const
    {
        const auto headers = static_cast<DWORD>(Table<IMAGE_DOS_HEADER>(0)->e_lfanew);
        return Table<IMAGE_NT_HEADERS64>(headers)->OptionalHeader.DataDirectory[index];
    }
    template <class T>
    const T* Table(DWORD address) const
    {
        return reinterpret_cast<const T*>(reinterpret_cast<const BYTE*>(module_.Handle()) + address);
    }
    const Module module_;
};
} // namespace

TEST_F(ModuleImage, ExportsTheFourEntryPointsAndNothingElse)
{
    const IMAGE_DATA_DIRECTORY directory = Directory(IMAGE_DIRECTORY_ENTRY_EXPORT);
    const auto& table = *Table<IMAGE_EXPORT_DIRECTORY>(directory.VirtualAddress);
    EXPECT_STREQ(Table<char>(table.Name), "sndxdll.dll");
    Lines names;
    for (DWORD i = 0; i < table.NumberOfNames; ++i)
    {
        names.emplace_back(Table<char>(Table<DWORD>(table.AddressOfNames)[i]));
    }
    EXPECT_EQ(names, (Lines{"DllCanUnloadNow", "DllGetClassObject", "DllMain", "StateChanged"}));
    // None by ordinal alone either, and each is code of this module, not forwarded to another one.
    ASSERT_EQ(table.NumberOfFunctions, 4u);
    for (DWORD i = 0; i < table.NumberOfFunctions; ++i)
    {
        EXPECT_GE(Table<DWORD>(table.AddressOfFunctions)[i] - directory.VirtualAddress, directory.Size);
    }
}

// The installer ships this one file: a library of the compiler's would be missing on the user's machine.
TEST_F(ModuleImage, ImportsSystemLibrariesOnlyAndStaysSmall)
{
    Lines libraries;
    const auto* library =
        Table<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress);
    for (; library->Name != 0; ++library)
    {
        libraries.emplace_back(Table<char>(library->Name));
    }
    const Lines system = {"ADVAPI32.dll", "KERNEL32.dll", "SHELL32.dll",
                          "USER32.dll",   "msvcrt.dll",   "ole32.dll"};
    EXPECT_TRUE(Contains(libraries, "KERNEL32.dll"));
    std::erase_if(libraries, [&](const std::string& name) { return Contains(system, name); });
    EXPECT_EQ(libraries, Lines());
    EXPECT_EQ(Directory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT).VirtualAddress, 0u);
    // Several times what the module needs, less than what the C++ runtime adds.
    EXPECT_LT(ReadWholeFile(ModulePath()).size(), std::size_t{200} * 1024);
}

TEST_F(ModuleImage, HasOneIconWithAMarkInBothSizesOfTheShell)
{
    // Resource 1 is what icon index 0 means to the shell.
    EXPECT_EQ(ExtractIconExW(Wide(ModulePath()).c_str(), -1, nullptr, nullptr, 0), 1u);
    const HRSRC found = FindResourceW(module_.Handle(), MAKEINTRESOURCEW(1), RT_GROUP_ICON);
    ASSERT_NE(found, nullptr);
    const auto* group = static_cast<const BYTE*>(LockResource(LoadResource(module_.Handle(), found)));
    ASSERT_EQ(group[4], 2); // images; 14 bytes each follow at 6: width, height, …, bits at 6
    HICON icons[2] = {};
    ExtractIconExW(Wide(ModulePath()).c_str(), 0, &icons[0], &icons[1], 1);
    for (int i = 0; i < 2; ++i)
    {
        const int size = i == 0 ? 32 : 16;
        const BYTE* const image = group + 6 + 14 * i;
        EXPECT_TRUE(image[0] == size && image[1] == size && image[6] == 8) << size;
        ICONINFO info = {};
        ASSERT_TRUE(GetIconInfo(icons[i], &info)) << size;
        std::vector<BYTE> mask(
            static_cast<std::size_t>(size * size / 8)); // a bit set where it is transparent
        EXPECT_EQ(GetBitmapBits(info.hbmMask, size * size / 8, mask.data()), size * size / 8);
        const int transparent = std::accumulate(
            mask.begin(), mask.end(), 0, [](int sum, BYTE pixels) { return sum + std::popcount(pixels); });
        EXPECT_GT(transparent, size * size / 2) << "the file's own icon is not to be seen";
        EXPECT_LT(transparent, size * size * 7 / 8) << "the mark is not to be seen";
        DeleteObject(info.hbmMask);
        DeleteObject(info.hbmColor);
        DestroyIcon(icons[i]);
    }
}

// As Explorer's property page shows it, which finds the texts by a language and a code page.
TEST(ModuleVersion, IsOfADiagnosticGermanLibraryVersion3)
{
    const WideString path = Wide(ModulePath());
    std::vector<BYTE> block(GetFileVersionInfoSizeW(path.c_str(), nullptr));
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block.size()), block.data()));
    const auto value = [&](const std::string& name)
    {
        void* found = nullptr;
        UINT length = 0;
        VerQueryValueW(block.data(), Wide(name).c_str(), &found, &length);
        return found;
    };
    const auto* fixed = static_cast<const VS_FIXEDFILEINFO*>(value("\\"));
    ASSERT_NE(fixed, nullptr);
    EXPECT_EQ(fixed->dwFileVersionMS, 0x00030000u);
    EXPECT_EQ(fixed->dwProductVersionMS, 0x00030000u);
    EXPECT_EQ(fixed->dwFileFlags & fixed->dwFileFlagsMask, static_cast<DWORD>(VS_FF_DEBUG));
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
    const auto* translation = static_cast<const DWORD*>(value("\\VarFileInfo\\Translation"));
    ASSERT_NE(translation, nullptr);
    EXPECT_EQ(*translation, DWORD{MAKELONG(0x0407, 1200)});

    const std::pair<const char*, const char*> texts[] = {
        {"CompanyName", "Taleno Software"},
        // The umlaut and the sign tell a source that was read in the wrong code page.
        {"FileDescription", "Sendora Explorer-Erweiterung für Dateiübertragungen (Diagnose-Version)"},
        {"FileVersion", "3.00"},
        {"InternalName", "sndxdll"},
        {"LegalCopyright", "© Taleno Software"},
        {"OriginalFilename", "sndxdll.dll"},
        {"ProductName", "Sendora File Transfer"},
        {"ProductVersion", "3.00"},
    };
    for (const auto& [name, text] : texts)
    {
        const void* const found = value(std::string("\\StringFileInfo\\040704B0\\") + name);
        EXPECT_EQ(Utf8(static_cast<const WCHAR*>(found)), text) << name;
    }
}
