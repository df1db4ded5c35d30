#include "container/entry_log.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <string_view>
#include <utility>

#include "util/line_reader.h"
#include "util/string_util.h"

namespace {

constexpr std::size_t kLongestDatagram = 1024;
constexpr std::size_t kLongestReason = 512;  // bytes; leaves room for the account and the command
constexpr const char* kCut = "...";
constexpr const char* kUnknown = "none";
constexpr const char* kNoLoginUid = "4294967295";  // -1: no login has set one

/// In English whatever the locale: programs that read logs parse it.
std::string timestamp(std::time_t now) {
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    struct tm local {};
    ::localtime_r(&now, &local);
    return StringUtil::sprintf("%s %2d %02d:%02d:%02d", kMonths[local.tm_mon], local.tm_mday,
                               local.tm_hour, local.tm_min, local.tm_sec);
}

unsigned byteOf(char byte) {
    return static_cast<unsigned char>(byte);
}

/// True for the second and the following bytes of a character in UTF-8.
bool isContinuation(char byte) {
    return (byteOf(byte) & 0xC0U) == 0x80U;
}

/// False for surrogates, for numbers that Unicode never assigns, and above its last number.
bool isCharacter(unsigned number) {
    const bool isSurrogate = number >= 0xD800U && number <= 0xDFFFU;
    const bool isNeverAssigned =
        (number >= 0xFDD0U && number <= 0xFDEFU) || (number & 0xFFFEU) == 0xFFFEU;
    return number <= 0x10FFFFU && !isSurrogate && !isNeverAssigned;
}

/// The length in bytes of the character in UTF-8 at the beginning of `text`, or 0 when there is
/// none. `text` must not be empty.
std::size_t characterLength(std::string_view text) {
    struct Encoding {
        std::size_t length;
        unsigned mask;  // of the first byte's mark, see utf-8(7)
        unsigned mark;
        unsigned smallest;  // number that needs so many bytes
    };
    static constexpr std::array<Encoding, 4> kEncodings = {
        {{1, 0x80, 0, 0}, {2, 0xE0, 0xC0, 0x80}, {3, 0xF0, 0xE0, 0x800}, {4, 0xF8, 0xF0, 0x10000}}};
    const unsigned first = byteOf(text.front());
    for (const Encoding& encoding : kEncodings) {
        if ((first & encoding.mask) != encoding.mark || text.size() < encoding.length) {
            continue;
        }
        const std::string_view following = text.substr(1, encoding.length - 1);
        unsigned number = first & ~encoding.mask;
        for (const char byte : following) {
            number = number << 6U | (byteOf(byte) & 0x3FU);
        }
        const bool isWhole = std::all_of(following.begin(), following.end(), isContinuation);
        return isWhole && number >= encoding.smallest && isCharacter(number) ? encoding.length : 0;
    }
    return 0;
}

/// `text` with control characters, and bytes that are not UTF-8, as "\xHH". journalctl(1) shows
/// nothing of a message that has others.
std::string readable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        result += length == 0 ? StringUtil::hexEscape(text.front(), "\\x")
                              : StringUtil::escapeControls(text.substr(0, length));
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

/// Never cuts inside a character of several bytes.
void cut(std::string& text, std::size_t size) {
    if (text.size() <= size) {
        return;
    }
    size -= std::string_view(kCut).size();
    while (size > 0 && isContinuation(text[size])) {
        --size;
    }
    text.resize(size);
    text += kCut;
}

std::string loginUid() {
    LineReader file("/proc/self/loginuid");
    std::string line;
    return file.opened() && file.next(line) && line != kNoLoginUid ? line : kUnknown;
}

std::string terminal() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        std::array<char, PATH_MAX> name{};
        if (::ttyname_r(descriptor, name.data(), name.size()) == 0) {
            return name.data();
        }
    }
    return kUnknown;
}

}  // namespace

EntryLog::EntryLog(std::string program, const std::string& userName, const std::string& what,
                   const std::string& path)
    : programName(std::move(program)),
      socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      description("loginuid=" + loginUid() + " terminal=" + terminal() + " account=" + userName +
                  " " + what) {
    ::tzset();  // reads the host's time zone now: later it would open a file of the container
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (socket.valid() && ::connect(socket.get(), generic, sizeof(address)) != 0) {
        socket.reset();
    }
}

void EntryLog::moveTo(int place) {
    if (socket.get() == place) {
        return;
    }
    if (!socket.valid() || ::dup3(socket.get(), place, O_CLOEXEC) != place) {
        ::close(place);  // else the caller's file there would pass for the log
        socket.reset();
        return;
    }
    socket.reset(place);
}

void EntryLog::entered() const {
    write(LOG_INFO, "entered: " + description);
}

void EntryLog::refused(const std::string& reason) const {
    std::string shown = readable(reason);
    cut(shown, kLongestReason);
    write(LOG_WARNING, "refused (" + shown + "): " + description);
}

void EntryLog::write(int priority, const std::string& text) const {
    const std::string datagram =
        logDatagram(LOG_AUTHPRIV | priority, programName, text, std::time(nullptr));
    // not send(2): the container's system-call filter may deny it by now
    [[maybe_unused]] const auto ignored = ::write(socket.get(), datagram.data(), datagram.size());
}

std::string logDatagram(int priority, const std::string& program, const std::string& text,
                        std::time_t now) {
    std::string datagram = StringUtil::sprintf("<%d>%s %s[%d]: ", priority, timestamp(now).c_str(),
                                               program.c_str(), static_cast<int>(::getpid()));
    datagram += readable(text);
    cut(datagram, kLongestDatagram);
    return datagram;
}
