// What the programs beside kivctl say about their command line, and about one that they do not
// understand.
#pragma once

#include <getopt.h>

#include <stdexcept>
#include <string>

/// `message` is a text of the catalogue; "%s" in its translation stands for `detail`.
std::runtime_error usageError(const char* message, const std::string& detail = "");

/// Names the option for which getopt_long(3) has just returned '?', with these tables and opterr 0.
std::runtime_error optionError(char** argv, const char* shortOptions, const option* longOptions);

/// One line of the help text on standard output.
void printOption(const char* usage, const char* description);
