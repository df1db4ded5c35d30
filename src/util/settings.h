// What the command line settles for the whole process. Filled by the option parser before anything
// else reads it; it stands here so that every folder can read it.
#pragma once

inline constexpr const char* kDefaultConfigFile = "/etc/tarnwell/kiv.conf";

struct Settings {
    const char* configFile = kDefaultConfigFile;  ///< not owned; points into argv when -c was given
    const char* programName = nullptr;            ///< argv[0]; null until parsing starts
    const char* userName = nullptr;  ///< not owned; null means all configured accounts (-a)
    int debugMode = 0;               ///< 1 after -d: progress lines on standard output
};

/// For the option parser, and for tests.
Settings& settings();

const char* configFile();
const char* programName();
const char* userName();
int debugMode();
