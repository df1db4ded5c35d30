// Runs a host tool as a child process and waits for it. Not a shell: arguments are a list.
#pragma once

#include <cstdint>
#include <list>
#include <string>

/// One run of one program. The program is looked up through PATH; its standard input, and what is
/// not captured of its output, are this program's own.
class ExternalCommand {
public:
    ExternalCommand(std::string programName, std::list<std::string> argumentList);

    /// Captured output is appended to the target, which the caller owns and keeps until `execute`
    /// has returned. Standard output is drained before standard error is touched: a tool that
    /// writes more than a megabyte to a captured standard error first would block, which the host
    /// tools do not.
    void setStdout(std::string* target) { stdoutTarget = target; }
    void setStderr(std::string* target) { stderrTarget = target; }

    /// The exit status (255 also when the program could not be run), minus the number of the signal
    /// that killed it, or -1 when there was no child because vfork(2) failed. Reports a failure on
    /// standard error; a non-zero exit status only when standard error is not captured, since a
    /// caller that captures it judges for itself. Throws std::runtime_error "command already
    /// executed" on a second call, and "cannot create pipe for stdout" or "… stderr".
    std::int32_t execute();

private:
    std::int32_t judge(int status) const;
    std::string commandLine() const;

    std::string program;
    std::list<std::string> arguments;
    bool executed = false;
    std::string* stdoutTarget = nullptr;
    std::string* stderrTarget = nullptr;
};
