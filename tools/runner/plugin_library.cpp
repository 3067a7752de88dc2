// Loading the plug-in the way the agent does and finding its functions by
// name. Outside the agent the plug-in's imported error-report functions come
// from the stand-in library, loaded globally first unless something in the
// process already provides them. Both libraries are taken from the build
// tree when the runner runs from there, else from beside the runner
// (PREFIX/lib for PREFIX/bin/zadi_runner), else from the configured prefix.

#include "tools/runner/plugin_library.h"

#include <limits.h>
#include <stdio.h>
#include <unistd.h>

#include "tools/runner/runner_env.h"

namespace zadi_runner {

namespace {

std::string ExecutableDir() {
    char buf[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    const std::string path(buf, n > 0 ? static_cast<size_t>(n) : 0);
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

std::string DlError() {
    const char* why = dlerror();
    return why != nullptr ? why : "unknown error";
}

// The agent's functions are looked up in the whole process first.
bool LoadAgentStandIn() {
    if (dlsym(RTLD_DEFAULT, "ZADI_SendErrReportSub") != nullptr) {
        return true;
    }
    const std::string path = LibraryPath(ZADI_RUNNER_BUILD_AGENT_SUB, "libzadi_agent_sub.so");
    if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        return Complain(false, "cannot load the agent's stand-in %s: %s", path.c_str(), DlError().c_str());
    }
    return true;
}

}  // namespace

bool PluginLibrary::Load(const std::string& path) {
    path_ = path.empty() ? DefaultLibraryPath() : path;
    if (access(path_.c_str(), R_OK) != 0) {
        return Complain(false, "plug-in library not found: %s", path_.c_str());
    }
    if (!LoadAgentStandIn()) {
        return false;
    }
    handle_.reset(dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL));
    if (!handle_) {
        return Complain(false, "cannot load %s: %s", path_.c_str(), DlError().c_str());
    }
    return true;
}

void* PluginLibrary::Symbol(const char* name) const { return handle_ ? dlsym(handle_.get(), name) : nullptr; }

std::string DefaultLibraryPath() { return LibraryPath(ZADI_RUNNER_BUILD_LIB, "libzadi_linux_plugin.so"); }

}  // namespace zadi_runner
