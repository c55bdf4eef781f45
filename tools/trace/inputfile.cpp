#include "tools/trace/inputfile.h"

#include <algorithm>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>
#ifdef _WIN32
#include <io.h>
#include <windows.h>
#endif

namespace sndxtools::trace
{
namespace
{
constexpr std::string_view nameBegins = "tracedll_Sendora";
constexpr std::string_view nameEnds = ".txt";

[[noreturn]] void Fail(const std::filesystem::path& path, std::error_code error)
{
    throw std::runtime_error(TextOf(path) + ": " + error.message());
}

// The module opens its trace for every line, and moves it at the next start: neither may wait for a reader.
int Open(const std::filesystem::path& path)
{
#ifdef _WIN32
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        Fail(path, {static_cast<int>(GetLastError()), std::system_category()});
    }
    return _open_osfhandle(reinterpret_cast<std::intptr_t>(file), _O_RDONLY | _O_BINARY);
#else
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
#endif
}

class File : public Source
{
  public:
    explicit File(const std::filesystem::path& path) : path_(path), file_(Checked(Open(path))) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() override { close(file_); }
    std::size_t Read(char* buffer, std::size_t size) override
    {
        return static_cast<std::size_t>(Checked(read(file_, buffer, static_cast<unsigned>(size))));
    }

  private:
    template <class T>
    T Checked(T result) const
    {
        if (result < 0)
        {
            Fail(path_, {errno, std::generic_category()});
        }
        return result;
    }

    std::filesystem::path path_;
    int file_;
};
} // namespace

std::filesystem::path PathOf(const std::string& text)
{
    return std::u8string(text.begin(), text.end());
}

std::string TextOf(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

std::unique_ptr<Source> OpenFile(const std::filesystem::path& path)
{
    return std::make_unique<File>(path);
}

std::vector<std::filesystem::path> TraceFiles(const std::filesystem::path& place)
{
    std::error_code error;
    if (!std::filesystem::is_directory(place, error))
    {
        return {place};
    }
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(place, error))
    {
        if (!ProgramOf(entry.path()).empty())
        {
            found.push_back(entry.path());
        }
    }
    if (error)
    {
        Fail(place, error);
    }
    if (found.empty())
    {
        throw std::runtime_error(TextOf(place) + ": no file of the name " + std::string(nameBegins) + "*" +
                                 std::string(nameEnds) + " in this folder");
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string ProgramOf(const std::filesystem::path& path, int* generation)
{
    const std::string name = TextOf(path.filename());
    if (name.size() <= nameBegins.size() + nameEnds.size() || !name.starts_with(nameBegins) ||
        !name.ends_with(nameEnds))
    {
        return {};
    }
    std::string program = name.substr(nameBegins.size(), name.size() - nameBegins.size() - nameEnds.size());
    const std::size_t size = program.size();
    const bool isOlder =
        size > 2 && program[size - 2] == '.' && program[size - 1] >= '1' && program[size - 1] <= '9';
    if (generation != nullptr)
    {
        *generation = isOlder ? program[size - 1] - '0' : 0;
    }
    return isOlder ? program.substr(0, size - 2) : program;
}
} // namespace sndxtools::trace
