#pragma once
// What is registered for the shell. The program knows no class but from there.

#include <objbase.h>

#include "tools/comref.h"
#include "tools/explorer/owners.h"
#include "tools/registry.h"
#include "tools/results.h"

namespace sndxtools
{
// Null when the key does not exist.
inline Owned<HKEY> OpenKey(HKEY root, const WideString& path)
{
    HKEY key = nullptr;
    return Owned<HKEY>(RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS ? key : nullptr);
}

// A new object of a registered class. Throws CallError.
template <class T>
ComRef<T> CreateRegistered(const RegisteredHandler& handler, REFIID iid)
{
    CLSID classId = {};
    Check("CLSIDFromString", CLSIDFromString(handler.classText.c_str(), &classId));
    ComRef<T> object;
    Check("CoCreateInstance",
          CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, iid, object.Receive()));
    return object;
}
} // namespace sndxtools
