// How much regcomp(3) would make of an expression. The C library has no limit of its own worth the
// name: "((((a{255}){255}){255}){255})" takes all memory, 20,000 parentheses take all of the stack.
#pragma once

#include <string_view>

/// True when regcomp(3) compiles the extended expression, or refuses it, with at most a quarter of
/// a gigabyte and in a second or so: groups are at most 255 deep, repetitions of repetitions four.
/// Takes linear time itself.
bool isModestExpression(std::string_view pattern);
