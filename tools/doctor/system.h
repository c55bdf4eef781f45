#pragma once
// Looking at files and processes, without changing them or keeping others out.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/text.h"

namespace sndxtools::doctor
{
struct HandleCloser
{
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<void, HandleCloser>;

// A to Z become a to z and nothing else, as the module compares paths.
WideString Folded(WideString text);
// "access denied" and the like for what users meet, "error 123" otherwise.
std::string ErrorText(DWORD error);

struct Entry
{
    WideString name;
    bool isFolder;
    std::uint64_t size;
};
// What fits the path's last element, in which '*' may stand for anything.
std::vector<Entry> List(const WideString& pattern);
// Why the path names no file, or no folder: "not found", "a folder", …; empty when it does.
std::string Fault(const WideString& path, bool wantsFolder = false);
// The file's first or last 4096 bytes, fewer of a smaller one; none when it cannot be read.
std::string ReadPart(const WideString& path, bool tail = false);
// A full path without wildcards, its elements as they are spelled on disk, as far as they are there.
WideString AsSpelled(WideString path);

// What keeps a file that begins with these bytes from being the module; empty when nothing does.
std::string ImageFault(std::string_view head);
// The image's version, "3.0"; empty when it has none, and natively.
std::string ImageVersion(const WideString& path);

// A process that has the module loaded.
struct Holder
{
    DWORD process;
    std::string program; // file name
    WideString module;   // full path; its file may have another name meanwhile
};
struct Processes
{
    bool areKnown = false;
    std::vector<Holder> holders;
    unsigned closed = 0;       // that could not be looked into
    bool shellWithout = false; // Explorer runs, but not with the module; Wine's never has any
};
Processes FindHolders();
} // namespace sndxtools::doctor
