#include "config/file_filters.h"

const std::map<std::string, std::string>& builtInFileFilters() {
    // deliberate: the password file keeps "man" where the group file keeps "adm" and "tty"
    static const std::map<std::string, std::string> filters = {
        {"/etc/group", "^(root|daemon|bin|sys|adm|tty|www-data|mysql|${USER}):"},
        {"/etc/passwd", "^(root|daemon|bin|sys|man|www-data|mysql|${USER}):"},
    };
    return filters;
}
