// Loaded into kivctl: when one of its processes calls exit(3), appends its processor time in
// nanoseconds and its process ID to the file that KIV_OWN_TIME names. Host tools do not load it,
// because kivctl removes the variables from their environment.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

int file = -1;

// before main, which cleans the environment, and before the set-up child loses access to the file
[[gnu::constructor]] void open() {
    const char* path = std::getenv("KIV_OWN_TIME");
    file = path == nullptr ? -1 : ::open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
}

[[gnu::destructor]] void write() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    ::dprintf(file, "%lld %d\n", time.tv_sec * 1'000'000'000LL + time.tv_nsec, ::getpid());
}

}  // namespace
