// The container library, loaded only when an account needs it.
#pragma once

/// Loads libkiv.so.1 with dlopen(3). Before that the functions of kiv.h fail. The module is not
/// linked with the library: if its file were missing, the module could not be loaded and root could
/// not log in to repair that. Throws std::runtime_error.
void loadLibrary();
