// Small per-process readers (kernel name, command line text, a field of a
// stat line) and the pre-command gate that runs a shell command.

#include <stdio.h>

#include "plugin/linux/common_plugin_internal.h"

int ZADI_Linux_Plugin::get_procname_bypid(int pid, char* buf, size_t size) {
    char path[zadi::kPidPathSize];
    if (snprintf_s(path, sizeof(path), sizeof(path) - 1, "/proc/%u/status", static_cast<unsigned int>(pid)) < 0) {
        return -1;
    }
    zadi::LineReader reader;
    if (!reader.Open(path)) {
        PLUGIN_LOG_ERR("Open failed(%s), errno(%d, %s).", path, errno, strerror(errno));
        return -1;
    }
    char line[256];
    while (reader.Gets(line, sizeof(line))) {
        if (strstr(line, "Name:") != nullptr) {
            // A name with a space keeps only its first word.
            (void)sscanf_s(line, "%*s %s", buf, static_cast<unsigned int>(size));
            return 0;
        }
    }
    return -1;
}

int ZADI_Linux_Plugin::get_cmdline_bypid(int pid, char* buf, size_t size) {
    if (buf == nullptr) {
        return -1;
    }
    char path[zadi::kPidPathSize];
    if (snprintf_s(path, sizeof(path), sizeof(path) - 1, "/proc/%u/cmdline", static_cast<unsigned int>(pid)) < 0) {
        return -1;
    }
    if (read_file(path, buf, static_cast<unsigned int>(size), 1) != 0) {
        return -1;
    }
    change_cmdlie_to_str(buf, static_cast<unsigned int>(size));
    return 0;
}

const char* ZADI_Linux_Plugin::get_items(const char* str, int n) {
    if (str == nullptr) {
        return nullptr;
    }
    if (n < 2) {
        return str;
    }
    // Single spaces are counted; runs of spaces are not merged.
    int spaces = 0;
    const char* p = str;
    for (; *p != '\0'; ++p) {
        if (*p == ' ' && ++spaces == n - 1) {
            return p + 1;
        }
    }
    return p;
}

int ZADI_Linux_Plugin::exec_pre_cmd(char* cmd, char* keywords) {
    if (cmd == nullptr || keywords == nullptr) {
        return -1;
    }
    char output[32];
    {
        kira::UniqueHandle<FILE, ::pclose> pipe(popen(cmd, "r"));
        if (!pipe) {
            PLUGIN_LOG_ERR("Open file failed, errno(%d, %s).", errno, strerror(errno));
            return -1;
        }
        (void)memset_s(output, sizeof(output), 0, sizeof(output));
        (void)fread(output, 1, sizeof(output), pipe.get());
        // pclose (the holder) waits for the command; there is no time limit.
    }
    output[sizeof(output) - 1] = '\0';
    return strncmp(output, keywords, strlen(keywords)) == 0 ? 0 : -1;
}
