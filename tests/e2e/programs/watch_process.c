// Tries to access another process like a debugger, and prints each method with its answer.
//
//   watch_process PID
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

static void tell(const char* way, int failed) {
    printf("%s %s\n", way, failed ? strerrorname_np(errno) : "0");
}

static void tryFile(pid_t pid, const char* name, int flags) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/%s", pid, name);
    const int file = open(path, flags | O_CLOEXEC);
    tell(name, file == -1);
    if (file != -1) {
        close(file);
    }
}

static void tryTracing(pid_t pid) {
    int failed = ptrace(PTRACE_SEIZE, pid, NULL, NULL) != 0;
    tell("PTRACE_SEIZE", failed);
    if (failed) {
        tell("PTRACE_ATTACH", ptrace(PTRACE_ATTACH, pid, NULL, NULL) != 0);
    }
}

static void tryMemory(pid_t pid) {
    char here = 0;
    const struct iovec local = {&here, sizeof(here)};
    // nothing is mapped there; a process that may access the memory gets that error
    const struct iovec remote = {(void*)(uintptr_t)1, sizeof(here)};
    tell("process_vm_readv", process_vm_readv(pid, &local, 1, &remote, 1, 0) == -1);
    tell("process_vm_writev", process_vm_writev(pid, &local, 1, &remote, 1, 0) == -1);
}

static void tryDescriptors(pid_t pid) {
    const int process = (int)syscall(SYS_pidfd_open, pid, 0);
    tell("pidfd_open", process == -1);
    tell("pidfd_getfd", syscall(SYS_pidfd_getfd, process, 0, 0) == -1);
    if (process != -1) {
        close(process);
    }
}

int main(int argc, char** argv) {
    const pid_t pid = argc > 1 ? atoi(argv[1]) : 0;
    if (pid <= 0) {
        fputs("usage: watch_process PID\n", stderr);
        return 64;
    }
    tryFile(pid, "mem", O_RDONLY);
    tryFile(pid, "environ", O_RDONLY);
    tryFile(pid, "maps", O_RDONLY);
    tryFile(pid, "fd/0", O_RDONLY | O_NONBLOCK);
    tryFile(pid, "root", O_PATH);
    tryFile(pid, "cwd", O_PATH);
    tryFile(pid, "exe", O_RDONLY);
    tryFile(pid, "ns/mnt", O_RDONLY);
    tryMemory(pid);
    tryDescriptors(pid);
    tryTracing(pid);
    return 0;
}
