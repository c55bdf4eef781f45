#pragma once
// What a wait for messages needs of the calling thread's queue, and the announcement that the program is
// idle.

namespace sndxposix
{
// How a parent hands the descriptor for the idle announcement to a child: "DESCRIPTOR:INODE" of a pipe.
inline constexpr char idleVariable[] = "SNDX_IDLE";

// Whether a message has come since the thread last looked. Makes the thread's queue.
bool HasNewMessages();
// Tells the parent's WaitForInputIdle that this process waits for messages; only the first time.
void AnnounceIdle();
} // namespace sndxposix
