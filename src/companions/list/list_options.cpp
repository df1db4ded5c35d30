#include "companions/list/list_options.h"

#include "util/translatable.h"

namespace {

std::vector<CommandOption> optionsFor(ListRequest& request) {
    return {
        {0, "json", nullptr, translatable("print JSON, for programs"),
         [&request](const char*) { request.json = true; }},
    };
}

}  // namespace

ListRequest parseListOptions(int argc, char** argv) {
    ListRequest request;
    const ParsedLine line =
        parseCommandLine(argc, argv, optionsFor(request), OptionPlace::Anywhere);
    request.action = line.action;
    request.users.assign(line.operands.begin(), line.operands.end());
    return request;
}

std::string listHelp() {
    ListRequest unused;
    return helpText({"kiv-list", translatable("[USER...]"),
                     translatable("List account containers and their state.")},
                    optionsFor(unused));
}
