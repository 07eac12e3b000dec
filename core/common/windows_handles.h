// The Windows handle kinds this program owns, as ScopedHandle types.
#pragma once

#include "core/common/scoped_handle.h"
#include "core/common/windows_api.h"

namespace Common {

// Kernel objects (files, processes, threads, tokens). Creating calls answer failure with either null or
// INVALID_HANDLE_VALUE, depending on the call, so both count as none.
struct KernelHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }
    static bool Close(Handle handle) { return CloseHandle(handle) != FALSE; }
};
using KernelHandle = ScopedHandle<KernelHandleTraits>;

struct ServiceHandleTraits {
    using Handle = SC_HANDLE;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle handle) { return handle != nullptr; }
    static bool Close(Handle handle) { return CloseServiceHandle(handle) != FALSE; }
};
using ServiceHandle = ScopedHandle<ServiceHandleTraits>;

struct DesktopHandleTraits {
    using Handle = HDESK;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle handle) { return handle != nullptr; }
    static bool Close(Handle handle) { return CloseDesktop(handle) != FALSE; }
};
using DesktopHandle = ScopedHandle<DesktopHandleTraits>;

// A FindFirstFileW session.
struct FindFileHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static bool IsValid(Handle handle) { return handle != INVALID_HANDLE_VALUE; }
    static bool Close(Handle handle) { return FindClose(handle) != FALSE; }
};
using FindFileHandle = ScopedHandle<FindFileHandleTraits>;

// A FindFirstVolumeW session.
struct FindVolumeHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static bool IsValid(Handle handle) { return handle != INVALID_HANDLE_VALUE; }
    static bool Close(Handle handle) { return FindVolumeClose(handle) != FALSE; }
};
using FindVolumeHandle = ScopedHandle<FindVolumeHandleTraits>;

}  // namespace Common
