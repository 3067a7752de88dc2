// ProcessHeartBeat: the table of heartbeat files seen for one configured
// process, kept in the item's contextbuff (initialisation, the per-file
// update, compaction), and the verdict with its hang flow id.

#include <stdlib.h>
#include <string.h>

#include "plugin/linux/item_contract_internal.h"
#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/process_monitor_internal.h"
#include "safec/safec.h"

static_assert(ZADI_HEARTBEAT_NODE_MAX == 7, "the heartbeat table holds seven files");
static_assert(offsetof(FI_CONTEXT_S, contextbuff) % alignof(ZADI_PROCESS_HEARTBEAT_CONTEXT) == 0 &&
                  alignof(FI_CONTEXT_S) % alignof(ZADI_PROCESS_HEARTBEAT_CONTEXT) == 0,
              "the heartbeat table is overlaid on contextbuff in place");

namespace {

ZADI_PROCESS_HEARTBEAT_CONTEXT* Overlay(FI_CONTEXT_S* context) {
    return reinterpret_cast<ZADI_PROCESS_HEARTBEAT_CONTEXT*>(context->contextbuff);
}

// A size beyond what contextbuff holds can only come from a corrupted block;
// never walk past it.
uint32_t Capacity(const ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx) {
    return ctx->uiSize < ZADI_HEARTBEAT_NODE_MAX ? ctx->uiSize : static_cast<uint32_t>(ZADI_HEARTBEAT_NODE_MAX);
}

void ZeroNode(ZADI_PROCESS_HEARTBEAT_NODE* node) { (void)memset_s(node, sizeof(*node), 0, sizeof(*node)); }

// Drops nodes whose file was not seen and moves the rest to the front,
// keeping their order.
void CompactNodes(ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx) {
    uint32_t cap = Capacity(ctx);
    int j = 0;
    for (uint32_t i = 0; i < cap && ctx->stNode[i].uiProcessId != 0; ++i, ++j) {
        ZADI_PROCESS_HEARTBEAT_NODE* node = &ctx->stNode[i];
        if (!node->bFileExist) {
            ZeroNode(node);
            --j;
        } else if (static_cast<int>(i) != j) {
            ctx->stNode[j] = *node;
            ZeroNode(node);
            node->hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
        }
    }
}

// Only the first file of a pid in a scan moves the node on; a later one (a
// name whose pid field atoi reads as the same number) is only compared, so
// it can neither hide nor fake a change of the first.
void CompareAndStore(ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx, ZADI_PROCESS_HEARTBEAT_NODE* node,
                     const ZADI_PROCESS_HEARTBEAT_NODE& fresh, bool store) {
    size_t used = fresh.uiBufferUsed < sizeof(fresh.szBuffer) ? fresh.uiBufferUsed : sizeof(fresh.szBuffer);
    if (fresh.uiBufferUsed == node->uiBufferUsed && memcmp(fresh.szBuffer, node->szBuffer, used) == 0) {
        // The id reported is the one written with the token that stopped
        // changing, not whatever line 2 says now.
        ctx->bHeartbeatRefreshed = false;
        ctx->hangFlowId = node->hangFlowId;
        return;
    }
    if (!store) {
        return;
    }
    node->uiBufferUsed = fresh.uiBufferUsed;
    (void)memcpy_s(node->szBuffer, sizeof(node->szBuffer), fresh.szBuffer, sizeof(fresh.szBuffer));
    node->hangFlowId = fresh.hangFlowId;
}

}  // namespace

int CheckProcessHeartBeatFileRefresh(const char* filePath, const char* filename, void* pContext) {
    zadi::HeartbeatScanArgs args;
    memcpy(&args, pContext, sizeof(args));
    const char* processName = args.processName;
    const char* moduleId = args.moduleId;
    ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx = args.ctx;

    char copy[zadi::kHeartbeatPathSize];
    if (strcpy_s(copy, sizeof(copy), filename) != 0) {
        return 0;
    }
    char* fields[3] = {nullptr, nullptr, nullptr};
    SpliteHeartFileName(copy, sizeof(copy), fields);
    if (!CheckFileAndProc(processName, moduleId, fields, 3)) {
        return 0;
    }
    uint32_t procId = static_cast<uint32_t>(atoi(fields[2]));

    uint32_t cap = Capacity(ctx);
    uint32_t i = 0;
    while (i < cap && ctx->stNode[i].uiProcessId != 0 && ctx->stNode[i].uiProcessId != procId) {
        ++i;
    }
    if (i == cap) {
        return 0;  // table full: further pids are not tracked
    }
    ZADI_PROCESS_HEARTBEAT_NODE* node = &ctx->stNode[i];
    if (node->uiProcessId == 0) {
        // First sight of this pid: nothing to compare with yet.
        if (ReadHeartbeatFile(filePath, node) == 0) {
            node->uiProcessId = procId;
            node->bFileExist = true;
        }
        return 0;
    }
    const bool firstInScan = !node->bFileExist;
    node->bFileExist = true;
    ZADI_PROCESS_HEARTBEAT_NODE fresh;
    ZeroNode(&fresh);
    if (ReadHeartbeatFile(filePath, &fresh) == 0) {
        CompareAndStore(ctx, node, fresh, firstInScan);
    }
    return 0;
}

bool HeartBeatRefreshed(const char* pszProcessName, const char* pszPid, FI_CONTEXT_S* context,
                        unsigned int* hangFlowId) {
    ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx = Overlay(context);
    if (ctx->uiSize == 0) {
        ctx->uiSize = ZADI_HEARTBEAT_NODE_MAX;
        ctx->hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
        ctx->bHeartbeatRefreshed = true;
    }
    uint32_t cap = Capacity(ctx);
    for (uint32_t i = 0; i < cap && ctx->stNode[i].uiProcessId != 0; ++i) {
        ctx->stNode[i].bFileExist = false;
    }
    ctx->bHeartbeatRefreshed = true;

    zadi::HeartbeatScanArgs args = {pszProcessName, pszPid, ctx};
    (void)ForeachDir(ZADI_HEARTBEAT_DIR, CheckProcessHeartBeatFileRefresh, &args);

    CompactNodes(ctx);
    *hangFlowId = ctx->hangFlowId;
    return ctx->bHeartbeatRefreshed;
}

float ProcessHeartBeat(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    if (result == nullptr) {
        return zadi::FaultMarker();
    }
    if (argc < 0 || argv == nullptr) {
        zadi::SetFault(result, "Input parameter number error.");
        return zadi::FaultMarker();
    }
    if (context == nullptr) {
        zadi::SetFault(result, "Input parameter context error.");
        return zadi::FaultMarker();
    }
    zadi::ParamValue processName;
    if (!zadi::LoadParam(argc, argv, "ProcessName", &processName)) {
        zadi::SetFault(result, "Get para 'ProcessName' failed.");
        return zadi::FaultMarker();
    }
    zadi::ParamValue moduleId;
    if (!zadi::LoadParam(argc, argv, "ProcessMoudleId", &moduleId)) {
        zadi::SetFault(result, "Get para 'ProcessMoudleId' failed.");
        return zadi::FaultMarker();
    }

    unsigned int hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
    float value = 1.0f;
    if (!HeartBeatRefreshed(processName.c_str(), moduleId.c_str(), context, &hangFlowId)) {
        value = 0.0f;
        result->hangflowid = hangFlowId;
        PLUGIN_LOG_ERR("Process %s(%s) heartbeat not refreshed, hangFlowId=%d.", processName.c_str(), moduleId.c_str(),
                       static_cast<int>(hangFlowId));
    }
    result->result = 0;
    return value;
}
