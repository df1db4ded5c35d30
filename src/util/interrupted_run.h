// The mark of a start, stop or refresh that is under way: an extended attribute of the runtime
// directory for each account, "trusted.kiv.unfinished.USER". Whoever holds the account's lock and
// finds the mark knows that the run which set it was killed.
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
// A start whose ip(8) could not move the interface pair's other end goes on without a network, and
// the pair stays on the host. It is marked too, as "trusted.kiv.unfinished.USER@pair", which only
// start and stop look for: they remove the pair. A third one, "trusted.kiv.unfinished.@host", says
// that the source-NAT rule is still to be added, see container/host_preparation.cpp. The text of
// these two is empty.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "util/file_descriptor.h"
#include "util/runtime_directory.h"

/// What an interrupted run may have left half-made.
struct InterruptedRun {
    int kinds = 0;  ///< the unshare(2) flags of the namespaces that it was creating or removing
    /// All of `kinds` are pinned, and only the view was being built: the child may clear the mark.
    /// Without it the parent has died before it had pinned all, which releases the child too.
    bool pinned = false;

    bool operator==(const InterruptedRun&) const = default;
};

/// The mark's text: the names of the kinds, and "pinned". Words that are not known count as none:
/// earlier versions wrote an empty text for a stop that had only rules left to remove.
std::string textOf(const InterruptedRun& run);
InterruptedRun parseInterruptedRun(std::string_view text);

/// True when the set-up child whose view is complete may clear what is marked now.
bool mayClear(const std::optional<InterruptedRun>& marked);

/// What a stop leaves marked. `found` is the mark that it met, `stillPinned` the kinds whose files
/// could not be unmounted: of these a marked one must not be taken for finished by the next start.
std::optional<InterruptedRun> afterStop(const std::optional<InterruptedRun>& found, int stillPinned,
                                        bool rulesMayBeLeft);

/// The mark of one account. Keeps the runtime directory open, which reaches the mark when the
/// set-up child has no path to it any more.
class RunMark {
public:
    /// The mark of an account's run. Without a runtime directory nothing is marked. Throws
    /// std::runtime_error, the text beginning with the path, when the directory is there and cannot
    /// be opened.
    explicit RunMark(const std::string& userName, const std::string& path = runtimeDirectory);
    /// The mark of an account's interface pair of which both ends are on the host. It has no kinds.
    static RunMark ofLeftPair(const std::string& userName,
                              const std::string& path = runtimeDirectory);
    /// The mark of a host whose source-NAT rule is being added. It has no kinds.
    static RunMark ofHost(const std::string& path = runtimeDirectory);

    /// Throws std::runtime_error, the text beginning with the path, when it cannot be read.
    std::optional<InterruptedRun> read() const;

    /// False, with errno set, when it cannot be marked. True where the file system or the caller's
    /// user namespace has no such attributes, or the user name is too long for one: the mark is a
    /// safeguard, and no reason to refuse what works without it.
    [[nodiscard]] bool write(const InterruptedRun& run) const;

    void clear() const;

private:
    std::string directoryPath;
    std::string attribute;
    FileDescriptor directory;  ///< last: the constructor reads errno of the call that opens it
};
