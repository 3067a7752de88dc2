#ifndef PLUGIN_LINUX_ERR_REPORT_H
#define PLUGIN_LINUX_ERR_REPORT_H

// The item that raises an error report through the agent's report service
// for a fault the agent detected (system CPU or memory too high, a stopped
// heartbeat).

#include "os/base/kira_export.h"
#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_items.h"

// Codes the agent may ask a report for.
#define ZADI_ERRCODE_SYS_CPU_HIGH 0xF0000203u
#define ZADI_ERRCODE_SYS_MEM_HIGH 0xF0000204u
#define ZADI_ERRCODE_HEARTBEAT_LAST 0xF000020Fu

#endif
