#include "companions/run/terminal_link.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "util/errors.h"

namespace {

using Descriptors = std::array<int, 2>;

constexpr const char* kFailure = "cannot hand the terminal over: ";

/// A message of one byte that carries two descriptors, SCM_RIGHTS in unix(7).
class Message {
public:
    Message() {
        header.msg_iov = &data;
        header.msg_iovlen = 1;
        header.msg_control = space.data();
        header.msg_controllen = space.size();
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    msghdr* get() { return &header; }

    void put(const Descriptors& descriptors) {
        cmsghdr* const item = CMSG_FIRSTHDR(&header);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(sizeof(Descriptors));
        std::memcpy(CMSG_DATA(item), descriptors.data(), sizeof(Descriptors));
    }

    /// The descriptors; nothing unless both have arrived.
    std::optional<Descriptors> take() const {
        const cmsghdr* const item = CMSG_FIRSTHDR(&header);
        if (item == nullptr || item->cmsg_type != SCM_RIGHTS ||
            item->cmsg_len != CMSG_LEN(sizeof(Descriptors))) {
            return std::nullopt;
        }
        Descriptors descriptors{};
        std::memcpy(descriptors.data(), CMSG_DATA(item), sizeof(Descriptors));
        return descriptors;
    }

private:
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(Descriptors))> space{};
    msghdr header{};
};

}  // namespace

TerminalLink::TerminalLink(int place) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw systemError("socketpair() failed: ");
    }
    parentEnd.reset(ends[0]);
    childEnd.reset(ends[1]);
    if (parentEnd.get() == place) {
        parentEnd.reset(::fcntl(ends[0], F_DUPFD_CLOEXEC, place + 1));
    }
    if (childEnd.get() != place) {
        childEnd.reset(::dup3(childEnd.get(), place, O_CLOEXEC));
    }
    if (!parentEnd.valid() || !childEnd.valid()) {
        throw systemError("socketpair() failed: ");
    }
}

void sendTerminal(const FileDescriptor& childEnd, const TerminalEnds& ends) {
    Message message;
    message.put({ends.master.get(), ends.terminal.get()});
    if (::sendmsg(childEnd.get(), message.get(), MSG_NOSIGNAL) != 1) {
        throw systemError(kFailure);
    }
}

std::optional<TerminalEnds> receiveTerminal(const FileDescriptor& parentEnd) {
    Message message;
    const ssize_t received = ::recvmsg(parentEnd.get(), message.get(), MSG_CMSG_CLOEXEC);
    if (received < 0) {
        throw systemError(kFailure);
    }
    if (received == 0) {
        return std::nullopt;
    }
    const auto descriptors = message.take();
    if (!descriptors) {
        throw systemError(kFailure, EMFILE);  // the kernel omits descriptors beyond the limit
    }
    return TerminalEnds{FileDescriptor((*descriptors)[0]), FileDescriptor((*descriptors)[1])};
}
