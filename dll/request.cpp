#include "dll/request.h"

#include "dll/commands.h"
#include "gen/debug.h"
#include "win32/namedpipe.h"
#include "win32/process.h"
#include "win32/settings.h"
#include "win32/signalwaiter.h"

namespace
{
const WCHAR g_szPipeName[] = TEXT("SendoraService"); // contract.md N4
constexpr std::uint32_t g_uWriteTimeoutMs = 5000;    // contract.md D1

// The buffer of a request, reused for all its messages. Zeroed once: the slots travel whole, and what stands
// behind a terminator must be nothing of the host process's memory.
class PayloadBuffer
{
  public:
    PayloadBuffer() : m_p(LNEW("SendRequest") ShellRequestPayload{}) {}
    ~PayloadBuffer() { delete m_p; }
    PayloadBuffer(const PayloadBuffer&) = delete;
    PayloadBuffer& operator=(const PayloadBuffer&) = delete;

    ShellRequestPayload* Get() const { return m_p; }

  private:
    ShellRequestPayload* m_p;
};

// Writes one message: header, then payload. A write that fails or times out does not stop the request
// (contract.md O11).
void SendMessageOf(LNamedPipe& pipe, const ShellRequestPayload& payload)
{
    const auto uPayloadSize = static_cast<std::uint32_t>(sizeof(payload.dwSlotCount) +
                                                         sizeof(payload.szSlot[0]) * payload.dwSlotCount);
    const ShellRequestHeader header = {SHELLREQUEST_MARKER, SHELLREQUEST_FORMAT, SHELLREQUEST_CODE,
                                       uPayloadSize, 0};
    LSimpleSignalWaiter waiter;
    LNamedPipe::ProcessSendBytes(waiter, pipe, &header, sizeof(header), g_uWriteTimeoutMs);
    LNamedPipe::ProcessSendBytes(waiter, pipe, &payload, uPayloadSize, g_uWriteTimeoutMs);
}
} // namespace

void GetSendoraPath(WCHAR* szPath)
{
    if (szPath == nullptr)
    {
        LDebugTraceFunction("GetSendoraPath", true, "Invalid input (nullptr)");
        return;
    }
    LUserSetting32GetString(TEXT("Settings"), TEXT("InstallerPath"), TEXT(""), szPath);
    if (szPath[0] == 0)
    {
        LSharedSetting32GetString(TEXT("Settings"), TEXT("InstallerPath"), TEXT(""), szPath);
    }
}

HRESULT SendRequest(std::uint16_t uOffset, const LStringList& files)
{
    const PayloadBuffer buffer;
    if (buffer.Get() == nullptr)
    {
        return E_OUTOFMEMORY;
    }
    ShellRequestPayload& payload = *buffer.Get();
    WCHAR szPath[LSTR];
    GetSendoraPath(szPath);
    WCHAR szCommandLine[LSTR]; // contract.md L12
    tsnprintf(szCommandLine, LSTR, TEXT("\"%s\""), szPath);
    LNamedPipe pipe(g_szPipeName);
    if (!pipe.IsOpen())
    {
        StartAndWaitForInputIdle(szCommandLine);
        pipe.Open(g_szPipeName);
    }
    if (!pipe.IsOpen())
    {
        return E_FAIL;
    }
    std::size_t uFile = 0;
    while (uFile < files.GetCount())
    {
        if (uOffset >= g_uCommands) // only now: contract.md O21
        {
            return E_INVALIDARG;
        }
        tstrlcpy(payload.szSlot[0], g_Commands[uOffset].szOptionWord, LSTR);
        std::uint32_t uSlot = 1;
        while (uSlot < SHELLREQUEST_SLOTS && uFile < files.GetCount())
        {
            tstrlcpy(payload.szSlot[uSlot], files.Get(uFile), LSTR);
            ++uSlot;
            ++uFile;
        }
        payload.dwSlotCount = uSlot;
        SendMessageOf(pipe, payload);
    }
    return S_OK;
}
