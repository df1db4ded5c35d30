#include "util/runtime_directory.h"

const std::string runtimeDirectory = "/run/kiv";
