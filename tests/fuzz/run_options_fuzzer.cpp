// The argument vector of kiv-run: the input's pieces between NUL bytes; the first one is argv[0].
#include <algorithm>
#include <stdexcept>
#include <vector>

#include "companions/run/run_options.h"
#include "input.h"

namespace {

using Vector = std::vector<char*>;

bool isPrintable(std::string_view text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; });
}

/// USER is one of the arguments, and the command is everything after it, without one "--".
void requireTail(const RunRequest& request, const Vector& vector) {
    const auto user = std::find(vector.begin() + 1, vector.end(), request.user);
    demand(user != vector.end(), "a user that was named");
    Vector tail(user + 1, vector.end());
    if (!tail.empty() && std::string_view(tail.front()) == "--") {
        tail.erase(tail.begin());
    }
    demand(request.command == tail, "the command is what comes behind the user");
}

void requireSound(const RunRequest& request, const Vector& vector) {
    if (request.action != Action::Work) {
        return;
    }
    requireTail(request, vector);
    demand(request.umask <= 0777, "a mask");
    demand(request.preserved <= 1U << 20, "a number of descriptors");
    for (const std::string& variable : request.variables) {
        const std::size_t equals = variable.find('=');
        demand(equals != std::string::npos && equals > 0, "a variable with a name");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    std::vector<std::string> arguments;
    do {
        arguments.push_back(input.take('\0'));
    } while (!input.empty());
    Vector vector;
    for (std::string& argument : arguments) {
        vector.push_back(argument.data());
    }
    Vector terminated = vector;
    terminated.push_back(nullptr);
    try {
        requireSound(parseRunOptions(static_cast<int>(vector.size()), terminated.data()), vector);
    } catch (const std::runtime_error& error) {
        demand(*error.what() != '\0' && isPrintable(error.what()), "one clear line");
    }
    return 0;
}
