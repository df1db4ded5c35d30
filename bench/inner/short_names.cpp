// The computation of interface names for long account names, and exec's filter program.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "libkiv/system_call_rules.h"
#include "util/base64.h"
#include "util/hash.h"

namespace {

void sha256(benchmark::State& state) {
    const std::string data(static_cast<std::size_t>(state.range(0)), 'x');
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(Hash::hash(data, Hash::Sha256));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void base64(benchmark::State& state) {
    const std::vector<unsigned char> data(static_cast<std::size_t>(state.range(0)), 0xa5);
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(Base64::encode(data, /*urlSafe=*/true, 0));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void defaultRules(benchmark::State& state) {
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(defaultSystemCallRules());
    }
}

BENCHMARK(sha256)->Arg(16)->Arg(1 << 20);
BENCHMARK(base64)->Arg(32)->Arg(1 << 20);
BENCHMARK(defaultRules)->Unit(benchmark::kMicrosecond);

}  // namespace
