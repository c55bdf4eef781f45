#pragma once
// Fixture of the tests that link the module's rooms directly.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dll/folders.h"
#include "dll/sndxdll.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/dataobject.h"
#include "tests/support/settings.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"

namespace sndxtest
{
// No settings and an empty table, before and after.
class RoomTest : public testing::Test
{
  protected:
    RoomTest() { RemoveTraceFiles(); }
    ~RoomTest() override
    {
        FailAllocation(0, 0);
        g_FolderList.DeleteAll();
        g_uLoadedState = 0;
        if (g_SharedState.Get() == nullptr)
        {
            g_SharedState._Create(TEXT("SharedMemoryForsndxtest"), sizeof(std::uint32_t), false, false);
        }
        *g_SharedState.Get() = 0;
    }

  private:
    CleanSettings settings_;
};
} // namespace sndxtest
