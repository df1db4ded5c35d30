// The text of an exception, for the expectations of tests.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

/// The text of the std::runtime_error that `action` throws; "" when it does not throw.
inline std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}
