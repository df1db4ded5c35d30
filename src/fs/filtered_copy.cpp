#include "fs/filtered_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>

#include "fs/layer_paths.h"
#include "util/errors.h"
#include "util/reg_ex.h"
#include "util/string_util.h"

namespace {

/// The name as an expression that matches just it: an account "a.b" must not see the line of "axb".
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

/// Throws std::runtime_error when the expression does not compile; `out` is then empty, so that the
/// account sees nothing of the file instead of all of it.
void copyMatchingLines(std::istream& in, std::ostream& out, std::string expression,
                       const std::string& userName) {
    StringUtil::replaceAll("${USER}", escaped(userName), expression);
    const RegEx wanted(expression, 0);
    std::string line;
    while (std::getline(in, line)) {
        if (wanted.match(line, 0)) {
            out << line << '\n';
        }
    }
}

void copyOwnerAndMode(const struct stat& source, const std::string& target) {
    if (::chown(target.c_str(), source.st_uid, source.st_gid) != 0) {
        const int error = errno;
        report("chown(" + target + ") failed: " + errorText(error));
    }
    if (::chmod(target.c_str(), source.st_mode) != 0) {
        const int error = errno;
        report("chmod(" + target + ") failed: " + errorText(error));
    }
}

void writeFilteredCopy(const std::string& file, const std::string& expression,
                       const std::string& layerDir, const std::string& userName) {
    struct stat source {};
    if (::stat(file.c_str(), &source) != 0) {
        const int error = errno;
        report(file + ": " + errorText(error));
        return;
    }
    std::ifstream in(file);
    if (!in) {
        const int error = errno;
        report("Cannot open '" + file + "': " + errorText(error));
        return;
    }
    const std::string target = layerDir + file;
    if (!mirrorFromHost(layerDir, componentsOf(parentOf(file)))) {
        report("Error while creating output path...");
        return;
    }
    progress("Creating file: " + target);
    ::unlink(target.c_str());  // an earlier step may have left a whiteout or a mount point there
    std::ofstream out(target, std::ios::trunc);
    if (!out) {
        const int error = errno;
        report(target + ": error while opening: " + errorText(error));
        return;
    }
    try {
        copyMatchingLines(in, out, expression, userName);
    } catch (const std::runtime_error& error) {
        report(file + ": " + error.what());
        return;
    }
    out.close();
    if (in.bad() || !out) {
        report(target + ": error while copying");
    }
    copyOwnerAndMode(source, target);
}

}  // namespace

void writeFilteredCopies(const std::map<std::string, std::string>& filters,
                         const std::string& layerDir, const std::string& userName) {
    for (const auto& [file, expression] : filters) {
        writeFilteredCopy(file, expression, layerDir, userName);
    }
}
