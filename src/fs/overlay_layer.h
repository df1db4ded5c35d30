// Fills a directory with the overlay layer that turns the host's root into what an account sees:
// whiteouts hide, opaque directories empty, filtered copies replace, and mount points wait for bind
// mounts. It mounts nothing.
#pragma once

#include <list>
#include <map>
#include <string>

/// What the layer is to do, in the order in which it is done. Owned by the caller, who keeps it for
/// the length of the call.
struct LayerRules {
    const std::map<std::string, std::list<std::string>>& allowlists;
    const std::list<std::string>& hide;
    const std::list<std::string>& empty;
    const std::list<std::string>& bind;
    const std::map<std::string, std::string>& filters;
};

/// Builds the layer for the host root that is mounted at `lowerRoot` in the empty directory
/// `layerDir`. No error stops it: each is reported on standard error and skips its entry. Needs the
/// right to make device nodes and trusted extended attributes.
void buildOverlayLayer(const std::string& lowerRoot, const std::string& layerDir,
                       const std::string& userName, const LayerRules& rules);
