// Merges a registry editor's file into the registry of the POSIX layer. On Windows the system's own
// "reg import" does this.

#include <cstdio>
#include <cstring>

#include <windows.h>

namespace
{
const char usage[] =
    "Usage: regimport FILE.reg\n"
    "Merges a file of the Windows registry editor (version 5.00; UTF-16 or UTF-8) into the\n"
    "registry below $SENDORA_ROOT. Exit code: 0 merged, 1 merged but for some lines that make\n"
    "no sense, 2 not merged.\n";
}

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))
    {
        std::fputs(usage, stdout);
        return 0;
    }
    if (argc != 2)
    {
        std::fputs(usage, stderr);
        return 2;
    }
    const sndxposix::RegistryImport import = sndxposix::ImportRegistryFile(argv[1]);
    if (import.error != 0)
    {
        std::fprintf(stderr, "regimport: %s: %s (error %d)\n", argv[1],
                     import.error == LSTATUS{ERROR_FILE_NOT_FOUND} ? "cannot be read"
                                                                   : "the registry cannot be written",
                     static_cast<int>(import.error));
        return 2;
    }
    if (!import.hasHeader)
    {
        std::fprintf(stderr, "regimport: %s: not a registry editor's file of version 5.00\n", argv[1]);
        return 2;
    }
    if (import.badLines != 0)
    {
        std::fprintf(stderr, "regimport: %s:%zu: not understood (lines skipped: %zu)\n", argv[1],
                     import.firstBadLine, import.badLines);
        return 1;
    }
    return 0;
}
