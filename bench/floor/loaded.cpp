// Linked to a floor: what every run of kivctl loads and reads before its first line, the container
// library and the locale.
#include <kiv.h>

#include <clocale>

namespace {

/// The linker leaves a library out that nothing is taken from.
[[maybe_unused]] const auto volatile needed = &kiv_set_log_cb;

[[maybe_unused]] const char* const locale = std::setlocale(LC_ALL, "");

}  // namespace
