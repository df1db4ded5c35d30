// How many columns a text takes on a terminal.
#pragma once

#include <cstddef>
#include <cwchar>
#include <string>

/// In columns, by the locale's character set, see wcwidth(3). A byte that is not part of a
/// character counts as one column.
inline std::size_t textWidth(const std::string& text) {
    std::size_t width = 0;
    std::mbstate_t state{};
    for (std::size_t i = 0; i < text.size();) {
        wchar_t character = 0;
        const std::size_t length =
            std::mbrtowc(&character, text.data() + i, text.size() - i, &state);
        if (length == 0 || length > text.size()) {
            state = {};
            ++width;
            ++i;
            continue;
        }
        const int columns = ::wcwidth(character);
        width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
        i += length;
    }
    return width;
}
