// A short undo step that runs when a scope is left. Not for persistent host state, which no
// destructor may release.
#pragma once

#include <utility>

template <typename Action>
class ScopeGuard {
public:
    explicit ScopeGuard(Action undo) : action(std::move(undo)) {}
    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;
    ~ScopeGuard() {
        if (armed) {
            action();
        }
    }

    /// Call on success: the action does not run.
    void dismiss() { armed = false; }

private:
    Action action;
    bool armed = true;
};
