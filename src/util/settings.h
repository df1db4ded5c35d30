// Settings of the command line for the whole process. The option parser fills them before anything
// reads them; they are in this low folder so that every folder can read them.
#pragma once

inline constexpr const char* kDefaultConfigFile = "/etc/tarnwell/kiv.conf";

struct Settings {
    const char* configFile = kDefaultConfigFile;  ///< not owned; points into argv when -c was given
    const char* programName = nullptr;            ///< argv[0]; null until parsing starts
    const char* userName = nullptr;  ///< not owned; null means all configured accounts (-a)
    int debugMode = 0;               ///< 1 after -d: progress lines on standard output
};

/// Write access, for the option parser and for tests.
Settings& settings();

const char* configFile();
const char* programName();
const char* userName();
int debugMode();
