#include "pam/registered_account.h"

#include <list>
#include <stdexcept>

#include "config/account_registry.h"
#include "util/errors.h"
#include "util/line_reader.h"

namespace {

/// A crash of the host may leave NUL bytes in the file. They become part of the words beside them:
/// a name is then another name, and where one replaced a newline the next line's account is
/// missing.
void requireNoNulBytes(const std::string& registry) {
    LineReader file(registry);
    if (!file.opened()) {
        throw systemError("cannot open ", registry, ": ");
    }
    std::string line;
    while (file.next(line)) {
        if (line.find('\0') != std::string::npos) {
            throw std::runtime_error(registry + ": holds a NUL byte");
        }
    }
    if (file.error() != 0) {
        throw systemError("cannot read " + registry + ": ", file.error());
    }
}

std::list<AccountEntry> readWhole(const std::string& registry) {
    requireNoNulBytes(registry);
    std::list<AccountEntry> accounts;
    const int error = readAccounts(accounts, "", registry.c_str());
    if (error != 0) {
        throw systemError("cannot read " + registry + ": ", error);
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
