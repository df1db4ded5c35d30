// A short undo step that runs when a scope is left. Persistent host state is not undone with it.
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

    /// The scope went well: leaves the action out.
    void dismiss() { armed = false; }

private:
    Action action;
    bool armed = true;
};
