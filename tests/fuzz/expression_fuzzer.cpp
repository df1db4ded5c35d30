// Expressions of filters. What is looked for here is time and memory, by libFuzzer's own limits.
// They are compiled and not matched: only the built-in ones are ever matched.
#include <stdexcept>

#include "input.h"
#include "util/reg_ex.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string pattern = Input(data, size).all();
    try {
        const RegEx expression(pattern, 0);
        demand(pattern.find('\0') == std::string::npos, "no NUL byte in an expression");
    } catch (const std::runtime_error& error) {
        demand(*error.what() != '\0', "a reason");
    }
    return 0;
}
