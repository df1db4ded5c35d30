#include "util/password_file.h"

#include <pwd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "util/line_reader.h"
#include "util/scope_guard.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

constexpr std::string_view kDatabase = "passwd";

bool sameTime(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

/// The C library finds no user with such a name.
bool isNeverLookedUp(const char* name) {
    return *name == '\0' || *name == '+' || *name == '-';
}

/// True when "files" is first and no action in brackets follows it, which could continue the
/// look-up although the user was found, nsswitch.conf(5).
bool startsWithFilesAlone(std::string_view services) {
    WordReader words(services, kWhiteSpace);
    const std::string_view first = words.next();
    return first == "files" && !words.next().starts_with('[');
}

/// Takes the first field, which ends at a colon, off the line.
std::optional<std::string_view> takeField(std::string_view& line) {
    const std::size_t end = line.find(':');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view field = line.substr(0, end);
    line.remove_prefix(end + 1);
    return field;
}

/// The same for a field that is a decimal number and nothing else.
std::optional<uid_t> takeNumber(std::string_view& line) {
    uid_t number = 0;
    const char* const end = line.data() + line.size();
    const auto [after, error] = std::from_chars(line.data(), end, number);
    if (error != std::errc{} || after == end || *after != ':') {
        return std::nullopt;
    }
    line = {after + 1, end};
    return number;
}

/// A line as useradd(8) writes it; nothing for one that only the C library's parser understands.
std::optional<PasswordEntry> parseUsualLine(std::string_view line) {
    const bool isUnusual = line.starts_with('#') || line.find('\0') != std::string_view::npos;
    const auto name = takeField(line);
    const auto password = takeField(line);
    const auto uid = takeNumber(line);
    const auto gid = takeNumber(line);
    const auto comment = takeField(line);
    const auto home = takeField(line);
    if (isUnusual || !name || !password || !uid || !gid || !comment || !home) {
        return std::nullopt;
    }
    return PasswordEntry{std::string(*name), *uid, *gid, std::string(*home), std::string(line)};
}

/// Uses the C library's parser on one line only: on a longer file it makes a system call per line.
std::optional<PasswordEntry> parseAnyLine(std::string line) {
    line += '\n';
    std::FILE* const file = ::fmemopen(line.data(), line.size(), "r");
    if (file == nullptr) {
        return std::nullopt;
    }
    const ScopeGuard close([file] { std::fclose(file); });
    std::vector<char> buffer(line.size() + sizeof(passwd));
    passwd entry{};
    passwd* read = nullptr;
    if (::fgetpwent_r(file, &entry, buffer.data(), buffer.size(), &read) != 0) {
        return std::nullopt;
    }
    return PasswordEntry{entry.pw_name, entry.pw_uid, entry.pw_gid, entry.pw_dir, entry.pw_shell};
}

/// The user ID of a line, even of one that the C library may skip; that of root, which no account
/// has, if the line has none. Nothing if the C library's parser may read another number: then
/// findNumber does not answer, and the user is looked up by number.
std::optional<uid_t> numberIn(std::string_view line) {
    const std::size_t password = line.find(':');
    const std::size_t number =
        password == std::string_view::npos ? password : line.find(':', password + 1);
    uid_t uid = 0;
    if (number == std::string_view::npos) {
        return uid;
    }
    // not takeNumber: its call would cost a tenth of the time of this line, and every line before
    // the user's comes here
    const char* const end = line.data() + line.size();
    const auto [after, error] = std::from_chars(line.data() + number + 1, end, uid);
    return error == std::errc{} && after != end && *after == ':' ? std::optional(uid)
                                                                 : std::nullopt;
}

/// What the C library makes of the line, which it reads itself only where it must: the pages of its
/// parser are seldom in memory yet.
std::optional<PasswordEntry> parseLine(std::string_view line) {
    auto usual = parseUsualLine(line);
    return usual ? usual : parseAnyLine(std::string(line));
}

}  // namespace

bool passwordFileComesFirst(const std::string& sourcesFile) {
    LineReader file(sourcesFile);
    int lines = 0;
    bool first = false;
    for (std::string line; file.next(line);) {
        std::string_view text = line;
        text = text.substr(0, text.find('#'));
        text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
        const std::size_t end = text.find_first_of(std::string(kWhiteSpace) + ":");
        if (end != std::string_view::npos && text.substr(0, end) == kDatabase) {
            ++lines;
            first = text[end] == ':' && startsWithFilesAlone(text.substr(end + 1));
        }
    }
    return lines == 1 && first;
}

