#pragma once
// Control over the POSIX layer for tests: the clock, the local time, the thread's identifier, failures of
// named calls, functions of system libraries, and what went to the debugger. Nothing of this exists on
// Windows. Every function may be called from any thread at any time, except those of the local time.

#include <cstddef>
#include <cstdint>
#include <string>

namespace sndxposix
{
// GetTickCount stands still at milliseconds from now on.
void SetTickCount(std::uint32_t milliseconds);
// Moves the standing tick count on, past 2^32 to 0. A running one first comes to a stand.
void AdvanceTickCount(std::uint32_t milliseconds);
// GetTickCount counts real milliseconds again.
void RunTickCount();

// Sets the process's time zone (TZ) so that localtime(time(nullptr)) shows the given time of day now; it
// goes on from there. The date may be the day before or after. The environment is changed: no other thread
// may read it meanwhile.
void SetLocalTimeOfDay(int hour, int minute, int second);

// What GetCurrentThreadId reports to the calling thread; 0 is the real identifier again.
void SetCurrentThreadId(std::uint32_t id);

// Makes one call of the named function of the layer fail with the given error (its Windows code), after
// `skip` further calls have gone through. May be asked for several times; every request counts the calls
// for itself. Functions that return an error code return that one. A failing call leaves garbage in what it
// should have filled.
void FailCall(const char* function, std::uint32_t error, unsigned skip = 0);
// Forgets all requests that have not been met yet.
void ResetFailures();
// Requests not met yet.
unsigned PendingFailures();

// Asked for every call that can be made to fail, on the caller's thread: the error that it shall fail with,
// or 0. It may look at the stack and must not call the layer. Null for none.
using FailureChooser = std::uint32_t (*)(const char* function);
void ChooseFailures(FailureChooser chooser);

// Handles, keys, views, menus and blocks that the process has got from the layer and not given back.
std::size_t LiveObjects();

// A function that programs find in the libraries of the system that have none here, such as ntdll.dll. Null
// takes it away.
void ProvideFunction(const char* name, void* function);

// Everything that went to OutputDebugStringA since the last TakeDebugOutput. Of more than a megabyte the
// oldest part is lost.
std::string TakeDebugOutput();
} // namespace sndxposix
