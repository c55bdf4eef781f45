#pragma once
// How a pipe is kept, and one end of a connection.
//
// A pipe is an object by name (namedobjects.h) that its server ends hold: a control file below
// <root>/pipe with a header and one slot for each connection. A slot has two locked bytes, one held by the
// server end and one by the client end, so that each sees the other's death at once. A slot serves one
// connection only: a server end that disconnects moves to another slot, which leaves the old client with
// the truth about its own connection. Each direction of a slot has a file of bytes.
//
// All bytes of a write are put into the file at once, whatever the quota; the write is complete when the
// unread bytes up to its end fit the quota. So nobody has to move bytes in the background, a reader sees
// pending writes, and a cancelled write is withdrawn by cutting its unread bytes off.

#include <list>
#include <mutex>
#include <string>

#include "posix/sync/namedobjects.h"
#include "posix/sync/waiting.h"
#include "sndx/pipes.h"

namespace sndxposix
{
// Index of what a direction has; the numbers are those of PIPE_ACCESS_INBOUND and _OUTBOUND, less one.
inline constexpr std::size_t toServer = 0;
inline constexpr std::size_t toClient = 1;

struct PipeHeader
{
    DWORD access; // PIPE_ACCESS_…
    DWORD maxInstances;
    DWORD defaultTimeout; // ms
    DWORD quota[2];       // bytes
    DWORD slotCount;      // slots ever used
};

// Positions count all bytes ever written to the direction.
struct PipeFlow
{
    std::uint64_t base; // position of the file's first byte
    std::uint64_t read;
    std::uint64_t written;
    // The writer's first pending write, when it last looked; both 0 for none. A dead writer's pending
    // writes are withdrawn from here on.
    std::uint64_t pendingStart;
    std::uint64_t pendingEnd;
};

enum class PipePhase : DWORD
{
    Disconnected, // by the server end, or not yet listening again
    Listening,
    Connected, // also after one end has gone
};

struct PipeSlot
{
    PipePhase phase;
    PipeFlow flow[2];
};

// The bytes of a slot that its two ends lock.
constexpr off_t ServerByte(std::size_t index)
{
    return firstSlotByte + 2 * static_cast<off_t>(index);
}
constexpr off_t ClientByte(std::size_t index)
{
    return ServerByte(index) + 1;
}

// The control file, seen by one holder.
class PipeControl
{
  public:
    explicit PipeControl(std::unique_ptr<NamedFile> file) : file_(std::move(file)) {}
    int File() const { return file_->File(); }

    // All of these inside a Gate.
    PipeHeader ReadHeader() const;
    PipeSlot ReadSlot(std::size_t index) const;
    void WriteSlot(std::size_t index, const PipeSlot& slot) const;
    bool IsServerAlive(std::size_t index) const { return IsByteLockedByOther(File(), ServerByte(index)); }
    bool IsClientAlive(std::size_t index) const { return IsByteLockedByOther(File(), ClientByte(index)); }
    std::size_t CountServers() const;
    std::optional<std::size_t> FindListening() const;
    // Takes a slot without server and client for a server end, with fresh files. own is the slot that the
    // end still has: its own lock does not show.
    std::optional<std::size_t> TakeSlot(PipePhase phase, std::optional<std::size_t> own) const;
    std::string DataPath(std::size_t index, std::size_t direction) const;

  private:
    const std::unique_ptr<NamedFile> file_;
};

// The control file of the pipe \\.\pipe\NAME. Nothing, with ERROR_INVALID_NAME, for another path.
std::optional<std::string> PipePath(const WCHAR* name);

// One lock over all pipe ends of this process, taken before a Gate: an end's descriptor serves all threads,
// and the locks behind a Gate do not tell threads of one descriptor apart.
std::mutex& PipeMutex();

// CreateFileW of a path in the name space of pipes. access and flags are those of CreateFileW;
// INVALID_HANDLE_VALUE with the last error set on failure.
HANDLE OpenPipeClient(const WCHAR* path, DWORD access, DWORD flags);

class PipeEnd : public StreamObject, public std::enable_shared_from_this<PipeEnd>
{
  public:
    enum class Side
    {
        Server,
        Client,
    };

    // The caller has taken the slot's byte for that side.
    PipeEnd(Side side, std::unique_ptr<PipeControl> control, std::size_t slot, bool overlapped);
    ~PipeEnd() override;

    BOOL Read(void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped) override;
    BOOL Write(const void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped) override;
    BOOL Flush() override;
    BOOL Peek(DWORD& available) const;
    BOOL Connect(OVERLAPPED* overlapped);
    BOOL Disconnect();
    // Cancels the pending transfers.
    void Cancel();

    // Completes what can be completed. True while transfers are pending. Under PipeMutex.
    bool Progress();

  private:
    enum class State
    {
        Disconnected,
        Listening,
        Connected,
        PeerGone, // the peer has closed or died; what it wrote can still be read
    };
    enum class Kind
    {
        Read,
        Write,
        Connect,
    };
    struct Transfer
    {
        Kind kind;
        OVERLAPPED* overlapped;
        std::shared_ptr<EventObject> event;
        void* buffer;        // Read
        DWORD size;          // bytes asked for
        std::uint64_t start; // Write: positions of the bytes
        std::uint64_t end;
    };

    // Exclusive use of the end's slot, which is read at the beginning and stored at the end.
    class Visit
    {
      public:
        explicit Visit(const PipeEnd& end)
            : lock_(PipeMutex()), gate_(end.control_->File()), control_(*end.control_), index_(end.slot_),
              slot(control_.ReadSlot(index_))
        {
        }
        ~Visit() { control_.WriteSlot(index_, slot); }

      private:
        const std::lock_guard<std::mutex> lock_;
        const Gate gate_;
        const PipeControl& control_;
        const std::size_t index_;

      public:
        PipeSlot slot;
    };

    std::size_t Incoming() const { return side_ == Side::Server ? toServer : toClient; }
    std::size_t Outgoing() const { return side_ == Side::Server ? toClient : toServer; }
    void OpenFiles();
    void LeaveSlot();
    // Also withdraws what a dead peer had pending.
    State Look(PipeSlot& slot) const;
    // Runs a transfer to its end, or leaves it pending for an overlapped end.
    BOOL Start(Kind kind, void* buffer, const void* source, DWORD size, DWORD* bytes, OVERLAPPED* overlapped);
    DWORD Refusal(Kind kind, State state) const;
    // True when the transfer has ended.
    bool Advance(Transfer& transfer, PipeSlot& slot, State state);
    static void Finish(const Transfer& transfer, ULONG_PTR status, DWORD bytes);
    void ProgressInside(PipeSlot& slot);
    // Keeps the first pending write in the slot.
    void Note(PipeSlot& slot) const;
    // Moves unread bytes into the buffer.
    DWORD TakeBytes(PipeSlot& slot, void* buffer, DWORD size);
    // Ends all transfers with the status and withdraws the unread bytes of pending writes.
    void CancelAll(PipeSlot& slot, ULONG_PTR status);

    const Side side_;
    const std::unique_ptr<PipeControl> control_;
    std::size_t slot_;
    const bool overlapped_;
    const PipeHeader header_;
    Descriptor files_[2];
    std::list<Transfer> transfers_; // in the order of their start
};
} // namespace sndxposix
