// list_system_calls [ARCHITECTURE]: writes the names of all system calls that libseccomp knows, and
// their numbers on an architecture's tables, as C++ for system_calls.cpp. ARCHITECTURE is a name of
// libseccomp's, such as aarch64; without it that for which this program was built. Runs when the
// project is built.
#include <seccomp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "new_system_calls.h"

namespace {

using Numbers = std::map<std::string, std::uint32_t>;

constexpr const char* kArchitectures[] = {
    "x86",      "x86_64",    "x32",         "arm",         "aarch64",  "mips", "mipsel", "mips64",
    "mipsel64", "mips64n32", "mipsel64n32", "parisc",      "parisc64", "ppc",  "ppc64",  "ppc64le",
    "s390",     "s390x",     "riscv64",     "loongarch64", "m68k",     "sh",   "sheb"};

/// Where numbers begin: nearly everywhere; on mips, one for each way to call; on x32; on arm, of
/// its own calls.
constexpr std::uint32_t kBegins[] = {0, 4000, 5000, 6000, 0x40000000, 0x0f0000};
constexpr std::uint32_t kMost = 1000;  // no table has as many

constexpr std::uint32_t kX32Bit = 0x40000000;

/// The tables of a machine: its own and those of other programs that it runs.
struct Table {
    const char* name;
    std::uint32_t native;
    std::uint32_t architecture;
};
constexpr Table kOtherTables[] = {
    {"i386", SCMP_ARCH_X86_64, SCMP_ARCH_X86},
    {"x32", SCMP_ARCH_X86_64, SCMP_ARCH_X32},
    {"arm", SCMP_ARCH_AARCH64, SCMP_ARCH_ARM},
};

/// By number, because by name libseccomp gives a substitute for a call that shares a number with
/// others, even where the call has a number of its own as well.
Numbers numbersOf(std::uint32_t architecture) {
    Numbers numbers;
    for (const std::uint32_t begin : kBegins) {
        const bool isX32 = architecture == SCMP_ARCH_X32;
        if (isX32 != (begin == kX32Bit)) {
            continue;
        }
        for (std::uint32_t number = begin; number < begin + kMost; ++number) {
            char* name = seccomp_syscall_resolve_num_arch(architecture, static_cast<int>(number));
            if (name != nullptr) {
                numbers.emplace(name, number);
                std::free(name);
            }
        }
    }
    for (const NewSystemCall& call : kNewSystemCalls) {
        numbers.emplace(call.name,
                        architecture == SCMP_ARCH_X32 ? call.number | kX32Bit : call.number);
    }
    return numbers;
}

/// Nothing for a call that the table does not have.
std::optional<std::uint32_t> numberOf(const std::string& name, const Numbers& table,
                                      std::uint32_t architecture) {
    if (const auto known = table.find(name); known != table.end()) {
        return known->second;
    }
    // a second name for the same number
    const int number = seccomp_syscall_resolve_name_arch(architecture, name.c_str());
    return number < 0 ? std::nullopt : std::optional(static_cast<std::uint32_t>(number));
}

Numbers namesOfAll() {
    Numbers names;
    for (const char* architecture : kArchitectures) {
        if (const std::uint32_t known = seccomp_arch_resolve_name(architecture)) {
            names.merge(numbersOf(known));
        }
    }
    return names;
}

void list(std::uint32_t native) {
    std::vector<Table> tables = {{"", native, native}};
    for (const Table& table : kOtherTables) {
        if (table.native == native) {
            tables.push_back(table);
        }
    }
    std::vector<Numbers> numbers;
    std::printf("constexpr SystemCallTable kTables[] = {\n");
    for (const Table& table : tables) {
        std::printf("    {\"%s\", 0x%x},\n", table.name, table.architecture);
        numbers.push_back(numbersOf(table.architecture));
    }
    std::printf("};\n\nconstexpr SystemCall kSystemCalls[] = {\n");
    for (const auto& [name, ignored] : namesOfAll()) {
        std::printf("    {\"%s\", {", name.c_str());
        for (std::size_t i = 0; i < tables.size(); ++i) {
            const auto number = numberOf(name, numbers[i], tables[i].architecture);
            std::printf(number ? "0x%x, " : "kNoNumber, ", number.value_or(0));
        }
        std::printf("}},\n");
    }
    std::printf("};\n");
}

}  // namespace

int main(int argc, char** argv) {
    const std::uint32_t architecture =
        argc > 1 ? seccomp_arch_resolve_name(argv[1]) : seccomp_arch_native();
    if (architecture == 0) {
        std::fprintf(stderr, "list_system_calls: libseccomp does not know '%s'\n", argv[1]);
        return 1;
    }
    list(architecture);
    return std::fflush(stdout) == 0 ? 0 : 1;
}
