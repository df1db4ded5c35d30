// What every account container of this host looks like: the container configuration file.
#pragma once

#include <list>
#include <map>
#include <string>

/// Value object; one process-wide instance, empty until `load` has succeeded, read-only afterwards.
/// Items are kept as written in the file, trimmed and in file order.
struct Configuration {
    std::map<std::string, std::list<std::string>> allowlists;  ///< directory to visible names
    std::list<std::string> hide;
    std::list<std::string> empty;
    std::list<std::string> bind;
    std::list<std::string> cap_add;   ///< kept only; this program does not read it
    std::list<std::string> cap_drop;  ///< kept only
    std::list<std::string> seccomp;   ///< kept only
    /// File to expression; checked and kept only. What an account sees of a host file follows from
    /// the built-in table (config/file_filters.h), deliberately.
    std::map<std::string, std::string> filters;
    std::string ipCommand = "ip";  ///< host tools, looked up through PATH; no keyword changes them
    std::string iptablesCommand = "iptables";
    std::string sysctlCommand = "sysctl";

    /// Reads the file and replaces the process-wide object by what it read. Throws
    /// std::runtime_error "cannot open file …", "error while reading from file", or "line N: " and
    /// what is wrong there; the process-wide object then stays as it was.
    static void load(const std::string& path);
};

/// The process-wide configuration.
const Configuration& configuration();
