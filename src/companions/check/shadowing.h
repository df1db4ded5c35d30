// Items of a configuration that undo each other.
#pragma once

#include <string>
#include <vector>

#include "companions/check/findings.h"

/// What the layer of a container does with a path, in the order in which it does it.
enum class Step { Allowlist, Hide, Empty, Bind };

struct PlacedItem {
    Step step;
    unsigned long line;
    std::string path;                ///< as pathsOf has it
    std::vector<std::string> names;  ///< of an allowlist
};

/// `items` in the order of their lines.
void checkShadowing(const std::vector<PlacedItem>& items, const FindingsOf& findings);
