// ScopedHandle<Traits>: the one move-only owner of an operating-system handle (a kernel object, a
// service, a find session, a file descriptor); the traits say which value is "none" and how to close.
#pragma once

#include <utility>

namespace Common {

// Traits: `using Handle = ...;`, `static Handle Invalid()`, `static bool IsValid(Handle)`,
// `static bool Close(Handle)` (true when the system closed it cleanly).
template <typename Traits>
class ScopedHandle {
public:
    using Handle = typename Traits::Handle;

    ScopedHandle() noexcept : handle_(Traits::Invalid()) {}
    explicit ScopedHandle(Handle handle) noexcept : handle_(handle) {}
    ScopedHandle(ScopedHandle&& other) noexcept : handle_(other.Release()) {}
    ScopedHandle& operator=(ScopedHandle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    ~ScopedHandle() { Reset(); }

    Handle Get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return Traits::IsValid(handle_); }

    // For the calls that hand a new handle back through a pointer: whatever was held is closed first.
    Handle* Receive() noexcept {
        Reset();
        return &handle_;
    }
    Handle Release() noexcept { return std::exchange(handle_, Traits::Invalid()); }
    void Reset(Handle handle = Traits::Invalid()) noexcept {
        if (Traits::IsValid(handle_)) Traits::Close(handle_);
        handle_ = handle;
    }
    // Closes now and says whether the close succeeded, for writers whose last data is flushed then.
    bool Close() noexcept {
        Handle handle = Release();
        return !Traits::IsValid(handle) || Traits::Close(handle);
    }

private:
    Handle handle_;
};

}  // namespace Common
