#include "util/errors.h"

#include <cerrno>
#include <cstring>

#include "util/output.h"
#include "util/settings.h"

std::runtime_error systemError(const std::string& text, int error) {
    return std::runtime_error(text + errorText(error));
}

std::string errorText(int error) {
    return std::strerror(error);
}

void report(const std::string& line) {
    const int kept = errno;
    printError(line + "\n");
    errno = kept;
}

void progress(const std::string& line) {
    if (debugMode() != 0) {
        print(line + "\n");
        flushOutput();
    }
}
