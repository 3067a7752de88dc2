// Loading the plug-in the way the agent does and finding items by name.
// Outside the agent the plug-in's imported error-report functions come from
// the stand-in library, loaded globally first unless something in the
// process already provides them. Both libraries are taken from the build
// tree when the runner runs from there, else from beside the runner
// (PREFIX/lib for PREFIX/bin/zadi_runner), else from the configured prefix.

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

#include "tools/runner/runner.h"

namespace zr {

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

// `file` in the build tree, beside an installed runner, or in the
// configured library directory, the first that exists.
std::string LibraryPath(const std::string& built, const char* file) {
    const std::string exe_dir = ExecutableDir();
    if (exe_dir == ZADI_RUNNER_BUILD_DIR && Readable(built)) {
        return built;
    }
    const std::string beside = exe_dir + "/../" ZADI_RUNNER_LIBDIR "/" + file;
    return Readable(beside) ? beside : std::string(ZADI_RUNNER_INSTALLED_LIBDIR "/") + file;
}

// The agent's functions are looked up in the whole process first.
bool LoadAgentStandIn(std::string* error) {
    if (dlsym(RTLD_DEFAULT, "ZADI_SendErrReportSub") != nullptr) {
        return true;
    }
    const std::string path = LibraryPath(ZADI_RUNNER_BUILD_AGENT_SUB, "libzadi_agent_sub.so");
    if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        const char* why = dlerror();
        *error = "cannot load the agent's stand-in " + path + ": " + (why != nullptr ? why : "unknown error");
        return false;
    }
    return true;
}

}  // namespace

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
    if (!LoadAgentStandIn(&error_)) {
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

std::string DefaultLibraryPath() { return LibraryPath(ZADI_RUNNER_BUILD_LIB, "libzadi_linux_plugin.so"); }

bool LoadLibrary(RunnerEnv& env) {
    const std::string path = env.options.lib.empty() ? DefaultLibraryPath() : env.options.lib;
    if (!env.library.Load(path)) {
        fprintf(env.err, "zadi_runner: %s\n", env.library.error().c_str());
        return false;
    }
    return true;
}

}  // namespace zr
