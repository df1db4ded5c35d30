#include "container/enter.h"

#include <kiv.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "container/run_lock.h"
#include "util/daemon.h"
#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/string_util.h"

namespace {

/// The account's processes share the container with this one before it has become the account's:
/// none may trace it or read its memory. The kernel resets this on every change of user,
/// PR_SET_DUMPABLE(2const).
void forbidTracing() {
    ::prctl(PR_SET_DUMPABLE, 0);
}

/// Makes the C library load its catalogue of error texts now: later it would search inside the
/// container.
void loadErrorTexts() {
    errorText(ENOENT);
}

/// The numbers of the open descriptors; nothing when they cannot be listed.
std::optional<std::vector<long>> listDescriptors() {
    const DirectoryStream directory(::opendir("/proc/self/fd"));
    if (!directory) {
        return std::nullopt;
    }
    std::vector<long> descriptors;
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(directory.get());
        if (entry == nullptr) {
            return errno == 0 ? std::optional(descriptors) : std::nullopt;
        }
        descriptors.push_back(std::strtol(entry->d_name, nullptr, 10));  // 0 for "." and ".."
    }
}

bool closeOneByOne(unsigned first) {
    const auto descriptors = listDescriptors();
    for (const long descriptor : descriptors.value_or(std::vector<long>())) {
        if (descriptor >= static_cast<long>(first)) {
            ::close(static_cast<int>(descriptor));  // EBADF for the list's own, which is closed
        }
    }
    return descriptors.has_value();
}

void failUnless(bool succeeded, const ContainerHandle& handle) {
    if (!succeeded) {
        throw std::runtime_error(handle.error);
    }
}

void applyNamespaces(ContainerHandle& handle) {
    failUnless(kiv_apply_namespaces(&handle, handle.userName.c_str(), 0) != -1, handle);
}

void join(ContainerHandle& handle, OwnCapabilities own) {
    kiv_set_log_cb(libraryLogCallback);
    kiv_load_config(&handle);  // when it fails, the steps that depend on it fail too
    // deliberate: libraries differ in what they return, so the results are not all checked alike
    failUnless(kiv_cg_enter(&handle, handle.uid) == 0, handle);
    applyNamespaces(handle);
    failUnless(kiv_seccomp(&handle) != -1, handle);
    failUnless(own == OwnCapabilities::Kept || kiv_capabilities(&handle) != -1, handle);
}

}  // namespace

PasswordEntry passwordEntryOf(const ContainerHandle& handle) {
    const auto account = Util::getpwuid(handle.uid);
    if (!account) {
        throw std::runtime_error("Cannot get passwd details for user " + handle.userName);
    }
    return *account;
}

void joinContainer(ContainerHandle& handle, OwnCapabilities own) {
    loadErrorTexts();
    // else a container could be entered while its root is still the host's
    const FileDescriptor lock = shareAccount(handle, kLongestBuild);
    forbidTracing();
    join(handle, own);
}

void joinNamespaces(ContainerHandle& handle) {
    loadErrorTexts();
    kiv_set_log_cb(libraryLogCallback);
    applyNamespaces(handle);
}

void closeDescriptors(unsigned first) {
    if (::close_range(first, UINT_MAX, 0) == 0) {
        return;
    }
    const int error = errno;
    // a kernel before Linux 5.9, or a system-call filter that does not know the call
    const bool isMissing = error == ENOSYS || error == EPERM;
    if (!isMissing || !closeOneByOne(first)) {
        throw systemError("close_range() failed: ", error);
    }
}

void becomeAccount(const ContainerHandle& handle, const PasswordEntry& account,
                   unsigned firstClosed) {
    closeDescriptors(firstClosed);
    if (!Daemon::changeUser(/*primaryGroupOnly=*/true, handle.uid, account.gid)) {
        throw systemError("setuid() failed: ");
    }
    forbidTracing();
}

void goHome(const std::string& home) {
    // where the shell starts without a home; silently, because the line about the home says enough
    [[maybe_unused]] const int ignored = ::chdir("/");
    if (::chdir(home.c_str()) != 0) {
        reportSystemError("chdir(", home, ") failed: ");
    }
}

void resetSignals(Hangup hangup) {
    // the kernel's own structure, all zero: SIG_DFL. Not sigaction(3), which refuses the two
    // real-time signals that the C library keeps for itself.
    const std::array<unsigned long, 8> defaultAction{};
    constexpr std::size_t kBytesOfSet = (NSIG - 1) / CHAR_BIT;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (signal != SIGHUP || hangup == Hangup::Default) {
            ::syscall(SYS_rt_sigaction, signal, defaultAction.data(), nullptr, kBytesOfSet);
        }
    }
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void libraryLogCallback(void* handle, int /*priority*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    try {
        static_cast<ContainerHandle*>(handle)->error = StringUtil::vsprintf(format, arguments);
    } catch (const std::exception&) {
        // the library has a C interface, which no exception may cross; the earlier text stays
    }
    va_end(arguments);
}
