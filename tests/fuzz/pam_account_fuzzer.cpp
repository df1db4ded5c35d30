// The PAM module's options and a registry: the pieces before the first empty one are the options,
// the rest is the registry. The account whose container "daemon", user ID 1, enters must be the
// first word of a line.
#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/account_registry.h"
#include "input.h"
#include "pam/module_options.h"
#include "pam/registered_account.h"

namespace {

void tryOptions(Input& input) {
    std::vector<std::string> words;
    for (std::string word = input.take('\n'); !word.empty(); word = input.take('\n')) {
        words.push_back(word);
    }
    std::vector<const char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(word.c_str());
    }
    try {
        const auto options = parseModuleOptions(static_cast<int>(pointers.size()), pointers.data());
        demand(options.registry.starts_with('/'), "an absolute path");
    } catch (const std::runtime_error&) {
        // refused
    }
}

bool isListed(const std::string& name, const InputFile& file) {
    std::list<AccountEntry> accounts;
    readAccounts(accounts, name, file.path().c_str());
    return !accounts.empty();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    tryOptions(input);
    const std::string registry = input.all();
    const InputFile file(registry);
    try {
        const auto account = registeredAccount({"daemon", 1, 1, "/", "/bin/sh"}, file.path());
        demand(account == "daemon" || !account, "nobody else has this user ID");
        demand(account.has_value() == isListed("daemon", file), "a listed account is found");
    } catch (const std::runtime_error&) {
        demand(registry.find('\0') != std::string::npos, "only a NUL byte makes it unreadable");
    }
    return 0;
}
