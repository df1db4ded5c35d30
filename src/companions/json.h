// The JSON that the companions write, by nlohmann/json without its streams: those would bring the
// C++ library's locales along.
#pragma once

#define JSON_NO_IO 1
#include <nlohmann/json.hpp>
#include <string>

/// Keys stay in the order in which they are written.
using Json = nlohmann::ordered_json;

/// With a newline at its end. Bytes that are not UTF-8 become U+FFFD.
inline std::string textOf(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
