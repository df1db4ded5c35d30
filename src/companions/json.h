// The JSON that the companions write, with nlohmann/json. Its stream functions are not used: they
// would initialise the C++ library's locales at every start.
#pragma once

#define JSON_NO_IO 1
#include <nlohmann/json.hpp>
#include <string>

/// Keeps the keys in the order in which they were added.
using Json = nlohmann::ordered_json;

/// The value as indented text with a newline at its end. Bytes that are not UTF-8 become U+FFFD.
inline std::string textOf(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
