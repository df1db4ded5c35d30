#include "companions/check/findings.h"

#include "companions/json.h"
#include "util/string_util.h"

namespace {

const char* nameOf(Severity severity) {
    switch (severity) {
        case Severity::Error:
            return "error";
        case Severity::Warning:
            return "warning";
        default:
            return "note";
    }
}

}  // namespace

void FindingsOf::note(unsigned long line, std::string message) const {
    all.push_back({file, line, Severity::Note, std::move(message)});
}

void FindingsOf::warn(unsigned long line, std::string message) const {
    all.push_back({file, line, Severity::Warning, std::move(message)});
}

void FindingsOf::error(unsigned long line, std::string message) const {
    all.push_back({file, line, Severity::Error, std::move(message)});
}

std::string linesOf(const Findings& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        const std::string line = finding.line == 0 ? "" : std::to_string(finding.line) + ":";
        text += StringUtil::escapeControls(finding.file + ":" + line + " " +
                                           nameOf(finding.severity) + ": " + finding.message) +
                "\n";
    }
    return text;
}

std::string jsonOf(const Findings& findings) {
    Json array = Json::array();
    for (const Finding& finding : findings) {
        array.push_back({{"file", finding.file},
                         {"line", finding.line == 0 ? Json(nullptr) : Json(finding.line)},
                         {"severity", nameOf(finding.severity)},
                         {"message", finding.message}});
    }
    return textOf(array);
}
