#include "util/settings.h"

Settings& settings() {
    static Settings values;
    return values;
}

const char* configFile() {
    return settings().configFile;
}

const char* programName() {
    return settings().programName;
}

const char* userName() {
    return settings().userName;
}

int debugMode() {
    return settings().debugMode;
}
