#include "util/external_command.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/output.h"

namespace {

constexpr int kCannotRun = 255;
constexpr int kHeldBack = 1 << 20;  // bytes: the largest pipe without privileges, pipe(7)

/// The pipe of one captured stream; both ends invalid when the stream is not captured.
struct CapturePipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

CapturePipe openCapturePipe(const std::string* target, const char* failure) {
    if (target == nullptr) {
        return {};
    }
    // not close-on-exec: the program inherits the write end, also under its original number
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error(failure);
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Standard error is read only after standard output has ended. A tool that fills the pipe before
/// that would wait for this process, and this process for the tool. If the pipe cannot be enlarged,
/// the usual 64 KiB remain.
void makeRoomForErrors(const CapturePipe& pipe) {
    if (pipe.writeEnd.valid()) {
        ::fcntl(pipe.writeEnd.get(), F_SETPIPE_SZ, kHeldBack);
    }
}

/// After vfork(2): closing a descriptor here affects only the child; the FileDescriptor objects
/// belong to the parent.
void redirect(const CapturePipe& pipe, int stream) {
    if (pipe.writeEnd.valid()) {
        ::dup2(pipe.writeEnd.get(), stream);
        ::close(pipe.readEnd.get());
    }
}

/// Makes the kernel kill the tool when its caller is killed, or ended by Ctrl-C: the tool must not
/// change the host after the next start or stop has already repaired it.
void endWithParent(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(kCannotRun);  // it ended before the kernel was asked
    }
}

/// The child's side of vfork(2). It runs in the memory of the waiting parent and may change only
/// what the parent does not use afterwards.
[[noreturn]] void runProgram(char* const* argv, const CapturePipe& output,
                             const CapturePipe& errors, pid_t parent) {
    endWithParent(parent);
    redirect(output, STDOUT_FILENO);
    redirect(errors, STDERR_FILENO);
    // ignored signals survive an exec; the tool expects the default
    std::signal(SIGPIPE, SIG_DFL);
    ::execvp(argv[0], argv);
    // not report(): it would change the parent's stderr buffer too
    ::dprintf(STDERR_FILENO, "ERROR during execvp: %s\n", ::strerror(errno));
    // not exit(3): the exit handlers and buffers are the parent's
    ::_exit(kCannotRun);
}

/// vfork(2), because fork(2) copies page tables that the tool then discards: with it a start, which
/// runs sixteen tools, takes 7 % longer.
pid_t spawn(char* const* argv, const CapturePipe& output, const CapturePipe& errors) {
    const pid_t parent = ::getpid();
    const pid_t child = ::vfork();
    if (child == 0) {
        // NOLINTNEXTLINE(clang-analyzer-unix.Vfork): POSIX allows less than Linux, vfork(2)
        runProgram(argv, output, errors, parent);
    }
    return child;
}

void drain(CapturePipe& pipe, std::string* target) {
    if (target == nullptr) {
        return;
    }
    pipe.writeEnd.reset();
    std::array<char, 1024> buffer{};
    for (;;) {
        const ssize_t length = ::read(pipe.readEnd.get(), buffer.data(), buffer.size());
        if (length > 0) {
            target->append(buffer.data(), static_cast<std::size_t>(length));
        } else if (length == 0 || errno != EINTR) {
            break;
        }
    }
    // closed at once: a run over hundreds of containers would otherwise run out of descriptors
    pipe.readEnd.reset();
}

/// The wait status of waitpid(2); 0 when the wait fails.
int waitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return status;
}

}  // namespace

ExternalCommand::ExternalCommand(std::string programName, std::list<std::string> argumentList)
    : program(std::move(programName)), arguments(std::move(argumentList)) {}

std::int32_t ExternalCommand::execute() {
    if (executed) {
        throw std::runtime_error("command already executed");
    }
    executed = true;
    CapturePipe output = openCapturePipe(stdoutTarget, "cannot create pipe for stdout");
    CapturePipe errors = openCapturePipe(stderrTarget, "cannot create pipe for stderr");
    makeRoomForErrors(errors);

    std::vector<char*> argv = {program.data()};
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    flushOutput();  // so that it comes before the tool's output
    const pid_t child = spawn(argv.data(), output, errors);
    if (child == -1) {
        reportSystemError("fork() failed: ");
        return -1;
    }
    drain(output, stdoutTarget);
    drain(errors, stderrTarget);
    return judge(waitFor(child));
}

std::int32_t ExternalCommand::judge(int status) const {
    if (WIFEXITED(status)) {
        const int code = WEXITSTATUS(status);
        if (code != 0 && stderrTarget == nullptr) {
            report("exit code " + std::to_string(code) + ": " + commandLine());
        }
        return code;
    }
    if (WIFSIGNALED(status)) {
        report("signal " + std::to_string(WTERMSIG(status)) + ": " + commandLine());
        return -WTERMSIG(status);
    }
    return status;
}

std::string ExternalCommand::commandLine() const {
    // deliberate: the blank after the program is there without arguments too
    std::string line = program + " ";
    const char* separator = "";
    for (const std::string& argument : arguments) {
        line += separator + argument;
        separator = " ";
    }
    return line;
}
