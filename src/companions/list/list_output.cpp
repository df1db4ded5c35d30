#include "companions/list/list_output.h"

#include <libintl.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "companions/json.h"
#include "util/string_util.h"
#include "util/text_width.h"

namespace {

constexpr std::size_t kColumns = 8;
using Row = std::array<std::string, kColumns>;

constexpr const char* kUnknown = "-";

template <typename Value>
Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json objectOf(const ListedAccount& listed) {
    return {
        {"account", listed.account},
        {"uid", orNull(listed.uid)},
        {"state", nameOf(listed.state)},
        {"network", orNull(listed.network)},
        {"host_address", orNull(listed.hostAddress)},
        {"address", orNull(listed.address)},
        {"interface", orNull(listed.interface)},
        {"processes", orNull(listed.processes)},
        {"processes_limit", orNull(listed.processesLimit)},
        {"memory", orNull(listed.memory)},
        {"memory_limit", orNull(listed.memoryLimit)},
        {"cpu", orNull(listed.cpu)},
        {"cpu_limit", orNull(listed.cpuLimit)},
        {"since", listed.since ? Json(utcText(*listed.since)) : Json(nullptr)},
        {"outdated", orNull(listed.outdated)},
        {"old_processes", orNull(listed.oldProcesses)},
    };
}

std::string figure(const std::optional<std::int64_t>& current,
                   const std::optional<std::int64_t>& limit) {
    if (!current) {
        return kUnknown;
    }
    return std::to_string(*current) + (limit ? "/" + std::to_string(*limit) : "");
}

Row headings() {
    return {::gettext("Account"),   ::gettext("State"),     ::gettext("Address"),
            ::gettext("Interface"), ::gettext("Processes"), ::gettext("Memory"),
            ::gettext("Since"),     ::gettext("Outdated")};
}

Row rowOf(const ListedAccount& listed) {
    const auto yesOrNo = [](bool value) { return value ? ::gettext("yes") : ::gettext("no"); };
    return {StringUtil::escapeControls(listed.account),
            nameOf(listed.state),
            listed.address.value_or(kUnknown),
            StringUtil::escapeControls(listed.interface.value_or(kUnknown)),
            figure(listed.processes, listed.processesLimit),
            figure(listed.memory, listed.memoryLimit),
            listed.since ? utcText(*listed.since) : kUnknown,
            listed.outdated ? yesOrNo(*listed.outdated) : kUnknown};
}

void append(std::string& table, const Row& row, const std::array<std::size_t, kColumns>& widths) {
    for (std::size_t i = 0; i < kColumns; ++i) {
        table += row[i];
        if (i + 1 < kColumns) {
            table.append(widths[i] - textWidth(row[i]) + 2, ' ');
        }
    }
    table += "\n";
}

}  // namespace

std::string jsonOf(const std::vector<ListedAccount>& accounts) {
    Json array = Json::array();
    for (const ListedAccount& listed : accounts) {
        array.push_back(objectOf(listed));
    }
    return textOf(array);
}

std::string tableOf(const std::vector<ListedAccount>& accounts) {
    std::vector<Row> rows = {headings()};
    std::transform(accounts.begin(), accounts.end(), std::back_inserter(rows), rowOf);
    std::array<std::size_t, kColumns> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < kColumns; ++i) {
            widths[i] = std::max(widths[i], textWidth(row[i]));
        }
    }
    std::string table;
    for (const Row& row : rows) {
        append(table, row, widths);
    }
    return table;
}
