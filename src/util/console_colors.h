// Colours of status words. They are defined in src/cli, the only folder that knows escape
// sequences, and declared here because lower folders print them.
#pragma once

/// A control sequence when standard output is a terminal, else empty: print it unconditionally.
/// Decided once, before main runs.
extern const char* const colorGreen;
extern const char* const colorRed;
extern const char* const colorReset;
