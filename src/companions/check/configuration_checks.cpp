#include "companions/check/configuration_checks.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <stdexcept>
#include <vector>

#include "companions/check/path_items.h"
#include "companions/check/shadowing.h"
#include "config/configuration.h"
#include "libkiv/capabilities.h"
#include "libkiv/system_call_rules.h"

namespace {

bool isSection(const std::string& word) {
    static const auto words = Configuration::sections();
    return std::find(words.begin(), words.end(), word) != words.end();
}

class Checks {
public:
    Checks(const std::string& path, Findings& all) : findings(all, path) {}

    void take(const ConfigurationLine& line);
    void refuse(const ConfigurationLine& line, const std::string& fault);

    /// The checks that need all lines.
    void finish();

private:
    void checkPolicyItem(const ConfigurationLine& line);
    void place(const ConfigurationLine& line);

    FindingsOf findings;
    SystemCallRules rules = defaultSystemCallRules();
    std::vector<ConfigurationLine> lines;
    std::vector<PlacedItem> placed;
    std::set<std::string> named;
};

void Checks::take(const ConfigurationLine& line) {
    if (line.isHeader && !isSection(line.section)) {
        std::string words;
        for (const std::string& section : Configuration::sections()) {
            words += (words.empty() ? "" : ", ") + section;
        }
        findings.error(line.number, "unknown section '" + line.section + "': there are " + words);
    }
    lines.push_back(line);
}

void Checks::refuse(const ConfigurationLine& line, const std::string& fault) {
    // the header has been reported; one finding is enough
    if (!line.isHeader && !line.section.empty() && !isSection(line.section)) {
        return;
    }
    findings.error(line.number, fault + ": no container can be started or entered");
}

/// One item that the library does not understand locks every account out.
void Checks::checkPolicyItem(const ConfigurationLine& line) {
    if (line.item.empty()) {
        findings.warn(line.number, "a line of white space is an empty item: delete the line");
        return;
    }
    try {
        if (line.section == "seccomp") {
            applySystemCallItem(rules, line.item);
        } else {
            parseCapability(line.item);
        }
    } catch (const std::runtime_error& error) {
        findings.error(line.number, std::string(error.what()) + ": no account can be entered");
    }
}

/// Records the paths of the layer that the item changes.
void Checks::place(const ConfigurationLine& line) {
    static const std::vector<std::pair<std::string, Step>> steps = {
        {"hide", Step::Hide}, {"empty", Step::Empty}, {"bind", Step::Bind}};
    if (line.section == "allowlist") {
        if (line.isHeader) {
            placed.push_back({Step::Allowlist, line.number, pathOf(line.directory), {}});
        } else if (!placed.empty() && placed.back().step == Step::Allowlist) {
            placed.back().names.push_back(line.item);
        }
        return;
    }
    for (const auto& [section, step] : steps) {
        // the container's /proc is mounted over the layer
        if (line.section != section || line.isHeader || line.item.empty() ||
            line.item.starts_with("/proc/") || isFutilePattern(line)) {
            continue;
        }
        placed.push_back({step, line.number, pathOf(line.item), {}});
    }
}

void Checks::finish() {
    for (const ConfigurationLine& line : lines) {
        place(line);
    }
    for (const PlacedItem& item : placed) {
        named.insert(item.path);
        for (const std::string& name : item.names) {
            named.insert(item.path + "/" + name);
        }
    }
    const KnownPaths known = [this](const std::string& path) { return named.contains(path); };
    for (const ConfigurationLine& line : lines) {
        const bool isAllowlist = line.section == "allowlist";
        if (line.isHeader && isAllowlist) {
            checkPathItem(line, line.directory, known, findings);
        } else if (line.isHeader) {
            continue;
        } else if (isAllowlist) {
            checkListedName(line, known, findings);
        } else if (line.section == "filter") {
            findings.note(line.number,
                          "the item has no effect: what accounts see of host files is built in");
        } else if (line.section == "hide" || line.section == "empty" || line.section == "bind") {
            checkPathItem(line, line.item, known, findings);
        } else {
            checkPolicyItem(line);
        }
    }
    checkShadowing(placed, findings);
}

}  // namespace

void checkConfiguration(const std::string& path, Findings& findings) {
    Findings found;
    Checks checks(path, found);
    Configuration::inspect(
        path, [&checks](const ConfigurationLine& line) { checks.take(line); },
        [&checks](const ConfigurationLine& line, const std::string& fault) {
            checks.refuse(line, fault);
        });
    checks.finish();
    std::stable_sort(found.begin(), found.end(), [](const Finding& one, const Finding& other) {
        return one.line < other.line;
    });
    std::move(found.begin(), found.end(), std::back_inserter(findings));
}
