// Runs a filter's program as the kernel does, see seccomp(2).
#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace filter_interpreter {

using Program = std::vector<sock_filter>;

inline std::uint32_t load(const seccomp_data& call, std::uint32_t offset) {
    std::uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(&call) + offset, sizeof(value));
    return value;
}

inline bool jumps(const sock_filter& step, std::uint32_t value) {
    switch (BPF_OP(step.code)) {
        case BPF_JEQ:
            return value == step.k;
        case BPF_JGE:
            return value >= step.k;
        case BPF_JGT:
            return value > step.k;
        case BPF_JSET:
            return (value & step.k) != 0;
    }
    return BPF_OP(step.code) == BPF_JA;
}

struct Run {
    std::uint32_t answer;
    std::size_t steps;  ///< instructions that were executed
};

/// The filter's answer to the call. For an invalid program the answer is 0,
/// SECCOMP_RET_KILL_THREAD, which none of our rules uses.
inline Run run(const Program& program, const seccomp_data& call) {
    std::uint32_t value = 0;
    std::size_t steps = 0;
    for (std::size_t next = 0; next < program.size(); ++next) {
        const sock_filter& step = program[next];
        ++steps;
        switch (BPF_CLASS(step.code)) {
            case BPF_LD:
                value = load(call, step.k);
                break;
            case BPF_ALU:
                value &= step.k;
                break;
            case BPF_JMP:
                next +=
                    BPF_OP(step.code) == BPF_JA ? step.k : (jumps(step, value) ? step.jt : step.jf);
                break;
            case BPF_RET:
                return {step.k, steps};
            default:
                return {0, steps};
        }
    }
    return {0, steps};
}

inline std::uint32_t answerOf(const Program& program, const seccomp_data& call) {
    return run(program, call).answer;
}

}  // namespace filter_interpreter
