// The container library, loaded when an account needs it and not before.
#pragma once

/// After this the calls of kiv.h are those of libkiv.so.1; before it they fail. Not linked like
/// other libraries: without its file the module could not be loaded, and root could not log in to
/// repair that. Throws std::runtime_error.
void loadLibrary();
