#include "util/expression_size.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <vector>

namespace {

// Measured with the GNU C library: 200 bytes an element; 8 bytes a pair of branches, as each may be
// gone around to the next; 400 bytes of stack a level; and time that grows exponentially with
// repetitions of repetitions: "a", fifteen "?" and four "+" take a second.
constexpr std::size_t kMostElements = 1 << 18;
constexpr std::size_t kMostLevels = 255;
/// By the repetitions of repetitions.
constexpr std::size_t kMostBranches[] = {4096, 4096, 2048, 256, 64};

struct Size {
    std::size_t elements = 0;
    /// Groups, which may be empty; alternatives; elements that may be left out or repeated.
    std::size_t branches = 0;
    std::size_t levels = 0;
    std::size_t repetitions = 0;  ///< of each other
};

/// What stands between two parentheses.
struct Group {
    Size closed;  ///< all but the last element
    Size last;    ///< the last element, which a repetition that follows belongs to
};

class Measure {
public:
    explicit Measure(std::string_view pattern) : rest(pattern) {}

    bool isModest() {
        while (!rest.empty()) {
            step();
            const Group& group = groups.back();
            if (groups.size() > kMostLevels || !isSmall(group.last) || !isSmall(group.closed)) {
                return false;
            }
        }
        while (groups.size() > 1) {
            closeGroup();  // regcomp(3) reads to the end before it misses the parenthesis
        }
        addElement({});
        return isSmall(groups.back().closed);
    }

private:
    static bool isSmall(const Size& size) {
        return size.elements <= kMostElements && size.levels <= kMostLevels &&
               size.repetitions < std::size(kMostBranches) &&
               size.branches <= kMostBranches[size.repetitions];
    }

    char take() {
        const char c = rest.front();
        rest.remove_prefix(1);
        return c;
    }

    void step() {
        switch (take()) {
            case '(':
                groups.emplace_back();
                return;
            case ')':
                if (groups.size() > 1) {
                    closeGroup();
                    return;
                }
                break;  // alone it stands for itself
            case '[':
                skipBracket();
                break;
            case '\\':
                rest.remove_prefix(rest.empty() ? 0 : 1);
                break;
            case '|':
                addElement({1, 1, 0, 0});
                return;
            case '*':
            case '?':
                repeat(1, /*branches=*/1);
                return;
            case '+':
                repeat(2, /*branches=*/1);  // compiled as "aa*"
                return;
            case '{':
                takeInterval();
                return;
            default:
                break;
        }
        addElement({1, 0, 0, 0});
    }

    void addElement(const Size& element) {
        Group& group = groups.back();
        group.closed.elements += group.last.elements;
        group.closed.branches += group.last.branches;
        group.closed.levels = std::max(group.closed.levels, group.last.levels);
        group.closed.repetitions = std::max(group.closed.repetitions, group.last.repetitions);
        group.last = element;
    }

    void closeGroup() {
        addElement({});
        Size group = groups.back().closed;
        groups.pop_back();
        ++group.elements;
        ++group.branches;
        ++group.levels;
        addElement(group);
    }

    void repeat(std::size_t times, std::size_t branches) {
        Size& last = groups.back().last;
        last.elements = (last.elements + 1) * times;
        last.branches = last.branches * times + branches;
        ++last.repetitions;
    }

    /// "{2}", "{2,}", "{2,5}", "{,5}"; anything else is refused or taken literally.
    void takeInterval() {
        const auto least = takeNumber();
        const bool isRange = !rest.empty() && rest.front() == ',';
        rest.remove_prefix(isRange ? 1 : 0);
        const auto most = isRange ? takeNumber() : least;
        rest.remove_prefix(rest.starts_with('}') ? 1 : 0);
        const auto times = std::max({least + (isRange ? 1 : 0), most, std::size_t{1}});
        repeat(times, isRange ? times : 0);
    }

    std::size_t takeNumber() {
        unsigned short number = 0;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
        return number;  // 0 for one that is beyond regcomp(3)'s greatest, which it refuses
    }

    /// A bracket expression is one element, whatever stands in it.
    void skipBracket() {
        rest.remove_prefix(rest.starts_with('^') ? 1 : 0);
        rest.remove_prefix(rest.starts_with(']') ? 1 : 0);
        while (!rest.empty()) {
            const char c = take();
            if (c == ']') {
                return;
            }
            const char kind = rest.empty() ? '\0' : rest.front();
            if (c == '[' && (kind == ':' || kind == '.' || kind == '=')) {
                const char closing[] = {kind, ']'};
                const auto end = rest.find(std::string_view(closing, 2), 1);
                rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
            }
        }
    }

    std::string_view rest;
    std::vector<Group> groups{1};
};

}  // namespace

bool isModestExpression(std::string_view pattern) {
    return Measure(pattern).isModest();
}
