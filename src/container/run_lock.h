// The locks between runs of kivctl: open file description locks, see F_OFD_SETLK in
// fcntl_locking(2), on single bytes of one file in the runtime directory. An account's lock is the
// byte of its user id, so that nothing that delays one account is waited for by another.
//
// A lock goes with its descriptor. The set-up child shares its parent's: should it outlive a killed
// parent, its account waits for it and no other does. Host tools do not get the descriptor.
//
// All commands have one policy. Without a runtime directory there is nothing to lock and nothing to
// protect: the descriptor is invalid. A lock that cannot be had for another reason is a
// std::runtime_error "/run/kiv: cannot lock: " and the system's text. Whoever waits for longer than
// two seconds says so once on standard error, with the account's name.
#pragma once

#include <chrono>

#include "container/container_handle.h"
#include "util/file_descriptor.h"

/// For whoever changes the account's container. Waits as long as it takes; in a run over all
/// accounts for ten seconds, and then throws as shareAccount does, so that an account whose start
/// hangs does not hold up those after it.
[[nodiscard]] FileDescriptor lockAccount(const ContainerHandle& handle);

/// For whoever enters the account's container; several may hold it. Throws std::runtime_error "…:
/// containers are being started or stopped, try again later" after waiting for `atMost`.
[[nodiscard]] FileDescriptor shareAccount(const ContainerHandle& handle,
                                          std::chrono::milliseconds atMost);

/// For whoever makes the runtime directory a private mount. Hold it for nothing that an account or
/// a host tool can delay: every start takes it. `handle` is whose start waits.
[[nodiscard]] FileDescriptor lockRuntimeDirectory(const ContainerHandle& handle);

/// For whoever adds the source-NAT rule. Invalid when another start is doing so: nobody waits for
/// its tools.
[[nodiscard]] FileDescriptor tryToLockSourceNat();
