#pragma once
// The commands of the submenu, in one table for the menu, its help and the request. The row is the offset
// from the first command identifier that the shell gives. The texts are the product's user interface; the
// main program knows the option words. contract.md C18 to C20, W5.

#include "gen/types.h"

struct MenuCommand
{
    const WCHAR* szText;
    const WCHAR* szHelp;
    const WCHAR* szOptionWord;
    bool bFilesOnly; // not offered when the first selected item is a folder
};

constexpr MenuCommand g_Commands[] = {
    {TEXT("Hochladen"), TEXT("Mit Sendora hochladen"), TEXT("-upload"), false},
    {TEXT("Herunterladen"), TEXT("Mit Sendora herunterladen"), TEXT("-download"), false},
    {TEXT("L\u00f6schen"), TEXT("Mit Sendora l\u00f6schen"), TEXT("-deleteconfirmed"), true},
};
constexpr UINT g_uCommands = sizeof(g_Commands) / sizeof(g_Commands[0]);
