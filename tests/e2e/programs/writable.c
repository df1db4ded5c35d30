//   writable DIRECTORY…
//
// Searches the trees without following links and prints what this process may write: directories in
// which it can create an entry (with a slash at the end) and files that open for writing. Failures
// for another reason than permissions or a read-only file system are printed with the reason.
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kOpenDirectories = 64, kPathSize = 4096 };

static int tryDirectory(const char* path) {
    char entry[kPathSize];
    snprintf(entry, sizeof(entry), "%s/.made-by-attack", path[0] == '\0' ? "." : path);
    if (mkdir(entry, 0700) != 0) {
        return errno;
    }
    rmdir(entry);
    return 0;
}

static int tryFile(const char* path) {
    const int file = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC);
    if (file == -1) {
        return errno;
    }
    close(file);
    return 0;
}

static int visit(const char* path, const struct stat* status, int kind, struct FTW* place) {
    (void)status;
    const int isDirectory = kind == FTW_D || kind == FTW_DNR;
    if (kind == FTW_SL) {
        return 0;
    }
    // relative to the parent directory, the working directory: long paths would take most of the
    // time
    const char* name = path + place->base;
    const int error = isDirectory ? tryDirectory(name) : tryFile(name);
    // ENOENT: a process has ended, or proc allows no new entries
    if (error == 0) {
        printf("%s%s\n", path, isDirectory && path[1] != '\0' ? "/" : "");
    } else if (error != EACCES && error != EROFS && error != ENOENT) {
        printf("%s: %s\n", path, strerrorname_np(error));
    }
    return 0;
}

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (nftw(argv[i], visit, kOpenDirectories, FTW_PHYS | FTW_CHDIR) != 0) {
            perror(argv[i]);
            return 70;
        }
    }
    return 0;
}
