// Where the namespaces of all containers are held: the runtime directory and the names in it. The
// program and the container library both go by this header.
#pragma once

#include <sched.h>

#include <string>

/// Mode 0700, bind-mounted on itself and private.
inline const std::string runtimeDirectory = "/run/kiv";

struct NamespaceKind {
    const char* name;  ///< as in /proc/PID/ns/ and in the namespace file's name
    int flag;          ///< what unshare(2) takes to create it and setns(2) to join it
};

/// Always handled in this order. Whoever joins them needs the mount namespace last: afterwards the
/// files of the others are out of sight.
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
