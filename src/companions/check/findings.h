// The findings of kiv-check, and their output.
#pragma once

#include <string>
#include <utility>
#include <vector>

enum class Severity { Note, Warning, Error };

struct Finding {
    std::string file;
    unsigned long line = 0;  ///< 0 when the finding is about no line
    Severity severity = Severity::Note;
    std::string message;
};

using Findings = std::vector<Finding>;

/// Adds findings about one file.
class FindingsOf {
public:
    FindingsOf(Findings& findings, std::string name) : all(findings), file(std::move(name)) {}

    void note(unsigned long line, std::string message) const;
    void warn(unsigned long line, std::string message) const;
    void error(unsigned long line, std::string message) const;

private:
    Findings& all;
    std::string file;
};

/// Lines "FILE:LINE: SEVERITY: MESSAGE", or "FILE: SEVERITY: MESSAGE" without a line. A finding is
/// always one line: control characters are escaped.
std::string linesOf(const Findings& findings);

/// One array of objects with the keys file, line, severity and message.
std::string jsonOf(const Findings& findings);
