// A process's kernel name from its status file, and the pre-command gate
// that runs a shell command.

#include <stdio.h>

#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/proc_read_internal.h"
#include "safec/safec.h"

int ZADI_Linux_Plugin::get_procname_bypid(int pid, char* buf, size_t size) {
    char path[zadi::kPidPathSize];
    kira::LineReader reader;
    if (!zadi::OpenPidFile(reader, path, static_cast<unsigned int>(pid), "status")) {
        if (path[0] != '\0') {
            PLUGIN_LOG_ERR("Open failed(%s), errno(%d, %s).", path, errno, strerror(errno));
        }
        return -1;
    }
    zadi::StatusScan scan;
    scan.name = buf;
    scan.nameSize = size;
    zadi::ScanStatus(reader, &scan);
    return scan.nameFound ? 0 : -1;
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
