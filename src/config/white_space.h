// The characters that both configuration files trim from the ends of their lines.
#pragma once

inline constexpr const char* kWhiteSpace = " \t\n\f\r\v";
