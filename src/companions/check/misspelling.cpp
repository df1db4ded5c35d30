#include "companions/check/misspelling.h"

#include <sys/stat.h>

#include <algorithm>

#include "fs/layer_paths.h"
#include "util/directory_stream.h"

namespace {

// length of the longer name; too many shorter names differ by one letter only
constexpr std::size_t kShortest = 4;
constexpr std::size_t kShortestSwapped = 3;

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string lowerCase(std::string text) {
    for (char& c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

/// Whether `longer` is `shorter` with one more letter. Not a sign or digit at the end, and not a
/// letter at the beginning, which make another name: locate, mlocate and plocate are three
/// programs.
bool hasOneMore(const std::string& longer, const std::string& shorter) {
    const auto differ = std::mismatch(shorter.begin(), shorter.end(), longer.begin());
    const char more = *differ.second;
    const bool atEnd = differ.first == shorter.end();
    return differ.first != shorter.begin() && (isLetter(more) || !atEnd) &&
           std::equal(differ.first, shorter.end(), differ.second + 1, longer.end());
}

bool differsInOnePlace(const std::string& one, const std::string& other) {
    const auto differ = std::mismatch(one.begin(), one.end(), other.begin());
    const bool letters = isLetter(*differ.first) || isLetter(*differ.second);
    return letters && differ.first != one.begin() &&
           std::equal(differ.first + 1, one.end(), differ.second + 1, other.end());
}

bool hasSwappedLetters(const std::string& one, const std::string& other) {
    const auto differ = std::mismatch(one.begin(), one.end(), other.begin());
    const auto rest = std::distance(differ.first, one.end());
    return rest >= 2 && differ.first[0] == differ.second[1] &&
           differ.first[1] == differ.second[0] &&
           std::equal(differ.first + 2, one.end(), differ.second + 2, other.end());
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace

bool looksLike(const std::string& typed, const std::string& meant) {
    // checked first, because it rules most names out: directories of programs have thousands
    if (std::max(typed.size(), meant.size()) - std::min(typed.size(), meant.size()) > 1) {
        return false;
    }
    const std::string one = lowerCase(typed);
    const std::string other = lowerCase(meant);
    const std::size_t longest = std::max(one.size(), other.size());
    if (one == other) {
        return typed != meant;
    }
    if (one.size() == other.size()) {
        return (longest >= kShortestSwapped && hasSwappedLetters(one, other)) ||
               (longest >= kShortest && differsInOnePlace(one, other));
    }
    const bool isLonger = one.size() > other.size();
    const std::string& longer = isLonger ? one : other;
    const std::string& shorter = isLonger ? other : one;
    return longest >= kShortest && longer.size() == shorter.size() + 1 &&
           hasOneMore(longer, shorter);
}

std::optional<MissingPath> findMissing(const std::string& path,
                                       const std::function<bool(const std::string&)>& known) {
    std::string present;
    for (const std::string& name : componentsOf(path)) {
        const std::string next = present + "/" + name;
        if (exists(next)) {
            present = next;
            continue;
        }
        MissingPath missing{next, std::nullopt};
        const DirectoryStream neighbours(::opendir(present.empty() ? "/" : present.c_str()));
        while (const dirent* found =
                   neighbours == nullptr ? nullptr : ::readdir(neighbours.get())) {
            const std::string neighbour = present + "/" + found->d_name;
            if (looksLike(name, found->d_name) && !known(neighbour) &&
                (!missing.meant || neighbour < *missing.meant)) {
                missing.meant = neighbour;
            }
        }
        return missing;
    }
    return std::nullopt;
}
