#include "container/each_account.h"

#include <exception>
#include <list>
#include <stdexcept>

#include "util/string_util.h"

std::string failureLine(const std::string& userName, const std::exception& error) {
    const std::string text = error.what();
    // a NUL byte in a name of the registry would cut off the whole text, later accounts' lines
    // with it
    return StringUtil::escapeControls(userName) + ": " + (text.empty() ? "unknown error" : text);
}

std::string forEachAccount(const char* user, const AccountAction& action) {
    const std::list<AccountEntry> accounts = selectAccounts(user);
    std::string failures;
    for (const AccountEntry& account : accounts) {
        try {
            action(account);
        } catch (const std::exception& error) {
            if (user != nullptr) {
                throw;
            }
            const std::string line = failureLine(account.name, error);
            failures += failures.empty() ? line : "\n" + line;
        }
    }
    return failures;
}
