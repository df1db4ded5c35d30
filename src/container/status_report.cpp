#include "container/status_report.h"

#include <libintl.h>

#include <algorithm>
#include <array>
#include <optional>

#include "util/console_colors.h"
#include "util/output.h"
#include "util/translatable.h"

namespace {

/// One controller's column.
struct Figure {
    const char* label;
    const char* heading;
    bool ContainerStatus::*known;
    std::int64_t ContainerStatus::*current;
    std::int64_t ContainerStatus::*limit;
};

constexpr std::array kFigures = {
    Figure{translatable("Processes:"), translatable("Processes"), &ContainerStatus::hasProcesses,
           &ContainerStatus::pidsCurrent, &ContainerStatus::pidsMax},
    Figure{translatable("Memory:"), translatable("Memory"), &ContainerStatus::hasMemory,
           &ContainerStatus::memoryCurrent, &ContainerStatus::memoryHigh},
};

/// The width of the text after the number, as in " (25%)".
constexpr std::size_t kSuffixWidth = 7;
constexpr const char* kInfinite = "    (∞)";  // nine bytes on seven columns

/// At most this many bytes of a line take no column: colours and infinity signs.
constexpr std::size_t kExtraBytes = 16;

struct Layout {
    std::size_t account;
    std::size_t active;
    std::array<std::size_t, kFigures.size()> figures;
};

std::string translated(const char* text) {
    return ::gettext(text);
}

std::string yesOrNo(const ContainerStatus& status) {
    return translated(status.active ? translatable("yes") : translatable("no"));
}

const char* color(const ContainerStatus& status) {
    return status.active ? colorGreen : colorRed;
}

void appendLeft(std::string& line, const std::string& text, std::size_t width) {
    line += text;
    line.append(width - std::min(width, text.size()), ' ');
}

void appendRight(std::string& line, const std::string& text, std::size_t width) {
    line.append(width - std::min(width, text.size()), ' ');
    line += text;
}

std::string bracketed(std::int64_t current, std::int64_t limit) {
    return "(" + percentage(current, limit) + "%)";
}

std::size_t digits(std::int64_t number) {
    std::size_t count = 1;
    while ((number /= 10) != 0) {
        ++count;
    }
    return count;
}

/// At least the width of a 0, when no account has the figure.
std::size_t figureWidth(const Figure& figure, const std::list<ContainerStatus>& statuses) {
    std::optional<std::int64_t> largest;
    for (const ContainerStatus& status : statuses) {
        if (status.*figure.known) {
            largest = std::max(largest.value_or(status.*figure.current), status.*figure.current);
        }
    }
    return std::max(translated(figure.heading).size(), digits(largest.value_or(0)) + kSuffixWidth);
}

Layout layOut(const std::list<ContainerStatus>& statuses) {
    Layout layout{};
    // TRANSLATORS: the table's widths count bytes: only words of plain ASCII keep its lines
    // straight.
    layout.account = translated("Account").size();
    for (const ContainerStatus& status : statuses) {
        layout.account = std::max(layout.account, status.userName.size());
    }
    for (const char* text : {"Active", "yes", "no"}) {
        layout.active = std::max(layout.active, translated(text).size());
    }
    for (std::size_t i = 0; i < kFigures.size(); ++i) {
        layout.figures[i] = figureWidth(kFigures[i], statuses);
    }
    return layout;
}

std::string ruleLine(const Layout& layout) {
    std::string line = "+-" + std::string(layout.account, '-');
    line += "-+-" + std::string(layout.active, '-');
    for (const std::size_t width : layout.figures) {
        line += "-+-" + std::string(width, '-');
    }
    return line + "-+\n";
}

std::string headerLine(const Layout& layout) {
    std::string line = "| ";
    appendLeft(line, translated("Account"), layout.account);
    line += " | ";
    appendLeft(line, translated("Active"), layout.active);
    for (std::size_t i = 0; i < kFigures.size(); ++i) {
        line += " | ";
        appendLeft(line, translated(kFigures[i].heading), layout.figures[i]);
    }
    return line + " |\n";
}

void appendFigure(std::string& line, const Figure& figure, const ContainerStatus& status,
                  std::size_t width) {
    if (!(status.*figure.known)) {
        line.append(width, ' ');
        return;
    }
    const std::int64_t current = status.*figure.current;
    const std::int64_t limit = status.*figure.limit;
    appendRight(line, std::to_string(current), width - kSuffixWidth);
    if (limit < 1) {
        line += kInfinite;
    } else {
        appendRight(line, bracketed(current, limit), kSuffixWidth);
    }
}

void appendStatus(std::string& table, const ContainerStatus& status, const Layout& layout) {
    table += "| ";
    appendLeft(table, status.userName, layout.account);
    table += " | ";
    table += color(status);
    appendLeft(table, yesOrNo(status), layout.active);
    table += colorReset;
    for (std::size_t i = 0; i < kFigures.size(); ++i) {
        table += " | ";
        appendFigure(table, kFigures[i], status, layout.figures[i]);
    }
    table += " |\n";
}

}  // namespace

void printStatus(const ContainerStatus& status) {
    print(translated("Account:") + " " + status.userName + "\n");
    flushOutput();
    std::string lines =
        translated("Active:") + " " + color(status) + yesOrNo(status) + colorReset + "\n";
    for (const Figure& figure : kFigures) {
        if (!(status.*figure.known)) {
            continue;
        }
        const std::int64_t current = status.*figure.current;
        const std::int64_t limit = status.*figure.limit;
        lines += translated(figure.label) + " " + std::to_string(current);
        lines += limit > 0 ? " " + bracketed(current, limit) + "\n" : "\n";
    }
    print(lines);
}

void printStatusTable(const std::list<ContainerStatus>& statuses) {
    const Layout layout = layOut(statuses);
    const std::string rule = ruleLine(layout);
    std::string table = rule + headerLine(layout) + rule;
    // a line of the table plus the bytes that take no column; growing would need twice the memory
    table.reserve(table.size() + (statuses.size() + 1) * (rule.size() + kExtraBytes));
    for (const ContainerStatus& status : statuses) {
        appendStatus(table, status, layout);
    }
    // one write: a table of thousands of accounts appears at once and does not cost a call per line
    table += rule;
    print(table);
    flushOutput();
}

std::string percentage(std::int64_t current, std::int64_t limit) {
    // unsigned, because a signed product must not overflow
    const auto product = static_cast<std::uint64_t>(current) * 100;
    return std::to_string(static_cast<std::int64_t>(product) / limit);
}
