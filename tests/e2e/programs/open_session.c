// A program that opens a PAM session for a user, like login programs, and becomes the user in it.
//   open_session [-a] [-i] [-p] [-r] [-s] SERVICE USER [COMMAND [ARGUMENT…]]
//     -a  asks for the account first
//     -i  continues although the session was not opened, like OpenSSH
//     -p  stops itself when the session is open
//     -r  stays root
//     -s  prints what the session has changed in the program itself
// Prints the messages to the user, and the functions' results except success. Exits with 3 when it
// was refused, with 4 when it could not become the user.
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <locale.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum { DESCRIPTORS = 64 };

struct state {
    mode_t mask;
    char locale[256];
    void (*handlers[NSIG])(int);
    int flags[NSIG];
    sigset_t blocked;
    bool open[DESCRIPTORS];
    char** environment;
    char* name;  // of the entry that the program looked up
    uid_t uid;
};

static int said(int count, const struct pam_message** messages, struct pam_response** responses, void* data) {
    (void)data;
    *responses = calloc((size_t)count, sizeof(**responses));
    for (int i = 0; i < count; ++i) {
        printf("%s: %s\n", messages[i]->msg_style == PAM_ERROR_MSG ? "error" : "other", messages[i]->msg);
    }
    return *responses == NULL ? PAM_BUF_ERR : PAM_SUCCESS;
}

static void take_state(struct state* state, const struct passwd* entry) {
    memset(state, 0, sizeof(*state));
    state->mask = umask(0);
    umask(state->mask);
    snprintf(state->locale, sizeof(state->locale), "%s", setlocale(LC_ALL, NULL));
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action = {0};
        sigaction(signal, NULL, &action);
        state->handlers[signal] = action.sa_handler;
        state->flags[signal] = action.sa_flags;
    }
    sigprocmask(SIG_BLOCK, NULL, &state->blocked);
    for (int descriptor = 0; descriptor < DESCRIPTORS; ++descriptor) {
        state->open[descriptor] = fcntl(descriptor, F_GETFD) >= 0;
    }
    state->environment = environ;
    state->name = entry->pw_name;
    state->uid = entry->pw_uid;
}

static void compare(const struct state* before, const struct state* after) {
    const struct {
        const char* what;
        bool same;
    } parts[] = {
        {"umask", before->mask == after->mask},
        {"locale", strcmp(before->locale, after->locale) == 0},
        {"signal handlers", memcmp(before->handlers, after->handlers, sizeof(before->handlers)) == 0},
        {"signal flags", memcmp(before->flags, after->flags, sizeof(before->flags)) == 0},
        {"signal mask", memcmp(&before->blocked, &after->blocked, sizeof(before->blocked)) == 0},
        {"descriptors", memcmp(before->open, after->open, sizeof(before->open)) == 0},
        {"environment", before->environment == after->environment},
        {"password entry", before->name == after->name && before->uid == after->uid},
    };
    for (size_t i = 0; i < sizeof(parts) / sizeof(*parts); ++i) {
        if (!parts[i].same) {
            printf("changed: %s\n", parts[i].what);
        }
    }
    puts("compared");
}

static void handle(int signal) { (void)signal; }

static bool call(const char* what, int result, pam_handle_t* pam) {
    if (result != PAM_SUCCESS) {
        printf("%s: %s\n", what, pam_strerror(pam, result));
    }
    return result == PAM_SUCCESS;
}

static void become(const struct passwd* entry) {
    if (setgid(entry->pw_gid) != 0 || initgroups(entry->pw_name, entry->pw_gid) != 0 || setuid(entry->pw_uid) != 0) {
        printf("cannot become the user: %s\n", strerror(errno));
        exit(4);
    }
}

int main(int argc, char** argv) {
    bool account = false;
    bool ignore = false;
    bool pause = false;
    bool root = false;
    bool show = false;
    for (int option; (option = getopt(argc, argv, "+aiprs")) != -1;) {
        account |= option == 'a';
        ignore |= option == 'i';
        pause |= option == 'p';
        root |= option == 'r';
        show |= option == 's';
    }
    setvbuf(stdout, NULL, _IONBF, 0);
    signal(SIGUSR1, handle);
    signal(SIGCHLD, handle);
    umask(027);
    const char* user = argv[optind + 1];
    static struct passwd entry;
    const struct passwd* found = getpwnam(user);
    if (found != NULL) {
        entry = *found;  // points to the texts of the C library's own entry
    }
    struct state before;
    struct state after;
    pam_handle_t* pam = NULL;
    const struct pam_conv conversation = {said, NULL};
    if (!call("start", pam_start(argv[optind], user, &conversation, &pam), pam)) {
        return 3;
    }
    take_state(&before, &entry);
    if (account && !call("account", pam_acct_mgmt(pam, 0), pam)) {
        pam_end(pam, PAM_PERM_DENIED);
        return 3;
    }
    const bool opened = call("session", pam_open_session(pam, 0), pam);
    if (show) {
        take_state(&after, &entry);
        after.uid = found != NULL ? found->pw_uid : entry.pw_uid;
        compare(&before, &after);
    }
    if (!opened && !ignore) {
        pam_end(pam, PAM_SESSION_ERR);
        return 3;
    }
    if (pause) {
        raise(SIGSTOP);
    }
    if (found != NULL && !root) {
        become(&entry);
    }
    if (argv[optind + 2] != NULL) {
        execvp(argv[optind + 2], argv + optind + 2);
        printf("%s: %s\n", argv[optind + 2], strerror(errno));
        return 5;
    }
    call("close", pam_close_session(pam, 0), pam);
    return pam_end(pam, PAM_SUCCESS) == PAM_SUCCESS ? 0 : 6;
}
