#pragma once
#include <string>

namespace sndxtest
{
// A fresh root folder of the POSIX layer for this process and its children, removed at the end. Does
// nothing on Windows, where registry and files belong to the prefix. A root that the environment already
// names is used and left alone.
class PrivateRoot
{
  public:
    PrivateRoot();
    ~PrivateRoot();
    PrivateRoot(const PrivateRoot&) = delete;
    PrivateRoot& operator=(const PrivateRoot&) = delete;

  private:
    std::string folder_;
};
} // namespace sndxtest
