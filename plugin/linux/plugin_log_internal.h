#ifndef PLUGIN_LINUX_PLUGIN_LOG_INTERNAL_H
#define PLUGIN_LINUX_PLUGIN_LOG_INTERNAL_H

// The plug-in's one way to log: through DBG_Log under the monitor's module
// number, code 0, with the calling function's name and line supplied here.
// Failures are logged at DBG_LOG_ERROR, events at DBG_LOG_EVENT. Never
// exported.

#include <errno.h>
#include <string.h>

#include "os/log/dbg_log.h"
#include "plugin/linux/zadi_inner.h"

#define PLUGIN_LOG_ERR(...) PLUGIN_LOG_ERR_AS(__FUNCTION__, __VA_ARGS__)
#define PLUGIN_LOG_EVENT(...) DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_EVENT, __FUNCTION__, __LINE__, 0, __VA_ARGS__)
// For a helper that fails on behalf of a measurement: the line names the
// measurement, which is what the reader of the log knows.
#define PLUGIN_LOG_ERR_AS(func, ...) DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_ERROR, func, __LINE__, 0, __VA_ARGS__)

#endif
