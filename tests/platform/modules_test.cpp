// What a module is told of its end. All else of loading shows with the product.

#include <string>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/temporaryfolder.h"

namespace
{
using namespace sndxtest;

SNDX_CHILD(LoadAndEnd)
{
    const HMODULE module = LoadLibraryA("testmodule" SNDX_MODULE_SUFFIX);
    return module != nullptr && (arguments[0] == "end" || FreeLibrary(module)) ? 7 : 1;
}

TEST(Modules, AreDetachedAndThenDestroyedAndToldOfTheEndOfTheProcess)
{
    const TemporaryFolder folder;
    for (const auto& [how, noted] :
         {std::pair{"free", "detach destruct"}, {"end", "detach-at-exit destruct"}})
    {
        SetEnvironmentVariableW(TEXT("SNDX_NOTES"), Wide(folder.Local(how).string()).c_str());
        EXPECT_EQ(ChildProcess("LoadAndEnd", {how}).Wait(), 7);
        EXPECT_EQ(ReadWholeFile(folder / how), noted);
    }
}
} // namespace