bool FileVersion::take() {
    return ::stat(path.c_str(), &status) == 0;
}

bool FileVersion::isCurrent() const {
    struct stat now {};
    return ::stat(path.c_str(), &now) == 0 && now.st_dev == status.st_dev &&
           now.st_ino == status.st_ino && now.st_size == status.st_size &&
           sameTime(now.st_mtim, status.st_mtim) && sameTime(now.st_ctim, status.st_ctim);
}

PasswordFile::PasswordFile(std::string passwordFile, std::string sourcesFile,
                           std::chrono::milliseconds lookEvery)
    : passwords{std::move(passwordFile)}, sources{std::move(sourcesFile)}, interval(lookEvery) {}

std::optional<PasswordEntry> PasswordFile::find(std::string_view name) {
    if (!isCurrent()) {
        read();
        if (!isCurrent()) {
            return std::nullopt;
        }
    }
    const auto entry = std::lower_bound(
        entries.begin(), entries.end(), name,
        [this](const Entry& one, std::string_view wanted) { return nameOf(one) < wanted; });
    if (entry == entries.end() || nameOf(*entry) != name) {
        return std::nullopt;
    }
    const char* const home = nameOf(*entry) + name.size() + 1;
    return PasswordEntry{std::string(name), entry->uid, entry->gid, home,
                         home + std::strlen(home) + 1};
}

bool PasswordFile::isCurrent() {
    const auto now = std::chrono::steady_clock::now();
    if (lastCurrent && now - *lastCurrent < interval) {
        return true;
    }
    const bool current = passwords.isCurrent() && sources.isCurrent();
    lastCurrent = current ? std::optional(now) : std::nullopt;
    return current;
}

void PasswordFile::read() {
    texts.clear();
    entries.clear();
    // taken before the reading: isCurrent shows a change meanwhile
    if (passwords.take() && sources.take() && passwordFileComesFirst(sources.path)) {
        readPasswords();
    }
}

/// Uses the C library's parser, so that an invalid line is treated here as in a look-up.
void PasswordFile::readPasswords() {
    std::FILE* const file = std::fopen(passwords.path.c_str(), "re");
    if (file == nullptr) {
        return;
    }
    const ScopeGuard close([file] { std::fclose(file); });
    while (const passwd* line = ::fgetpwent(file)) {
        if (isNeverLookedUp(line->pw_name)) {
            continue;
        }
        entries.push_back({texts.size(), line->pw_uid, line->pw_gid});
        for (const char* text : {line->pw_name, line->pw_dir, line->pw_shell}) {
            texts.append(text).push_back('\0');
        }
    }
    // stable: of several lines of one user, find returns the first, like a look-up
    std::stable_sort(entries.begin(), entries.end(), [this](const Entry& one, const Entry& other) {
        return std::strcmp(nameOf(one), nameOf(other)) < 0;
    });
}

PasswordLine::PasswordLine(std::string passwordFile, std::string sourcesFile)
    : passwords{std::move(passwordFile)}, sources{std::move(sourcesFile)} {}

std::optional<PasswordEntry> PasswordLine::find(const std::string& name) {
    found.reset();
    // taken before the reading: isCurrent shows a change meanwhile
    if (passwords.take() && sources.take() && passwordFileComesFirst(sources.path)) {
        found = readUpTo(name);
    }
    if (!passwords.isCurrent() || !sources.isCurrent()) {
        found.reset();
    }
    return found;
}

std::optional<PasswordEntry> PasswordLine::findNumber(uid_t uid) const {
    const bool known = found && found->uid == uid && isFirstOfNumber;
    return known && passwords.isCurrent() && sources.isCurrent() ? found : std::nullopt;
}

std::optional<PasswordEntry> PasswordLine::readUpTo(const std::string& name) {
    if (isNeverLookedUp(name.c_str())) {
        return std::nullopt;
    }
    const std::string begin = name + ":";
    std::vector<uid_t> earlier;
    bool allAreKnown = true;
    LineReader file(passwords.path);
    for (std::string_view line; file.next(line);) {
        while (!line.empty() && std::isspace(static_cast<unsigned char>(line.front())) != 0) {
            line.remove_prefix(1);
        }
        auto entry = line.starts_with(begin) ? parseLine(line) : std::nullopt;
        if (entry) {
            isFirstOfNumber = allAreKnown && std::find(earlier.begin(), earlier.end(),
                                                       entry->uid) == earlier.end();
            return entry;
        }
        const auto number = numberIn(line);
        allAreKnown = allAreKnown && number;
        earlier.push_back(number.value_or(0));
    }
    return std::nullopt;
}
