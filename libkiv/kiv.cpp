// The functions of kiv.h. Each runs one step and turns an exception into a log message and -1.
#include "libkiv/kiv.h"

#include <syslog.h>

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "libkiv/capabilities.h"
#include "libkiv/cgroup.h"
#include "libkiv/container_namespaces.h"
#include "libkiv/policy.h"
#include "libkiv/session_keyring.h"
#include "libkiv/system_call_rules.h"

namespace {

/// Not part of Session, which needs memory to be created: a failure must reach the caller even when
/// memory is exhausted.
kiv_log_cb logCallback = nullptr;

struct Session {
    std::optional<Policy> policy;  ///< empty until first needed: building the default takes time
    std::string fault;             ///< why there is no policy to enforce
};

Session& session() {
    static Session values;
    return values;
}

/// No exception may leave the library: its caller may be written in C.
template <typename Step>
int attempt(void* handle, Step step) noexcept {
    try {
        step();
        return 0;
    } catch (const std::exception& error) {
        if (logCallback != nullptr) {
            logCallback(handle, LOG_ERR, "%s", error.what());
        }
        return -1;
    }
}

/// The policy to enforce. When the file was not understood, the defaults must not be used: it may
/// ask for stricter rules.
const Policy& enforceable() {
    if (!session().fault.empty()) {
        throw std::runtime_error(session().fault);
    }
    if (!session().policy) {
        session().policy.emplace();
    }
    return *session().policy;
}

void loadPolicy() {
    session().fault = "no configuration";  // stays when memory runs out before it is read
    try {
        session().policy = readPolicy(kPolicyFile);
        session().fault.clear();
    } catch (const std::runtime_error& error) {
        session().fault = error.what();
        throw;
    }
}

}  // namespace

void kiv_set_log_cb(kiv_log_cb callback) {
    logCallback = callback;
}

int kiv_load_config(void* handle) {
    return attempt(handle, loadPolicy);
}

int kiv_cg_enter(void* handle, uid_t uid) {
    return attempt(handle, [uid] { enterCgroup(uid); });
}

int kiv_apply_namespaces(void* handle, const char* user, int flags) {
    return attempt(handle, [user, flags] {
        if (flags != 0) {
            throw std::runtime_error("unknown flags " + std::to_string(flags));
        }
        enterNamespaces(user == nullptr ? "" : user);
    });
}

int kiv_seccomp(void* handle) {
    return attempt(handle, [] {
        const std::optional<SystemCallRules>& rules = enforceable().systemCalls;
        leaveSessionKeyring();  // before the filter denies keyctl(2)
        installSystemCallFilter(rules);
    });
}

int kiv_capabilities(void* handle) {
    return attempt(handle, [] { restrictCapabilities(enforceable().keptCapabilities); });
}
