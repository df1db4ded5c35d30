// Linked to a floor: loads what every run of kivctl loads before its first line, the container
// library and the locale.
#include <kiv.h>

#include <clocale>

namespace {

/// Uses the library, because the linker omits an unused one.
[[maybe_unused]] const auto volatile needed = &kiv_set_log_cb;

[[maybe_unused]] const char* const locale = std::setlocale(LC_ALL, "");

}  // namespace
