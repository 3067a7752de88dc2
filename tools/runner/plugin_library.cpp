// Loading the plug-in the way the agent does and finding items by name.

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include "tools/runner/runner.h"

namespace zr {

PluginLibrary::~PluginLibrary() {
    if (handle_ != nullptr) {
        dlclose(handle_);
    }
}

bool PluginLibrary::Load(const std::string& path) {
    path_ = path;
    if (access(path.c_str(), R_OK) != 0) {
        error_ = "plug-in library not found: " + path;
        return false;
    }
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* why = dlerror();
        error_ = "cannot load " + path + ": " + (why != nullptr ? why : "unknown error");
        return false;
    }
    return true;
}

void* PluginLibrary::Symbol(const char* name) const { return handle_ != nullptr ? dlsym(handle_, name) : nullptr; }

FI_ITEM_FN PluginLibrary::Item(const std::string& name) const {
    return reinterpret_cast<FI_ITEM_FN>(Symbol(name.c_str()));
}

namespace {

std::string ExecutableDir() {
    char buf[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) {
        return ".";
    }
    buf[n] = '\0';
    std::string path(buf);
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool Readable(const std::string& path) { return !path.empty() && access(path.c_str(), R_OK) == 0; }

}  // namespace

std::string DefaultLibraryPath() {
    const std::string candidates[] = {
        ZADI_RUNNER_BUILD_LIB,
        ExecutableDir() + "/../lib/libzadi_linux_plugin.so",
        ExecutableDir() + "/libzadi_linux_plugin.so",
        ZADI_RUNNER_INSTALLED_LIB,
    };
    for (const std::string& c : candidates) {
        if (Readable(c)) {
            return c;
        }
    }
    return ZADI_RUNNER_INSTALLED_LIB;
}

bool LoadLibrary(RunnerEnv& env) {
    const std::string path = env.options.lib.empty() ? DefaultLibraryPath() : env.options.lib;
    if (!env.library.Load(path)) {
        fprintf(env.err, "zadi_runner: %s\n", env.library.error().c_str());
        return false;
    }
    return true;
}

}  // namespace zr
