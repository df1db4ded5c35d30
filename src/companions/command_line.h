// The command line of the programs beside kivctl. Each program has one table of its options for
// both the parser and the help text. Errors are in the caller's language.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

/// What the caller wants the program to do.
enum class Action { Work, Help, Version };

/// One option. The texts are untranslated texts of the message catalogue.
struct CommandOption {
    char letter;              ///< of the short form; 0 when there is none
    const char* name;         ///< of the long form, without dashes; null when there is none
    const char* value;        ///< what the help text calls the value; null when it takes none
    const char* description;  ///< for the help text
    /// Called for each use, in order. `value` points into the vector, and is null when the option
    /// takes none. May throw usageError.
    std::function<void(const char* value)> take;
};

enum class OptionPlace {
    Anywhere,       ///< also between and after the operands; "--" ends the options
    BeforeOperands  ///< words after the first operand belong to another program
};

struct ParsedLine {
    Action action = Action::Work;
    std::vector<char*> operands;  ///< not owned, point into argv; no null at the end
};

/// Parses the vector. Stops at the first option for help or version, which every program has in
/// addition to its table. Throws usageError for an option that is not understood. May be called
/// again with another vector.
ParsedLine parseCommandLine(int argc, char** argv, const std::vector<CommandOption>& options,
                            OptionPlace place);

struct HelpText {
    const char* program;
    const char* operands;  ///< a text of the catalogue; null when there are none
    const char* purpose;   ///< a text of the catalogue
};

/// The text for `--help`, in the caller's language.
std::string helpText(const HelpText& help, const std::vector<CommandOption>& options);

/// Writes the help text or the version, whichever the action asks for, to standard output. Returns
/// EXIT_SUCCESS. Throws std::runtime_error when it cannot write all of it.
int answer(Action action, const std::string& help);

/// The exception for an error in the command line. `message` is a text of the catalogue; `detail`
/// replaces "%s" in its translation.
std::runtime_error usageError(const char* message, const std::string& detail = "");
