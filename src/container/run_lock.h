// The locks between runs of kivctl: open file description locks, see F_OFD_SETLK in
// fcntl_locking(2), on single bytes of one file in the runtime directory. An account's lock is the
// byte whose offset is its user ID, so that an account never waits for another one.
//
// The caller owns the descriptor; closing it releases the lock. The set-up child shares its
// parent's descriptor: if it outlives a killed parent, only its own account waits for it. Host
// tools do not inherit the descriptor.
//
// All commands behave alike. Without a runtime directory there is nothing to lock and nothing to
// protect: the descriptor is invalid. If locking fails for another reason, std::runtime_error
// "/run/kiv: cannot lock: " and the system's text is thrown. A run that waits for more than two
// seconds says so once on standard error, with the account's name.
#pragma once

#include <chrono>

#include "container/container_handle.h"
#include "util/file_descriptor.h"

/// Held by whoever changes the account's container. Waits without a limit; in a run over all
/// accounts at most ten seconds and then throws like shareAccount, so that an account whose start
/// hangs does not delay the next ones.
[[nodiscard]] FileDescriptor lockAccount(const ContainerHandle& handle);

/// Held by whoever enters the account's container; several processes may hold it at once. Throws
/// std::runtime_error "…: containers are being started or stopped, try again later" after waiting
/// for `atMost`.
[[nodiscard]] FileDescriptor shareAccount(const ContainerHandle& handle,
                                          std::chrono::milliseconds atMost);

/// Held by whoever makes the runtime directory a private mount. Every start takes it, so never hold
/// it during a step that an account or a host tool can delay. `handle` is the account that is
/// started.
[[nodiscard]] FileDescriptor lockRuntimeDirectory(const ContainerHandle& handle);

/// Held by whoever adds the source NAT rule. Does not wait: invalid when another start is adding
/// it.
[[nodiscard]] FileDescriptor tryToLockSourceNat();
