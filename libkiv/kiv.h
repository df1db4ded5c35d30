/* libkiv: moves the calling process into an account's container.
 *
 * A program calls these six functions in the order of this file, then changes to the account's user
 * and executes the account's program. A process cannot leave a container again, and no step can be
 * undone: a process in which a step has failed must not run anything for the account. See
 * libkiv(3).
 *
 * The caller owns the handle. The library never looks into it and only passes it to the log
 * callback, which gets every error text. Not thread-safe and not reentrant. */
#ifndef KIV_H
#define KIV_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* handle: the one that was given to the function that logs. priority: as for syslog(3). format: as
 * for printf(3). The arguments are valid only during the call. Called synchronously; must not throw
 * and must not call the library. */
typedef void (*kiv_log_cb)(void* handle, int priority, const char* format, ...);

/* From now on messages go to `callback`. With null, and before the first call, they are dropped. */
void kiv_set_log_cb(kiv_log_cb callback);

/* Reads the lists cap_add, cap_drop and seccomp of /etc/tarnwell/kiv.conf, see kiv.conf(5). Without
 * that file the built-in defaults apply. Returns 0, or -1 when the file cannot be read or
 * understood: the error is logged with its line, and kiv_seccomp and kiv_capabilities then also
 * return -1. */
int kiv_load_config(void* handle);

/* Moves the process into a cgroup below the account's slice,
 * /sys/fs/cgroup/user.slice/user-UID.slice/kiv, and creates missing parts of that path. Needs root
 * and cgroup v2. Returns 0, or -1. */
int kiv_cg_enter(void* handle, uid_t uid);

/* Moves the process into the network, IPC and mount namespaces that are pinned in /run/kiv for the
 * user, setns(2), and leaves it at the container's root directory. `flags` must be 0. Joins nothing
 * when one of the three is missing. Needs CAP_SYS_ADMIN and CAP_SYS_CHROOT. Returns 0, or -1. */
int kiv_apply_namespaces(void* handle, const char* user, int flags);

/* Replaces the session keyring by a new, empty one, session-keyring(7), and installs the
 * system-call filter, seccomp(2), for this process and its descendants. Needs CAP_SYS_ADMIN,
 * because no_new_privs is set only if the configuration asks for it. Returns 0, or -1. */
int kiv_seccomp(void* handle);

/* Empties the ambient and inheritable sets, and drops from the bounding set every capability that
 * cap_add does not name. Only CAP_SETUID and CAP_SETGID stay permitted and effective, for the
 * change of user that follows. Needs CAP_SETPCAP; see capabilities(7). Returns 0, or -1. */
int kiv_capabilities(void* handle);

#ifdef __cplusplus
}
#endif

#endif
