#include "util/interrupted_run.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstddef>

#include "util/errors.h"
#include "util/runtime_directory.h"
#include "util/word_reader.h"

namespace {

constexpr const char* kAttributePrefix = "trusted.kiv.unfinished.";
constexpr std::string_view kPinned = "pinned";

/// ENOTSUP: the file system has no extended attributes. EPERM: a user namespace may not set trusted
/// ones. ERANGE: the user name is too long for an attribute's name. See setxattr(2).
bool cannotBeMarked(int error) {
    return error == ENOTSUP || error == EPERM || error == ERANGE;
}

}  // namespace

std::string textOf(const InterruptedRun& run) {
    std::string text;
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if ((run.kinds & kind.flag) != 0) {
            text += std::string(kind.name) + " ";
        }
    }
    return run.pinned ? text.append(kPinned) : text;
}

InterruptedRun parseInterruptedRun(std::string_view text) {
    InterruptedRun run;
    WordReader words(text, " ");
    for (auto word = words.next(); !word.empty(); word = words.next()) {
        run.pinned = run.pinned || word == kPinned;
        for (const NamespaceKind& kind : kNamespaceKinds) {
            run.kinds |= word == kind.name ? kind.flag : 0;
        }
    }
    return run;
}

bool mayClear(const std::optional<InterruptedRun>& marked) {
    return marked && marked->pinned;
}

std::optional<InterruptedRun> afterStop(const std::optional<InterruptedRun>& found, int stillPinned,
                                        bool rulesMayBeLeft) {
    int kinds = found ? found->kinds & stillPinned : 0;
    if (rulesMayBeLeft) {
        kinds |= CLONE_NEWNET;
    }
    return kinds != 0 ? std::optional(InterruptedRun{kinds}) : std::nullopt;
}

// "@", which no user name contains, keeps these marks apart from those of accounts
RunMark RunMark::ofLeftPair(const std::string& userName, const std::string& path) {
    return RunMark(userName + "@pair", path);
}

RunMark RunMark::ofHost(const std::string& path) {
    return RunMark("@host", path);
}

RunMark::RunMark(const std::string& userName, const std::string& path)
    : directoryPath(path),
      attribute(kAttributePrefix + userName),
      directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    const int error = errno;
    if (!directory.valid() && error != ENOENT && error != ENOTDIR) {
        throw systemError(path + ": ", error);
    }
}

std::optional<InterruptedRun> RunMark::read() const {
    if (!directory.valid() || attribute.size() > XATTR_NAME_MAX) {
        return std::nullopt;
    }
    std::array<char, 64> text{};
    const ssize_t size = ::fgetxattr(directory.get(), attribute.c_str(), text.data(), text.size());
    const int error = errno;
    if (size >= 0) {
        return parseInterruptedRun({text.data(), static_cast<std::size_t>(size)});
    }
    if (error == ENODATA || error == ENOTSUP) {
        return std::nullopt;
    }
    throw systemError(directoryPath + ": ", error);
}

bool RunMark::write(const InterruptedRun& run) const {
    const std::string text = textOf(run);
    return ::fsetxattr(directory.get(), attribute.c_str(), text.data(), text.size(), 0) == 0 ||
           cannotBeMarked(errno);
}

void RunMark::clear() const {
    ::fremovexattr(directory.get(), attribute.c_str());
}
