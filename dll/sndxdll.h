#pragma once
// The module: its class identifiers, its counters and instance handle, its exported functions.

#include <objbase.h>

#include "gen/types.h"

// Fixed class identifiers; the installer registers them (contract.md N7, N8).
constexpr GUID CLSID_SendoraOverlay = {
    0x041C6567, 0x1AB1, 0x4B57, {0xBD, 0x0F, 0xD9, 0x1A, 0xC4, 0x6B, 0x97, 0x3B}};
constexpr GUID CLSID_SendoraContextMenu = {
    0x75C582E7, 0x666B, 0x4191, {0x90, 0x85, 0x2B, 0x1F, 0x99, 0xD4, 0xCB, 0xCC}};

extern HINSTANCE g_hInstance; // set at process attach

// Live objects of the two classes that count. Plain, not interlocked; what keeps the module loaded beyond
// doubt is the registry of COM objects, which DllCanUnloadNow asks as well (contract.md O2).
extern std::int32_t g_nFactoryObjects;
extern std::int32_t g_nShellExtObjects;

extern "C"
{
    BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD uReason, void* pReserved);
    HRESULT WINAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
    HRESULT WINAPI DllCanUnloadNow();
}
