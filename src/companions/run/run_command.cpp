#include "companions/run/run_command.h"

#include <unistd.h>

#include <cerrno>

#include "util/errors.h"
#include "util/string_util.h"

namespace {

using Pointers = std::vector<char*>;

/// Returns the errno of execve(2); does not return on success.
int tryToExecute(const std::string& path, Pointers& arguments, Pointers& environment) {
    ::execve(path.c_str(), arguments.data(), environment.data());
    return errno;
}

bool meansNotHere(int error) {
    return error == ENOENT || error == ENOTDIR;
}

/// Like execvp(3), but never runs a shell. A file that may not be executed does not hide a later
/// one.
int executeFromPath(const std::string& name, const std::string& path, Pointers& arguments,
                    Pointers& environment) {
    int result = ENOENT;
    if (name.empty()) {
        return result;
    }
    for (const std::string& directory : StringUtil::split<std::vector<std::string>>(
             path, ":", /*dropEmpty=*/false, /*keepSeparators=*/false)) {
        // an empty element of PATH is the working directory
        const std::string file = directory.empty() ? name : directory + "/" + name;
        const int error = tryToExecute(file, arguments, environment);
        if (error == EACCES) {
            result = error;
        } else if (!meansNotHere(error)) {
            return error;
        }
    }
    return result;
}

}  // namespace

int execute(Program& program, Environment& environment) {
    Pointers arguments = program.arguments;
    arguments.push_back(nullptr);
    Pointers variables;
    for (std::string& variable : environment) {
        variables.push_back(variable.data());
    }
    variables.push_back(nullptr);
    const bool isPath = program.file.find('/') != std::string::npos;
    const int error =
        isPath ? tryToExecute(program.file, arguments, variables)
               : executeFromPath(program.file, valueOf(environment, "PATH"), arguments, variables);
    report("kiv-run: " + program.file + ": " + errorText(error));
    return error == ENOENT ? kNotFound : kCannotRun;
}
