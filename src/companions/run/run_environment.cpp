#include "companions/run/run_environment.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "util/errors.h"
#include "util/line_reader.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

constexpr std::string_view kPathItem = "ENV_PATH";
constexpr std::string_view kPathPrefix = "PATH=";
constexpr const char* kDefaultPath = "/bin:/usr/bin";

/// The value of an ENV_PATH line, with or without "PATH=", see login.defs(5).
std::string pathOf(std::string_view line) {
    std::string value(line.substr(line.find(kPathItem) + kPathItem.size()));
    StringUtil::trim(value, std::string(kWhiteSpace) + '"');
    return value.starts_with(kPathPrefix) ? value.substr(kPathPrefix.size()) : value;
}

bool isNamed(const std::string& variable, std::string_view name) {
    return variable.find('=') == name.size() && variable.starts_with(name);
}

}  // namespace

std::string loginPath(const std::string& definitions) {
    LineReader file(definitions);
    if (!file.opened()) {
        if (errno == ENOENT) {
            return kDefaultPath;
        }
        throw systemError("cannot open ", definitions, ": ");
    }
    std::string path;
    for (std::string line; file.next(line);) {
        if (WordReader(line, kWhiteSpace).next() == kPathItem) {
            path = pathOf(line);
        }
    }
    if (file.error() != 0) {
        throw systemError("cannot read " + definitions + ": ", file.error());
    }
    return path.empty() ? kDefaultPath : path;
}

void setVariable(Environment& environment, const std::string& variable) {
    const std::string name = variable.substr(0, variable.find('='));
    std::erase_if(environment, [&name](const std::string& other) { return isNamed(other, name); });
    environment.push_back(variable);
}

std::string valueOf(const Environment& environment, const std::string& name) {
    for (const std::string& variable : environment) {
        if (isNamed(variable, name)) {
            return variable.substr(name.size() + 1);
        }
    }
    return "";
}

Environment loginEnvironment(const std::string& userName, const PasswordEntry& account,
                             const std::string& path) {
    Environment environment = {"HOME=" + account.homeDirectory, "USER=" + userName,
                               "LOGNAME=" + userName, "SHELL=" + account.shell, "PATH=" + path};
    for (const char* name : {"TERM", "LANG", "TZ"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr) {
            environment.push_back(std::string(name) + "=" + value);
        }
    }
    return environment;
}
