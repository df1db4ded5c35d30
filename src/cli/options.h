// Turns the argument vector into a command and the process-wide settings.
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

/// Fills util/settings.h and returns the command. Prints every usage error itself; never throws.
/// May be called again with another vector.
int parseArguments(int argc, char** argv);

/// Writes the help text on standard output, without logo and copyright line.
void printHelp();
