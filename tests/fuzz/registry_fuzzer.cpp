// The registry of accounts. An account's name must select the same entries that the whole list has
// for it.
#include <algorithm>
#include <list>

#include "config/account_registry.h"
#include "input.h"

namespace {

using Accounts = std::list<AccountEntry>;

Accounts read(const std::string& user, const InputFile& file) {
    Accounts result;
    readAccounts(result, user, file.path().c_str());
    return result;
}

Accounts named(Accounts accounts, const std::string& name) {
    accounts.remove_if([&name](const AccountEntry& account) { return account.name != name; });
    return accounts;
}

bool sameAccount(const AccountEntry& one, const AccountEntry& other) {
    return one.name == other.name && one.net == other.net;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputFile file(Input(data, size).all());
    const Accounts accounts = read("", file);
    for (const AccountEntry& account : accounts) {
        demand(!account.name.empty() && account.name.front() != '#', "an account's name");
        demand((account.name + account.net).find_first_of(" \t\n") == std::string::npos, "words");
    }
    const std::string name = accounts.empty() ? "alice" : accounts.back().name;
    const Accounts selected = read(name, file);
    const Accounts expected = named(accounts, name);
    demand(
        std::equal(selected.begin(), selected.end(), expected.begin(), expected.end(), sameAccount),
        "the same account alone and among all");
    return 0;
}
