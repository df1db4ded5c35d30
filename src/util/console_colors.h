// Colours of status words. The values are chosen in src/cli, the only folder that knows escape
// sequences; they are declared here because lower folders print them.
#pragma once

/// A terminal's control sequence when standard output is a terminal, else empty. Decided once
/// before main runs; print them unconditionally.
extern const char* const colorGreen;
extern const char* const colorRed;
extern const char* const colorReset;
