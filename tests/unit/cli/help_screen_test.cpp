#include "cli/help_screen.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "../util/captured.h"
#include "cli/options.h"
#include "command_line.h"
#include "terminal.h"

namespace {

std::string printed(void (*print)()) {
    const CommandLine line({"-h"});
    Captured standardOutput(STDOUT_FILENO);
    print();
    return standardOutput.text();
}

/// The first five lines.
std::string logoOf(const std::string& screen) {
    std::size_t end = 0;
    for (int line = 0; line < 5; ++line) {
        end = screen.find('\n', end) + 1;
    }
    return screen.substr(0, end);
}

TEST(HelpScreen, HasTheHelpTextBetweenLogoAndRule) {
    const std::string screen = printed(printHelpScreen);
    const std::string expected =
        logoOf(screen) + "\n" + printed(printHelp) + std::string(78, '_') + "\nCopyright ";
    EXPECT_EQ(screen.substr(0, expected.size()), expected);
}

TEST(HelpScreen, BeginsWithALogoOfFiveWrittenLines) {
    std::istringstream logo(logoOf(printed(printHelpScreen)));
    for (std::string line; std::getline(logo, line);) {
        EXPECT_NE(line, "");
        EXPECT_LE(line.size(), 78U);
    }
}

TEST(HelpScreen, EndsInOneEmptyLineAfterTheCopyright) {
    const std::string screen = printed(printHelpScreen);
    const std::string last = screen.substr(screen.find("Copyright "));
    EXPECT_EQ(last.substr(last.find('\n')), "\n\n");
}

TEST(HelpScreen, HasNoColoursOffTheTerminal) {
    EXPECT_EQ(printed(printHelpScreen).find('\033'), std::string::npos);
}

TEST(HelpScreen, ColoursLogoAndCopyrightOnATerminal) {
    const std::string plain = printed(printHelpScreen);
    const auto result = onTerminal(STDOUT_FILENO, [] {
        settings().programName = "kivctl";
        printHelpScreen();
        std::cout << std::flush;
        return 0;
    });
    const std::string& screen = result.terminal;
    const std::string head = "\033[31m" + logoOf(plain) + "\033[0m\n" + printed(printHelp) +
                             "\033[31m" + std::string(78, '_') + "\nCopyright ";
    EXPECT_EQ(screen.substr(0, head.size()), head);
    const std::string last = screen.substr(screen.find("Copyright "));
    EXPECT_EQ(last.substr(last.find_first_of("\033\n")), "\033[0m\n\n");
    EXPECT_EQ(std::count(screen.begin(), screen.end(), '\033'), 4);
    EXPECT_EQ(result.child.errorOutput, "");
}

TEST(HelpScreen, HasNoColoursWhenOnlyStandardErrorIsATerminal) {
    const auto result = onTerminal(STDERR_FILENO, [] {
        settings().programName = "kivctl";
        printHelpScreen();
        return 0;
    });
    EXPECT_EQ(result.terminal, "");
    EXPECT_EQ(result.child.output.find('\033'), std::string::npos);
    EXPECT_EQ(result.child.output, printed(printHelpScreen));
}

TEST(HelpText, BeginsWithTheProgramsNameAsGiven) {
    const CommandLine line({"-h"}, "/usr/sbin/kivctl");
    Captured standardOutput(STDOUT_FILENO);
    printHelp();
    const std::string text = standardOutput.text();
    EXPECT_EQ(text.substr(0, text.find('\n')), "Usage: /usr/sbin/kivctl [options] [command]");
}

TEST(HelpText, FirstColumnIsTwentyFourCharactersWide) {
    std::istringstream text(printed(printHelp));
    const std::vector<std::string> columns = {
        "  -c, --config=FILE     ", "                        ", "  exec   <user>         ",
        "  start  <user> | -a    ", "  stop   <user> | -a    ", "  status <user> | -a    ",
        "  -h, --help            ", "  -v, --version         "};
    std::vector<std::string> found;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("  ")) {
            found.push_back(line.substr(0, 24));
            EXPECT_NE(line[24], ' ');
        }
    }
    EXPECT_EQ(found, columns);
}

}  // namespace
