#include "cli/help_screen.h"

#include <string>

#include "cli/escape_sequences.h"
#include "cli/options.h"
#include "util/output.h"

namespace {

constexpr const char* kLogo =
    R"( _    _            _   _
| | _(_)_   _  ___| |_| |
| |/ / \ \ / // __| __| |
|   <| |\ V /| (__| |_| |
|_|\_\_| \_/  \___|\__|_|
)";

constexpr const char* kCopyright = "Copyright (C) 2026 the kivctl developers; manual: man kivctl";
constexpr int kRuleWidth = 78;

}  // namespace

void printHelpScreen() {
    print(std::string(onTerminal(kRed)) + kLogo + onTerminal(kReset) + "\n");
    printHelp();
    print(onTerminal(kRed) + std::string(kRuleWidth, '_') + "\n" + kCopyright + onTerminal(kReset) +
          "\n\n");
}
