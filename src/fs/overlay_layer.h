// Fills a directory with the overlay layer that turns the host's root into what an account sees:
// whiteouts hide names, opaque directories appear empty, filtered copies replace files, and mount
// points are ready for bind mounts. Mounts nothing. See overlayfs.rst of the kernel.
#pragma once

#include <list>
#include <map>
#include <string>

/// The contents of the layer, in the order in which they are applied. The caller owns the lists and
/// keeps them until buildOverlayLayer returns.
struct LayerRules {
    const std::map<std::string, std::list<std::string>>& allowlists;
    const std::list<std::string>& hide;
    const std::list<std::string>& empty;
    const std::list<std::string>& bind;
    const std::map<std::string, std::string>& filters;
};

/// Builds the layer for the host root that is mounted at `lowerRoot` in the empty directory
/// `layerDir`. An error is reported on standard error and skips its entry. Needs CAP_MKNOD for
/// device nodes and CAP_SYS_ADMIN for trusted extended attributes, xattr(7).
void buildOverlayLayer(const std::string& lowerRoot, const std::string& layerDir,
                       const std::string& userName, const LayerRules& rules);
