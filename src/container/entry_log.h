// Lines in the system log about who entered which container.
#pragma once

#include <ctime>
#include <string>

#include "util/file_descriptor.h"

/// A connection to the host's log. It still leads to the host's log after the process has joined a
/// container. Not syslog(3), which blocks when the log's reader hangs and, inside a container,
/// would reconnect to whatever is at the log's path there. Without a log, or when its reader hangs,
/// lines are lost: no entry waits or fails because of the log. Throws nothing of its own.
class EntryLog {
public:
    /// Connects, and records who enters (login user ID, /proc/self/loginuid in proc(5), and
    /// terminal) and what for, such as "command=…". The lines bear the name `program`.
    EntryLog(std::string program, const std::string& userName, const std::string& what,
             const std::string& path = "/dev/log");

    /// Moves the connection to the descriptor number `place`, for a caller that closes all others.
    /// Without a connection that descriptor is closed.
    void moveTo(int place);

    /// Logs, as authpriv.info, that the account's container was entered.
    void entered() const;

    /// Logs, as authpriv.warning, that an entry failed; also after `entered`, when a later step
    /// fails. Cuts a long reason.
    void refused(const std::string& reason) const;

private:
    void write(int priority, const std::string& text) const;

    std::string programName;
    FileDescriptor socket;
    std::string description;
};

/// A line in the format of RFC 3164: priority, time, `program` with the process ID, and `text` with
/// control characters, and bytes that are not UTF-8, escaped. Cut at 1 KiB.
std::string logDatagram(int priority, const std::string& program, const std::string& text,
                        std::time_t now);
