// The help screen: the help text between a logo and a copyright line.
#pragma once

/// Writes the whole screen to standard output, coloured when that is a terminal.
void printHelpScreen();
