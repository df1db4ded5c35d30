#include "util/user_ids.h"

#include <pwd.h>

#include <algorithm>
#include <cstdio>

#include "util/line_reader.h"
#include "util/scope_guard.h"
#include "util/util.h"
#include "util/word_reader.h"

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kDatabase = "passwd";

bool sameTime(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

/// The C library looks up no user of such a line by name, or kivctl does not.
bool isNeverLookedUp(std::string_view name) {
    return name.empty() || name.front() == '+' || name.front() == '-' ||
           name.find('/') != std::string_view::npos;
}

/// A word in brackets may send the look-up on although the user was found.
bool startsWithFilesAlone(std::string_view services) {
    WordReader words(services, kBlanks);
    const std::string_view first = words.next();
    return first == "files" && !words.next().starts_with('[');
}

}  // namespace

bool passwordFileComesFirst(const char* sourcesFile) {
    LineReader file(sourcesFile);
    int lines = 0;
    bool first = false;
    for (std::string line; file.next(line);) {
        std::string_view text = line;
        text = text.substr(0, text.find('#'));
        text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
        const std::size_t end = text.find_first_of(" \t\n\v\f\r:");
        if (end != std::string_view::npos && text.substr(0, end) == kDatabase) {
            ++lines;
            first = text[end] == ':' && startsWithFilesAlone(text.substr(end + 1));
        }
    }
    return lines == 1 && first;
}

bool UserIds::Version::isCurrent() const {
    struct stat now {};
    return ::stat(path, &now) == 0 && now.st_dev == status.st_dev && now.st_ino == status.st_ino &&
           now.st_size == status.st_size && sameTime(now.st_mtim, status.st_mtim) &&
           sameTime(now.st_ctim, status.st_ctim);
}

UserIds::UserIds(std::vector<std::string_view> userNames, const char* passwordFile,
                 const char* sourcesFile)
    : passwords{passwordFile}, sources{sourcesFile} {
    // taken before the reading: a change meanwhile shows when the first user is asked for
    if (::stat(passwordFile, &passwords.status) != 0 || ::stat(sourcesFile, &sources.status) != 0 ||
        !passwordFileComesFirst(sourcesFile)) {
        return;
    }
    std::sort(userNames.begin(), userNames.end());
    userNames.erase(std::unique(userNames.begin(), userNames.end()), userNames.end());
    entries.reserve(userNames.size());
    for (const std::string_view name : userNames) {
        entries.push_back({name, 0, false});
    }
    readPasswords(passwordFile);
}

/// With the C library's own parser, so that a broken line means here what it means to a look-up.
void UserIds::readPasswords(const char* path) {
    std::FILE* const file = std::fopen(path, "re");
    if (file == nullptr) {
        return;  // nobody is known then, and everybody looked up by name
    }
    const ScopeGuard close([file] { std::fclose(file); });
    while (const passwd* line = ::fgetpwent(file)) {
        const auto entry = entries.begin() + (find(line->pw_name) - entries.cbegin());
        // the first of several lines counts
        if (entry != entries.end() && !entry->known && !isNeverLookedUp(entry->name)) {
            entry->uid = line->pw_uid;
            entry->known = true;
        }
    }
}

std::vector<UserIds::Entry>::const_iterator UserIds::find(std::string_view name) const {
    const auto found = std::lower_bound(
        entries.begin(), entries.end(), name,
        [](const Entry& entry, std::string_view wanted) { return entry.name < wanted; });
    return found != entries.end() && found->name == name ? found : entries.end();
}

uid_t UserIds::of(const std::string& name) const {
    const auto entry = find(name);
    if (entry != entries.end() && entry->known && passwords.isCurrent() && sources.isCurrent()) {
        return entry->uid;
    }
    return Util::getpwnam(name).uid;
}
