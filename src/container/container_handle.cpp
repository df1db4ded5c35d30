#include "container/container_handle.h"

#include <libintl.h>

#include <stdexcept>
#include <utility>

#include "util/base64.h"
#include "util/hash.h"
#include "util/runtime_directory.h"
#include "util/user_slice.h"
#include "util/util.h"

namespace {

// An interface name has at most 15 characters (IFNAMSIZ). Deliberate: "veth-" and 10 characters
// fit, "vpeer-" and 10 do not, and such an account gets no network; existing hosts already use
// short names of both lengths.
constexpr std::size_t kLongestPlainName = 10;
constexpr std::size_t kHashedNameLength = 9;

}  // namespace

std::string shortNameOf(const std::string& userName) {
    if (userName.size() <= kLongestPlainName) {
        return userName;
    }
    const auto digest = Hash::hash(userName, Hash::Sha256);
    return Base64::encode(digest, /*urlSafe=*/true, 0).substr(0, kHashedNameLength);
}

ContainerHandle::ContainerHandle(std::string name) : userName(std::move(name)) {
    const auto refuse = [this](const char* reason) {
        return std::runtime_error(userName + ": " + ::gettext(reason));
    };
    if (userName.find('@') != std::string::npos) {
        throw refuse("invalid character '@' in user name");
    }
    try {
        uid = Util::getpwnam(userName).uid;
    } catch (const std::runtime_error& failure) {
        throw refuse(failure.what());
    }
    if (uid == 0) {
        throw refuse("cannot create container for uid 0");
    }
}

const std::string& ContainerHandle::getShortName() {
    if (shortName.empty()) {
        shortName = shortNameOf(userName);
    }
    return shortName;
}

std::string ContainerHandle::getCgroupPath() const {
    return std::string(kCgroupRoot) + "/" + userSlice(uid);
}

std::string ContainerHandle::getNamespacePrefix() const {
    return namespaceFile(userName, "");
}
