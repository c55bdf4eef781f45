// The shipped sndxdll.dll as a file: what it exports, what it needs of the system, its icon, its version
// information, its size. Windows only, because all of this is of the PE image and its resources; the
// module over the POSIX layer has neither.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>
#include <shellapi.h>
#include <winver.h>

#include "tests/dll/modulehost.h"
#include "tests/support/text.h"

namespace
{
using sndxtest::Utf8;
using sndxtest::Wide;
using sndxtest::WideString;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSubsetOf;

WideString ModulePath()
{
    return Wide(sndxtest::ModulePath());
}

std::vector<BYTE> FileBytes(const WideString& path)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        throw std::runtime_error("cannot open " + Utf8(path));
    }
    std::vector<BYTE> bytes(GetFileSize(file, nullptr));
    DWORD read = 0;
    const BOOL done = ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    CloseHandle(file);
    if (!done || read != bytes.size())
    {
        throw std::runtime_error("cannot read " + Utf8(path));
    }
    return bytes;
}

// A PE32+ file, read by its own tables and not by the loader, which would hide what it resolves itself.
// Whatever points outside the file throws.
class PeFile
{
  public:
    explicit PeFile(const WideString& path) : bytes_(FileBytes(path))
    {
        const auto dos = At<IMAGE_DOS_HEADER>(0);
        const auto start = static_cast<std::size_t>(dos.e_lfanew);
        headers_ = At<IMAGE_NT_HEADERS64>(start);
        if (dos.e_magic != IMAGE_DOS_SIGNATURE || headers_.Signature != IMAGE_NT_SIGNATURE ||
            headers_.OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC)
        {
            throw std::runtime_error("no PE32+ file");
        }
        const std::size_t sections =
            start + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + headers_.FileHeader.SizeOfOptionalHeader;
        for (std::size_t i = 0; i < headers_.FileHeader.NumberOfSections; ++i)
        {
            sections_.push_back(At<IMAGE_SECTION_HEADER>(sections + i * sizeof(IMAGE_SECTION_HEADER)));
        }
    }

    std::size_t Size() const { return bytes_.size(); }
    const IMAGE_FILE_HEADER& FileHeader() const { return headers_.FileHeader; }
    IMAGE_DATA_DIRECTORY Directory(std::size_t index) const
    {
        return headers_.OptionalHeader.DataDirectory[index];
    }

    template <typename T>
    T AtAddress(DWORD address) const
    {
        return At<T>(Offset(address));
    }

    std::string TextAtAddress(DWORD address) const
    {
        const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(Offset(address));
        const auto end = std::find(begin, bytes_.end(), BYTE{0});
        if (end == bytes_.end())
        {
            throw std::runtime_error("a name without end");
        }
        return {begin, end};
    }

  private:
    template <typename T>
    T At(std::size_t offset) const
    {
        if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T))
        {
            throw std::runtime_error("a table outside the file");
        }
        T value;
        std::memcpy(&value, bytes_.data() + offset, sizeof(T));
        return value;
    }

    // Offset in the file of an address relative to the image's base.
    std::size_t Offset(DWORD address) const
    {
        for (const IMAGE_SECTION_HEADER& section : sections_)
        {
            if (address >= section.VirtualAddress && address - section.VirtualAddress < section.SizeOfRawData)
            {
                return section.PointerToRawData + (address - section.VirtualAddress);
            }
        }
        throw std::runtime_error("an address outside every section");
    }

    std::vector<BYTE> bytes_;
    IMAGE_NT_HEADERS64 headers_{};
    std::vector<IMAGE_SECTION_HEADER> sections_;
};

std::vector<std::string> ImportedLibraries(const PeFile& file)
{
    std::vector<std::string> names;
    DWORD entry = file.Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress;
    for (;; entry += static_cast<DWORD>(sizeof(IMAGE_IMPORT_DESCRIPTOR)))
    {
        const auto library = file.AtAddress<IMAGE_IMPORT_DESCRIPTOR>(entry);
        if (library.Name == 0)
        {
            return names;
        }
        names.push_back(file.TextAtAddress(library.Name));
    }
}

