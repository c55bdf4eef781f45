// Paths: the parts that a path is taken into, the path that is made of parts, and whether a file lies in a
// folder. The reference says each in its own words, on whole strings.

#include "dll/folders.h"
#include "fuzz/fuzz.h"
#include "gen/file.h"
#include "gen/stringtools.h"

using namespace sndxfuzz;

namespace
{
constexpr char16_t separators[] = u"/\\";

bool IsSeparator(char16_t unit)
{
    return unit == u'/' || unit == u'\\';
}

std::u16string Lower(std::u16string text)
{
    for (char16_t& unit : text)
    {
        unit = unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
    }
    return text;
}

std::u16string Parent(const std::u16string& path)
{
    const std::u16string seen = path.substr(0, LSTR);
    const std::size_t at = seen.find_last_of(separators);
    return at != std::u16string::npos && at > 0 ? seen.substr(0, at)
                                                : seen.substr(0, path.starts_with(u'/') ? 1 : 0);
}

// The last element, or the first one that is too long.
std::u16string File(const std::u16string& path, bool& tooLong)
{
    std::u16string element;
    tooLong = false;
    for (std::size_t at = 0; at <= path.size() && !tooLong; at += element.size() + 1)
    {
        element = path.substr(at, path.find_first_of(separators, at) - at);
        tooLong = element.size() >= LSTR;
    }
    return path.size() == 2 && path[1] == u':' ? u"" : element.substr(0, LSTR - 1);
}

std::u16string Title(const std::u16string& file)
{
    const std::size_t dot = file.rfind(u'.');
    return dot == std::u16string::npos || dot == 0 ? file : file.substr(0, dot);
}

// A file lies in every folder that its path names up to a separator; above them all is "/", or nothing.
bool LiesIn(std::u16string folder, const std::u16string& file)
{
    if (folder.size() >= LSTR || file.size() >= LSTR)
    {
        return false;
    }
    if (!folder.empty() && IsSeparator(folder.back()))
    {
        folder.pop_back();
    }
    folder = Lower(folder);
    if (folder == (file.starts_with(u'/') ? u"/" : u""))
    {
        return true;
    }
    return !folder.empty() && file.size() > folder.size() && IsSeparator(file[folder.size()]) &&
           Lower(file.substr(0, folder.size())) == folder;
}

void TestParts(const std::u16string& path)
{
    TakeLines();
    auto buffer = Buffer<WCHAR>(LSTR);
    MUST(LFile::GetFolderFromPath(buffer.data(), Exact(path).data()) == buffer.data());
    MUST(buffer.data() == Parent(path));
    MUST(TakeLines().size() == (path.size() > LSTR ? 1 : 0));
    bool tooLong = false;
    const std::u16string file = File(path, tooLong);
    MUST(LFile::GetFileFromPath(buffer.data(), Exact(path).data()) == buffer.data());
    MUST(buffer.data() == file);
    MUST(TakeLines().size() == (tooLong ? 1 : 0));
    LFile::GetFileTitleFromPath(buffer.data(), Exact(path).data());
    MUST(buffer.data() == Title(file));
}

void TestMaking(FuzzedDataProvider& input)
{
    const std::u16string folder = ConsumeWide(input, LSTR + 10);
    const std::u16string name = ConsumeWide(input, LSTR + 10);
    const std::u16string extension = ConsumeWide(input, 10);
    const bool inPlace = input.ConsumeBool() && folder.size() < LSTR;
    std::u16string whole = folder.substr(0, LSTR - 2);
    whole += whole.empty() || IsSeparator(whole.back()) ? u"" : u"\\";
    const std::size_t head = whole.size();
    whole += name + extension;
    const bool cut = whole.size() >= LSTR;
    const std::size_t reports = (folder.size() > LSTR - 2 ? 1u : 0u) + (name.starts_with(u'/') ? 1u : 0u) +
                                (name.starts_with(u'\\') && !name.starts_with(u"\\\\") ? 1u : 0u) +
                                (cut ? 2u : 0u);
    // What is in front of the name is no part of the text that is cut.
    const std::size_t end = cut ? head + CutAt(whole.substr(head), LSTR - 1 - head) : whole.size();
    auto buffer = Buffer<WCHAR>(LSTR);
    std::copy_n(folder.c_str(), inPlace ? folder.size() + 1 : 0, buffer.begin());
    TakeLines();
    MUST(LFile::MakeFilePath(buffer.data(), inPlace ? buffer.data() : Exact(folder).data(),
                             Exact(name).data(), Exact(extension).data()) == buffer.data());
    MUST(buffer.data() == whole.substr(0, end));
    MUST(TakeLines().size() == reports);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const std::u16string path = ConsumeWide(input, LSTR + 40);
    TestParts(path);
    // A folder that has to do with the file comes often.
    std::u16string folder = input.ConsumeBool()
                                ? ConsumeWide(input, LSTR + 2)
                                : path.substr(0, input.ConsumeIntegralInRange<std::size_t>(0, path.size()));
    folder += input.ConsumeBool() ? u"\\" : u"";
    MUST(FileBelongsToFolder(Exact(folder).data(), Exact(path).data()) == LiesIn(folder, path));
    const std::int32_t order = tstricmp(Exact(folder).data(), Exact(path).data());
    const int wanted = Lower(folder).compare(Lower(path));
    MUST((order < 0) == (wanted < 0) && (order > 0) == (wanted > 0));
    TestMaking(input);
    return 0;
}
