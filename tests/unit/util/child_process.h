// Runs a part of a test in a child process, for code that changes or ends the process.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "captured.h"

struct ChildResult {
    int status = 0;           ///< as returned by waitpid(2)
    std::string output;       ///< its standard output
    std::string errorOutput;  ///< its standard error
};

/// `body`'s result is the child's exit status.
inline ChildResult inChild(const std::function<int()>& body) {
    Captured standardOutput(STDOUT_FILENO);
    Captured standardError(STDERR_FILENO);
    const pid_t child = ::fork();
    if (child == 0) {
        const int status = body();
        ::fflush(nullptr);
        ::_exit(status);
    }
    ChildResult result;
    ::waitpid(child, &result.status, 0);
    result.output = standardOutput.text();
    result.errorOutput = standardError.text();
    return result;
}

/// The exit status, or the negated number of the signal that ended it.
inline int outcome(const ChildResult& result) {
    return WIFEXITED(result.status) ? WEXITSTATUS(result.status) : -WTERMSIG(result.status);
}