TEST(ModuleImage, ExportsTheFourEntryPointsAndNothingElse)
{
    const PeFile file(ModulePath());
    EXPECT_EQ(file.FileHeader().Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_NE(file.FileHeader().Characteristics & IMAGE_FILE_DLL, 0);

    const IMAGE_DATA_DIRECTORY directory = file.Directory(IMAGE_DIRECTORY_ENTRY_EXPORT);
    const auto table = file.AtAddress<IMAGE_EXPORT_DIRECTORY>(directory.VirtualAddress);
    EXPECT_EQ(file.TextAtAddress(table.Name), "sndxdll.dll");
    std::vector<std::string> names;
    for (DWORD i = 0; i < table.NumberOfNames; ++i)
    {
        names.push_back(file.TextAtAddress(
            file.AtAddress<DWORD>(table.AddressOfNames + i * static_cast<DWORD>(sizeof(DWORD)))));
    }
    EXPECT_THAT(names, ElementsAre("DllCanUnloadNow", "DllGetClassObject", "DllMain", "StateChanged"));
    // None by ordinal alone either, and each is code of this module, not forwarded to another one.
    ASSERT_EQ(table.NumberOfFunctions, 4u);
    for (DWORD i = 0; i < table.NumberOfFunctions; ++i)
    {
        const auto address =
            file.AtAddress<DWORD>(table.AddressOfFunctions + i * static_cast<DWORD>(sizeof(DWORD)));
        EXPECT_TRUE(address < directory.VirtualAddress ||
                    address - directory.VirtualAddress >= directory.Size);
    }
}

// The installer ships this one file: a library of the compiler's would be missing on the user's machine.
TEST(ModuleImage, ImportsSystemLibrariesOnlyAndStaysSmall)
{
    const PeFile file(ModulePath());
    const std::vector<std::string> libraries = ImportedLibraries(file);
    EXPECT_THAT(libraries, IsSubsetOf({"ADVAPI32.dll", "KERNEL32.dll", "SHELL32.dll", "USER32.dll",
                                       "msvcrt.dll", "ole32.dll"}));
    EXPECT_THAT(libraries, Contains("KERNEL32.dll"));
    EXPECT_EQ(file.Directory(IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT).VirtualAddress, 0u);
    // Several times what the module needs, less than what the C++ runtime adds.
    EXPECT_LT(file.Size(), std::size_t{200} * 1024);
}

struct ReleaseLibrary
{
    using pointer = HMODULE;
    void operator()(HMODULE library) const { FreeLibrary(library); }
};

// The module mapped for its resources only: no code of it runs.
class ModuleIcon : public testing::Test
{
  protected:
    ModuleIcon() : library_(LoadLibraryExW(ModulePath().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE))
    {
        if (!library_)
        {
            throw std::runtime_error("cannot map " + Utf8(ModulePath()));
        }
    }

    // First bytes of a resource as T; a resource that is shorter throws.
    template <typename T>
    T Resource(WORD id, LPCWSTR type, DWORD offset = 0) const
    {
        const HRSRC found = FindResourceW(library_.get(), MAKEINTRESOURCEW(id), type);
        const HGLOBAL loaded = found ? LoadResource(library_.get(), found) : nullptr;
        const void* data = loaded ? LockResource(loaded) : nullptr;
        if (!data || SizeofResource(library_.get(), found) < offset + sizeof(T))
        {
            throw std::runtime_error("resource " + std::to_string(id) + " is missing or too short");
        }
        T value;
        std::memcpy(&value, static_cast<const BYTE*>(data) + offset, sizeof(T));
        return value;
    }

    std::vector<ULONG_PTR> IconGroups() const
    {
        std::vector<ULONG_PTR> groups;
        EnumResourceNamesW(
            library_.get(), RT_GROUP_ICON,
            [](HMODULE, LPCWSTR, LPWSTR name, LONG_PTR context) -> BOOL
            {
                reinterpret_cast<std::vector<ULONG_PTR>*>(context)->push_back(
                    reinterpret_cast<ULONG_PTR>(name));
                return TRUE;
            },
            reinterpret_cast<LONG_PTR>(&groups));
        return groups;
    }

  private:
    std::unique_ptr<HMODULE, ReleaseLibrary> library_;
};

#pragma pack(push, 2)
// Layout of an icon group resource: a head, then one entry an image.
struct GroupHead
{
    WORD reserved, type, count;
};
struct GroupEntry
{
    BYTE width, height, colourCount, reserved;
    WORD planes, bitCount;
    DWORD bytes;
    WORD id;
};
#pragma pack(pop)

TEST_F(ModuleIcon, IsTheOnlyGroupAndHoldsTwoPaletteImages)
{
    // Resource 1 is what icon index 0 means to the shell.
    EXPECT_THAT(IconGroups(), ElementsAre(ULONG_PTR{1}));
    EXPECT_EQ(ExtractIconExW(ModulePath().c_str(), -1, nullptr, nullptr, 0), 1u);

    const auto head = Resource<GroupHead>(1, RT_GROUP_ICON);
    EXPECT_EQ(head.type, 1);
    ASSERT_EQ(head.count, 2);
    const int sizes[] = {32, 16};
    for (WORD i = 0; i < 2; ++i)
    {
        SCOPED_TRACE(sizes[i]);
        const auto entry = Resource<GroupEntry>(
            1, RT_GROUP_ICON, static_cast<DWORD>(sizeof(GroupHead) + i * sizeof(GroupEntry)));
        EXPECT_EQ(entry.width, sizes[i]);
        EXPECT_EQ(entry.height, sizes[i]);
        EXPECT_EQ(entry.bitCount, 8);
        const auto image = Resource<BITMAPINFOHEADER>(entry.id, RT_ICON);
        EXPECT_EQ(image.biWidth, sizes[i]);
        EXPECT_EQ(image.biHeight, 2 * sizes[i]) << "colours and mask";
        EXPECT_EQ(image.biBitCount, 8);
    }
}

// Pixels of a bitmap of an icon, 0x00RRGGBB, rows from the top.
std::vector<DWORD> Pixels(HBITMAP bitmap, int size)
{
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = size;
    info.bmiHeader.biHeight = -size;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    std::vector<DWORD> pixels(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    const HDC screen = GetDC(nullptr);
    const int rows =
        GetDIBits(screen, bitmap, 0, static_cast<UINT>(size), pixels.data(), &info, DIB_RGB_COLORS);
    ReleaseDC(nullptr, screen);
    if (rows != size)
    {
        throw std::runtime_error("cannot read an icon's bitmap");
    }
    for (DWORD& pixel : pixels)
    {
        pixel &= 0xFFFFFF;
    }
    return pixels;
}

// What an overlay must be: a mark in the lower left corner that leaves the file's own icon to be seen.
void ExpectOverlayPicture(HICON icon, int size)
{
    SCOPED_TRACE(size);
    ICONINFO info{};
    ASSERT_TRUE(GetIconInfo(icon, &info));
    BITMAP colour{};
    EXPECT_NE(GetObjectW(info.hbmColor, sizeof(colour), &colour), 0);
    EXPECT_EQ(colour.bmWidth, size);
    EXPECT_EQ(colour.bmHeight, size);
    const std::vector<DWORD> mask = Pixels(info.hbmMask, size);
    const std::vector<DWORD> colours = Pixels(info.hbmColor, size);
    DeleteObject(info.hbmMask);
    DeleteObject(info.hbmColor);

    int left = size, top = size, right = -1, bottom = -1, stray = 0;
    std::vector<DWORD> used;
    for (int y = 0; y < size; ++y)
    {
        for (int x = 0; x < size; ++x)
        {
            const auto at =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(size) + static_cast<std::size_t>(x);
            if (mask[at] != 0)
            {
                stray += colours[at] != 0; // would be mixed into the ground
                continue;
            }
            left = std::min(left, x);
            right = std::max(right, x);
            top = std::min(top, y);
            bottom = std::max(bottom, y);
            used.push_back(colours[at]);
        }
    }
    EXPECT_EQ(stray, 0);
    EXPECT_EQ(left, 0);
    EXPECT_EQ(bottom, size - 1);
    EXPECT_LE(right + 1, size * 2 / 3);
    EXPECT_LE(size - top, size * 2 / 3);
    EXPECT_GE(right + 1, size / 2);
    EXPECT_THAT(used, Contains(DWORD{0xFFFFFF})) << "a light part, for dark ground";
    EXPECT_THAT(used,
                Contains(testing::Truly(
                    [](DWORD c) { return (c >> 16) < 0x60 && (c >> 8 & 0xFF) < 0x60 && (c & 0xFF) < 0x80; })))
        << "a dark part, for light ground";
}

TEST_F(ModuleIcon, IsAnOverlayInBothSizesOfTheShell)
{
    HICON large = nullptr;
    HICON small = nullptr;
    ExtractIconExW(ModulePath().c_str(), 0, &large, &small, 1);
    ASSERT_NE(large, nullptr);
    ASSERT_NE(small, nullptr);
    ExpectOverlayPicture(large, 32);
    ExpectOverlayPicture(small, 16);
    DestroyIcon(large);
    DestroyIcon(small);
}

// The version block as the system's library reads it.
class ModuleVersion : public testing::Test
{
  protected:
    ModuleVersion()
    {
        const WideString path = ModulePath();
        block_.resize(GetFileVersionInfoSizeW(path.c_str(), nullptr));
        if (block_.empty() ||
            !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block_.size()), block_.data()))
        {
            throw std::runtime_error("no version information in " + Utf8(path));
        }
    }

    template <typename T>
    const T* Value(const char* name) const
    {
        void* value = nullptr;
        UINT length = 0;
        return VerQueryValueW(block_.data(), Wide(name).c_str(), &value, &length) && length > 0
                   ? static_cast<const T*>(value)
                   : nullptr;
    }

    std::string Text(const std::string& name) const
    {
        return Utf8(Value<WCHAR>(("\\StringFileInfo\\040704B0\\" + name).c_str()));
    }

  private:
    std::vector<BYTE> block_;
};

