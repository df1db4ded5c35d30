#include "fs/filtered_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string_view>

#include "fs/directory_mirror.h"
#include "fs/layer_paths.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/line_reader.h"
#include "util/output.h"
#include "util/reg_ex.h"
#include "util/string_util.h"

namespace {

constexpr std::size_t kPiece = 16384;       ///< bytes that are collected before each write
constexpr mode_t kModeWhileWritten = 0666;  ///< less the umask

bool writeAll(const FileDescriptor& out, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(out.get(), text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

/// The name as an expression that matches only this name: an account "a.b" must not see the line of
/// "axb".
std::string escaped(const std::string& userName) {
    std::string text;
    for (const char c : userName) {
        if (std::string(".[({*+?^$|)\\").find(c) != std::string::npos) {
            text += '\\';
        }
        text += c;
    }
    return text;
}

/// False when not everything could be copied. Throws std::runtime_error when the expression does
/// not compile; `out` is then empty, so that the account sees nothing of the file instead of all of
/// it.
bool copyMatchingLines(LineReader& in, const FileDescriptor& out, std::string expression,
                       const std::string& userName) {
    StringUtil::replaceAll("${USER}", escaped(userName), expression);
    const RegEx wanted(expression, 0);
    std::string line;
    std::string kept;
    while (in.next(line)) {
        if (!wanted.match(line, 0)) {
            continue;
        }
        kept.append(line) += '\n';
        if (kept.size() >= kPiece) {
            if (!writeAll(out, kept)) {
                return false;
            }
            kept.clear();
        }
    }
    return writeAll(out, kept) && in.error() == 0;
}

void copyOwnerAndMode(const struct stat& source, const std::string& target) {
    if (::chown(target.c_str(), source.st_uid, source.st_gid) != 0) {
        reportSystemError("chown(", target, ") failed: ");
    }
    if (::chmod(target.c_str(), source.st_mode) != 0) {
        reportSystemError("chmod(", target, ") failed: ");
    }
}

void writeFilteredCopy(const std::string& file, const std::string& expression,
                       const std::string& layerDir, const std::string& userName) {
    struct stat source {};
    if (::stat(file.c_str(), &source) != 0) {
        reportSystemError(file, ": ");
        return;
    }
    LineReader in(file);
    if (!in.opened()) {
        reportSystemError("Cannot open '", file, "': ");
        return;
    }
    const std::string target = layerDir + file;
    if (!TreeMirror("", layerDir).mirror(componentsOf(parentOf(file)))) {
        report("Error while creating output path...");
        return;
    }
    progress("Creating file: " + target);
    ::unlink(target.c_str());  // a whiteout or mount point of an earlier step
    FileDescriptor out(
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kModeWhileWritten));
    if (!out.valid()) {
        reportSystemError(target, ": error while opening: ");
        return;
    }
    try {
        if (!copyMatchingLines(in, out, expression, userName)) {
            report(target + ": error while copying");
        }
    } catch (const std::runtime_error& error) {
        report(file + ": " + error.what());
        return;
    }
    out.reset();  // closed, so complete, before the account becomes its owner
    copyOwnerAndMode(source, target);
}

}  // namespace

void writeFilteredCopies(const std::map<std::string, std::string>& filters,
                         const std::string& layerDir, const std::string& userName) {
    for (const auto& [file, expression] : filters) {
        writeFilteredCopy(file, expression, layerDir, userName);
    }
}
