#include "libkiv/session_keyring.h"

#include <linux/keyctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "util/errors.h"

void leaveSessionKeyring() {
    const long keyring = ::syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr);
    const int error = errno;
    if (keyring == -1 && error != ENOSYS) {
        throw systemError("cannot leave the caller's session keyring: ", error);
    }
}
