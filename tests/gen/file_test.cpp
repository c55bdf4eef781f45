// Splitting and composing paths. What asks the system (opening, moving, deleting) is tested with the file
// objects.

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/file.h"
#include "tests/gen/reports.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char nullRead[] = "**LDEBUGVALIDPTRREAD attempting to read from a null ptr";

// A buffer of the usual capacity with a guard behind it.
class Buffer
{
  public:
    Buffer() { guarded_.text[LSTR] = TEXT('#'); }
    ~Buffer() { EXPECT_EQ(guarded_.text[LSTR], TEXT('#')) << "written behind the buffer"; }
    operator WCHAR*() { return guarded_.text; }

  private:
    struct
    {
        WCHAR text[LSTR + 1];
    } guarded_;
};

template <WCHAR* (*Operation)(WCHAR*, const WCHAR*)>
std::string Split(const std::string& path)
{
    Buffer buffer;
    const WCHAR* result = Operation(buffer, Wide(path).c_str());
    EXPECT_EQ(result, static_cast<WCHAR*>(buffer));
    return Utf8(result);
}
constexpr auto Folder = &Split<LFile::GetFolderFromPath>;
constexpr auto File = &Split<LFile::GetFileFromPath>;
constexpr auto Title = &Split<LFile::GetFileTitleFromPath>;

std::string Make(const std::string& folder, const std::string& name, const std::string& extension)
{
    Buffer buffer;
    const WCHAR* result =
        LFile::MakeFilePath(buffer, Wide(folder).c_str(), Wide(name).c_str(), Wide(extension).c_str());
    EXPECT_EQ(result, static_cast<WCHAR*>(buffer));
    return Utf8(result);
}

TEST(Paths, SplitIntoFolderAndLastElement)
{
    struct Case
    {
        const char* path;
        const char* folder;
        const char* file;
    };
    const TraceCapture trace;
    for (const Case& c : {Case{"C:\\Data\\a.txt", "C:\\Data", "a.txt"},
                          {"C:\\a.txt", "C:", "a.txt"},
                          {"a.txt", "", "a.txt"},
                          {"\\a.txt", "", "a.txt"},
                          {"/a.txt", "/", "a.txt"},
                          {"/usr/a.txt", "/usr", "a.txt"},
                          {"\\\\server\\share\\a", "\\\\server\\share", "a"},
                          {"C:\\Data\\", "C:\\Data", ""},
                          {"C:/Data/sub\\L\u00F6schen", "C:/Data/sub", "L\u00F6schen"},
                          {"C:\\", "C:", ""},
                          {"C:", "", ""},
                          {"C:a.txt", "", "C:a.txt"},
                          {"/", "/", ""},
                          {"", "", ""}})
    {
        EXPECT_EQ(Folder(c.path), c.folder) << c.path;
        EXPECT_EQ(File(c.path), c.file) << c.path;
    }
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Paths, TitleIsTheLastElementWithoutItsExtension)
{
    const std::vector<std::pair<const char*, const char*>> cases = {{"trace.dll.txt", "trace.dll"},
                                                                    {"C:\\a.b\\name", "name"},
                                                                    {"C:\\.profile", ".profile"},
                                                                    {"name", "name"},
                                                                    {"..txt", "."},
                                                                    {"name.", "name"},
                                                                    {"a.", "a"},
                                                                    {"", ""}};
    for (const auto& [path, title] : cases)
    {
        EXPECT_EQ(Title(path), title) << path;
    }
}

TEST(Paths, FolderOfTheFirst260Characters)
{
    TraceCapture trace;
    const std::string folder = "C:\\" + std::string(256, 'f'); // 259 characters
    EXPECT_EQ(Folder(folder + "\\"), folder);
    EXPECT_EQ(Folder(std::string(260, 'x')), "");
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(Folder(folder + "\\x"), folder);
    EXPECT_EQ(Folder("C:\\" + std::string(300, 'x') + "\\a"), "C:");
    EXPECT_THAT(trace.Texts(), ElementsAre("**LFile::_GetFolderFromPath szPath is too long",
                                           "**LFile::_GetFolderFromPath szPath is too long"));
}

TEST(Paths, AnElementOfMoreThan259CharactersIsCutThere)
{
    TraceCapture trace;
    const std::string element(259, 'e');
    EXPECT_EQ(File("C:\\" + element), element);
    EXPECT_EQ(File(element + "\\" + element + "\\a.txt"), "a.txt");
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(File("C:\\" + element + "x"), element);
    // Also an element that is not the last one.
    EXPECT_EQ(File("C:\\" + element + "x\\a.txt"), element);
    EXPECT_THAT(trace.Texts(), ElementsAre("**LFile::_GetFileFromPath szPath is too long",
                                           "**LFile::_GetFileFromPath szPath is too long"));
}

