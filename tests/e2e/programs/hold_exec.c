// Preloaded into kivctl or kiv-run: stops the process at one point of entering, HOLD_AT, until it
// is continued.
//   inside     in the container's namespaces, still root with all capabilities
//   account    with the account's user and group, before it executes the shell or command
//   traceable  the same, after it has been opened to tracing: what the other is to be told from
#include <dlfcn.h>
#include <signal.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>

static char point[16];

// before main, which empties the environment
__attribute__((constructor)) static void readPoint(void) {
    const char* value = getenv("HOLD_AT");
    if (value != NULL) {
        strncpy(point, value, sizeof(point) - 1);
    }
}

// the original function of that name
static void* next(const char* name) {
    return dlsym(RTLD_NEXT, name);
}

int kiv_capabilities(void* handle) {
    int (*real)(void*) = next("kiv_capabilities");
    if (strcmp(point, "inside") == 0) {
        raise(SIGSTOP);
    }
    return real(handle);
}

// Only once: a command is searched in several directories.
static void stopBeforeExecuting(void) {
    const bool isTraceable = strcmp(point, "traceable") == 0;
    if (isTraceable) {
        prctl(PR_SET_DUMPABLE, 1);
    }
    if (isTraceable || strcmp(point, "account") == 0) {
        point[0] = '\0';
        raise(SIGSTOP);
    }
}

// used by exec
int execv(const char* path, char* const arguments[]) {
    int (*real)(const char*, char* const*) = next("execv");
    stopBeforeExecuting();
    return real(path, arguments);
}

// used by kiv-run
int execve(const char* path, char* const arguments[], char* const environment[]) {
    int (*real)(const char*, char* const*, char* const*) = next("execve");
    stopBeforeExecuting();
    return real(path, arguments, environment);
}
