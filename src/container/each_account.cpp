#include "container/each_account.h"

#include <unistd.h>

#include <exception>
#include <list>
#include <stdexcept>

#include "util/string_util.h"

namespace {

std::string describe(const AccountEntry& account, const std::exception& error) {
    const std::string text = error.what();
    // a NUL byte in a registry's name would cut the whole text off, later accounts' lines with it
    return StringUtil::escapeControls(account.name) + ": " +
           (text.empty() ? "unknown error" : text);
}

}  // namespace

std::string forEachAccount(const char* user, const AccountAction& action) {
    const pid_t self = ::getpid();
    const std::list<AccountEntry> accounts = selectAccounts(user);
    std::string failures;
    for (const AccountEntry& account : accounts) {
        try {
            action(account);
        } catch (const std::exception& error) {
            if (user != nullptr) {
                throw;
            }
            const std::string line = describe(account, error);
            if (::getpid() != self) {
                throw std::runtime_error(line);
            }
            failures += failures.empty() ? line : "\n" + line;
        }
    }
    return failures;
}
