#pragma once
#include <string>

#include <windows.h>

#include "tools/results.h"
#include "tools/text.h"

namespace sndxtools::simulator
{
// A process that was started; ended at the latest with this object.
class Process
{
  public:
    explicit Process(const std::string& commandLine)
    {
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process = {};
        WideString line = Wide(commandLine);
        Check("CreateProcess", ErrorResult(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0,
                                                          nullptr, nullptr, &startup, &process)
                                               ? 0
                                               : GetLastError()));
        CloseHandle(process.hThread);
        handle_ = process.hProcess;
    }
    ~Process()
    {
        Kill();
        WaitForSingleObject(handle_, 10000);
        CloseHandle(handle_);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool HasEnded() const { return WaitForSingleObject(handle_, 0) == WAIT_OBJECT_0; }
    // As the task manager does.
    void Kill() const { TerminateProcess(handle_, 1); }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        GetExitCodeProcess(handle_, &code);
        return code;
    }

  private:
    HANDLE handle_ = nullptr;
};
} // namespace sndxtools::simulator
