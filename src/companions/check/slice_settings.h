// Reads the settings of accounts' slices from systemd's drop-ins.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>

/// The value of a setting and the file that sets it.
struct SliceSetting {
    std::string value;
    std::string file;
    unsigned long line = 0;
};

/// Keyed by the setting's name.
using SliceSettings = std::map<std::string, SliceSetting>;

/// Reads the drop-ins for all users once.
class SliceDropIns {
public:
    /// `root` is a prefix for systemd's folders.
    explicit SliceDropIns(std::string root = "");

    /// The settings of the user's slice. Assignments in any section count; the last one wins, as in
    /// systemd.unit(5).
    SliceSettings settingsOf(uid_t uid) const;

private:
    struct DropIn {
        std::size_t folder;  ///< index in the order of precedence
        std::string path;
    };
    using DropIns = std::map<std::string, DropIn>;  ///< keyed by file name, which is their order

    DropIns dropInsOf(const std::string& unit) const;

    std::string prefix;
    DropIns ofAll;
    SliceSettings settingsOfAll;
};
