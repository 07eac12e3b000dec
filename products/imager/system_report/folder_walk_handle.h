// The handle type behind an open file or folder of the folder walk: a descriptor or a Windows handle.
#pragma once

#ifdef _WIN32
#include "core/common/windows_handles.h"
namespace SystemReport {
using WalkHandle = Common::KernelHandle;
}
#else
#include "core/common/file_descriptor.h"
namespace SystemReport {
using WalkHandle = Common::FileDescriptor;
}
#endif
