#pragma once
// An empty folder for the files of one test, removed with them afterwards.

#include <string>

#include <windows.h>

#include "tests/support/text.h"

namespace sndxtest
{
class TemporaryFolder
{
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The Windows path of a name in the folder.
    WideString operator/(const std::string& name) const { return path_ + Wide("\\" + name); }

  private:
    static void Empty(const WideString& folder);
    WideString path_;
};
} // namespace sndxtest
