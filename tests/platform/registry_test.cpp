// The registry: values byte for byte, views, names, enumeration, rights, and what other processes write.

#include <string>
#include <vector>

#include "tests/support/registrykey.h"
#include "tests/support/child.h"
#include "tests/support/settings.h"

namespace
{
using namespace sndxtest;

const std::string testPath = std::string(sndxtools::contract::productKey) + "\\Test";

class Registry : public ::testing::Test
{
  protected:
    CleanSettings clean_;
    const Key key_{Key::Create, HKEY_CURRENT_USER, testPath};
};

TEST_F(Registry, MachineSoftwareHasTwoViewsAndTheUsersHasOne)
{
    const std::string below = testPath.substr(testPath.find('\\') + 1);
    SetSharedString("Test", "Name", "32 bits");
    const auto get = [](HKEY root, const std::string& path, REGSAM view)
    { return Key(Key::Open, root, path, KEY_QUERY_VALUE | view).Get("Name"); };
    EXPECT_EQ(get(HKEY_LOCAL_MACHINE, "Software\\" + below, 0), "error 2");
    EXPECT_EQ(get(HKEY_LOCAL_MACHINE, "Software\\" + below, KEY_WOW64_64KEY), "error 2");
    EXPECT_EQ(get(HKEY_LOCAL_MACHINE, "SOFTWARE\\" + below, KEY_WOW64_32KEY), Key::Text("32 bits"));
    EXPECT_EQ(get(HKEY_LOCAL_MACHINE, "Software\\Wow6432Node\\" + below, 0), Key::Text("32 bits"));
    const Key software(Key::Open, HKEY_LOCAL_MACHINE, "Software", KEY_READ | KEY_WOW64_32KEY);
    EXPECT_EQ(get(software, below, 0), Key::Text("32 bits")) << "by way of a key of the view";
    ASSERT_EQ(key_.Set("Name", "text"), 0);
    EXPECT_EQ(get(HKEY_CURRENT_USER, testPath, KEY_WOW64_32KEY), Key::Text("text"));
}

TEST_F(Registry, KeysAreFoundByPathsInAnyCaseAndEndWithTheirTree)
{
    const Key deep(Key::Create, key_, "One\\T w o\\[3]\\");
    EXPECT_EQ(deep.disposition, DWORD{REG_CREATED_NEW_KEY});
    EXPECT_EQ(Key(Key::Create, key_, "oNE\\t W o\\[3]").disposition, DWORD{REG_OPENED_EXISTING_KEY});
    EXPECT_EQ(Key(Key::Open, key_, "").SubKeys(), Names{"One"}) << "the key itself";
    const std::pair<const char*, LONG> paths[] = {{"ONE\\T W O\\", 0},
                                                  {"Two", ERROR_FILE_NOT_FOUND},
                                                  {"One\\T w o\\[3]\\4", ERROR_FILE_NOT_FOUND},
                                                  {"\\One", ERROR_BAD_PATHNAME}};
    for (const auto& [path, error] : paths)
    {
        EXPECT_EQ(Key(Key::Open, key_, path).error, error) << path;
    }
    ASSERT_EQ(deep.Set("Name", "text"), 0);
    EXPECT_EQ(RegDeleteTreeW(key_, TEXT("One\\T w o")), 0);
    EXPECT_EQ(Key(Key::Open, key_, "One").SubKeys(), Names{});
    EXPECT_EQ(deep.Get("Name"), "error 1018");
    EXPECT_EQ(deep.Set("Name", "other"), LONG{ERROR_KEY_DELETED});
    EXPECT_EQ(RegDeleteTreeW(key_, TEXT("One\\T w o")), LONG{ERROR_FILE_NOT_FOUND});
}

SNDX_CHILD(WritesRegistryValues)
{
    const Key key(Key::Create, HKEY_CURRENT_USER, testPath + "\\" + arguments[0]);
    LONG error = key.error;
    for (int value = 0; value < 25 && error == 0; ++value)
    {
        error = key.Set(std::to_string(value), "of " + arguments[0]);
    }
    return static_cast<int>(error);
}

TEST_F(Registry, ProcessesThatWriteAtOnceLoseNothing)
{
    const Names writers = {"1", "2", "3", "4"};
    std::vector<ChildProcess> children;
    for (const std::string& writer : writers)
    {
        children.emplace_back("WritesRegistryValues", Names{writer});
    }
    for (ChildProcess& child : children)
    {
        EXPECT_EQ(child.Wait(), 0);
    }
    for (const std::string& writer : writers)
    {
        for (int value = 0; value < 25; ++value)
        {
            EXPECT_EQ(Key(Key::Open, key_, writer).Get(std::to_string(value)), Key::Text("of " + writer));
        }
    }
}
} // namespace
