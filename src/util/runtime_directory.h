// The runtime directory, where the namespaces of all containers are pinned, and the names in it.
// Both the program and the container library use this header.
#pragma once

#include <sched.h>

#include <string>

/// Has mode 0700, is bind-mounted on itself and is a private mount, see kiv(7).
inline const std::string runtimeDirectory = "/run/kiv";

struct NamespaceKind {
    const char* name;  ///< as in /proc/PID/ns/ and in the namespace file's name
    int flag;          ///< creates it with unshare(2), joins it with setns(2)
};

/// Always handled in this order. The mount namespace must be joined last: inside it the files of
/// the others cannot be reached.
inline constexpr NamespaceKind kNamespaceKinds[] = {
    {"net", CLONE_NEWNET},
    {"ipc", CLONE_NEWIPC},
    {"mnt", CLONE_NEWNS},
};

/// The file on which the account's namespace of that kind is bind-mounted. "@" separates the two
/// names, so no user name may contain one.
inline std::string namespaceFile(const std::string& userName, const std::string& kind) {
    return runtimeDirectory + "/" + userName + "@" + kind;
}
