// The configuration file kiv.conf(5), which applies to every container of this host.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

/// A header or an item, as written on its line. Comments and empty lines are neither.
struct ConfigurationLine {
    unsigned long number = 0;
    std::string section;    ///< the word of its header; empty before the first header
    std::string directory;  ///< of an allowlist
    bool isHeader = false;
    std::string item;  ///< trimmed; empty for a header and for a line of white space
};

/// A plain value. The process has one instance, configuration(), which is empty until `load` has
/// succeeded and read-only afterwards. Items are kept as written in the file, trimmed and in file
/// order.
struct Configuration {
    std::map<std::string, std::list<std::string>> allowlists;  ///< directory to visible names
    std::list<std::string> hide;
    std::list<std::string> empty;
    std::list<std::string> bind;
    std::list<std::string> cap_add;  ///< this and the next two: for the container library
    std::list<std::string> cap_drop;
    std::list<std::string> seccomp;
    /// File to expression. Deliberate: checked and kept, but not used; the built-in table
    /// (config/file_filters.h) decides what an account sees of a host file.
    std::map<std::string, std::string> filters;
    std::string ipCommand = "ip";  ///< host tools, looked up through PATH; no keyword changes them
    std::string iptablesCommand = "iptables";
    std::string sysctlCommand = "sysctl";

    /// One of the lists above, named by its member.
    using Section = std::list<std::string> Configuration::*;

    /// Called with every item of a list section, which then is not kept; throws std::runtime_error
    /// to refuse the item.
    using ItemTaker = std::function<void(Section section, const std::string& item)>;

    /// The file's content, without the items that `take` was called with. Throws std::runtime_error
    /// "cannot open file …", "error while reading from file", or "line N: " and what is wrong
    /// there, a refusal of `take` included.
    static Configuration read(const std::string& path, const ItemTaker& take = nullptr);

    /// Throws what `read` throws, and keeps nothing.
    static void validate(const std::string& path);

    /// The words that open a section.
    static std::vector<std::string> sections();

    /// Calls `visit` with each header and item, and with the error text for those that `read` would
    /// refuse: for a program that reports on the whole file. Throws like `read` when the file
    /// cannot be opened or read.
    static void inspect(const std::string& path,
                        const std::function<void(const ConfigurationLine& line)>& understood,
                        const std::function<void(const ConfigurationLine& line,
                                                 const std::string& fault)>& refused);

    /// Reads the file into the process-wide instance. Throws what `read` throws; the instance then
    /// keeps its earlier content.
    static void load(const std::string& path);
};

/// The process-wide instance.
const Configuration& configuration();
