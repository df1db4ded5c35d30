// Runs a host tool as a child process and waits for it. Not a shell: arguments are a list.
#pragma once

#include <cstdint>
#include <list>
#include <string>

/// One run of one program, which is searched in PATH. It inherits standard input and the streams
/// that are not captured.
class ExternalCommand {
public:
    /// The program's name becomes argument 0; `argumentList` has the others.
    ExternalCommand(std::string programName, std::list<std::string> argumentList);

    /// Captured output is appended to the target, which the caller owns and keeps until `execute`
    /// has returned. All of standard output is read before standard error: a tool that first writes
    /// more than 1 MiB to a captured standard error would block. The host tools write less.
    void setStdout(std::string* target) { stdoutTarget = target; }
    void setStderr(std::string* target) { stderrTarget = target; }

    /// Runs the program and waits for it. Returns its exit status (255 also when it could not be
    /// executed), the negated number of the signal that killed it, or -1 when vfork(2) failed.
    /// Reports failures on standard error; a non-zero exit status only when standard error is not
    /// captured, because a caller that captures it decides itself. Throws std::runtime_error
    /// "command already executed" on a second call, and "cannot create pipe for stdout" or "…
    /// stderr".
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
