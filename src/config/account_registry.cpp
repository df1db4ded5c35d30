#include "config/account_registry.h"

#include <cerrno>
#include <stdexcept>
#include <string_view>

#include "util/errors.h"
#include "util/line_reader.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

constexpr std::string_view kNetSetting = "net=";

void parseSettings(AccountEntry& entry, WordReader& words) {
    for (auto word = words.next(); !word.empty(); word = words.next()) {
        if (word.starts_with(kNetSetting)) {
            entry.net = word.substr(kNetSetting.size());
        } else {
            report(std::string("unknown setting: ").append(word));
        }
    }
}

}  // namespace

int readAccounts(std::list<AccountEntry>& result, const std::string& user, const char* registry) {
    LineReader file(registry);
    if (!file.opened()) {
        throw systemError("cannot open ", registry, ": ");
    }
    std::string line;
    while (file.next(line)) {
        StringUtil::trim(line, kWhiteSpace);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        WordReader words(line, " \t");
        const auto name = words.next();
        if (name.empty() || (!user.empty() && name != user)) {
            continue;
        }
        parseSettings(result.emplace_back(AccountEntry{std::string(name), ""}), words);
    }
    return file.error();
}

std::list<AccountEntry> selectAccounts(const char* user) {
    const std::string name = user == nullptr ? "" : user;
    std::list<AccountEntry> accounts;
    if (user == nullptr || !name.empty()) {
        readAccounts(accounts, name);
    }
    if (user != nullptr && accounts.empty()) {
        throw std::runtime_error("KIV not configured for requested user");
    }
    return accounts;
}
