// Whether an account has a container, as the runtime directory shows it. Changes nothing.
#pragma once

#include <set>
#include <string>

#include "container/container_handle.h"
#include "util/runtime_directory.h"

/// The state of an account's container.
enum class ContainerState {
    Running,
    Partial,      ///< some namespaces are missing, or it is being started or stopped
    Interrupted,  ///< a start or stop was killed or could not finish
    Stopped,
    Orphaned,  ///< namespace files without a user or without a line in the registry
};

/// "running" and so on. Programs compare these words: they are not translated.
const char* nameOf(ContainerState state);

/// The state at this moment, even in the middle of a start or stop; never Orphaned. Throws
/// std::runtime_error when the runtime directory exists and cannot be read.
ContainerState stateOf(const std::string& userName);

/// The same, but waits up to two seconds for a start or stop that is under way: a container that is
/// half built is neither interrupted nor a fault. Throws what stateOf throws.
ContainerState settledStateOf(const ContainerHandle& handle);

/// The users of all namespace files in the directory; empty when it does not exist. Throws
/// std::runtime_error when it cannot be read.
std::set<std::string> namespaceFileUsers(const std::string& directory = runtimeDirectory);
