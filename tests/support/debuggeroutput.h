#pragma once
// What this process passes to the debugger's output during a scope.

#include <string>
#include <utility>

#include <windows.h>

#ifndef _WIN32
#include "sndxposix.h"
#endif

namespace sndxtest
{
class DebuggerOutput
{
  public:
#ifdef _WIN32
    // The text travels as an exception, which a handler sees before the system takes it for handled.
    DebuggerOutput() : handler_(AddVectoredExceptionHandler(1, &Keep))
    {
        text_.clear();
    }
    ~DebuggerOutput()
    {
        RemoveVectoredExceptionHandler(handler_);
    }
    static std::string Take()
    {
        return std::exchange(text_, {});
    }

  private:
    static LONG CALLBACK Keep(EXCEPTION_POINTERS* exception)
    {
        constexpr DWORD print = 0x40010006; // DBG_PRINTEXCEPTION_C: length with terminator, address
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode == print && record.NumberParameters >= 2 &&
            record.ExceptionInformation[0] > 0)
        {
            text_.append(reinterpret_cast<const char*>(record.ExceptionInformation[1]),
                         static_cast<std::size_t>(record.ExceptionInformation[0]) - 1);
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }
    inline static std::string text_;
    void* handler_;
#else
    DebuggerOutput()
    {
        sndxposix::TakeDebugOutput();
    }
    static std::string Take()
    {
        return sndxposix::TakeDebugOutput();
    }
#endif
    DebuggerOutput(const DebuggerOutput&) = delete;
    DebuggerOutput& operator=(const DebuggerOutput&) = delete;
};
} // namespace sndxtest
