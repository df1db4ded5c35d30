// A file descriptor with one owner. Not a stream: the caller reads and writes.
#pragma once

#include <unistd.h>

#include <utility>

/// Owns a descriptor and closes it once. Adopt it in the expression that opens it.
/// Every descriptor that the program opens itself is close-on-exec; the opener passes that flag.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int opened) : descriptor(opened) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    /// The number, for a call; still owned by this object. -1 when nothing is held.
    int get() const { return descriptor; }
    /// False when the call that should have opened it failed; errno is that call's.
    bool valid() const { return descriptor >= 0; }

    /// Gives the descriptor to the caller, who must close it.
    int release() { return std::exchange(descriptor, -1); }

    /// Closes what is held and adopts `next`. close(2) is not repeated on EINTR: on Linux the
    /// descriptor is already closed then, and a second close could close another file, close(2).
    void reset(int next = -1) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        descriptor = next;
    }

private:
    int descriptor = -1;
};
