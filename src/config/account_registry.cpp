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

/// Parses the words of a registry line. Calls `unknown` with each setting that does not exist.
template <typename Unknown>
void parseSettings(AccountEntry& entry, WordReader& words, const Unknown& unknown) {
    for (auto word = words.next(); !word.empty(); word = words.next()) {
        if (word.starts_with(kNetSetting)) {
            entry.net = word.substr(kNetSetting.size());
        } else {
            unknown(word);
        }
    }
}

/// Calls `take` with the line number, the account's name and the settings of each line with an
/// account. Returns 0, or the errno of a failed read.
template <typename Take>
int readLines(const char* registry, const Take& take) {
    LineReader file(registry);
    if (!file.opened()) {
        throw systemError("cannot open ", registry, ": ");
    }
    std::string line;
    for (unsigned long number = 1; file.next(line); ++number) {
        StringUtil::trim(line, kWhiteSpace);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        WordReader words(line, " \t");
        const auto name = words.next();
        if (!name.empty()) {
            take(number, name, words);
        }
    }
    return file.error();
}

}  // namespace

int readAccounts(std::list<AccountEntry>& result, const std::string& user, const char* registry) {
    return readLines(registry, [&](unsigned long, std::string_view name, WordReader& words) {
        if (user.empty() || name == user) {
            parseSettings(result.emplace_back(AccountEntry{std::string(name), ""}), words,
                          [](std::string_view word) {
                              report(std::string("unknown setting: ").append(word));
                          });
        }
    });
}

int inspectRegistry(const std::function<void(const RegistryLine& line)>& visit,
                    const char* registry) {
    const auto take = [&](unsigned long number, std::string_view name, WordReader& words) {
        RegistryLine line{number, {std::string(name), ""}, {}};
        parseSettings(line.account, words,
                      [&line](std::string_view word) { line.unknownSettings.emplace_back(word); });
        visit(line);
    };
    return readLines(registry, take);
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
