#pragma once
#include <atomic>
#include <thread>
#include <vector>

#include <windows.h>

#include "tools/mainprogram/options.h"
#include "tools/mainprogram/output.h"

namespace sndxtools
{
// The instances of the control pipe, each served by a thread of its own.
class PipeServer
{
  public:
    // Makes all instances, and with the busy option the clients that hold them; throws std::runtime_error
    // when that fails. The pipe exists when the constructor returns.
    PipeServer(const MainProgramOptions& options, Output& output);
    PipeServer(const PipeServer&) = delete;
    PipeServer& operator=(const PipeServer&) = delete;

    // Begins to serve. The threads block in the pipe and cannot be asked to stop: they, and with them this
    // object, end with the process; so nothing may be thrown from here on either.
    void Start() noexcept;

    // Signalled when the asked number of connections has been served.
    HANDLE DoneEvent() const { return done_; }

  private:
    void Serve(HANDLE instance);
    void ServeConnection(HANDLE instance, const std::string& label);

    const MainProgramOptions& options_;
    Output& output_;
    HANDLE done_ = nullptr;
    std::vector<HANDLE> instances_;
    std::vector<HANDLE> ownClients_;
    std::atomic<DWORD> opened_ = 0;
    std::atomic<DWORD> served_ = 0;
};
} // namespace sndxtools
