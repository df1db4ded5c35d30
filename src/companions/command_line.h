// The command line of the programs beside kivctl: each has a table of its options, by which the
// parser and the help text go. A mistake is reported in the caller's language.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

/// What the caller wants of a program.
enum class Action { Work, Help, Version };

/// The texts are those of the catalogue, as they are before translation.
struct CommandOption {
    char letter;              ///< of the short form; 0 when there is none
    const char* name;         ///< of the long form, without dashes; null when there is none
    const char* value;        ///< what the help text calls the value; null for an option without
    const char* description;  ///< for the help text
    /// Called for each use, in order. `value` lives as long as the vector, and is null where the
    /// option has none. May throw usageError.
    std::function<void(const char* value)> take;
};

enum class OptionPlace {
    Anywhere,       ///< between and behind the operands too; "--" ends them
    BeforeOperands  ///< what is behind the first operand belongs to another program
};

struct ParsedLine {
    Action action = Action::Work;
    std::vector<char*> operands;  ///< not owned; without an ending null
};

/// Reads the vector up to the first option for help or version, which every program has besides
/// those of its table. Throws usageError for an option that is not understood. May be called again
/// with another vector.
ParsedLine parseCommandLine(int argc, char** argv, const std::vector<CommandOption>& options,
                            OptionPlace place);

struct HelpText {
    const char* program;
    const char* operands;  ///< a text of the catalogue; null when there are none
    const char* purpose;   ///< a text of the catalogue
};

/// Writes the help text on standard output.
void printHelp(const HelpText& help, const std::vector<CommandOption>& options);

/// `message` is a text of the catalogue; "%s" in its translation stands for `detail`.
std::runtime_error usageError(const char* message, const std::string& detail = "");
