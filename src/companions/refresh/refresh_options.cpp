#include "companions/refresh/refresh_options.h"

#include "util/translatable.h"

namespace {

std::vector<CommandOption> optionsFor(RefreshRequest& request, bool& all) {
    return {
        {'a', nullptr, nullptr,
         translatable("refresh the running containers of all configured users"),
         [&all](const char*) { all = true; }},
        {'c', "config", translatable("FILE"), translatable("use configuration file FILE"),
         [&request](const char* value) { request.configFile = value; }},
        {'d', nullptr, nullptr, translatable("print each step"),
         [&request](const char*) { request.showSteps = true; }},
        {0, "in-place", nullptr,
         translatable("build no new view: replaced files that are in use stay as they are"),
         [&request](const char*) { request.what = Refresh::InPlace; }},
    };
}

}  // namespace

RefreshRequest parseRefreshOptions(int argc, char** argv) {
    RefreshRequest request;
    bool all = false;
    const ParsedLine line =
        parseCommandLine(argc, argv, optionsFor(request, all), OptionPlace::Anywhere);
    request.action = line.action;
    if (request.action != Action::Work) {
        return request;
    }
    const std::size_t named = line.operands.size() + (all ? 1 : 0);
    if (named < 1) {
        throw usageError("missing user name (or '-a' option)");
    }
    if (named > 1) {
        throw usageError("too many arguments");
    }
    request.user = all ? nullptr : line.operands.front();
    return request;
}

std::string refreshHelp() {
    RefreshRequest unused;
    bool all = false;
    return helpText({"kiv-refresh", translatable("USER | -a"),
                     translatable("Give running containers a new view of the host.")},
                    optionsFor(unused, all));
}
