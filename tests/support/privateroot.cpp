#include "tests/support/privateroot.h"

#include <cstdlib>
#include <filesystem>

namespace sndxtest
{
#ifdef _WIN32
PrivateRoot::PrivateRoot() = default;
PrivateRoot::~PrivateRoot() = default;
#else
PrivateRoot::PrivateRoot()
{
    if (std::getenv("SENDORA_ROOT") != nullptr)
    {
        return;
    }
    std::string pattern = (std::filesystem::temp_directory_path() / "sndxtest-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
    {
        std::abort();
    }
    folder_ = pattern;
    setenv("SENDORA_ROOT", folder_.c_str(), 1);
}

PrivateRoot::~PrivateRoot()
{
    if (!folder_.empty())
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
}
#endif
} // namespace sndxtest
