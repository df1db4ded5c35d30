#include "container/each_account.h"

#include <unistd.h>

#include <exception>
#include <list>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "util/string_util.h"

namespace {

std::string describe(const AccountEntry& account, const std::exception& error) {
    const std::string text = error.what();
    std::string line = account.name + ": " + (text.empty() ? "unknown error" : text);
    // a NUL byte in a registry's name would cut the whole text off, later accounts' lines with it
    StringUtil::replaceAll(std::string(1, '\0'), "\\x00", line);
    return line;
}

UserIds userIdsOf(const std::list<AccountEntry>& accounts) {
    std::vector<std::string_view> names;
    names.reserve(accounts.size());
    for (const AccountEntry& account : accounts) {
        names.emplace_back(account.name);
    }
    return UserIds(std::move(names));
}

}  // namespace

std::string forEachAccount(const char* user, const AccountAction& action) {
    const pid_t self = ::getpid();
    const std::list<AccountEntry> accounts = selectAccounts(user);
    const UserIds ids = user == nullptr ? userIdsOf(accounts) : UserIds();
    std::string failures;
    for (const AccountEntry& account : accounts) {
        try {
            action(account, ids);
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
