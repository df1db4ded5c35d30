#include "companions/check/container_checks.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>

#include "container/view_age.h"
#include "fs/path_resolution.h"
#include "util/errors.h"
#include "util/interrupted_run.h"
#include "util/runtime_directory.h"

namespace {

void checkHome(const HostAccount& account, Findings& all) {
    const std::string& home = account.user->homeDirectory;
    const FindingsOf findings(all, home.empty() ? "/etc/passwd" : home);
    const FileDescriptor opened = openThroughRootLinks(home, LastLink::Keep);
    const int error = errno;
    struct stat status {};
    if (!opened.valid() || ::fstat(opened.get(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        const std::string reason = errorText(opened.valid() ? ENOTDIR : error);
        findings.warn(0, "the home of '" + account.name + "' cannot be bound (" + reason +
                             "): the container has no home, create it");
        return;
    }
    // as start opens it: a link of the account is not followed
    const FileDescriptor tmp = openBeneath(opened, "tmp/");
    if (!tmp.valid()) {
        findings.warn(0, "the home of '" + account.name + "' has no directory tmp (" +
                             errorText(errno) +
                             "): /tmp in the container cannot be written, create it");
    } else if (::fstat(tmp.get(), &status) == 0 && status.st_uid != account.user->uid) {
        findings.warn(0, "the directory tmp in the home of '" + account.name +
                             "' belongs to another user: the account cannot write to /tmp, change "
                             "its owner");
    }
}

/// The user, or the account's line in the registry, was removed before the container was stopped.
std::string adviceForOrphan(const HostAccount& account) {
    const std::string& name = account.name;
    if (account.user) {
        return "'" + name +
               "' has a container and is not in the registry: add the line and run kivctl stop " +
               name;
    }
    if (!account.isRegistered) {
        return "there is no user '" + name +
               "' for this container: add its line to the registry, run useradd --no-create-home " +
               name + ", kivctl stop " + name + ", userdel " + name;
    }
    return "there is no user '" + name + "' for this container: run useradd --no-create-home " +
           name + ", kivctl stop " + name + ", userdel " + name;
}

void checkState(const HostAccount& account, Findings& all) {
    const FindingsOf findings(all, namespaceFile(account.name, "mnt"));
    switch (account.state) {
        case ContainerState::Partial:
            findings.warn(0, "the container of '" + account.name +
                                 "' lacks namespaces: run kivctl start " + account.name);
            break;
        case ContainerState::Interrupted:
            findings.warn(0, "a start or stop of '" + account.name +
                                 "' was interrupted, and nobody can enter the container: run "
                                 "kivctl start " +
                                 account.name);
            break;
        case ContainerState::Orphaned:
            findings.warn(0, adviceForOrphan(account));
            break;
        default:
            break;
    }
}

void checkAge(const HostAccount& account, const std::string& configuration, Findings& all) {
    const std::string file = namespaceFile(account.name, "mnt");
    const auto pinned = pinnedAt(file);
    if (account.state != ContainerState::Running || !pinned) {
        return;
    }
    const FindingsOf findings(all, file);
    if (haveChangedSince(*pinned, {configuration.c_str()})) {
        findings.warn(0, "the container of '" + account.name +
                             "' is older than the configuration: run kiv-refresh " + account.name);
    }
    if (haveChangedSince(*pinned, {kPackageStatus})) {
        findings.warn(0, "the container of '" + account.name +
                             "' is older than the host's packages: run kiv-refresh " +
                             account.name);
    }
}

/// Checks the marks that do not belong to the state of an account.
void checkOtherMarks(const HostAccounts& accounts, Findings& all) {
    const FindingsOf findings(all, runtimeDirectory);
    if (RunMark::ofHost().read()) {
        findings.warn(0,
                      "a start was interrupted before it had added the source-NAT rule: start any "
                      "container");
    }
    for (const HostAccount& account : accounts.all) {
        if (RunMark::ofLeftPair(account.name).read()) {
            findings.warn(0, "a start of '" + account.name +
                                 "' has left its interface pair on the host: stop and start the "
                                 "container");
        }
    }
}

}  // namespace

void checkContainers(const HostAccounts& accounts, const std::string& configuration,
                     Findings& findings) {
    for (const HostAccount& account : accounts.all) {
        if (account.user && account.state != ContainerState::Orphaned) {
            checkHome(account, findings);
        }
        checkState(account, findings);
        checkAge(account, configuration, findings);
    }
    checkOtherMarks(accounts, findings);
}
