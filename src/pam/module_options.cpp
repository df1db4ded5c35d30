#include "pam/module_options.h"

#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view kRegistry = "registry=";
constexpr std::string_view kStart = "stopped=start";
constexpr std::string_view kRefuse = "stopped=refuse";

}  // namespace

ModuleOptions parseModuleOptions(int count, const char* const* words) {
    ModuleOptions options;
    for (int i = 0; i < count; ++i) {
        const std::string_view word = words[i];
        if (word.starts_with(kRegistry)) {
            options.registry = word.substr(kRegistry.size());
            // a relative path would depend on the program's working directory
            if (!options.registry.starts_with('/')) {
                throw std::runtime_error("option registry= needs the path of a file");
            }
        } else if (word == kStart || word == kRefuse) {
            options.startStopped = word == kStart;
        } else {
            throw std::runtime_error("unknown option '" + std::string(word) + "'");
        }
    }
    return options;
}
