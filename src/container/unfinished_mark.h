// The mark of a start or stop that is under way: an extended attribute of the runtime directory,
// one for each account. Who finds it while holding the lock knows that the run that made it was
// killed.
#pragma once

#include <string>

#include "util/file_descriptor.h"

/// `runtime` is the lock's descriptor, which reaches the directory when the set-up child's view has
/// none any more. Without it, or without attributes on the file system, nothing is marked and
/// nothing found: the mark is a safeguard, and no reason to refuse what works without it.
class UnfinishedMark {
public:
    UnfinishedMark(const FileDescriptor& runtime, const std::string& userName);

    bool isSet() const;
    /// True when the killed run was making a namespace of that kind.
    bool names(const std::string& kind) const;
    /// `kinds` are the namespaces that are being made, none when some are removed.
    void set(const std::string& kinds) const;
    void clear() const;

private:
    const FileDescriptor& runtime;
    std::string attribute;
};
