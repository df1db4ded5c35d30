// The program that cmake/write_default_filter.cpp writes during the build.
#include "libkiv/filter_program.h"

namespace {

constexpr sock_filter kDefaultProgram[] = {
#include "written/default_filter.inc"
};

}  // namespace

std::span<const sock_filter> defaultFilterProgram() {
    return kDefaultProgram;
}
