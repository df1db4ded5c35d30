// What an action throws, as a test's expectation reads it.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

/// The text of the std::runtime_error that `action` throws; "" when it throws none.
inline std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}
