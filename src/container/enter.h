// Entering a running container: this process joins it and becomes the account. What is then run is
// the caller's.
#pragma once

#include <chrono>
#include <string>

#include "container/container_handle.h"
#include "util/util.h"

/// How long whoever enters waits for a container that is being started or stopped.
inline constexpr std::chrono::seconds kLongestBuild{5};

/// The account's first password entry: its home, its shell and its group. Throws
/// std::runtime_error.
PasswordEntry passwordEntryOf(const ContainerHandle& handle);

/// Moves this process into the account's cgroup and container, under its filter and its limits on
/// capabilities, after waiting for a container that is being started or stopped: kLongestBuild at
/// most. Throws std::runtime_error; the process may then be inside in part. There is no way back:
/// whoever catches that must end the process, and after a success becomeAccount comes next. With
/// OwnCapabilities::Kept the last of the library's steps, kiv_capabilities, is the caller's.
enum class OwnCapabilities { GivenUp, Kept };
void joinContainer(ContainerHandle& handle, OwnCapabilities own = OwnCapabilities::GivenUp);

/// Moves this process, still root, into the namespaces only. For whoever holds the account's lock.
/// Throws std::runtime_error with the library's text.
void joinNamespaces(ContainerHandle& handle);

/// Closes every descriptor from `first` on. Throws std::runtime_error.
void closeDescriptors(unsigned first);

/// Closes every descriptor from `firstClosed` on, then changes to the account's user, with its
/// primary group only. Throws std::runtime_error; the process must then end.
void becomeAccount(const ContainerHandle& handle, const PasswordEntry& account,
                   unsigned firstClosed);

/// To "/" with a line on standard error when there is no home that the process can reach.
void goHome(const std::string& home);

enum class Hangup { Kept, Default };

/// What the caller ignores or blocks an exec would hand on: the account's processes could not be
/// ended by SIGTERM. SIGHUP may stay ignored, for nohup(1).
void resetSignals(Hangup hangup);

/// Takes the container library's messages: `handle` is the ContainerHandle that was given to the
/// library, whose `error` becomes the expanded text. The last message is the one that counts.
extern "C" void libraryLogCallback(void* handle, int priority, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
