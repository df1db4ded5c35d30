#include "container/unfinished_mark.h"

#include <sys/xattr.h>

#include <array>
#include <cstddef>
#include <string_view>

#include "util/runtime_directory.h"

UnfinishedMark::UnfinishedMark(const FileDescriptor& runtimeDescriptor, const std::string& userName)
    : runtime(runtimeDescriptor), attribute(unfinishedAttribute(userName)) {}

bool UnfinishedMark::isSet() const {
    return ::fgetxattr(runtime.get(), attribute.c_str(), nullptr, 0) >= 0;
}

bool UnfinishedMark::names(const std::string& kind) const {
    std::array<char, 64> kinds{};
    const ssize_t size = ::fgetxattr(runtime.get(), attribute.c_str(), kinds.data(), kinds.size());
    return size > 0 && std::string_view(kinds.data(), static_cast<std::size_t>(size)).find(kind) !=
                           std::string_view::npos;
}

void UnfinishedMark::set(const std::string& kinds) const {
    ::fsetxattr(runtime.get(), attribute.c_str(), kinds.data(), kinds.size(), 0);
}

void UnfinishedMark::clear() const {
    ::fremovexattr(runtime.get(), attribute.c_str());
}
