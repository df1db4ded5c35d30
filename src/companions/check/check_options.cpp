#include "companions/check/check_options.h"

#include "util/translatable.h"

namespace {

std::vector<CommandOption> optionsFor(CheckRequest& request) {
    return {
        {'c', "config", translatable("FILE"), translatable("check configuration file FILE"),
         [&request](const char* value) { request.configuration = value; }},
        {'r', "registry", translatable("FILE"), translatable("check registry file FILE"),
         [&request](const char* value) { request.registry = value; }},
        {0, "host", nullptr, translatable("also check the host and the running containers"),
         [&request](const char*) { request.host = true; }},
        {0, "strict", nullptr, translatable("count notes as warnings"),
         [&request](const char*) { request.strict = true; }},
        {'q', "quiet", nullptr, translatable("do not show notes"),
         [&request](const char*) { request.quiet = true; }},
        {0, "json", nullptr, translatable("print JSON, for programs"),
         [&request](const char*) { request.json = true; }},
    };
}

}  // namespace

CheckRequest parseCheckOptions(int argc, char** argv) {
    CheckRequest request;
    const ParsedLine line =
        parseCommandLine(argc, argv, optionsFor(request), OptionPlace::Anywhere);
    request.action = line.action;
    if (!line.operands.empty()) {
        throw usageError("too many arguments");
    }
    return request;
}

std::string checkHelp() {
    CheckRequest unused;
    return helpText(
        {"kiv-check", nullptr,
         translatable("Check the configuration, the registry and, with --host, the host.")},
        optionsFor(unused));
}
