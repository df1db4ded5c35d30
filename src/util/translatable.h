#pragma once

/// Marks a text for the message catalogue where it is not an argument of gettext(3) itself. Returns
/// the text unchanged: the code that prints it translates it.
constexpr const char* translatable(const char* text) {
    return text;
}
