// Runs a command with a new session keyring and a key in it.
//
//   with_key FILE COMMAND [ARGUMENT…]
//
// The key is of the type "user", its name is "administrator's" and its text "secret". Its number is
// written to FILE.
#include <linux/keyctl.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

int main(int argc, char** argv) {
    static const char kText[] = "secret";
    if (argc < 3) {
        fputs("usage: with_key FILE COMMAND [ARGUMENT…]\n", stderr);
        return 64;
    }
    if (syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, NULL) == -1) {
        perror("keyctl");
        return 70;
    }
    const long key = syscall(SYS_add_key, "user", "administrator's", kText, strlen(kText),
                             KEY_SPEC_SESSION_KEYRING);
    FILE* file = fopen(argv[1], "w");
    if (key == -1 || file == NULL || fprintf(file, "%ld\n", key) < 0 || fclose(file) != 0) {
        perror("with_key");
        return 70;
    }
    execvp(argv[2], argv + 2);
    perror(argv[2]);
    return 70;
}
