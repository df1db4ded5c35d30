// Lines in the system log about who entered which container.
#pragma once

#include <ctime>
#include <string>

#include "util/file_descriptor.h"

/// A connection to the host's log, which stays the host's when the process has joined a container.
/// Not syslog(3): that waits for a log that does not read, and connects again to whatever has the
/// log's name inside. Where there is no log, or it does not read, lines are lost: no entry waits or
/// fails for it.
class EntryLog {
public:
    /// Notes who asks, by login user id and terminal, and for what: "command=…", say. The lines are
    /// those of `program`.
    EntryLog(std::string program, const std::string& userName, const std::string& what,
             const std::string& path = "/dev/log");

    /// Moves the connection to this descriptor, for whoever closes the others. Without a connection
    /// the descriptor is closed.
    void moveTo(int place);

    /// The account is entered: authpriv.info.
    void entered() const;

    /// authpriv.warning; also after `entered`, when a later step fails.
    void refused(const std::string& reason) const;

private:
    void write(int priority, const std::string& text) const;

    std::string programName;
    FileDescriptor socket;
    std::string description;
};

/// What the log takes, see RFC 3164: priority, time, `program` with the process id, and `text` with
/// control characters escaped. At most 1 KiB; what would be longer is cut.
std::string logDatagram(int priority, const std::string& program, const std::string& text,
                        std::time_t now);
