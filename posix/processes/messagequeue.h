#pragma once
// What a wait for messages needs of the calling thread's queue, and the announcement that the program is
// idle.

namespace sndxposix
{
// Whether a message has come since the thread last looked. Makes the thread's queue.
bool HasNewMessages();
// Tells the parent's WaitForInputIdle that this process waits for messages; only the first time.
void AnnounceIdle();
} // namespace sndxposix
