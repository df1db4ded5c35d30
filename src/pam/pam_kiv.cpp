// The PAM module pam_kiv: opens the sessions of accounts in their containers. It runs inside other
// programs: no exception leaves it, it prints nothing, and it changes the program's state only as
// far as entering needs.
#include <libintl.h>
#include <security/pam_ext.h>
#include <security/pam_modules.h>
#include <syslog.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "config/configuration.h"
#include "container/container_handle.h"
#include "container/entry_log.h"
#include "pam/module_options.h"
#include "pam/own_capabilities.h"
#include "pam/registered_account.h"
#include "pam/session.h"
#include "pam/start_program.h"
#include "util/output.h"
#include "util/program.h"
#include "util/settings.h"
#include "util/translatable.h"
#include "util/util.h"

namespace {

/// The PAM service of systemd's user manager, which would run as the account outside the container,
/// see user@.service(5).
constexpr const char* kUserManager = "systemd-user";

constexpr const char* kClosed = translatable(
    "Logins are closed: this host's containers are not set up. Ask its administrator.");
constexpr const char* kNotRunning =
    translatable("Your account's container is not running. Ask the administrator of this host.");
constexpr const char* kNotEntered =
    translatable("Your account's container cannot be entered. Ask the administrator of this host.");

/// The item of that type, pam_get_item(3); an empty text when there is none.
const char* itemOf(pam_handle_t* pam, int type) {
    const void* item = nullptr;
    const bool found = ::pam_get_item(pam, type, &item) == PAM_SUCCESS && item != nullptr;
    return found ? static_cast<const char*>(item) : "";
}

/// One call of the module: who logs in, and how the login is refused.
class Login {
public:
    Login(pam_handle_t* handle, int callFlags)
        : pam(handle),
          isSilent((static_cast<unsigned>(callFlags) & PAM_SILENT) != 0),
          name(itemOf(pam, PAM_USER)) {}

    /// The account whose container is to be entered; nothing for root and for users without one.
    /// Throws std::runtime_error.
    std::optional<std::string> account(int count, const char** words);

    /// Throws std::runtime_error.
    void requireRunning(const ContainerHandle& handle);

    /// Writes one line to the log and one to the user.
    void refuse(const std::string& reason);

    /// Connects to the host's log on first use, before the session is entered: it cannot be reached
    /// from inside.
    EntryLog& log();

private:
    pam_handle_t* pam;
    bool isSilent;
    std::string name;
    ModuleOptions options;
    std::optional<EntryLog> entryLog;
    const char* forUser = kClosed;
};

std::optional<std::string> Login::account(int count, const char** words) {
    const PasswordEntry user = [this] {
        try {
            return Util::getpwnam(name);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(name + ": " + error.what());
        }
    }();
    // before any file of ours is read: root must be able to log in and repair it
    if (user.uid == 0) {
        return std::nullopt;
    }
    options = parseModuleOptions(count, words);
    const auto found = registeredAccount(user, options.registry);
    try {
        Configuration::validate(kDefaultConfigFile);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(kDefaultConfigFile) + ": " + error.what());
    }
    if (found) {
        forUser = kNotEntered;
        if (std::string(itemOf(pam, PAM_SERVICE)) == kUserManager) {
            throw std::runtime_error("a user manager of the account would be outside");
        }
    }
    return found;
}

void Login::requireRunning(const ContainerHandle& handle) {
    if (isRunning(handle)) {
        return;
    }
    forUser = kNotRunning;
    if (!options.startStopped) {
        throw std::runtime_error("container is not running, start it with: kivctl start " +
                                 handle.userName);
    }
    runStart(handle.userName);
    if (!isRunning(handle)) {
        throw std::runtime_error("container is not running after its start");
    }
    forUser = kNotEntered;
}

void Login::refuse(const std::string& reason) {
    log().refused(reason);
    if (!isSilent) {
        pam_error(pam, "%s", ::dgettext(kTextDomain, forUser));
    }
}

EntryLog& Login::log() {
    if (!entryLog) {
        std::string what = std::string("service=") + itemOf(pam, PAM_SERVICE);
        for (const auto& [label, type] :
             {std::pair(" tty=", PAM_TTY), std::pair(" rhost=", PAM_RHOST)}) {
            const std::string value = itemOf(pam, type);
            what += value.empty() ? "" : label + value;
        }
        entryLog.emplace("pam_kiv", name, what);
    }
    return *entryLog;
}

/// The name of the PAM data that records which user is already inside, pam_set_data(3). A service
/// may call the module twice, because su-l includes the lines of su, and the second call cannot
/// read the host's files any more.
constexpr const char* kEntered = "pam_kiv_entered";

bool hasEntered(pam_handle_t* pam) {
    const void* name = nullptr;
    return ::pam_get_data(pam, kEntered, &name) == PAM_SUCCESS && name != nullptr &&
           std::strcmp(static_cast<const char*>(name), itemOf(pam, PAM_USER)) == 0;
}

void noteEntry(pam_handle_t* pam) {
    const auto release = [](pam_handle_t* /*pam*/, void* name, int /*status*/) { std::free(name); };
    ::pam_set_data(pam, kEntered, ::strdup(itemOf(pam, PAM_USER)), release);
}

/// A program with several threads may call the functions for several users at once.
std::mutex oneAtATime;

/// Calls `step` with the handle of the account, if the user has one. Returns PAM_SUCCESS, or
/// `failure` after a refusal.
template <typename Step>
int run(pam_handle_t* pam, int flags, int count, const char** words, int failure,
        Step step) noexcept {
    const std::lock_guard lock(oneAtATime);
    try {
        silenceOutput();
        Login login(pam, flags);
        try {
            if (const auto account = login.account(count, words)) {
                ContainerHandle handle(*account);
                step(login, handle);
            }
            return PAM_SUCCESS;
        } catch (const std::exception& error) {
            login.refuse(error.what());
        }
    } catch (const std::exception& error) {
        pam_syslog(pam, LOG_ERR, "%s", error.what());
    }
    return failure;
}

}  // namespace

extern "C" {

int pam_sm_acct_mgmt(pam_handle_t* pam, int flags, int count, const char** words) {
    return run(pam, flags, count, words, PAM_PERM_DENIED,
               [](Login& login, ContainerHandle& handle) {
                   login.requireRunning(handle);
                   checkLibrary(handle);
               });
}

int pam_sm_open_session(pam_handle_t* pam, int flags, int count, const char** words) {
    if (hasEntered(pam)) {
        return PAM_SUCCESS;
    }
    const int result = run(pam, flags, count, words, PAM_SESSION_ERR,
                           [pam](Login& login, ContainerHandle& handle) {
                               login.requireRunning(handle);
                               checkLibrary(handle);
                               const EntryLog& log = login.log();
                               enterSession(handle);
                               log.entered();
                               noteEntry(pam);
                           });
    if (result != PAM_SUCCESS) {
        giveUpChangeOfUser();
    }
    return result;
}

int pam_sm_close_session(pam_handle_t* /*pam*/, int /*flags*/, int /*count*/,
                         const char** /*words*/) {
    return PAM_SUCCESS;
}
}
