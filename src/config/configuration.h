// What every account container of this host looks like: the container configuration file.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

/// A header or an item, as it is on its line. Comments and empty lines are none.
struct ConfigurationLine {
    unsigned long number = 0;
    std::string section;    ///< the word of the header; empty before the first one
    std::string directory;  ///< of an allowlist
    bool isHeader = false;
    std::string item;  ///< trimmed; empty for a line of white space too
};

/// Value object; one process-wide instance, empty until `load` has succeeded, read-only afterwards.
/// Items are kept as written in the file, trimmed and in file order.
struct Configuration {
    std::map<std::string, std::list<std::string>> allowlists;  ///< directory to visible names
    std::list<std::string> hide;
    std::list<std::string> empty;
    std::list<std::string> bind;
    std::list<std::string> cap_add;  ///< for the container library, as the two that follow
    std::list<std::string> cap_drop;
    std::list<std::string> seccomp;
    /// File to expression; checked and kept only. What an account sees of a host file follows from
    /// the built-in table (config/file_filters.h), deliberately.
    std::map<std::string, std::string> filters;
    std::string ipCommand = "ip";  ///< host tools, looked up through PATH; no keyword changes them
    std::string iptablesCommand = "iptables";
    std::string sysctlCommand = "sysctl";

    /// One of the lists above, named by its member.
    using Section = std::list<std::string> Configuration::*;

    /// Is given every item of a list section and refuses one by throwing std::runtime_error.
    using ItemCheck = std::function<void(Section section, const std::string& item)>;

    /// The file's content. Throws std::runtime_error "cannot open file …", "error while reading
    /// from file", or "line N: " and what is wrong there, a refusal of `check` included.
    static Configuration read(const std::string& path, const ItemCheck& check);

    /// The words that open a section.
    static std::vector<std::string> sections();

    /// Hands over each header and item, those that `read` would refuse with the text of its
    /// refusal: for whoever reports on all of a file. Throws as `read` does when it cannot be read.
    static void inspect(const std::string& path,
                        const std::function<void(const ConfigurationLine& line)>& understood,
                        const std::function<void(const ConfigurationLine& line,
                                                 const std::string& fault)>& refused);

    /// Reads the file and replaces the process-wide object by what it read. Throws what `read`
    /// throws; the process-wide object then stays as it was.
    static void load(const std::string& path);
};

/// The process-wide configuration.
const Configuration& configuration();
