// write_default_filter: writes the system-call filter of the built-in rules, as the elements of an
// array for system_call_filter.cpp. Runs when the project is built.
#include <cstdio>

#include "libkiv/filter_program.h"

int main() {
    for (const sock_filter& step : filterProgram(defaultSystemCallRules())) {
        std::printf("{0x%02x, %u, %u, 0x%08x},\n", step.code, step.jt, step.jf, step.k);
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
