// Makes the given system calls and prints the answer to each.
//
//   system_call ABI NAME ARGUMENT…     one call; prints the answer
//   system_call ABI <LIST              one call per line; prints each line with the answer after it
//
// ABI is native, i386 (int $0x80 from this 64-bit program) or x32 (the native instruction with
// numbers of x32). An argument is a number or @TEXT, the text's address. The answer is 0 for
// success, the error's name, the name of the signal that ended the call's process, or "absent" for
// a call that the ABI does not have.
#include <errno.h>
#include <seccomp.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cmake/new_system_calls.h"

enum { kMostArguments = 6, kTextSize = 4096, kMostCalls = 1000, kX32Bit = 0x40000000 };

// as the architectures in numberOf
enum abi { kNative, kI386, kX32, kUnknown };

struct call {
    int number;
    uint64_t arguments[kMostArguments];
};

static enum abi parseAbi(const char* name) {
    if (strcmp(name, "native") == 0) {
        return kNative;
    }
#ifdef __x86_64__
    if (strcmp(name, "i386") == 0) {
        return kI386;
    }
    if (strcmp(name, "x32") == 0) {
        return kX32;
    }
#endif
    return kUnknown;
}

static int numberOf(enum abi abi, const char* name) {
    const uint32_t architectures[] = {SCMP_ARCH_NATIVE, SCMP_ARCH_X86, SCMP_ARCH_X32};
    const uint32_t architecture = architectures[abi];
    const int begin = abi == kX32 ? kX32Bit : 0;
    for (size_t i = 0; i < sizeof(kNewSystemCalls) / sizeof(kNewSystemCalls[0]); ++i) {
        if (strcmp(kNewSystemCalls[i].name, name) == 0) {
            return (int)kNewSystemCalls[i].number | begin;
        }
    }
    // by name libseccomp returns a substitute for a call that shares a number with others, even if
    // the call also has its own number
    for (int number = begin; number < begin + kMostCalls; ++number) {
        char* known = seccomp_syscall_resolve_num_arch(architecture, number);
        const int same = known != NULL && strcmp(known, name) == 0;
        free(known);
        if (same) {
            return number;
        }
    }
    return seccomp_syscall_resolve_name_arch(architecture, name);
}

// Memory that 32-bit arguments can address.
static char* lowMemory(void) {
    int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#ifdef MAP_32BIT
    flags |= MAP_32BIT;
#endif
    char* memory = mmap(NULL, kMostArguments * kTextSize, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (memory == MAP_FAILED) {
        perror("mmap");
        exit(70);
    }
    return memory;
}

static long enter(enum abi abi, const struct call* call) {
    const uint64_t* a = call->arguments;
#ifdef __x86_64__
    if (abi == kI386) {
        long result;
        register uint64_t fifth __asm__("rdi") = a[4];
        // no test needs the sixth argument, in ebp
        __asm__ volatile("int $0x80"
                         : "=a"(result)
                         : "a"((long)call->number), "b"(a[0]), "c"(a[1]), "d"(a[2]), "S"(a[3]),
                           "r"(fifth)
                         : "memory", "r8", "r9", "r10", "r11");
        // the kernel's answer has 32 bits
        const int answer = (int)result;
        errno = answer < 0 && answer > -4096 ? -answer : 0;
        return errno != 0 ? -1 : answer;
    }
#endif
    (void)abi;
    return syscall(call->number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

// In a separate process, which the filter may end.
static void answer(enum abi abi, const struct call* call) {
    if (call->number < 0) {
        puts("absent");
        return;
    }
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        _exit(enter(abi, call) == -1 ? errno : 0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        perror("fork");
        exit(70);
    }
    if (WIFSIGNALED(status)) {
        printf("SIG%s\n", sigabbrev_np(WTERMSIG(status)));
    } else {
        puts(WEXITSTATUS(status) == 0 ? "0" : strerrorname_np(WEXITSTATUS(status)));
    }
}

static struct call parse(enum abi abi, char** words, int count, char* texts) {
    struct call call = {numberOf(abi, words[0]), {0}};
    for (int i = 1; i < count && i <= kMostArguments; ++i) {
        uint64_t value = strtoull(words[i], NULL, 0);
        if (words[i][0] == '@') {
            char* text = texts + (i - 1) * kTextSize;
            snprintf(text, kTextSize, "%s", words[i] + 1);
            value = (uintptr_t)text;
        }
        call.arguments[i - 1] = value;
    }
    return call;
}

static void answerList(enum abi abi, char* texts) {
    char line[256];
    while (fgets(line, sizeof(line), stdin) != NULL) {
        char* words[kMostArguments + 1];
        int count = 0;
        line[strcspn(line, "\n")] = '\0';
        printf("%s ", line);
        for (char* word = strtok(line, " "); word != NULL && count <= kMostArguments;
             word = strtok(NULL, " ")) {
            words[count++] = word;
        }
        if (count > 0) {
            const struct call call = parse(abi, words, count, texts);
            answer(abi, &call);
        }
    }
}

int main(int argc, char** argv) {
    const enum abi abi = argc > 1 ? parseAbi(argv[1]) : kUnknown;
    if (abi == kUnknown) {
        fputs("usage: system_call native|i386|x32 [NAME ARGUMENT…]\n", stderr);
        return 64;
    }
    char* texts = lowMemory();
    if (argc == 2) {
        answerList(abi, texts);
    } else {
        const struct call call = parse(abi, argv + 2, argc - 2, texts);
        answer(abi, &call);
    }
    return 0;
}
