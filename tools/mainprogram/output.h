#pragma once
#include <mutex>
#include <string>

#include <windows.h>

namespace sndxtools
{
// A file that text or bytes are appended to, shared with readers and other writers while it is open.
class AppendFile
{
  public:
    // Without a name nothing is opened. Throws std::runtime_error when the file cannot be opened.
    explicit AppendFile(const std::string& name);
    ~AppendFile();
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    bool IsOpen() const { return file_ != INVALID_HANDLE_VALUE; }
    void Append(const void* bytes, std::size_t count);

  private:
    HANDLE file_ = INVALID_HANDLE_VALUE;
};

// Where the program's findings go. Used by one thread per pipe instance.
class Output
{
  public:
    Output(const std::string& textFile, const std::string& rawFile) : text_(textFile), raw_(rawFile) {}

    void Text(const std::string& text);
    void Raw(const void* bytes, std::size_t count);

  private:
    // Keeps the lines of one message together. Held for one write.
    std::mutex mutex_;
    AppendFile text_;
    AppendFile raw_;
};
} // namespace sndxtools
