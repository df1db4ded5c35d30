// Parses words as the program's command line and keeps the output.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "../util/captured.h"
#include "cli/options.h"
#include "util/settings.h"

/// The settings point into the words, so both must live equally long.
class CommandLine {
public:
    explicit CommandLine(std::vector<std::string> wordsAfterName, std::string name = "kivctl")
        : words(std::move(wordsAfterName)) {
        words.insert(words.begin(), std::move(name));
        for (std::string& word : words) {
            vector.push_back(word.data());
        }
        vector.push_back(nullptr);
        settings() = Settings();
        Captured standardOutput(STDOUT_FILENO);
        Captured standardError(STDERR_FILENO);
        code = parseArguments(static_cast<int>(words.size()), vector.data());
        output = standardOutput.text();
        errorOutput = standardError.text();
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine() { settings() = Settings(); }

    int code = 0;
    std::string output;
    std::string errorOutput;

private:
    std::vector<std::string> words;
    std::vector<char*> vector;
};
