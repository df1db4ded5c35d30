#include "config/account_registry.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "config/white_space.h"
#include "util/errors.h"
#include "util/string_util.h"

namespace {

constexpr std::string_view kNetSetting = "net=";

AccountEntry parseEntry(const std::vector<std::string>& words) {
    AccountEntry entry{words.front(), ""};
    for (auto word = words.begin() + 1; word != words.end(); ++word) {
        if (word->starts_with(kNetSetting)) {
            entry.net = word->substr(kNetSetting.size());
        } else {
            report("unknown setting: " + *word);
        }
    }
    return entry;
}

}  // namespace

void readAccounts(std::list<AccountEntry>& result, const std::string& user, const char* registry) {
    std::ifstream file(registry);
    if (!file) {
        const int error = errno;
        throw systemError("cannot open " + std::string(registry) + ": ", error);
    }
    std::string line;
    while (std::getline(file, line)) {
        StringUtil::trim(line, kWhiteSpace);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const auto words =
            StringUtil::split<std::vector<std::string>>(line, " \t", /*dropEmpty=*/true, false);
        if (words.empty() || (!user.empty() && words.front() != user)) {
            continue;
        }
        result.push_back(parseEntry(words));
    }
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
