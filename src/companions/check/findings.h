// The findings of kiv-check, and their output.
#pragma once

#include <string>
#include <utility>
#include <vector>

enum class Severity { Note, Warning, Error };

/// One problem in a file. The message is one sentence without a period.
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
    /// `findings` is not owned and must outlive this object. `name` is the file's path.
    FindingsOf(Findings& findings, std::string name) : all(findings), file(std::move(name)) {}

    /// Appends a finding of that severity; `line` is 0 when it is about no line.
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
