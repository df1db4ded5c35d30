#include "cli/options.h"

#include <getopt.h>
#include <libintl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <string>

#include "cli/escape_sequences.h"
#include "util/output.h"
#include "util/settings.h"
#include "util/string_util.h"
#include "util/translatable.h"

namespace {

constexpr const char* kShortOptions = "+c:dhv";  // "+": options come before the command, getopt(3)

constexpr option kLongOptions[] = {
    {"config", required_argument, nullptr, 'c'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

// Codes of the options of earlier versions. Deliberate: they still report a missing argument.
constexpr int kFormerKeyOption = 'k';
constexpr int kFormerUnblockOption = 266;

struct CommandWord {
    const char* word;
    Command command;
};

constexpr CommandWord kCommands[] = {
    {"exec", Exec},
    {"start", Start},
    {"stop", Stop},
    {"status", Status},
};

/// Prints one error line, with `detail` for "%s" in the translated message. Returns UsageError.
int usageError(const char* message, const std::string& detail = "") {
    std::string text = ::gettext(message);
    StringUtil::replaceAll("%s", detail, text);
    // deliberate: the colours are written to standard output, even when it is not a terminal
    const bool colored = ::isatty(STDERR_FILENO) != 0;
    print(colored ? kRed : "");
    flushOutput();
    printError(std::string("[") + ::gettext("ERROR") + "]");
    print(colored ? kReset : "");
    flushOutput();
    printError(std::string(" ") + programName() + ": " + text + "\n");
    return UsageError;
}

std::string optionText(int code) {
    const auto byte = static_cast<unsigned char>(code);
    if (std::isprint(byte) != 0) {
        return std::string(1, static_cast<char>(byte));
    }
    return StringUtil::hexEscape(static_cast<char>(byte), "\\x");
}

int optionError(char** argv) {
    constexpr const char* kNeedsArgument = translatable("option '-%s' requires an argument.");
    constexpr const char* kUnknown = translatable("unknown option '-%s'");
    switch (optopt) {
        case 'c':
        case kFormerKeyOption:
            return usageError(kNeedsArgument, optionText(optopt));
        case kFormerUnblockOption:
            return usageError(kNeedsArgument, "-ip-unblock");
        case 0:
            return usageError(kUnknown, argv[optind - 1] + 1);  // a long option, with both dashes
        default:
            return usageError(kUnknown, optionText(optopt));
    }
}

/// Returns 0 when all options have been read and a command may follow.
int parseOptions(int argc, char** argv) {
    opterr = 0;
    optind = 0;  // getopt(3): start from scratch, also after another vector
    for (;;) {
        const int code = ::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        switch (code) {
            case -1:
                return 0;
            case 'c':
                settings().configFile = optarg;
                break;
            case 'd':
                settings().debugMode = 1;
                break;
            case 'h':
                return Help;
            case 'v':
                return Version;
            case '?':
                return optionError(argv);
            default:
                return usageError("unknown option '-%s'", optionText(optopt));
        }
    }
}

/// The command with that name; 0 when there is none.
int findCommand(const char* word) {
    for (const CommandWord& known : kCommands) {
        if (std::strcmp(word, known.word) == 0) {
            return known.command;
        }
    }
    return 0;
}

/// Returns 0, or UsageError. Deliberate: "-abc" is an account's name, although other words with "-"
/// are not.
int parseAccountOrAll(const char* operand) {
    if (std::strcmp(operand, "-a") == 0) {
        return 0;
    }
    if (operand[0] == '-' && operand[1] != 'a') {
        return usageError("unknown option '-%s'", operand + 1);
    }
    settings().userName = operand;
    return 0;
}

int parseCommand(int argc, char** argv) {
    int next = optind;
    if (next >= argc) {
        return usageError("missing command (use '-h' for help)");
    }
    const int command = findCommand(argv[next]);
    if (command == 0) {
        return usageError("unknown command '%s'", argv[next]);
    }
    ++next;
    if (next >= argc) {
        return usageError(command == Exec ? translatable("missing user name")
                                          : translatable("missing user name (or '-a' option)"));
    }
    if (command == Exec) {
        settings().userName = argv[next];  // any word is a name here: exec has no -a
    } else if (parseAccountOrAll(argv[next]) != 0) {
        return UsageError;
    }
    ++next;
    return next < argc ? usageError("too many arguments") : command;
}

}  // namespace

int parseArguments(int argc, char** argv) {
    settings().programName = argv[0];
    const int answered = parseOptions(argc, argv);
    return answered != 0 ? answered : parseCommand(argc, argv);
}

void printHelp() {
    std::string config = std::string("-c, --config=") + ::gettext("FILE");
    config.resize(std::max<std::size_t>(config.size(), 22), ' ');
    const auto line = [](const std::string& usage, const char* description) {
        print("  " + usage + description + "\n");
    };
    print(std::string(::gettext("Usage:")) + " " + programName() + " [" + ::gettext("options") +
          "] [" + ::gettext("command") + "]\n\n");
    print(std::string(::gettext("Options:")) + "\n");
    line(config, ::gettext("use configuration file FILE"));
    print(std::string(24, ' ') + ::gettext("default:") + " " + kDefaultConfigFile + "\n\n");
    print(std::string(::gettext("Commands:")) + "\n");
    line("exec   <user>         ", ::gettext("run shell within container of user <user>"));
    line("start  <user> | -a    ",
         ::gettext("start container for user <user>, or with '-a' for all configured users"));
    line("stop   <user> | -a    ",
         ::gettext("stop container for user <user>, or with '-a' for all configured users"));
    line("status <user> | -a    ",
         ::gettext("show container status for user <user>, or with '-a' for all configured users"));
    line("-h, --help            ", ::gettext("show this help"));
    line("-v, --version         ", ::gettext("show program version"));
}
