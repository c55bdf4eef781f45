// Splitting and composing paths. What asks the system (opening, moving, deleting) is tested with the file
// objects.

#include "gen/file.h"
#include "gen/stringtools.h"
#include "tests/support/reports.h"

namespace
{
using namespace sndxtest;

constexpr char longPath[] = "**LFile::_GetFolderFromPath szPath is too long";
constexpr char longElement[] = "**LFile::_GetFileFromPath szPath is too long";
constexpr char longFolder[] = "**LFile::MakeFilePath folder is > LSTR - 2";

// What the operation makes of a path, or a folder, a name and an extension, in a buffer of the usual
// capacity.
template <class... Texts>
std::string Result(WCHAR* (*operation)(WCHAR*, Texts...), Texts... texts)
{
    WCHAR buffer[LSTR + 1];
    buffer[LSTR] = TEXT('#');
    EXPECT_EQ(operation(buffer, texts...), buffer);
    EXPECT_EQ(buffer[LSTR], TEXT('#')) << "written behind the buffer";
    return Utf8(buffer);
}

std::string Folder(const std::string& path)
{
    return Result(&LFile::GetFolderFromPath, Wide(path).c_str());
}

std::string File(const std::string& path)
{
    return Result(&LFile::GetFileFromPath, Wide(path).c_str());
}

std::string Make(const std::string& folder, const std::string& name, const std::string& extension)
{
    return Result<const WCHAR*, const WCHAR*, const WCHAR*>(&LFile::MakeFilePath, Wide(folder).c_str(),
                                                            Wide(name).c_str(), Wide(extension).c_str());
}

TEST(Paths, SplitIntoFolderLastElementAndTitle)
{
    const TraceCapture trace;
    const char* const folders[][3] = {{"C:\\Data\\a.txt", "C:\\Data", "a.txt"},
                                      {"C:\\a.txt", "C:", "a.txt"},
                                      {"a.txt", "", "a.txt"},
                                      {"\\a.txt", "", "a.txt"},
                                      {"/a.txt", "/", "a.txt"},
                                      {"/usr/a.txt", "/usr", "a.txt"},
                                      {"\\\\server\\share\\a", "\\\\server\\share", "a"},
                                      {"C:/Data/sub\\L\u00F6schen", "C:/Data/sub", "L\u00F6schen"},
                                      {"C:\\", "C:", ""},
                                      {"C:", "", ""},
                                      {"C:a.txt", "", "C:a.txt"},
                                      {"/", "/", ""},
                                      {"", "", ""}};
    for (const auto& [path, folder, file] : folders)
    {
        EXPECT_EQ(Folder(path), folder) << path;
        EXPECT_EQ(File(path), file) << path;
    }
    const char* const titles[][2] = {{"trace.dll.txt", "trace.dll"},
                                     {"C:\\a.b\\name", "name"},
                                     {"C:\\.profile", ".profile"},
                                     {"..txt", "."},
                                     {"a.", "a"},
                                     {"", ""}};
    for (const auto& [path, title] : titles)
    {
        EXPECT_EQ(Result(&LFile::GetFileTitleFromPath, Wide(path).c_str()), title) << path;
    }
    EXPECT_EQ(trace.Texts(), Lines());
}

TEST(Paths, FoldersAreReadFrom260CharactersAndElementsCutAt259)
{
    TraceCapture trace;
    const std::string folder = "C:\\" + std::string(256, 'f'); // 259 characters
    const std::string element(259, 'e');
    EXPECT_EQ(Folder(folder + "\\"), folder);
    EXPECT_EQ(Folder(std::string(260, 'x')), "");
    EXPECT_EQ(File(element + "\\" + element), element);
    EXPECT_EQ(trace.Texts(), Lines());
    EXPECT_EQ(Folder(folder + "\\x"), folder);
    EXPECT_EQ(Folder("C:\\" + std::string(300, 'x') + "\\a"), "C:");
    EXPECT_EQ(File("C:\\" + element + "x"), element);
    EXPECT_EQ(File("C:\\" + element + "x\\a.txt"), element) << "also one that is not the last";
    EXPECT_EQ(trace.Texts(), (Lines{longPath, longPath, longElement, longElement}));
}

TEST(Paths, ANullPathIsAnEmptyOneAndANullBufferStaysAlone)
{
    const TraceCapture trace;
    const WCHAR* const none = nullptr;
    EXPECT_EQ(Result(&LFile::GetFolderFromPath, none), "");
    EXPECT_EQ(Result(&LFile::GetFileFromPath, none), "");
    EXPECT_EQ(LFile::GetFolderFromPath(nullptr, TEXT("a")), nullptr);
    EXPECT_EQ(LFile::GetFileFromPath(nullptr, TEXT("a")), nullptr);
    EXPECT_EQ(trace.Texts(), (Lines{nullRead, nullRead, nullWrite, nullWrite}));
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
    WCHAR buffer[LSTR];
    tstrcpy(buffer, TEXT("C:\\Data"));
    EXPECT_EQ(Utf8(LFile::MakeFilePath(buffer, buffer, TEXT("b.txt"))), "C:\\Data\\b.txt");
    EXPECT_EQ(trace.Texts(), Lines());
}

TEST(Paths, ANameWithALeadingSeparatorIsReportedAndJoined)
{
    const std::string advice =
        " is not a valid path. Please call LFile::PreprocessName first. If it is a network file path, please "
        "make sure to start with \\\\";
    const TraceCapture trace;
    EXPECT_EQ(Make("C:\\Data", "/x", ".txt"), "C:\\Data\\/x.txt");
    EXPECT_EQ(Make("C:\\Data", "\\x", ""), "C:\\Data\\\\x");
    EXPECT_EQ(WithoutLineNumbers(trace.Texts()),
              (Lines{FailedCheck("szFileName[0] != TEXT('/')",
                                 "LFile::_MakeFilePath / is not a valid character as the first "
                                 "character of a file name. Please prepass the file name to avoid "
                                 "this possibility.",
                                 "gen/file.cpp"),
                     "**LFile::_MakeFilePath \\x" + advice}));
}

TEST(Paths, OverlongFoldersAndPathsAreCutAndReported)
{
    // The whole path: 259 characters.
    const std::string fits = "C:\\" + std::string(252, 'f'); // 255 characters
    EXPECT_EQ(Traced([&] { EXPECT_EQ(Make(fits, "abc", ""), fits + "\\abc"); }), Lines());
    EXPECT_EQ(Traced([&] { EXPECT_EQ(Make(fits, "a", ".txt"), fits + "\\a.t"); }), Overflow("lw", "a.t"));
    // The folder: 258.
    const std::string folder(258, 'f');
    EXPECT_EQ(Traced([&] { EXPECT_EQ(Make(folder, "", ""), folder + "\\"); }), Lines());
    const Lines cut = Lines{longFolder} + Overflow("lw", "");
    EXPECT_EQ(Traced([&] { EXPECT_EQ(Make(folder + "f", "name", ".txt"), folder + "\\"); }), cut);
    const std::string separated = std::string(257, 'f') + "\\";
    EXPECT_EQ(Traced([&] { EXPECT_EQ(Make(separated + "f", "n", ""), separated + "n"); }), Lines{longFolder});
    // In place: the folder's own buffer may be longer than the result.
    WideString inPlace(300, TEXT('f'));
    EXPECT_EQ(Traced([&] { LFile::MakeFilePath(inPlace.data(), inPlace.data(), TEXT("name")); }), cut);
    EXPECT_EQ(Utf8(inPlace.c_str()), folder + "\\");
}

} // namespace
