// What systemd has been told about the slices of accounts, in drop-ins.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>

/// The value of a setting and where it is set.
struct SliceSetting {
    std::string value;
    std::string file;
    unsigned long line = 0;
};

/// By the setting's name.
using SliceSettings = std::map<std::string, SliceSetting>;

/// Reads what is for all users once.
class SliceDropIns {
public:
    /// `root` is put before the folders of systemd.
    explicit SliceDropIns(std::string root = "");

    /// Of the user's slice. Every assignment of the files counts, whatever its section; of several
    /// the last, as in systemd.unit(5).
    SliceSettings settingsOf(uid_t uid) const;

private:
    struct DropIn {
        std::size_t folder;  ///< the place in the order of precedence
        std::string path;
    };
    using DropIns = std::map<std::string, DropIn>;  ///< by file name, which is their order

    DropIns dropInsOf(const std::string& unit) const;

    std::string prefix;
    DropIns ofAll;
    SliceSettings settingsOfAll;
};
