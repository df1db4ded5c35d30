#include "util/errors.h"

#include <cerrno>
#include <cstring>
#include <list>

#include "util/output.h"
#include "util/string_util.h"

std::runtime_error systemError(const std::string& text, int error) {
    return std::runtime_error(StringUtil::escapeControls(text) + errorText(error));
}

std::string errorText(int error) {
    return std::strerror(error);
}

void report(const std::string& line) {
    const int kept = errno;
    printError(StringUtil::escapeControls(line) + "\n");
    errno = kept;
}

void reportLines(const std::string& lines) {
    for (const std::string& line : StringUtil::split<std::list<std::string>>(
             lines, "\n", /*dropEmpty=*/false, /*keepSeparators=*/false)) {
        report(line);
    }
}
