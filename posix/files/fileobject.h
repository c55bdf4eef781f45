#pragma once
// The object behind the handle of an open file.

#include <memory>
#include <string>

#include "posix/base/descriptor.h"
#include "posix/base/handles.h"
#include "sndx/files.h"

namespace sndxposix
{
class FileObject final : public StreamObject
{
  public:
    // Opens as CreateFileW does; path is a POSIX path. attributes are those for a new file. Null with the
    // last error set on failure; after success the last error tells whether the file had existed.
    static std::shared_ptr<FileObject> Open(const std::string& path, DWORD access, DWORD share,
                                            DWORD disposition, DWORD attributes);

    // kinds are the kinds of access as FILE_SHARE_… bits.
    FileObject(Descriptor file, DWORD kinds) : file_(std::move(file)), kinds_(kinds) {}
    ~FileObject() override { UnlockAllBytes(file_.Get()); }

    // There are no overlapped transfers of files.
    BOOL Read(void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped) override;
    BOOL Write(const void* buffer, DWORD size, DWORD* bytes, OVERLAPPED* overlapped) override;
    BOOL Flush() override;
    int Number() const { return file_.Get(); }

  private:
    const Descriptor file_;
    const DWORD kinds_;
};
} // namespace sndxposix
