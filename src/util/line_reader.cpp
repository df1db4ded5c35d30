#include "util/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

LineReader::LineReader(const std::string& path, std::size_t blockSize)
    : LineReader(AT_FDCWD, path) {
    block = std::min(blockSize, kLargestBlock);
}

LineReader::LineReader(int directory, const std::string& path)
    : file(::openat(directory, path.c_str(), O_RDONLY | O_CLOEXEC)) {}

bool LineReader::next(std::string& line) {
    std::string_view text;
    const bool found = next(text);
    line = text;
    return found;
}

bool LineReader::next(std::string_view& line) {
    whole.clear();
    bool started = false;
    while (!pending.empty() || refill()) {
        const auto end = pending.find('\n');
        const std::string_view piece = pending.substr(0, end);
        pending.remove_prefix(std::min(piece.size() + 1, pending.size()));
        if (end != std::string_view::npos && !started) {
            line = piece;
            return true;
        }
        whole.append(piece);
        line = whole;
        if (end != std::string_view::npos) {
            return true;
        }
        started = true;
    }
    return started && failure == 0;
}

/// False at the end of the file, and when it cannot be read.
bool LineReader::refill() {
    ssize_t length = -1;
    do {
        length = ::read(file.get(), buffer.data(), block);
    } while (length == -1 && errno == EINTR);
    if (length == -1) {
        failure = errno;
        return false;
    }
    pending = {buffer.data(), static_cast<std::size_t>(length)};
    return length > 0;
}
