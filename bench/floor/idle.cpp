// idle COUNT: starts that many processes that do nothing until this one ends. Prints "ready" when
// they exist.
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

int main(int /*argc*/, char** argv) {
    for (int left = std::atoi(argv[1]); left > 0; --left) {
        if (::fork() == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::pause();
            return 0;
        }
    }
    if (::write(STDOUT_FILENO, "ready\n", 6) != 6) {
        return 1;
    }
    ::pause();
    return 0;
}
