// Parses the command line into a command and the process-wide settings.
#pragma once

enum Command : int {
    UsageError = 1,  ///< the message has been printed
    Help = 2,
    Version = 3,
    Start = 4,
    Stop = 5,
    Status = 6,
    Exec = 7,
};

/// Fills util/settings.h, which then points into `argv`, and returns the command. Prints every
/// usage error itself; never throws. May be called again with another vector.
int parseArguments(int argc, char** argv);

/// Writes the help text to standard output, without logo and copyright line.
void printHelp();
