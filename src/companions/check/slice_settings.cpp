#include "companions/check/slice_settings.h"

#include <cerrno>
#include <iterator>
#include <utility>
#include <vector>

#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/line_reader.h"
#include "util/string_util.h"

namespace {

// systemd.unit(5): of files with the same name, the one in the first of these folders counts.
// systemctl set-property writes to the first two.
constexpr const char* kUnitFolders[] = {
    "/etc/systemd/system.control", "/run/systemd/system.control",   "/etc/systemd/system",
    "/run/systemd/system",         "/usr/local/lib/systemd/system", "/usr/lib/systemd/system"};

constexpr const char* kUnitOfAll = "user-.slice";  // applies to every slice whose name begins so

void read(const std::string& path, SliceSettings& settings) {
    LineReader file(path);
    std::string line;
    for (unsigned long number = 1; file.next(line); ++number) {
        StringUtil::trim(line, kWhiteSpace);
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || line.starts_with('#') || line.starts_with(';')) {
            continue;
        }
        std::string name = line.substr(0, equals);
        std::string value = line.substr(equals + 1);
        StringUtil::trim(name, kWhiteSpace);
        StringUtil::trim(value, kWhiteSpace);
        settings[name] = {value, path, number};
    }
}

/// Empty where the directory is missing.
std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    const DirectoryStream stream(::opendir(directory.c_str()));
    if (stream != nullptr) {
        while (const dirent* entry = nextEntry(stream)) {
            names.emplace_back(entry->d_name);
        }
    }
    if (errno != 0 && errno != ENOENT) {
        throw systemError("cannot read directory ", directory, ": ");
    }
    return names;
}

template <typename Files>
SliceSettings readAll(const Files& files) {
    SliceSettings settings;
    for (const auto& [name, file] : files) {
        read(file.path, settings);
    }
    return settings;
}

}  // namespace

SliceDropIns::SliceDropIns(std::string root)
    : prefix(std::move(root)), ofAll(dropInsOf(kUnitOfAll)), settingsOfAll(readAll(ofAll)) {}

SliceDropIns::DropIns SliceDropIns::dropInsOf(const std::string& unit) const {
    DropIns found;
    for (std::size_t folder = 0; folder < std::size(kUnitFolders); ++folder) {
        const std::string directory = prefix + kUnitFolders[folder] + "/" + unit + ".d";
        for (const std::string& name : namesIn(directory)) {
            if (name.ends_with(".conf")) {
                found.emplace(name, DropIn{folder, directory + "/" + name});
            }
        }
    }
    return found;
}

/// The drop-ins of both units form one list, sorted by name. Of two with the same name the earlier
/// folder wins, and within one folder the slice's own unit.
SliceSettings SliceDropIns::settingsOf(uid_t uid) const {
    const DropIns own = dropInsOf("user-" + std::to_string(uid) + ".slice");
    if (own.empty()) {
        return settingsOfAll;
    }
    DropIns both = ofAll;
    for (const auto& [name, file] : own) {
        const auto [place, isNew] = both.emplace(name, file);
        if (!isNew && file.folder <= place->second.folder) {
            place->second = file;
        }
    }
    return readAll(both);
}
