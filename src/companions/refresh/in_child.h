// Runs work that a process cannot undo, such as joining a namespace, in a child process.
#pragma once

#include <functional>

/// Runs `action` in a forked child and waits for its end. The child is killed when this process
/// ends. Throws std::runtime_error: the text of what `action` threw, or how the child ended.
void runInChild(const std::function<void()>& action);
