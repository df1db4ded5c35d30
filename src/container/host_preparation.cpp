#include "container/host_preparation.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "config/configuration.h"
#include "container/default_route.h"
#include "container/packet_rules.h"
#include "container/run_lock.h"
#include "fs/mount_table.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/file_descriptor.h"
#include "util/interrupted_run.h"
#include "util/output.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

constexpr mode_t kRuntimeMode = 0700;
constexpr mode_t kPermissionBits = 07777;
constexpr int kRuleMissing = 1;  // iptables(8) -C

std::runtime_error runtimeDirectoryError(const std::string& what, int error) {
    return systemError(runtimeDirectory + what, error);
}

/// True when this call created the directory.
bool ensureRuntimeDirectory() {
    struct stat status {};
    if (::stat(runtimeDirectory.c_str(), &status) != 0) {
        int error = errno;
        if (error != ENOENT) {
            throw runtimeDirectoryError(": ", error);
        }
        if (::mkdir(runtimeDirectory.c_str(), kRuntimeMode) == 0) {
            return true;
        }
        error = errno;
        // another start may just have created it; but EEXIST also means a dangling link
        if (error != EEXIST || ::stat(runtimeDirectory.c_str(), &status) != 0) {
            throw runtimeDirectoryError(": mkdir() failed: ", error);
        }
    }
    if ((status.st_mode & kPermissionBits) != kRuntimeMode) {
        report("adjusting file mode for " + runtimeDirectory);
        if (::chmod(runtimeDirectory.c_str(), kRuntimeMode) != 0) {
            const int error = errno;
            throw runtimeDirectoryError(": chmod(0700) failed: ", error);
        }
    }
    return false;
}

/// If this run is killed before it has added the rule, the next one sees the mark and adds it. The
/// mark is only a safeguard: preparation continues when it cannot be set.
void setMark(const RunMark& mark) {
    [[maybe_unused]] const bool marked = mark.write(InterruptedRun{});
}

/// Makes the directory a private mount, so that namespace mounts do not propagate into other mount
/// namespaces and keep a stopped container's namespaces alive there. True when it was not private
/// before; `mark` is then set.
bool privatiseRuntimeDirectory(const RunMark& mark) {
    const char* path = runtimeDirectory.c_str();
    auto directory = findMount(runtimeDirectory, kMountInfo);
    if (!directory) {
        if (::mount(path, path, nullptr, MS_BIND, nullptr) != 0) {
            const int error = errno;
            throw runtimeDirectoryError(": mount() failed: ", error);
        }
        directory = findMount(runtimeDirectory, kMountInfo);
        if (!directory) {  // a link: the mount goes where it leads
            ::umount2(path, MNT_DETACH);
            throw runtimeDirectoryError(": mount() failed: ", ELOOP);
        }
    }
    if (directory->isPrivate()) {
        return false;
    }
    setMark(mark);
    if (::mount(path, path, nullptr, MS_PRIVATE | MS_REC, nullptr) != 0) {
        const int error = errno;
        throw runtimeDirectoryError(": cannot make private: ", error);
    }
    return true;
}

bool hasMasqueradeRule(const PacketRule& rule) {
    ExternalCommand check(configuration().iptablesCommand, rule.arguments("-C"));
    std::string output;
    std::string errors;
    check.setStdout(&output);
    check.setStderr(&errors);
    const auto result = check.execute();
    if (result != 0 && result != kRuleMissing) {
        throw std::runtime_error("Error while checking for default MASQUERADE rule (" +
                                 std::to_string(result) + "): " + errors);
    }
    return result == 0;
}

void ensureMasquerade(const std::string& defaultInterface) {
    const PacketRule rule = masqueradeRule(defaultInterface);
    if (hasMasqueradeRule(rule)) {
        return;
    }
    if (ExternalCommand(configuration().iptablesCommand, rule.arguments("-A")).execute() != 0) {
        throw std::runtime_error("Error while adding MASQURADE rule for default interface " +
                                 defaultInterface);
    }
    // deliberate: scripts search for this text, although its network is not the rule's
    progress("Added default MASQUERADE rule for network 10.64.0.0/10 on device " +
             defaultInterface);
}

}  // namespace

void prepareHost(const ContainerHandle& handle) {
    const bool createdNow = ensureRuntimeDirectory();
    const RunMark mark = RunMark::ofHost();
    bool privatisedNow = false;
    {
        const FileDescriptor lock = lockRuntimeDirectory(handle);
        if (createdNow) {
            setMark(mark);
        }
        privatisedNow = privatiseRuntimeDirectory(mark);
    }
    // In practice once per boot. Deliberate: later starts do not check the rule, not even after an
    // error; only a rule that an interrupted run did not add is added.
    const bool preparedNow = createdNow || privatisedNow;
    if (!preparedNow && !mark.read()) {
        return;
    }
    // Does not wait for another start that is adding the rule: its host tool may hang.
    const FileDescriptor lock = tryToLockSourceNat();
    if (lock.valid() && (preparedNow || mark.read())) {
        const ScopeGuard done([&mark] { mark.clear(); });
        ensureMasquerade(detectDefaultInterface());
    }
}