TEST(Paths, ComposeWithOneSeparatorWhereNeeded)
{
    const TraceCapture trace;
    EXPECT_EQ(Make("C:\\Data\\", "a", ".txt"), "C:\\Data\\a.txt");
    EXPECT_EQ(Make("C:\\Data", "a", ".txt"), "C:\\Data\\a.txt");
    EXPECT_EQ(Make("C:/Data/", "a", ""), "C:/Data/a");
    EXPECT_EQ(Make("", "a", ".txt"), "a.txt");
    EXPECT_EQ(Make("C:\\Data", "", ""), "C:\\Data\\");
    EXPECT_EQ(Make("C:", "\\\\server\\x", ""), "C:\\\\\\server\\x");
    Buffer buffer;
    EXPECT_EQ(Utf8(LFile::MakeFilePath(buffer, TEXT("C:\\Data"), TEXT("b.txt"))), "C:\\Data\\b.txt");
    LFile::GetFolderFromPath(buffer, TEXT("C:\\Data\\b.txt"));
    EXPECT_EQ(Utf8(LFile::MakeFilePath(buffer, buffer, TEXT("c"), TEXT(".d"))), "C:\\Data\\c.d");
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Paths, ANameWithALeadingSeparatorIsReportedAndJoined)
{
    TraceCapture trace;
    EXPECT_EQ(Make("C:\\Data", "/x", ".txt"), "C:\\Data\\/x.txt");
    EXPECT_THAT(Reports(trace),
                ElementsAre(FailedCheck(
                    "szFileName[0] != TEXT('/')",
                    "LFile::_MakeFilePath / is not a valid character as the first character of a file "
                    "name. Please prepass the file name to avoid this possibility.",
                    "gen/file.cpp")));
    trace.Restart();
    EXPECT_EQ(Make("C:\\Data", "\\x", ""), "C:\\Data\\\\x");
    EXPECT_EQ(Make("", "\\", ""), "\\");
    constexpr char advice[] =
        " is not a valid path. Please call LFile::PreprocessName first. If it is a network file "
        "path, please make sure to start with \\\\";
    EXPECT_THAT(trace.Texts(), ElementsAre(std::string("**LFile::_MakeFilePath \\x") + advice,
                                           std::string("**LFile::_MakeFilePath \\") + advice));
}

TEST(Paths, APathOfMoreThan259CharactersIsCutAndReported)
{
    TraceCapture trace;
    const std::string folder = "C:\\" + std::string(252, 'f'); // 255 characters
    EXPECT_EQ(Make(folder, "abc", ""), folder + "\\abc");
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(Make(folder, "a", ".txt"), folder + "\\a.t");
    EXPECT_EQ(trace.Texts(), Overflow("lw", "a.t"));
}

TEST(Paths, AFolderOfMoreThan258CharactersIsCut)
{
    constexpr char report[] = "**LFile::MakeFilePath folder is > LSTR - 2";
    TraceCapture trace;
    const std::string folder(258, 'f');
    EXPECT_EQ(Make(folder, "", ""), folder + "\\");
    EXPECT_THAT(trace.Texts(), IsEmpty());
    EXPECT_EQ(Make(folder + "f", "name", ".txt"), folder + "\\");
    EXPECT_EQ(Make(std::string(257, 'f') + "\\f", "n", ""), std::string(257, 'f') + "\\n");
    std::vector<std::string> expected = {report};
    for (const std::string& line : Join(Overflow("lw", ""), report))
    {
        expected.push_back(line);
    }
    EXPECT_EQ(trace.Texts(), expected);

    // In place: the folder's own buffer may be longer than the result.
    trace.Restart();
    WideString inPlace(300, TEXT('f'));
    LFile::MakeFilePath(inPlace.data(), inPlace.data(), TEXT("name"));
    EXPECT_EQ(Utf8(inPlace.c_str()), folder + "\\");
    EXPECT_EQ(trace.Texts()[0], report);
}

TEST(Paths, NullIsReportedAndTakenAsEmpty)
{
    TraceCapture trace;
    Buffer buffer;
    EXPECT_EQ(Utf8(LFile::GetFolderFromPath(buffer, nullptr)), "");
    EXPECT_EQ(Utf8(LFile::GetFileFromPath(buffer, nullptr)), "");
    EXPECT_EQ(Utf8(LFile::GetFileTitleFromPath(buffer, nullptr)), "");
    EXPECT_EQ(Utf8(LFile::MakeFilePath(buffer, nullptr, TEXT("a"))), "a");
    EXPECT_EQ(trace.Texts()[0], nullRead);
    EXPECT_EQ(LFile::GetFolderFromPath(nullptr, TEXT("a")), nullptr);
    EXPECT_EQ(LFile::GetFileFromPath(nullptr, TEXT("a")), nullptr);
    EXPECT_THAT(trace.Texts(),
                ::testing::Contains("**LDEBUGVALIDPTRWRITE attempting to read from a null ptr").Times(2));
}
} // namespace
