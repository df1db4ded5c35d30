// The expressions of the file filters: the time to compile them, and the time per line.
#include <benchmark/benchmark.h>
#include <regex.h>

#include <string>

#include "config/file_filters.h"
#include "large_file.h"
#include "util/line_reader.h"
#include "util/reg_ex.h"
#include "util/string_util.h"

namespace {

std::string passwordFilter() {
    std::string expression = builtInFileFilters().at("/etc/passwd");
    StringUtil::replaceAll("${USER}", "u7", expression);
    return expression;
}

void filterOfAPasswordFile(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "", [](int number) {
        const std::string n = std::to_string(number);
        return "u" + n + ":x:" + n + ":" + n + ":Customer number " + n + ":/home/u" + n +
               ":/bin/bash";
    });
    const RegEx wanted(passwordFilter(), 0);
    std::string line;
    for ([[maybe_unused]] auto round : state) {
        LineReader lines(file.path());
        int matches = 0;
        while (lines.next(line)) {
            matches += wanted.match(line, 0) ? 1 : 0;
        }
        benchmark::DoNotOptimize(matches);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void linesOfAPasswordFile(benchmark::State& state) {
    const LargeFile file(static_cast<int>(state.range(0)), "", [](int number) {
        return "u" + std::to_string(number) +
               ":x:20000:20000:Customer number 20000:/home/u:/bin/bash";
    });
    std::string line;
    for ([[maybe_unused]] auto round : state) {
        LineReader lines(file.path());
        while (lines.next(line)) {
            benchmark::DoNotOptimize(line.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void compilingThePasswordFilter(benchmark::State& state) {
    const std::string expression = passwordFilter();
    for ([[maybe_unused]] auto round : state) {
        const RegEx compiled(expression, 0);
        benchmark::DoNotOptimize(&compiled);
    }
}

void compilingItWithTheLibraryAlone(benchmark::State& state) {
    const std::string expression = passwordFilter();
    for ([[maybe_unused]] auto round : state) {
        regex_t compiled;
        benchmark::DoNotOptimize(
            ::regcomp(&compiled, expression.c_str(), REG_EXTENDED | REG_NOSUB));
        ::regfree(&compiled);
    }
}

BENCHMARK(filterOfAPasswordFile)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(linesOfAPasswordFile)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(compilingThePasswordFilter);
BENCHMARK(compilingItWithTheLibraryAlone);

}  // namespace
