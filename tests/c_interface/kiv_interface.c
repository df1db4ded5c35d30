/* The container library as seen by a C program: the header, the SONAME, the six calls. It drops all
 * privileges before a call, so each call fails at its first step and changes nothing. */
#include <grp.h>
#include <kiv.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

enum { kAccount = 65534, kTextSize = 4096 };

static int messages;
static void* givenHandle;
static int givenPriority;
static char text[kTextSize];
static int failures;

static void takeMessage(void* handle, int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    givenHandle = handle;
    givenPriority = priority;
    ++messages;
}

static void expect(int holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "%s (last message: \"%s\", %d in all)\n", what, text, messages);
        ++failures;
    }
}

static int begins(const char* beginning) {
    return strncmp(text, beginning, strlen(beginning)) == 0;
}

static int leavePrivileges(void) {
    if (geteuid() != 0) {
        return 0;
    }
    return setgroups(0, NULL) != 0 || setgid(kAccount) != 0 || setuid(kAccount) != 0;
}

/* Every call that must fail does, says why once, and hands the handle on. */
static void expectMessages(void) {
    int handle = 0;
    const char* noUser = "'' is no user name";
    kiv_set_log_cb(takeMessage);

    expect(kiv_apply_namespaces(&handle, NULL, 0) == -1 && strcmp(text, noUser) == 0, "no user");
    expect(messages == 1, "one message for one failure");
    expect(givenHandle == &handle, "the handle is handed on");
    expect(givenPriority == LOG_ERR, "the priority of an error");

    expect(kiv_apply_namespaces(&handle, "", 0) == -1 && strcmp(text, noUser) == 0, "empty user");
    expect(kiv_apply_namespaces(&handle, "a@b", 0) == -1 && begins("'a@b' is no"), "bad user");
    expect(kiv_apply_namespaces(&handle, "%s%n", 0) == -1 && begins("/run/kiv/%s%n@net: "),
           "a percent sign is text");
    expect(kiv_apply_namespaces(&handle, "nobody", 1) == -1 && strcmp(text, "unknown flags 1") == 0,
           "flags 1");
    expect(kiv_apply_namespaces(NULL, "nobody", -1) == -1 && strcmp(text, "unknown flags -1") == 0,
           "flags -1");
    expect(givenHandle == NULL, "no handle is handed on as well");

    expect(kiv_cg_enter(&handle, kAccount) == -1 && begins("/sys/fs/cgroup"), "cgroup");
    expect(messages == 7, "seven messages for seven failures");
}

/* A host's own configuration may be there: what is wrong with it is said twice, or not at all. */
static void expectPolicySteps(void) {
    int handle = 0;
    const int loaded = kiv_load_config(&handle);
    expect(loaded == 0 || (loaded == -1 && begins("/etc/tarnwell/kiv.conf: ")), "configuration");
    expect(kiv_seccomp(&handle) == -1, "the filter fails");
    expect(begins(loaded == 0 ? "system-call filter: " : "/etc/tarnwell/kiv.conf: "), "filter");
    expect(kiv_capabilities(&handle) == -1, "the capabilities fail");
    expect(begins(loaded == 0 ? "cannot drop a capability" : "/etc/tarnwell/kiv.conf: "),
           "capabilities");
}

static void expectSilence(void) {
    messages = 0;
    kiv_set_log_cb(NULL);
    expect(kiv_apply_namespaces(NULL, NULL, 0) == -1, "a failure without a callback");
    expect(messages == 0, "silence without a callback");
}

int main(void) {
    if (leavePrivileges()) {
        perror("cannot leave root");
        return 1;
    }
    expect(kiv_apply_namespaces(NULL, NULL, 0) == -1, "a failure before any callback is set");
    expect(messages == 0, "silence before any callback is set");
    expectMessages();
    expectPolicySteps();
    expectSilence();
    return failures == 0 ? 0 : 1;
}
