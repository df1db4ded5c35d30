#include "util/console_colors.h"

#include "cli/escape_sequences.h"

const char* const colorGreen = onTerminal(kGreen);
const char* const colorRed = onTerminal(kRed);
const char* const colorReset = onTerminal(kReset);
