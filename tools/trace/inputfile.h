#pragma once
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/trace/reader.h"

namespace sndxtools::trace
{
// Paths are UTF-8 in all texts.
std::filesystem::path PathOf(const std::string& text);
std::string TextOf(const std::filesystem::path& path);

// A file that others may go on writing, moving and deleting. Throws std::runtime_error when it cannot be
// read.
std::unique_ptr<Source> OpenFile(const std::filesystem::path& path);

// A file, or the traces that lie in a folder. Throws std::runtime_error when there is none.
std::vector<std::filesystem::path> TraceFiles(const std::filesystem::path& place);

// The program that has written a trace of that name, and which of its older traces it is (0: the newest).
// Empty when it is no name of a trace.
std::string ProgramOf(const std::filesystem::path& path, int* generation = nullptr);
} // namespace sndxtools::trace
