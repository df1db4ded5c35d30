#include "util/output.h"

#include <cstdio>

#include "util/settings.h"
#include "util/string_util.h"

namespace {

bool isSilent = false;

void writeTo(std::FILE* stream, std::string_view text) {
    if (isSilent) {
        return;
    }
    [[maybe_unused]] const auto ignored = std::fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace

void print(std::string_view text) {
    writeTo(stdout, text);
}

void flushOutput() {
    std::fflush(stdout);
}

void printError(std::string_view text) {
    writeTo(stderr, text);
}

void silenceOutput() {
    isSilent = true;
}

void progress(const std::string& line) {
    if (debugMode() != 0) {
        print(StringUtil::escapeControls(line) + "\n");
        flushOutput();
    }
}
