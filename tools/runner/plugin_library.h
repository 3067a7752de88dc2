#ifndef TOOLS_RUNNER_PLUGIN_LIBRARY_H
#define TOOLS_RUNNER_PLUGIN_LIBRARY_H

// The plug-in loaded as the agent loads it (dlopen, functions by name), and
// where it is looked for when --lib is not given.

#include <dlfcn.h>

#include <string>

#include "os/base/kira_raii.h"
#include "plugin/linux/fi_types.h"

namespace zadi_runner {

class PluginLibrary {
public:
    // `path` empty: DefaultLibraryPath(). False, with the reason on standard
    // error, when it cannot be loaded.
    bool Load(const std::string& path);
    // Any exported function by name; null when absent.
    void* Symbol(const char* name) const;
    FI_ITEM_FN Item(const std::string& name) const { return reinterpret_cast<FI_ITEM_FN>(Symbol(name.c_str())); }
    const std::string& path() const { return path_; }

private:
    kira::UniqueHandle<void, dlclose> handle_;
    std::string path_;
};

// Beside the build tree, then relative to the executable, then installed.
std::string DefaultLibraryPath();

}  // namespace zadi_runner

#endif
