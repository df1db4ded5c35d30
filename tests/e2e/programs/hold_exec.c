// Preloaded into kivctl: stops it at one point of exec, HOLD_AT, until it is continued.
//   inside     in the container's namespaces, still root with all capabilities
//   account    with the account's user and group, before it executes the shell
//   traceable  the same, after it has been opened to tracing: what the other is to be told from
#include <dlfcn.h>
#include <signal.h>
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

// returns what goes by this name in the library that is held up
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

int execv(const char* path, char* const arguments[]) {
    int (*real)(const char*, char* const*) = next("execv");
    if (strcmp(point, "traceable") == 0) {
        prctl(PR_SET_DUMPABLE, 1);
        raise(SIGSTOP);
    }
    if (strcmp(point, "account") == 0) {
        raise(SIGSTOP);
    }
    return real(path, arguments);
}
