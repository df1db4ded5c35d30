// Work that a process cannot take back, such as joining a namespace, done by a child of its own.
#pragma once

#include <functional>

/// Runs `action` in a forked child and waits for its end. The child is killed when this process
/// ends. Throws std::runtime_error: the text of what `action` has thrown, or how the child ended.
void runInChild(const std::function<void()>& action);
