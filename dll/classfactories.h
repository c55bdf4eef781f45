#pragma once
// One class factory for each COM class of the module.

#include "dll/contextmenu.h"
#include "dll/overlay.h"
#include "dll/sndxdll.h"
#include "gen/com.h"

class LClassFactory : public LComClassFactory<LShellExt>
{
  public:
    LClassFactory() { ++g_nFactoryObjects; }
    ~LClassFactory() override { --g_nFactoryObjects; }
};

class LSendoraContextMenuClassFactory : public LComClassFactory<LSendoraContextMenu>
{
};

// contract.md M19
static_assert(sizeof(LClassFactory) == 16 && sizeof(LSendoraContextMenuClassFactory) == 16);
