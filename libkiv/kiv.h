/* libkiv: moves the calling process into an account's container.
 *
 * A program calls these six in the order in which they stand here, then changes to the account's
 * user and executes what the account is to run. There is no way back out of a container, and no
 * undoing: a process in which a step has failed must not run anything for the account.
 *
 * The handle is the caller's own. The library never looks into it and only hands it on to the log
 * callback; every error text goes through that callback. One thread, one process: not reentrant. */
#ifndef KIV_H
#define KIV_H

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* handle: as given to the call that logs. priority: as for syslog(3). format: as for printf(3).
 * Called synchronously; must not throw and must not call the library. */
typedef void (*kiv_log_cb)(void* handle, int priority, const char* format, ...);

/* Messages go to `callback` from now on; null: nowhere, as before the first call. */
void kiv_set_log_cb(kiv_log_cb callback);

/* Reads the lists cap_add, cap_drop and seccomp of /etc/tarnwell/kiv.conf. Without that file the
 * built-in defaults hold. What cannot be read or understood is logged with its line, makes this
 * call return -1, and kiv_seccomp and kiv_capabilities as well. 0 on success. */
int kiv_load_config(void* handle);

/* Moves the process into a cgroup below the account's slice,
 * /sys/fs/cgroup/user.slice/user-UID.slice/kiv, and makes what is missing of that path. Needs root
 * and cgroup v2. 0, or -1. */
int kiv_cg_enter(void* handle, uid_t uid);

/* Moves the process into the network, IPC and mount namespaces that are held in /run/kiv for the
 * user, and leaves it at the container's root directory. `flags` must be 0. Joins nothing when one
 * of the three is missing. Needs CAP_SYS_ADMIN and CAP_SYS_CHROOT. 0, or -1. */
int kiv_apply_namespaces(void* handle, const char* user, int flags);

/* Gives the process a session keyring of its own, without a key, and installs the system-call
 * filter, for this process and all that it becomes. Needs CAP_SYS_ADMIN: no_new_privs is set only
 * if the configuration asks for it. 0, or -1. */
int kiv_seccomp(void* handle);

/* Empties the ambient and inheritable sets and the bounding set but for what cap_add names, and
 * keeps CAP_SETUID and CAP_SETGID alone for the change of user that follows. Needs CAP_SETPCAP.
 * 0, or -1. */
int kiv_capabilities(void* handle);

#ifdef __cplusplus
}
#endif

#endif
