#include "util/runtime_directory.h"

const std::string runtimeDirectory = "/run/kiv";

std::string unfinishedAttribute(const std::string& userName) {
    return "trusted.kiv.unfinished." + userName;
}
