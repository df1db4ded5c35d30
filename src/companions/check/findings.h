// What kiv-check has found, and how it is shown.
#pragma once

#include <string>
#include <utility>
#include <vector>

enum class Severity { Note, Warning, Error };

struct Finding {
    std::string file;
    unsigned long line = 0;  ///< 0 for what is on no line
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

/// "FILE:LINE: SEVERITY: MESSAGE" lines; "FILE: SEVERITY: MESSAGE" of what is on no line. One
/// finding is one line, whatever its texts hold.
std::string linesOf(const Findings& findings);

/// One array of objects with the keys file, line, severity and message.
std::string jsonOf(const Findings& findings);
