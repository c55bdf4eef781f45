#pragma once

namespace sndxtest
{
// The tracked allocation number `after` from now (0: the next) and the `count` - 1 following it give null.
void FailAllocation(int after, int count = 1);
// Tracked allocations so far in this process.
int AllocationCount();
} // namespace sndxtest
