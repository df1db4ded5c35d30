#include "companions/refresh/refresh_options.h"

#include <getopt.h>
#include <libintl.h>

#include <string>

#include "companions/command_line.h"
#include "util/output.h"

namespace {

constexpr int kInPlace = 256;  // no short form: outside the characters

constexpr const char* kShortOptions = "ac:dhv";

constexpr option kLongOptions[] = {
    {"config", required_argument, nullptr, 'c'},
    {"help", no_argument, nullptr, 'h'},
    {"in-place", no_argument, nullptr, kInPlace},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

void take(RefreshRequest& request, bool& all, int code, char** argv) {
    switch (code) {
        case 'a':
            all = true;
            break;
        case 'c':
            request.configFile = optarg;
            break;
        case 'd':
            request.showSteps = true;
            break;
        case 'h':
            request.action = RefreshAction::Help;
            break;
        case 'v':
            request.action = RefreshAction::Version;
            break;
        case kInPlace:
            request.what = Refresh::InPlace;
            break;
        default:
            throw optionError(argv, kShortOptions, kLongOptions);
    }
}

}  // namespace

RefreshRequest parseRefreshOptions(int argc, char** argv) {
    RefreshRequest request;
    bool all = false;
    opterr = 0;
    optind = 0;  // getopt(3): starts from scratch, also after another vector
    for (;;) {
        const int code = ::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        if (code == -1) {
            break;
        }
        take(request, all, code, argv);
        if (request.action != RefreshAction::Refresh) {
            return request;
        }
    }
    const int operands = argc - optind + (all ? 1 : 0);
    if (operands < 1) {
        throw usageError("missing user name (or '-a' option)");
    }
    if (operands > 1) {
        throw usageError("too many arguments");
    }
    request.user = all ? nullptr : argv[optind];
    return request;
}

void printRefreshHelp() {
    const auto line = [](const std::string& usage, const char* description) {
        std::string column = "  " + usage;
        column.resize(24, ' ');
        print(column + description + "\n");
    };
    print(std::string(::gettext("Usage:")) + " kiv-refresh [" + ::gettext("options") + "] " +
          ::gettext("USER | -a") + "\n\n");
    print(std::string(::gettext("Let running containers see what the host has replaced.")) +
          "\n\n");
    print(std::string(::gettext("Options:")) + "\n");
    line("-a", ::gettext("refresh the containers of all configured users that run"));
    line(std::string("-c, --config=") + ::gettext("FILE"),
         ::gettext("use configuration file FILE"));
    line("-d", ::gettext("print each step"));
    line("--in-place",
         ::gettext("make no new view: replaced files that are in use stay as they are"));
    line("-h, --help", ::gettext("show this help"));
    line("-v, --version", ::gettext("show program version"));
}
