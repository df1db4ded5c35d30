// The mark of a start, stop or refresh that is under way: an extended attribute of the runtime
// directory for each account, "trusted.kiv.unfinished.USER". Whoever holds the account's lock and
// still finds the mark knows that the run which set it was killed.
//
// | step                            | who          | mark afterwards                    |
// |---------------------------------|--------------|------------------------------------|
// | before start forks              | start        | the kinds that it creates          |
// | all of them are pinned          | start        | these kinds, pinned                |
// | the view is complete            | set-up child | none, if it says pinned; else kept |
// | the view failed and is covered  | set-up child | kept                               |
// | start fails with nothing wired  | start        | none                               |
// | start finds that nothing lacks  | start        | none                               |
// | before stop takes the network   | stop         | as found, else the network         |
// | stop has taken what it could    | stop         | afterStop                          |
// | a new view is to be pinned      | refresh      | the mount namespace                |
// | the earlier one cannot be freed | refresh      | none                               |
// | the new view is pinned          | refresh      | none                               |
//
// | on finding a mark | command | what it does                                               |
// |-------------------|---------|------------------------------------------------------------|
// | any               | exec    | refuses: the view may be the host's                        |
// | any               | refresh | refuses as exec does, so it never meets its own            |
// | any               | start   | unpins the marked kinds and creates them again             |
// | any               | stop    | removes everything as always                               |
// | network not held  | both    | remove the packet rules and the interface pair that the    |
// |                   |         | interrupted run left                                       |
//
// When ip(8) cannot move the container's end of the interface pair, start continues without a
// network and the pair stays on the host. It then sets a second mark,
// "trusted.kiv.unfinished.USER@pair". Only start and stop read it; they remove the pair. A third
// mark, "trusted.kiv.unfinished.@host", says that the source NAT rule is still to be added, see
// container/host_preparation.cpp. The text of these two marks is empty.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "util/file_descriptor.h"
#include "util/runtime_directory.h"

/// What an interrupted run may have left incomplete.
struct InterruptedRun {
    int kinds = 0;  ///< the unshare(2) flags of the namespaces that it was creating or removing
    /// True when all of `kinds` were pinned and only the view was still being built: the child may
    /// clear the mark. False when the parent died before it had pinned all of them, which also
    /// releases the child.
    bool pinned = false;

    bool operator==(const InterruptedRun&) const = default;
};

/// The mark's text: the names of the kinds, and "pinned". The parser ignores unknown words and
/// accepts an empty text: earlier versions wrote that when stop had only rules left to remove.
std::string textOf(const InterruptedRun& run);
InterruptedRun parseInterruptedRun(std::string_view text);

/// True when the set-up child, its view complete, may clear the mark.
bool mayClear(const std::optional<InterruptedRun>& marked);

/// The mark that a stop leaves; nothing for none. `found` is the mark before the stop,
/// `stillPinned` the kinds whose files could not be unmounted. A marked kind that is still pinned
/// stays marked, so that the next start does not take it for complete.
std::optional<InterruptedRun> afterStop(const std::optional<InterruptedRun>& found, int stillPinned,
                                        bool rulesMayBeLeft);

/// The mark of one account. Keeps the runtime directory open: the set-up child reaches the mark
/// through the descriptor when it has no path to the directory any more.
class RunMark {
public:
    /// The mark of an account's run. Without a runtime directory there is no mark. Throws
    /// std::runtime_error, the text beginning with the path, when the directory exists and cannot
    /// be opened.
    explicit RunMark(const std::string& userName, const std::string& path = runtimeDirectory);
    /// The mark of an account whose interface pair is still on the host with both ends. It has no
    /// kinds.
    static RunMark ofLeftPair(const std::string& userName,
                              const std::string& path = runtimeDirectory);
    /// The mark of a host whose source-NAT rule is being added. It has no kinds.
    static RunMark ofHost(const std::string& path = runtimeDirectory);

    /// The mark, if it is set. Throws std::runtime_error, the text beginning with the path, when it
    /// cannot be read.
    std::optional<InterruptedRun> read() const;

    /// Sets or replaces the mark. False, with errno set, on failure. True although nothing is set
    /// where the file system or the user namespace does not allow such attributes, or the user name
    /// is too long for one: the mark is a safeguard, and a start that works without it is not
    /// refused.
    [[nodiscard]] bool write(const InterruptedRun& run) const;

    /// Removes the mark. A mark that is not set, and a failure, are ignored.
    void clear() const;

private:
    std::string directoryPath;
    std::string attribute;
    FileDescriptor directory;  ///< last: the constructor reads errno of the call that opens it
};
