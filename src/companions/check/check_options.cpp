#include "companions/check/check_options.h"

#include <getopt.h>
#include <libintl.h>

#include "companions/command_line.h"
#include "util/output.h"

namespace {

// Codes of options that have no short form, outside the characters.
constexpr int kHost = 256;
constexpr int kJson = 257;
constexpr int kStrict = 258;

constexpr const char* kShortOptions = "c:hqr:v";

constexpr option kLongOptions[] = {
    {"config", required_argument, nullptr, 'c'},
    {"help", no_argument, nullptr, 'h'},
    {"host", no_argument, nullptr, kHost},
    {"json", no_argument, nullptr, kJson},
    {"quiet", no_argument, nullptr, 'q'},
    {"registry", required_argument, nullptr, 'r'},
    {"strict", no_argument, nullptr, kStrict},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

void take(CheckRequest& request, int code, char** argv) {
    switch (code) {
        case 'c':
            request.configuration = optarg;
            break;
        case 'h':
            request.action = CheckAction::Help;
            break;
        case kHost:
            request.host = true;
            break;
        case kJson:
            request.json = true;
            break;
        case 'q':
            request.quiet = true;
            break;
        case 'r':
            request.registry = optarg;
            break;
        case kStrict:
            request.strict = true;
            break;
        case 'v':
            request.action = CheckAction::Version;
            break;
        default:
            throw optionError(argv, kShortOptions, kLongOptions);
    }
}

}  // namespace

CheckRequest parseCheckOptions(int argc, char** argv) {
    CheckRequest request;
    opterr = 0;
    optind = 0;  // getopt(3): starts from scratch, also after another vector
    for (;;) {
        const int code = ::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        if (code == -1) {
            break;
        }
        take(request, code, argv);
        if (request.action != CheckAction::Check) {
            return request;
        }
    }
    if (optind < argc) {
        throw usageError("too many arguments");
    }
    return request;
}

void printCheckHelp() {
    print(std::string(::gettext("Usage:")) + " kiv-check [" + ::gettext("options") + "]\n\n");
    print(std::string(
              ::gettext("Check the configuration, the registry and, with --host, the host.")) +
          "\n\n");
    print(std::string(::gettext("Options:")) + "\n");
    printOption("-c, --config FILE", ::gettext("check this configuration"));
    printOption("-r, --registry FILE", ::gettext("check this registry"));
    printOption("--host", ::gettext("check the host and the running containers too"));
    printOption("--strict", ::gettext("let notes count as warnings do"));
    printOption("-q, --quiet", ::gettext("show no notes"));
    printOption("--json", ::gettext("write JSON, for programs"));
    printOption("-h, --help", ::gettext("show this help"));
    printOption("-v, --version", ::gettext("show program version"));
}
