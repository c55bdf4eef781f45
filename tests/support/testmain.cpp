// Entry point of every test program. Natively each process gets a root folder of its own below the
// temporary folder; children inherit it through the environment. Under Wine all share the prefix, and a
// test cleans what it needs clean (see settings.h and tracefile.h).

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/traceoracle.h"

#ifndef _WIN32
namespace
{
// The folder made here; empty when the environment named one already, which is used and left alone.
std::string* g_root = nullptr;

// Before any static object of product code that is linked directly, and after the last one: those use files,
// named objects and the registry already.
__attribute__((constructor(101))) void MakeRoot()
{
    g_root = new std::string;
    if (std::getenv("SENDORA_ROOT") == nullptr)
    {
        *g_root = (std::filesystem::temp_directory_path() / "sndxtest-XXXXXX").string();
        if (mkdtemp(g_root->data()) == nullptr)
        {
            std::abort();
        }
        setenv("SENDORA_ROOT", g_root->c_str(), 1);
    }
}

__attribute__((destructor(101))) void RemoveRoot()
{
    if (!g_root->empty())
    {
        std::error_code ignored;
        std::filesystem::remove_all(*g_root, ignored);
    }
    delete g_root;
}
} // namespace
#endif

// Settings of the sanitizers, for this program and the children that it starts from itself.
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1"; // absurd sizes are asked for on purpose
}

extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

extern "C" const char* __tsan_default_suppressions()
{
    return "mutex:LLockObject::~LLockObject\n" // destroying a lock that is held is what that test is about
                                               // Plain counters by design: the registry of COM objects, which
                                               // has a lock, keeps the module loaded.
           "race:LShellExt::LShellExt\n"
           "race:LShellExt::~LShellExt\n"
           "race:LClassFactory::LClassFactory\n"
           "race:LClassFactory::~LClassFactory\n"
           "race:DllCanUnloadNow\n";
}

int main(int argc, char** argv)
{
    const int childResult = sndxtest::RunChildIfAsked(argc, argv);
    if (childResult >= 0)
    {
        return childResult;
    }
    ::testing::InitGoogleTest(&argc, argv);
    sndxtest::HoldTracesOfEveryTest();
    return RUN_ALL_TESTS();
}
