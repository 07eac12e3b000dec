// POSIX file descriptors as a ScopedHandle type.
#pragma once

#include <unistd.h>

#include "core/common/scoped_handle.h"

namespace Common {

struct FileDescriptorTraits {
    using Handle = int;
    static Handle Invalid() { return -1; }
    static bool IsValid(Handle fd) { return fd >= 0; }
    static bool Close(Handle fd) { return ::close(fd) == 0; }
};
using FileDescriptor = ScopedHandle<FileDescriptorTraits>;

}  // namespace Common
