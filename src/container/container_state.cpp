#include "container/container_state.h"

#include <cerrno>
#include <chrono>
#include <stdexcept>

#include "container/namespaces.h"
#include "container/run_lock.h"
#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/interrupted_run.h"

namespace {

constexpr std::chrono::milliseconds kPatience{2000};

bool isHalf(ContainerState state) {
    return state == ContainerState::Partial || state == ContainerState::Interrupted;
}

bool isKind(const std::string& name) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if (name == kind.name) {
            return true;
        }
    }
    return false;
}

}  // namespace

const char* nameOf(ContainerState state) {
    switch (state) {
        case ContainerState::Running:
            return "running";
        case ContainerState::Partial:
            return "partial";
        case ContainerState::Interrupted:
            return "interrupted";
        case ContainerState::Stopped:
            return "stopped";
        case ContainerState::Orphaned:
            break;
    }
    return "orphaned";
}

ContainerState stateOf(const std::string& userName) {
    if (RunMark(userName).read()) {
        return ContainerState::Interrupted;
    }
    bool any = false;
    bool all = true;
    for (const NamespaceKind& kind : kNamespaceKinds) {
        const bool pinned = mayBeNamespace(namespaceFile(userName, kind.name));
        any = any || pinned;
        all = all && pinned;
    }
    if (all) {
        return ContainerState::Running;
    }
    return any ? ContainerState::Partial : ContainerState::Stopped;
}

ContainerState settledStateOf(const ContainerHandle& handle) {
    const ContainerState state = stateOf(handle.userName);
    if (!isHalf(state)) {
        return state;
    }
    try {
        const FileDescriptor lock = shareAccount(handle, kPatience);
        return stateOf(handle.userName);
    } catch (const std::runtime_error&) {
        // still under way: the mark belongs to a run that is alive
        const ContainerState now = stateOf(handle.userName);
        return isHalf(now) ? ContainerState::Partial : now;
    }
}

std::set<std::string> namespaceFileUsers(const std::string& directory) {
    std::set<std::string> users;
    const DirectoryStream files(::opendir(directory.c_str()));
    if (files == nullptr) {
        const int error = errno;
        if (error != ENOENT && error != ENOTDIR) {
            throw systemError(directory + ": ", error);
        }
        return users;
    }
    while (const dirent* found = nextEntry(files)) {
        const std::string name = found->d_name;
        const auto separator = name.rfind('@');
        if (separator != std::string::npos && separator != 0 &&
            isKind(name.substr(separator + 1))) {
            users.insert(name.substr(0, separator));
        }
    }
    if (errno != 0) {  // else a missing container would look as if it had never been started
        throw systemError("cannot read ", directory, ": ");
    }
    return users;
}
