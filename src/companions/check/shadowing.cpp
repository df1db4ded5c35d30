#include "companions/check/shadowing.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "fs/layer_paths.h"

// The rules follow from fs/overlay_layer.cpp: a later step or item meets the result of an earlier
// one. A directory that already exists in the layer, because something below it was hidden before,
// is neither hidden nor emptied. Nothing can be created below a whiteout. A bind mount covers the
// layer.

namespace {

/// Compares items. Each may select several paths, but a pair of items is reported only once.
class Judge {
public:
    explicit Judge(const FindingsOf& target) : findings(target) {}

    /// Both have the same path, and `one` is applied before `other`.
    void same(const PlacedItem& one, const PlacedItem& other);

    /// The path of `inner` is below that of `outer`.
    void below(const PlacedItem& outer, const PlacedItem& inner);

private:
    using Add = void (FindingsOf::*)(unsigned long, std::string) const;

    void add(Add severity, const PlacedItem& item, const char* text, const PlacedItem& because);

    const FindingsOf& findings;
    std::set<std::pair<unsigned long, unsigned long>> said;
};

bool isBefore(const PlacedItem& one, const PlacedItem& other) {
    return std::pair(one.step, one.line) < std::pair(other.step, other.line);
}

void Judge::add(Add severity, const PlacedItem& item, const char* text, const PlacedItem& because) {
    if (said.emplace(item.line, because.line).second) {
        (findings.*severity)(item.line, "'" + item.path + "' " + text + ", see line " +
                                            std::to_string(because.line));
    }
}

void Judge::same(const PlacedItem& one, const PlacedItem& other) {
    if (one.step == other.step) {
        add(&FindingsOf::warn, other, "is listed twice: delete one of the two lines", one);
    } else if (other.step == Step::Hide) {
        add(&FindingsOf::error, other, "is not hidden: there is an allowlist of it", one);
    } else if (one.step == Step::Allowlist && other.step == Step::Empty) {
        add(&FindingsOf::error, other, "is not emptied: there is an allowlist of it", one);
    } else if (one.step == Step::Hide && other.step == Step::Empty) {
        add(&FindingsOf::warn, one, "is not hidden but empty: it is listed under both", other);
    } else if (one.step == Step::Hide) {
        add(&FindingsOf::warn, other, "is not bound: it is hidden", one);
    } else {
        add(&FindingsOf::warn, one, "has no effect: the path is bound", other);
    }
}

void Judge::below(const PlacedItem& outer, const PlacedItem& inner) {
    const bool isFirst = isBefore(inner, outer);
    switch (outer.step) {
        case Step::Hide:
            if (isFirst) {
                add(&FindingsOf::error, outer,
                    "is not hidden: an item below it comes first, delete that one", inner);
            } else if (inner.step == Step::Hide) {
                add(&FindingsOf::note, inner, "is hidden already", outer);
            } else {
                add(&FindingsOf::warn, inner, "has no effect: a directory above it is hidden",
                    outer);
            }
            break;
        case Step::Empty:
            if (isFirst) {
                add(&FindingsOf::error, outer,
                    "is not emptied: an item below it comes first, delete that one", inner);
            }
            break;
        case Step::Bind:
            if (inner.step != Step::Bind) {
                add(&FindingsOf::error, inner, "has no effect: a directory above it is bound",
                    outer);
            } else if (isFirst) {
                add(&FindingsOf::warn, inner,
                    "is covered: bind the directory above it first, or alone", outer);
            }
            break;
        case Step::Allowlist: {
            const std::string name = componentsOf(inner.path.substr(outer.path.size())).front();
            if (inner.step == Step::Bind &&
                std::find(outer.names.begin(), outer.names.end(), name) == outer.names.end()) {
                add(&FindingsOf::warn, inner, "is not bound: the allowlist above it lacks it",
                    outer);
            }
            break;
        }
    }
}

}  // namespace

void checkShadowing(const std::vector<PlacedItem>& items, const FindingsOf& findings) {
    std::map<std::string, std::vector<const PlacedItem*>> byPath;
    for (const PlacedItem& item : items) {
        byPath[item.path].push_back(&item);
    }
    Judge judge(findings);
    for (const PlacedItem& item : items) {
        for (const PlacedItem* other : byPath[item.path]) {
            if (isBefore(item, *other)) {
                judge.same(item, *other);
            }
        }
        for (std::string above = parentOf(item.path); above != "/"; above = parentOf(above)) {
            const auto found = byPath.find(above);
            if (found == byPath.end()) {
                continue;
            }
            for (const PlacedItem* outer : found->second) {
                judge.below(*outer, item);
            }
        }
    }
}
