#include "pam/library_calls.h"

#include <dlfcn.h>
#include <kiv.h>

#include <stdexcept>

namespace {

struct Calls {
    decltype(&kiv_set_log_cb) setLogCallback;
    decltype(&kiv_load_config) loadConfig;
    decltype(&kiv_cg_enter) enterCgroup;
    decltype(&kiv_apply_namespaces) applyNamespaces;
    decltype(&kiv_seccomp) installFilter;
    decltype(&kiv_capabilities) reduceCapabilities;
};

Calls calls{};
bool isLoaded = false;

std::runtime_error loaderError() {
    const char* const text = ::dlerror();
    return std::runtime_error(text != nullptr ? text : "libkiv.so.1: cannot be loaded");
}

template <typename Call>
void find(void* library, const char* name, Call& call) {
    call = reinterpret_cast<Call>(::dlsym(library, name));
    if (call == nullptr) {
        throw loaderError();
    }
}

}  // namespace

void loadLibrary() {
    if (isLoaded) {
        return;
    }
    void* const library = ::dlopen("libkiv.so.1", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw loaderError();
    }
    find(library, "kiv_set_log_cb", calls.setLogCallback);
    find(library, "kiv_load_config", calls.loadConfig);
    find(library, "kiv_cg_enter", calls.enterCgroup);
    find(library, "kiv_apply_namespaces", calls.applyNamespaces);
    find(library, "kiv_seccomp", calls.installFilter);
    find(library, "kiv_capabilities", calls.reduceCapabilities);
    isLoaded = true;
}

// The functions of kiv.h for the module's other files. They call the library that loadLibrary has
// loaded.

void kiv_set_log_cb(kiv_log_cb callback) {
    if (isLoaded) {
        calls.setLogCallback(callback);
    }
}

int kiv_load_config(void* handle) {
    return isLoaded ? calls.loadConfig(handle) : -1;
}

int kiv_cg_enter(void* handle, uid_t uid) {
    return isLoaded ? calls.enterCgroup(handle, uid) : -1;
}

int kiv_apply_namespaces(void* handle, const char* user, int flags) {
    return isLoaded ? calls.applyNamespaces(handle, user, flags) : -1;
}

int kiv_seccomp(void* handle) {
    return isLoaded ? calls.installFilter(handle) : -1;
}

int kiv_capabilities(void* handle) {
    return isLoaded ? calls.reduceCapabilities(handle) : -1;
}
