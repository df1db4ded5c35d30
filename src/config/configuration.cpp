#include "config/configuration.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "util/line_reader.h"
#include "util/reg_ex.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

Configuration& instance() {
    static Configuration values;
    return values;
}

/// Reads the lines of one file into a Configuration: headers at the left edge, indented items
/// below.
class Parser {
public:
    explicit Parser(const Configuration::ItemTaker& itemTaker) : take(itemTaker) {}

    void parseLine(std::string_view line);

    Configuration result;
    unsigned long number = 0;  ///< of the line, for `inspect`; else 0
    ConfigurationLine latest;  ///< the latest header or item, for `inspect`

private:
    using ItemHandler = void (Parser::*)(const std::string& item);

    void parseHeader(std::string_view line);
    void parseItem(std::string_view line);
    void selectAllowlist(WordReader& words);
    void selectSection(std::string_view keyword);
    void addFilter(const std::string& item);

    const Configuration::ItemTaker& take;
    Configuration::Section currentSection = nullptr;  ///< only items of this kind are taken
    std::list<std::string>* currentList = nullptr;
    ItemHandler currentHandler = nullptr;
};

struct ListSection {
    const char* keyword;
    Configuration::Section list;
};

constexpr ListSection kListSections[] = {
    {"hide", &Configuration::hide},         {"empty", &Configuration::empty},
    {"bind", &Configuration::bind},         {"cap_add", &Configuration::cap_add},
    {"cap_drop", &Configuration::cap_drop}, {"seccomp", &Configuration::seccomp},
};

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

void Parser::parseLine(std::string_view line) {
    if (line.empty() || line.front() == '#') {
        return;  // a comment does not end the section
    }
    if (isSpace(line.front())) {
        parseItem(line);
    } else {
        parseHeader(line);
    }
}

void Parser::parseHeader(std::string_view line) {
    // only blanks separate words: a header with a tab is one unknown word
    WordReader words(line, " ");
    const auto keyword = words.next();
    currentHandler = nullptr;
    currentSection = nullptr;
    latest = {number, std::string(keyword), "", true, ""};
    if (keyword == "allowlist") {
        selectAllowlist(words);
    } else {
        selectSection(keyword);
        if (!words.next().empty()) {
            throw std::runtime_error("unexpected arguments");
        }
    }
}

void Parser::selectAllowlist(WordReader& words) {
    latest.directory = words.next();
    currentList = &result.allowlists[latest.directory];
    if (latest.directory.empty() || !words.next().empty()) {
        throw std::runtime_error("missing argument to allowlist");
    }
}

void Parser::selectSection(std::string_view keyword) {
    currentList = nullptr;
    if (keyword == "filter") {
        currentHandler = &Parser::addFilter;
        return;
    }
    // deliberate: an unknown section is accepted, and only an item in it fails
    for (const ListSection& section : kListSections) {
        if (keyword == section.keyword) {
            currentSection = section.list;
            currentList = &(result.*section.list);
        }
    }
}

void Parser::parseItem(std::string_view line) {
    const std::string_view text = StringUtil::trimmed(line, kWhiteSpace);
    if (text.starts_with('#')) {
        return;
    }
    std::string item(text);
    if (number != 0) {
        latest.number = number;
        latest.isHeader = false;
        latest.item = item;
    }
    if (currentHandler != nullptr) {
        (this->*currentHandler)(item);
    } else if (currentList == nullptr) {
        throw std::runtime_error("not parsing a list");
    } else if (currentSection != nullptr && take) {
        take(currentSection, item);
    } else {
        currentList->push_back(std::move(item));
    }
}

void Parser::addFilter(const std::string& item) {
    const auto gap = item.find_first_of(" \t");
    auto begin = gap;
    while (begin < item.size() && isSpace(item[begin])) {
        ++begin;
    }
    if (gap == std::string::npos || begin == item.size()) {
        throw std::runtime_error("value is not a pair");
    }
    std::string sample = item.substr(begin);
    StringUtil::replaceAll("${USER}", "user", sample);
    const RegEx validated(sample, 0);
    result.filters[item.substr(0, gap)] = item.substr(begin);
}

}  // namespace

Configuration Configuration::read(const std::string& path, const ItemTaker& take) {
    LineReader file(path);
    if (!file.opened()) {
        throw std::runtime_error("cannot open file " + path);
    }
    Parser parser(take);
    std::string_view line;
    for (unsigned long number = 1; file.next(line); ++number) {
        try {
            parser.parseLine(line);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error("line " + std::to_string(number) + ": " + error.what());
        }
    }
    if (file.error() != 0) {
        throw std::runtime_error("error while reading from file");
    }
    return std::move(parser.result);
}

void Configuration::validate(const std::string& path) {
    read(path, [](Section, const std::string&) {});
}

std::vector<std::string> Configuration::sections() {
    std::vector<std::string> words = {"allowlist", "filter"};
    for (const ListSection& section : kListSections) {
        words.emplace_back(section.keyword);
    }
    std::sort(words.begin(), words.end());
    return words;
}

void Configuration::inspect(
    const std::string& path, const std::function<void(const ConfigurationLine&)>& understood,
    const std::function<void(const ConfigurationLine&, const std::string&)>& refused) {
    LineReader file(path);
    if (!file.opened()) {
        throw std::runtime_error("cannot open file " + path);
    }
    const ItemTaker nobody;
    Parser parser(nobody);
    std::string_view line;
    while (file.next(line)) {
        ++parser.number;
        try {
            parser.parseLine(line);
        } catch (const std::runtime_error& error) {
            refused(parser.latest, error.what());
            continue;
        }
        if (parser.latest.number == parser.number) {
            understood(parser.latest);
        }
    }
    if (file.error() != 0) {
        throw std::runtime_error("error while reading from file");
    }
}

void Configuration::load(const std::string& path) {
    instance() = read(path);
}

const Configuration& configuration() {
    return instance();
}
