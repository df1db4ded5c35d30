// The library's names of capabilities, one per line.
#include <sys/capability.h>

#include <cctype>
#include <memory>
#include <optional>
#include <stdexcept>

#include "input.h"
#include "libkiv/capabilities.h"

namespace {

std::optional<Capability> parse(const std::string& name) {
    try {
        return parseCapability(name);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

std::string lowerCase(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

/// Searches all names, so that only an exact name is accepted.
std::optional<Capability> parseSimply(const std::string& name) {
    const std::string wanted = lowerCase(name);
    for (Capability capability = 0; capability <= CAP_LAST_CAP; ++capability) {
        const std::unique_ptr<char, int (*)(void*)> known(cap_to_name(capability), cap_free);
        if (wanted == known.get() || "cap_" + wanted == known.get()) {
            return capability;
        }
    }
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (Input input(data, size); !input.empty();) {
        const std::string name = input.take('\n');
        demand(parse(name) == parseSimply(name), "the capability of that name");
    }
    return 0;
}
