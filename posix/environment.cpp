// Environment variables.

#include "posix/environment.h"

#include <cstdlib>
#include <cstring>

#include "posix/internal.h"
#include "sndx/processes.h"

namespace sndxposix
{
std::mutex& EnvironmentMutex()
{
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}
} // namespace sndxposix

using namespace sndxposix;

extern "C" BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
{
    if (FailNextCall("SetEnvironmentVariableW"))
    {
        return FALSE;
    }
    const std::string variable = name == nullptr ? std::string() : Utf8(name);
    const std::lock_guard lock(EnvironmentMutex());
    const int result =
        value == nullptr ? unsetenv(variable.c_str()) : setenv(variable.c_str(), Utf8(value).c_str(), 1);
    if (result != 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return TRUE;
}

extern "C" DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size)
{
    if (FailNextCall("GetEnvironmentVariableW"))
    {
        return 0;
    }
    std::u16string value;
    {
        const std::lock_guard lock(EnvironmentMutex());
        const char* found = std::getenv(Utf8(name).c_str());
        if (found == nullptr)
        {
            SetLastError(ERROR_ENVVAR_NOT_FOUND);
            return 0;
        }
        value = Utf16(found);
    }
    SetLastError(ERROR_SUCCESS); // tells an empty value from a missing variable
    if (value.size() >= size)
    {
        return static_cast<DWORD>(value.size() + 1);
    }
    std::memcpy(buffer, value.c_str(), (value.size() + 1) * sizeof(WCHAR));
    return static_cast<DWORD>(value.size());
}
