#include "companions/command_line.h"

#include <getopt.h>
#include <libintl.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "companions/whole_output.h"
#include "util/program.h"
#include "util/string_util.h"
#include "util/text_width.h"
#include "util/translatable.h"

namespace {

constexpr int kFirstCode = 256;  // of options without a letter: beyond all characters

/// The options that every program has.
std::vector<CommandOption> withCommonOptions(std::vector<CommandOption> options, Action& action) {
    options.push_back({'h', "help", nullptr, translatable("show this help"),
                       [&action](const char*) { action = Action::Help; }});
    options.push_back({'v', "version", nullptr, translatable("show program version"),
                       [&action](const char*) { action = Action::Version; }});
    return options;
}

/// The tables of getopt_long(3).
class Getopt {
public:
    Getopt(const std::vector<CommandOption>& table, OptionPlace place);

    /// The next option, or null after the last. Throws usageError.
    const CommandOption* next(int argc, char** argv) const;

private:
    const CommandOption* optionOf(int code) const;
    std::runtime_error mistake(std::string_view word) const;

    const std::vector<CommandOption>& options;
    std::string letters;
    std::vector<option> names;
};

Getopt::Getopt(const std::vector<CommandOption>& table, OptionPlace place)
    : options(table), letters(place == OptionPlace::BeforeOperands ? "+" : "") {
    int code = kFirstCode;
    for (const CommandOption& known : options) {
        if (known.letter != 0) {
            letters += std::string(1, known.letter) + (known.value != nullptr ? ":" : "");
        }
        if (known.name != nullptr) {
            names.push_back({known.name, known.value != nullptr ? required_argument : no_argument,
                             nullptr, known.letter != 0 ? known.letter : code});
        }
        ++code;
    }
    names.push_back({nullptr, 0, nullptr, 0});
    opterr = 0;
    optind = 0;  // getopt(3): starts from scratch, also after another vector
}

const CommandOption* Getopt::optionOf(int code) const {
    if (code >= kFirstCode) {
        return &options.at(static_cast<std::size_t>(code - kFirstCode));
    }
    const auto found = std::find_if(
        options.begin(), options.end(),
        [code](const CommandOption& known) { return known.letter != 0 && known.letter == code; });
    return found == options.end() ? nullptr : &*found;
}

const CommandOption* Getopt::next(int argc, char** argv) const {
    const int code = ::getopt_long(argc, argv, letters.c_str(), names.data(), nullptr);
    if (code == '?') {
        throw mistake(argv[optind - 1]);
    }
    return code == -1 ? nullptr : optionOf(code);
}

/// The error for the word that getopt read last. optopt is 0 for an unknown long option, otherwise
/// the code of the option that was used wrongly.
std::runtime_error Getopt::mistake(std::string_view word) const {
    constexpr const char* kUnknown = translatable("unknown option '-%s'");
    constexpr const char* kNeedsArgument = translatable("option '-%s' requires an argument.");
    const CommandOption* const known = optopt == 0 ? nullptr : optionOf(optopt);
    if (optopt == 0 || (known != nullptr && word.starts_with("--") && known->value == nullptr)) {
        return usageError(kUnknown, std::string(word.substr(1)));
    }
    if (known != nullptr && word.starts_with("--")) {
        return usageError(kNeedsArgument, "-" + std::string(known->name));
    }
    return usageError(known != nullptr ? kNeedsArgument : kUnknown,
                      std::string(1, static_cast<char>(optopt)));
}

std::string formsOf(const CommandOption& known) {
    const bool hasBoth = known.letter != 0 && known.name != nullptr;
    std::string forms = known.letter != 0 ? "-" + std::string(1, known.letter) : "";
    forms += (hasBoth ? ", " : "") + (known.name != nullptr ? "--" + std::string(known.name) : "");
    if (known.value != nullptr) {
        forms += (known.name != nullptr ? "=" : " ") + std::string(::gettext(known.value));
    }
    return forms;
}

}  // namespace

ParsedLine parseCommandLine(int argc, char** argv, const std::vector<CommandOption>& options,
                            OptionPlace place) {
    ParsedLine line;
    const std::vector<CommandOption> all = withCommonOptions(options, line.action);
    const Getopt reader(all, place);
    while (const CommandOption* const used = reader.next(argc, argv)) {
        used->take(optarg);
        if (line.action != Action::Work) {
            return line;
        }
    }
    line.operands.assign(argv + optind, argv + argc);
    return line;
}

std::string helpText(const HelpText& help, const std::vector<CommandOption>& options) {
    constexpr std::size_t kUsualWidth = 22;
    constexpr std::size_t kGap = 2;
    std::string text =
        std::string(::gettext("Usage:")) + " " + help.program + " [" + ::gettext("options") + "]" +
        (help.operands == nullptr ? "" : " " + std::string(::gettext(help.operands))) + "\n\n" +
        ::gettext(help.purpose) + "\n\n" + ::gettext("Options:") + "\n";
    Action unused = Action::Work;
    const std::vector<CommandOption> all = withCommonOptions(options, unused);
    std::size_t width = kUsualWidth;
    for (const CommandOption& known : all) {
        width = std::max(width, textWidth(formsOf(known)) + kGap);
    }
    for (const CommandOption& known : all) {
        const std::string forms = formsOf(known);
        text += "  " + forms + std::string(width - textWidth(forms), ' ') +
                ::gettext(known.description) + "\n";
    }
    return text;
}

int answer(Action action, const std::string& help) {
    printWhole(action == Action::Help ? help : std::string(kVersionLine) + "\n");
    return EXIT_SUCCESS;
}

std::runtime_error usageError(const char* message, const std::string& detail) {
    std::string text = ::gettext(message);
    StringUtil::replaceAll("%s", detail, text);
    return std::runtime_error(StringUtil::escapeControls(text));
}
