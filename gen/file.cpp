#include "gen/file.h"

#include "gen/debug.h"
#include "gen/stringtools.h"

WCHAR* LFile::GetFolderFromPath(WCHAR* szFolder, const WCHAR* szPath)
{
    return _GetFolderFromPath(szFolder, szPath);
}

WCHAR* LFile::_GetFolderFromPath(WCHAR* szFolder, const WCHAR* szPath)
{
    LDEBUGVALIDPTRREAD(szPath);
    LDEBUGVALIDPTRWRITE(szFolder);
    if (szFolder == nullptr)
    {
        return szFolder;
    }
    std::size_t uCut = 0; // index of the last separator so far
    for (std::size_t i = 0; szPath != nullptr && szPath[i] != 0; ++i)
    {
        if (i == LSTR)
        {
            LDebugTraceError("LFile::_GetFolderFromPath szPath is too long");
            break;
        }
        if (IsSeparator(szPath[i]))
        {
            uCut = i;
        }
        szFolder[i] = szPath[i];
    }
    if (uCut == 0 && szPath != nullptr && szPath[0] == TEXT('/'))
    {
        uCut = 1;
    }
    szFolder[uCut] = 0;
    return szFolder;
}

WCHAR* LFile::GetFileFromPath(WCHAR* szFile, const WCHAR* szPath)
{
    return _GetFileFromPath(szFile, szPath);
}

WCHAR* LFile::_GetFileFromPath(WCHAR* szFile, const WCHAR* szPath)
{
    LDEBUGVALIDPTRREAD(szPath);
    LDEBUGVALIDPTRWRITE(szFile);
    if (szFile == nullptr)
    {
        return szFile;
    }
    szFile[0] = 0;
    if (szPath == nullptr || (szPath[0] != 0 && szPath[1] == TEXT(':') && szPath[2] == 0))
    {
        return szFile;
    }
    std::size_t uLength = 0;
    for (const WCHAR* p = szPath; *p != 0; ++p)
    {
        if (IsSeparator(*p))
        {
            uLength = 0;
            continue;
        }
        if (uLength == LSTR - 1)
        {
            LDebugTraceError("LFile::_GetFileFromPath szPath is too long");
            break;
        }
        szFile[uLength] = *p;
        ++uLength;
    }
    szFile[uLength] = 0;
    return szFile;
}

WCHAR* LFile::GetFileTitleFromPath(WCHAR* szTitle, const WCHAR* szPath)
{
    GetFileFromPath(szTitle, szPath);
    for (std::size_t i = tstrlen(szTitle); i > 1; --i)
    {
        if (szTitle[i - 1] == TEXT('.'))
        {
            szTitle[i - 1] = 0;
            break;
        }
    }
    return szTitle;
}

WCHAR* LFile::MakeFilePath(WCHAR* szPath, const WCHAR* szFolder, const WCHAR* szFileName,
                           const WCHAR* szExtension)
{
    return _MakeFilePath(szPath, szFolder, szFileName, szExtension);
}

WCHAR* LFile::MakeFilePath(WCHAR* szPath, const WCHAR* szFolder, const WCHAR* szFileName)
{
    return _MakeFilePath(szPath, szFolder, szFileName, TEXT(""));
}

WCHAR* LFile::_MakeFilePath(WCHAR* szPath, const WCHAR* szFolder, const WCHAR* szFileName,
                            const WCHAR* szExtension)
{
    std::size_t n = tstrlen(szFolder);
    if (n > LSTR - 2)
    {
        LDebugTraceError("LFile::MakeFilePath folder is > LSTR - 2");
        n = LSTR - 2;
    }
    if (szPath != szFolder)
    {
        tstrlcpy(szPath, szFolder, n + 1);
    }
    if (n > 0 && !IsSeparator(szPath[n - 1]))
    {
        szPath[n] = TEXT('\\');
        ++n;
    }
    if (szFileName[0] == TEXT('/'))
    {
        LDebugCheckFailed(
            "szFileName[0] != TEXT('/')",
            "LFile::_MakeFilePath / is not a valid character as the first character of a file name. "
            "Please prepass the file name to avoid this possibility.",
            __FILE__, __LINE__);
    }
    if (szFileName[0] == TEXT('\\') && szFileName[1] != TEXT('\\'))
    {
        LDebugTraceFunctionF(
            "LFile::_MakeFilePath", true,
            TEXT("%s is not a valid path. Please call LFile::PreprocessName first. If it is a "
                 "network file path, please make sure to start with \\\\"),
            szFileName);
    }
    tsnprintf(szPath + n, LSTR - n, TEXT("%s%s"), szFileName, szExtension);
    return szPath;
}
