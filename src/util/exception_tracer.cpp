#include "util/exception_tracer.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>

#include "util/errors.h"

namespace {

std::string demangled(const char* name) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    return text == nullptr ? name : text.get();
}

/// ": " and the text of the exception in flight, if it is one with a text.
std::string currentText() {
    try {
        throw;
    } catch (const std::exception& error) {
        return std::string(": ") + error.what();
    } catch (...) {
        return "";
    }
}

[[noreturn]] void reportUncaught() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        report("terminated without an exception");
    } else {
        report("uncaught exception " + demangled(type->name()) + currentText());
    }
    std::array<void*, 64> frames{};
    const int count = ::backtrace(frames.data(), static_cast<int>(frames.size()));
    ::backtrace_symbols_fd(frames.data(), count, STDERR_FILENO);
    std::abort();
}

}  // namespace

void ExceptionTracer::enable() {
    std::set_terminate(reportUncaught);
}
