#pragma once
// The request to the product's main program: a command and the selected paths, over its control pipe. No
// reply is read; the result only says whether the pipe could be reached.

#include "gen/stringtools.h"
#include "gen/types.h"

// A request is a stream of messages on one connection, each a header and at once its payload. All integers
// are little-endian; the structures are the bytes on the wire.
struct ShellRequestHeader
{
    std::uint16_t wMarker;
    std::uint16_t wFormat;
    std::uint32_t dwCode;
    std::uint32_t dwPayloadSize; // bytes that follow
    std::uint32_t dwReserved;    // 0
};
// contract.md W2
static_assert(sizeof(ShellRequestHeader) == 16 && offsetof(ShellRequestHeader, wFormat) == 2 &&
              offsetof(ShellRequestHeader, dwCode) == 4 && offsetof(ShellRequestHeader, dwPayloadSize) == 8 &&
              offsetof(ShellRequestHeader, dwReserved) == 12);

constexpr std::uint16_t SHELLREQUEST_MARKER = 0x1234;
constexpr std::uint16_t SHELLREQUEST_FORMAT = 3;
constexpr std::uint32_t SHELLREQUEST_CODE = 0x0100000B;
constexpr std::uint32_t SHELLREQUEST_SLOTS = 128; // the option word and at most 127 paths

struct ShellRequestPayload
{
    std::uint32_t dwSlotCount; // slots sent, the option slot included: 2 to 128
    WCHAR szSlot[SHELLREQUEST_SLOTS][LSTR];
};
// contract.md W3
static_assert(sizeof(ShellRequestPayload) == 66564 && offsetof(ShellRequestPayload, szSlot) == 4 &&
              sizeof(ShellRequestPayload::szSlot[0]) == 520);

// The main program's path into a buffer of LSTR characters: the user's setting, or else the machine's; empty
// when there is none.
void GetSendoraPath(WCHAR* szPath);

// Sends the command at uOffset (0 upload, 1 download, 2 delete) for the files, starting the main program
// first when its pipe is absent. S_OK when the pipe was reached, also when a write failed; E_FAIL when it was
// not; E_INVALIDARG for another offset; E_OUTOFMEMORY before anything was done. Runs and blocks on the
// caller's thread, without a lock of the module; see docs/waits.md for the bounds.
HRESULT SendRequest(std::uint16_t uOffset, const LStringList& files);
