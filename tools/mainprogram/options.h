#pragma once
#include <optional>
#include <ostream>
#include <string>

#include <windows.h>

#include "tools/commandline.h"
#include "tools/contract.h"

namespace sndxtools
{
// How the stand-in for the main program behaves. Times are milliseconds.
struct MainProgramOptions
{
    std::string outputFile; // readable text is appended; standard output when empty
    std::string rawFile;    // exact bytes are appended; not kept when empty
    std::string readyFile;  // created once the pipe exists
    std::string pipeName = contract::pipeName;
    DWORD instances = 1;
    DWORD defaultTimeout = 0;        // of the pipe; 0 leaves the choice to the system
    DWORD buffer = 65536;            // quota of the pipe in either direction, bytes
    DWORD readAfter = 0;             // from the connection to the first read
    DWORD idleAfter = 0;             // from the creation of the pipe to the first wait for messages
    DWORD duration = 60000;          // the program ends by itself, so that no process is left behind
    std::optional<DWORD> closeEarly; // ends each connection after that many bytes
    std::optional<DWORD> requests;   // ends the program after that many connections
    bool busy = false;
    bool neverRead = false;
    bool flood = false;
    bool noPipe = false;
    bool exitAtOnce = false;
};

// None when help was asked for; it is written to out then. Throws UsageError for an unknown option or an
// unusable value.
std::optional<MainProgramOptions> ParseMainProgramOptions(const Arguments& arguments, std::ostream& out);
} // namespace sndxtools
