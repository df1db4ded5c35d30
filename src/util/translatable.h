#pragma once

/// Marks a text that the message catalogue has, where it does not stand in the call that looks it
/// up. Returns it as it is: the place that prints it translates it.
constexpr const char* translatable(const char* text) {
    return text;
}
