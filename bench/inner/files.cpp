// Reading the files whose length depends on the host.
#include <benchmark/benchmark.h>

#include <list>
#include <string>

#include "config/account_registry.h"
#include "config/configuration.h"
#include "fs/mount_table.h"
#include "large_file.h"
#include "libkiv/policy.h"

namespace {

void configurationOfManyItems(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "hide\n",
                         [](int number) { return "    /usr/bin/tool" + std::to_string(number); });
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(Configuration::read(file.path()));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void configurationOfManyFilters(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "filter\n", [](int number) {
        return "    /etc/file" + std::to_string(number) + " ^(root|daemon|${USER}):";
    });
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(Configuration::read(file.path()));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void policyOfTheSampleConfiguration(benchmark::State& state) {
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(readPolicy(KIVCTL_SAMPLE_CONFIGURATION));
    }
}

void mountTable(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "", [](int number) {
        const std::string account = "u" + std::to_string(number);
        return std::to_string(100 + number) + " 30 0:4 net:[" +
               std::to_string(4026532008 + number) + "] /run/kiv/" + account +
               "@net rw shared:7 - nsfs nsfs rw";
    });
    MountTable table;
    for ([[maybe_unused]] auto round : state) {
        readMountTable(table, "/run/kiv", file.path());
        benchmark::DoNotOptimize(table.contains("/run/kiv/u0@net"));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// Most lines of a host's mount table do not belong to kivctl.
void mountTableOfOthers(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "", [](int number) {
        return std::to_string(100 + number) + " 30 8:1 / /srv/www/site" + std::to_string(number) +
               " rw,nosuid,relatime shared:7 - ext4 /dev/sda1 rw";
    });
    MountTable table;
    for ([[maybe_unused]] auto round : state) {
        readMountTable(table, "/run/kiv", file.path());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::string registryLine(int number) {
    return "u" + std::to_string(number) + " net=100.64." + std::to_string(number / 64 % 256) + "." +
           std::to_string(number % 64 * 4) + "/30";
}

void registryOfAll(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "", registryLine);
    for ([[maybe_unused]] auto round : state) {
        std::list<AccountEntry> accounts;
        readAccounts(accounts, "", file.path().c_str());
        benchmark::DoNotOptimize(accounts);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void registryForOne(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "", registryLine);
    for ([[maybe_unused]] auto round : state) {
        std::list<AccountEntry> accounts;
        readAccounts(accounts, "u7", file.path().c_str());
        benchmark::DoNotOptimize(accounts);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(configurationOfManyItems)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(configurationOfManyFilters)->Arg(100)->Unit(benchmark::kMicrosecond);
BENCHMARK(policyOfTheSampleConfiguration)->Unit(benchmark::kMicrosecond);
BENCHMARK(mountTable)->Arg(300)->Arg(30000)->Unit(benchmark::kMicrosecond);
BENCHMARK(mountTableOfOthers)->Arg(30000)->Unit(benchmark::kMicrosecond);
BENCHMARK(registryOfAll)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(registryForOne)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace
