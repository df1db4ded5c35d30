#include "companions/list/list_options.h"

#include <getopt.h>
#include <libintl.h>

#include "companions/command_line.h"
#include "util/output.h"

namespace {

constexpr int kJson = 256;  // has no short form, so outside the characters

constexpr const char* kShortOptions = "hv";

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"json", no_argument, nullptr, kJson},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

}  // namespace

ListRequest parseListOptions(int argc, char** argv) {
    ListRequest request;
    opterr = 0;
    optind = 0;  // getopt(3): starts from scratch, also after another vector
    for (;;) {
        switch (::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) {
            case -1:
                request.users.assign(argv + optind, argv + argc);
                return request;
            case 'h':
                request.action = ListAction::Help;
                return request;
            case kJson:
                request.json = true;
                break;
            case 'v':
                request.action = ListAction::Version;
                return request;
            default:
                throw optionError(argv, kShortOptions, kLongOptions);
        }
    }
}

void printListHelp() {
    print(std::string(::gettext("Usage:")) + " kiv-list [" + ::gettext("options") + "] " +
          ::gettext("[USER...]") + "\n\n");
    print(std::string(::gettext("Show the state of the accounts' containers.")) + "\n\n");
    print(std::string(::gettext("Options:")) + "\n");
    printOption("--json", ::gettext("write JSON, for programs"));
    printOption("-h, --help", ::gettext("show this help"));
    printOption("-v, --version", ::gettext("show program version"));
}
