// A layer that a test builds from temporary trees.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <list>
#include <map>
#include <sstream>
#include <string>

#include "../util/captured.h"
#include "fs/overlay_layer.h"
#include "temporary_directory.h"
#include "util/settings.h"

/// Builds a layer in a temporary directory: lower root /lower, layer /layer. Only root can make
/// opaque directories; without root the tests expect the error.
class OverlayLayer : public testing::Test {
protected:
    OverlayLayer() : previousMask(::umask(022)) {
        settings() = Settings();
        lower.makeDirectory("/lower");
        lower.makeDirectory("/layer");
        host = lower.at("/host");
        lower.makeDirectory("/host");
    }
    ~OverlayLayer() override {
        ::umask(previousMask);
        settings() = Settings();
    }

    void build(const std::string& user = "alice") {
        Captured standardOutput(STDOUT_FILENO);
        Captured standardError(STDERR_FILENO);
        buildOverlayLayer(lower.at("/lower"), lower.at("/layer"), user,
                          {allowlists, hide, empty, bind, filters});
        output = standardOutput.text();
        errors = withoutOwnerWarnings(standardError.text());
    }

    bool isWhiteout(const std::string& name) {
        struct stat status {};
        return ::lstat(lower.at("/layer" + name).c_str(), &status) == 0 &&
               status.st_mode == S_IFCHR && status.st_rdev == 0;
    }

    static bool isRoot() { return ::geteuid() == 0; }

    /// Mirrored directories may belong to other users; only root can change the owner.
    static std::string withoutOwnerWarnings(const std::string& text) {
        std::istringstream lines(text);
        std::string kept;
        for (std::string line; std::getline(lines, line);) {
            kept += isRoot() || !line.starts_with("WARN: chown(") ? line + "\n" : "";
        }
        return kept;
    }

    std::string filteredCopy() { return lower.read("/layer" + host + "/passwd"); }

    TemporaryDirectory lower;
    std::string host;  ///< a directory of the running system, for files that come from there
    std::map<std::string, std::list<std::string>> allowlists;
    std::list<std::string> hide;
    std::list<std::string> empty;
    std::list<std::string> bind;
    std::map<std::string, std::string> filters;
    std::string output;
    std::string errors;
    mode_t previousMask;
};
