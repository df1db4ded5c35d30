// Entering a running container: this process joins it and becomes the account. The caller decides
// what it then runs.
#pragma once

#include <chrono>
#include <string>

#include "container/container_handle.h"
#include "util/util.h"

/// How long an entry waits for a container that is being started or stopped.
inline constexpr std::chrono::seconds kLongestBuild{5};

/// The account's first password entry: its home, its shell and its group. Throws std::runtime_error
/// when there is none.
PasswordEntry passwordEntryOf(const ContainerHandle& handle);

/// Whether entering also gives up this process's capabilities.
enum class OwnCapabilities { GivenUp, Kept };

/// Moves this process into the account's cgroup and container and applies the system-call filter
/// and the capability limits. First waits up to kLongestBuild for a container that is being started
/// or stopped. With OwnCapabilities::Kept the caller itself does the library's last step,
/// kiv_capabilities. After success the next call is becomeAccount. Throws std::runtime_error; the
/// process may then be partly inside, cannot leave again, and must end.
void joinContainer(ContainerHandle& handle, OwnCapabilities own = OwnCapabilities::GivenUp);

/// Moves this process into the namespaces only; it stays root. The caller holds the account's lock.
/// Throws std::runtime_error with the library's text.
void joinNamespaces(ContainerHandle& handle);

/// Closes every descriptor from `first` on, close_range(2). Throws std::runtime_error.
void closeDescriptors(unsigned first);

/// Closes every descriptor from `firstClosed` on, then changes to the account's user, with its
/// primary group only. Throws std::runtime_error; the process must then end.
void becomeAccount(const ContainerHandle& handle, const PasswordEntry& account,
                   unsigned firstClosed);

/// Changes to the directory `home`. When that fails, says so on standard error; the process is then
/// at "/".
void goHome(const std::string& home);

enum class Hangup { Kept, Default };

/// Unblocks all signals and gives them their default action. execve(2) keeps blocked and ignored
/// signals, and the account's processes could then not be ended by SIGTERM. With Hangup::Kept an
/// ignored SIGHUP stays ignored, for nohup(1).
void resetSignals(Hangup hangup);

/// The library's log callback (kiv_log_cb in kiv.h). `handle` is the ContainerHandle that was given
/// to the library; its `error` becomes the formatted text. A later message replaces an earlier one.
extern "C" void libraryLogCallback(void* handle, int priority, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
