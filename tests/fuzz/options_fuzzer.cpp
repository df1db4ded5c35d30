// The argument vector: the input's pieces between NUL bytes; the first one is argv[0].
#include <vector>

#include "cli/options.h"
#include "input.h"
#include "util/settings.h"

namespace {

using Arguments = std::vector<std::string>;

Arguments argumentsOf(Input input) {
    Arguments arguments;
    do {
        arguments.push_back(input.take('\0'));
    } while (!input.empty());
    return arguments;
}

bool isOneOf(const char* text, const Arguments& arguments) {
    for (const std::string& argument : arguments) {
        if (text >= argument.c_str() && text <= argument.c_str() + argument.size()) {
            return true;
        }
    }
    return false;
}

void requireSound(int command, const Arguments& arguments) {
    demand(command >= UsageError && command <= Exec, "a command");
    const Settings& result = settings();
    demand(result.programName == arguments.front().c_str(), "the program's name");
    demand(result.configFile == std::string(kDefaultConfigFile) ||
               isOneOf(result.configFile, arguments),
           "a configuration file that was named");
    demand(result.userName == nullptr || isOneOf(result.userName, arguments),
           "an account that was named");
    if (command == Exec) {
        demand(result.userName != nullptr, "exec has an account");
    }
    const bool runs = command >= Start;
    if (runs && result.userName == nullptr) {
        demand(arguments.back() == "-a", "all accounts on demand alone");
    }
    if (runs && result.userName != nullptr) {
        demand(result.userName == arguments.back().c_str(), "the last word is the account");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Arguments arguments = argumentsOf(Input(data, size));
    std::vector<char*> vector;
    for (std::string& argument : arguments) {
        vector.push_back(argument.data());
    }
    vector.push_back(nullptr);
    settings() = Settings();
    requireSound(parseArguments(static_cast<int>(arguments.size()), vector.data()), arguments);
    return 0;
}
