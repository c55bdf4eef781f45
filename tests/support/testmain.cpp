// Entry point of every test program. Natively each process gets a root folder of its own below the
// temporary folder; children inherit it through the environment. Under Wine all share the prefix, and a
// test cleans what it needs clean (see settings.h and tracefile.h).

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/privateroot.h"

namespace
{
sndxtest::PrivateRoot* g_root = nullptr;

// Before any static object of product code that is linked directly, and after the last one: those use files,
// named objects and the registry already.
__attribute__((constructor(101))) void MakeRoot()
{
    g_root = new sndxtest::PrivateRoot;
}

__attribute__((destructor(101))) void RemoveRoot()
{
    delete g_root;
    g_root = nullptr;
}
} // namespace

int main(int argc, char** argv)
{
    const int childResult = sndxtest::RunChildIfAsked(argc, argv);
    if (childResult >= 0)
    {
        return childResult;
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