TEST_F(ModuleVersion, NumbersSayDiagnosticLibraryVersion3)
{
    const auto* fixed = Value<VS_FIXEDFILEINFO>("\\");
    ASSERT_NE(fixed, nullptr);
    EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
    EXPECT_EQ(fixed->dwFileVersionMS, 0x00030000u);
    EXPECT_EQ(fixed->dwFileVersionLS, 0u);
    EXPECT_EQ(fixed->dwProductVersionMS, 0x00030000u);
    EXPECT_EQ(fixed->dwProductVersionLS, 0u);
    EXPECT_EQ(fixed->dwFileFlags & fixed->dwFileFlagsMask, static_cast<DWORD>(VS_FF_DEBUG));
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
}

TEST_F(ModuleVersion, TextsAreGermanAndComplete)
{
    // Explorer's property page finds the texts by this pair: language, code page.
    const auto* translation = Value<WORD>("\\VarFileInfo\\Translation");
    ASSERT_NE(translation, nullptr);
    EXPECT_EQ(translation[0], 0x0407);
    EXPECT_EQ(translation[1], 1200);

    EXPECT_EQ(Text("CompanyName"), "Taleno Software");
    EXPECT_EQ(Text("ProductName"), "Sendora File Transfer");
    EXPECT_EQ(Text("FileVersion"), "3.00");
    EXPECT_EQ(Text("ProductVersion"), "3.00");
    EXPECT_EQ(Text("InternalName"), "sndxdll");
    EXPECT_EQ(Text("OriginalFilename"), "sndxdll.dll");
    // The umlaut and the sign tell a source that was read in the wrong code page.
    EXPECT_THAT(Text("FileDescription"), HasSubstr("Dateiübertragungen (Diagnose-Version)"));
    EXPECT_EQ(Text("LegalCopyright"), "© Taleno Software");
}
} // namespace
