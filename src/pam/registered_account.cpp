#include "pam/registered_account.h"

#include <algorithm>
#include <list>
#include <stdexcept>

#include "config/account_registry.h"
#include "util/errors.h"

namespace {

std::list<AccountEntry> readWhole(const std::string& registry) {
    std::list<AccountEntry> accounts;
    const int error = readAccounts(accounts, "", registry.c_str());
    if (error != 0) {
        throw systemError("cannot read " + registry + ": ", error);
    }
    // as a crash of the host may leave them: a name with one would be another name
    const bool isDamaged = std::any_of(accounts.begin(), accounts.end(), [](const auto& account) {
        return account.name.find('\0') != std::string::npos;
    });
    if (isDamaged) {
        throw std::runtime_error(registry + ": a name holds a NUL byte");
    }
    return accounts;
}

}  // namespace

std::optional<std::string> registeredAccount(const PasswordEntry& user,
                                             const std::string& registry) {
    const std::list<AccountEntry> accounts = readWhole(registry);
    for (const AccountEntry& account : accounts) {
        if (account.name == user.name) {
            return account.name;
        }
    }
    for (const AccountEntry& account : accounts) {
        const auto other = Util::findUser(account.name);
        if (other && other->uid == user.uid) {
            return account.name;
        }
    }
    return std::nullopt;
}
