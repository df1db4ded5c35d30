// Replaces the container library in tests: joins nothing, records its calls, and returns given
// results. /tmp/library-calls gets a line per call with its name and arguments. Lines of
// /tmp/library-answers say what a call does:
//   CALL logs TEXT       passes the text to the log callback, once per line, in order
//   CALL returns NUMBER  instead of 0
#include <kiv.h>
#include <syslog.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace {

kiv_log_cb callback = nullptr;

void record(const std::string& line) {
    std::ofstream calls("/tmp/library-calls", std::ios::app);
    calls << line << "\n";
}

std::string describe(const void* handle) {
    return handle == nullptr ? "null" : std::to_string(reinterpret_cast<std::size_t>(handle));
}

int answer(const std::string& call, void* handle) {
    std::ifstream answers("/tmp/library-answers");
    const std::string logs = call + " logs ";
    const std::string returns = call + " returns ";
    int result = 0;
    for (std::string line; std::getline(answers, line);) {
        if (line.starts_with(logs)) {
            callback(handle, LOG_ERR, "%s", line.c_str() + logs.size());
        } else if (line.starts_with(returns)) {
            result = std::atoi(line.c_str() + returns.size());
        }
    }
    return result;
}

}  // namespace

void kiv_set_log_cb(kiv_log_cb function) {
    callback = function;
    record(function == nullptr ? "kiv_set_log_cb null" : "kiv_set_log_cb a-function");
}

int kiv_load_config(void* handle) {
    record("kiv_load_config " + describe(handle));
    return answer("kiv_load_config", handle);
}

int kiv_cg_enter(void* handle, uid_t uid) {
    record("kiv_cg_enter " + describe(handle) + " " + std::to_string(uid));
    return answer("kiv_cg_enter", handle);
}

int kiv_apply_namespaces(void* handle, const char* user, int flags) {
    record("kiv_apply_namespaces " + describe(handle) + " " + user + " " + std::to_string(flags));
    return answer("kiv_apply_namespaces", handle);
}

int kiv_seccomp(void* handle) {
    record("kiv_seccomp " + describe(handle));
    return answer("kiv_seccomp", handle);
}

int kiv_capabilities(void* handle) {
    record("kiv_capabilities " + describe(handle));
    return answer("kiv_capabilities", handle);
}
