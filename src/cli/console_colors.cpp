#include "util/console_colors.h"

#include <unistd.h>

#include "cli/escape_sequences.h"

namespace {

const char* ifTerminal(const char* sequence) {
    return ::isatty(STDOUT_FILENO) != 0 ? sequence : "";
}

}  // namespace

const char* const colorGreen = ifTerminal(kGreen);
const char* const colorRed = ifTerminal(kRed);
const char* const colorReset = ifTerminal(kReset);
