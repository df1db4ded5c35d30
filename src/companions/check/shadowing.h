// Finds items of a configuration that cancel each other.
#pragma once

#include <string>
#include <vector>

#include "companions/check/findings.h"

/// The steps of building a layer, in the order in which they are applied.
enum class Step { Allowlist, Hide, Empty, Bind };

struct PlacedItem {
    Step step;
    unsigned long line;
    std::string path;                ///< as returned by pathOf
    std::vector<std::string> names;  ///< of an allowlist
};

/// Appends the findings. `items` are in the order of their lines.
void checkShadowing(const std::vector<PlacedItem>& items, const FindingsOf& findings);
