// SendErrRpt against the substitute agent library: the key per code, the
// parameters attached and their order, the exact reasons, and that every
// report created is destroyed whatever the agent refuses.

#include <gtest/gtest.h>

#include <string>

#include "census_test_params.h"
#include "plugin/linux/err_report.h"
#include "support/sandbox.h"
#include "tools/agent_sub/zadi_agent_sub.h"

using census_test::Bits;
using census_test::FreshResult;
using census_test::kFaultBits;
using census_test::Params;

namespace {

struct Outcome {
    float value;
    FI_RESULT_S result;
};

Outcome Send(Params& p, FI_CONTEXT_S* context = nullptr) {
    Outcome o{0.0f, FreshResult()};
    o.value = SendErrRpt(p.argc(), p.argv(), context, &o.result);
    return o;
}

std::string LastSent() {
    char line[8192];
    int n = ZADI_AgentSubLastSent(line, sizeof(line));
    return n < 0 ? std::string() : std::string(line, static_cast<size_t>(n));
}

ZADI_PRIMARY_KEY_S LastKey() {
    ZADI_PRIMARY_KEY_S key{};
    EXPECT_EQ(ZADI_AgentSubLastSentKey(&key), 0);
    return key;
}

void ExpectFault(const Outcome& o, const char* reason) {
    EXPECT_EQ(Bits(o.value), kFaultBits);
    EXPECT_EQ(o.result.result, -1);
    EXPECT_STREQ(o.result.reason, reason);
    EXPECT_EQ(ZADI_AgentSubLiveReports(), 0) << "a report leaked";
}

void ExpectSent(const Outcome& o) {
    EXPECT_EQ(Bits(o.value), Bits(0.0f));
    EXPECT_EQ(o.result.result, 0);
    EXPECT_EQ(ZADI_AgentSubLiveReports(), 0) << "a report leaked";
}

Params HeartbeatParams() {
    Params p;
    p.Add("ErrCode", "0xF000020F").Add("ProcessName", "worker").Add("RecoverCmd", "restart worker");
    p.Add("ProcessMoudleId", "7").Add("UserData", "17").Add("Site", "a\"b");
    return p;
}

}  // namespace

SANDBOX_TEST(ErrRpt, SystemCodesBuildKeyAndAttachNothing) {
    struct Case {
        const char* code;
        const char* modId;
        uint16_t resType;
        uint32_t errCode;
    } cases[] = {
        {"0xF0000203", "5", 0xF005, 0xF0000203u},
        {"0XF0000204", "70000", 0xF170, 0xF0000204u},  // module id cut to 16 bits
        {"4026532356", "0x1234", 0xF234, 0xF0000204u},  // decimal code
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        ZADI_AgentSubReset();
        Params p;
        p.Add("ErrCode", c.code).Add("ProcessMoudleId", c.modId).Add("ResId", "cpu").Add("Extra", "x");
        Outcome o{0.0f, FreshResult()};
        strcpy(o.result.reason, "untouched");
        o.value = SendErrRpt(p.argc(), p.argv(), nullptr, &o.result);
        ExpectSent(o);
        EXPECT_STREQ(o.result.reason, "untouched");
        ZADI_PRIMARY_KEY_S key = LastKey();
        EXPECT_EQ(key.resType, c.resType);
        EXPECT_EQ(key.errCode, c.errCode);
        EXPECT_STREQ(key.resId, "cpu");
        EXPECT_EQ(key.rptType, 1);
        EXPECT_NE(LastSent().find("params={}"), std::string::npos) << LastSent();
        EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_ADDPARAM), 0);
    }
    char diag[96];
    snprintf(diag, sizeof(diag), "DiagCode(0x%X) resId cpu.", 0xF0000203u);
    EXPECT_EQ(kt::SyslogCount(diag), 1);
}

SANDBOX_TEST(ErrRpt, HeartbeatAttachesAllButCodeAndRecoverCmdInOrder) {
    ZADI_AgentSubReset();
    Params p = HeartbeatParams();
    ExpectSent(Send(p));
    ZADI_PRIMARY_KEY_S key = LastKey();
    EXPECT_EQ(key.resType, 0xF007);
    EXPECT_EQ(key.errCode, 0xF000020Fu);
    EXPECT_STREQ(key.resId, "worker:17");
    EXPECT_NE(LastSent().find("params={ProcessName=\"worker\", ProcessMoudleId=\"7\", UserData=\"17\", "
                              "Site=\"a\\\"b\"}"),
              std::string::npos)
        << LastSent();
    EXPECT_EQ(kt::SyslogCount("DiagCode(0xF000020F) resId worker:17."), 1);

    // Decimal code, no UserData: the id is the name alone.
    ZADI_AgentSubReset();
    Params q;
    q.Add("ErrCode", "4026532367").Add("ProcessMoudleId", "7").Add("ProcessName", "worker").Add("ResId", "r");
    ExpectSent(Send(q));
    EXPECT_STREQ(LastKey().resId, "worker");
    EXPECT_NE(LastSent().find("params={ProcessMoudleId=\"7\", ProcessName=\"worker\", ResId=\"r\"}"),
              std::string::npos)
        << LastSent();

    // Only the low 32 bits of the code count.
    ZADI_AgentSubReset();
    Params r;
    r.Add("ErrCode", "0x1F000020F").Add("ProcessName", "w").Add("ProcessMoudleId", "1");
    ExpectSent(Send(r));
    EXPECT_EQ(LastKey().errCode, 0xF000020Fu);
}

SANDBOX_TEST(ErrRpt, LongIdsAreCutAndOversizedValuesStayBounded) {
    ZADI_AgentSubReset();
    std::string longName(70, 'n');
    Params p;
    p.Add("ErrCode", "0xF000020F").Add("ProcessName", longName).Add("ProcessMoudleId", "3");
    ExpectSent(Send(p));
    EXPECT_EQ(std::string(LastKey().resId), longName.substr(0, 63));

    // A value filling all 400 bytes has no terminator; it is the last
    // parameter, so reading past it would leave the array.
    ZADI_AgentSubReset();
    std::string full(400, 'v');
    Params q;
    q.Add("ErrCode", "0xF0000203").Add("ProcessMoudleId", "2").Add("ResId", full);
    ExpectSent(Send(q));
    EXPECT_EQ(std::string(LastKey().resId), full.substr(0, 63));

    ZADI_AgentSubReset();
    Params r;
    r.Add("ErrCode", "0xF000020F").Add("ProcessMoudleId", "2").Add("ProcessName", "w").Add("UserData", full);
    ExpectSent(Send(r));
    EXPECT_EQ(std::string(LastKey().resId), ("w:" + full).substr(0, 63));
    EXPECT_NE(LastSent().find("UserData=\"" + full + "\"}"), std::string::npos);
}

SANDBOX_TEST(ErrRpt, ArgumentAndParameterFaults) {
    ZADI_AgentSubReset();
    Params good = HeartbeatParams();
    EXPECT_EQ(Bits(SendErrRpt(good.argc(), good.argv(), nullptr, nullptr)), kFaultBits);

    Outcome o{0.0f, FreshResult()};
    o.value = SendErrRpt(-1, good.argv(), nullptr, &o.result);
    ExpectFault(o, "Input parameter number error.");
    o.value = SendErrRpt(1, nullptr, nullptr, &o.result);
    ExpectFault(o, "Input parameter number error.");
    o.value = SendErrRpt(0, good.argv(), nullptr, &o.result);
    ExpectFault(o, "Get para 'ErrCode' failed.");

    struct Case {
        Params params;
        const char* reason;
    } cases[] = {
        {Params().Add("ProcessMoudleId", "1"), "Get para 'ErrCode' failed."},
        {Params().Add("ErrCode", "0xFFFFFFFF"), "Get para 'ErrCode' failed."},
        {Params().Add("ErrCode", "4294967295"), "Get para 'ErrCode' failed."},
        {Params().Add("ErrCode", "0x12"), "ErrCode 0x12 is not supported."},
        {Params().Add("ErrCode", "0xf000020e"), "ErrCode 0xF000020E is not supported."},
        {Params().Add("ErrCode", "zz"), "ErrCode 0x0 is not supported."},
        // Converted up to the first bad character: 0xF0000203 selects CPU.
        {Params().Add("ErrCode", "0xF0000203zz").Add("ResId", "r"), "Get para 'ProcessMoudleId' failed."},
        {Params().Add("ErrCode", "0xF0000204").Add("ProcessMoudleId", "1"), "Get para 'ResId' failed."},
        {Params().Add("ErrCode", "0xF000020F").Add("ProcessMoudleId", "1"), "Get para 'ProcessName' failed."},
        {Params().Add("ErrCode", "0xF000020F"), "Get para 'ProcessName' failed."},
        {Params().Add("ErrCode", "0xF000020F").Add("ProcessName", "w"), "Get para 'ProcessMoudleId' failed."},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.reason);
        ExpectFault(Send(c.params), c.reason);
    }
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_CREATE), 0);
    EXPECT_EQ(ZADI_AgentSubSentReports(), 0);
    EXPECT_EQ(kt::SyslogCount("DiagCode"), 0);

    // The first of two parameters with the same name is the one used.
    Params dup;
    dup.Add("ErrCode", "0xF0000203").Add("ErrCode", "0xF000020F").Add("ProcessMoudleId", "1").Add("ResId", "x");
    ExpectSent(Send(dup));
    EXPECT_EQ(LastKey().errCode, 0xF0000203u);
}

SANDBOX_TEST(ErrRpt, AgentRefusalsDestroyTheReport) {
    Params cpu;
    cpu.Add("ErrCode", "0xF0000203").Add("ProcessMoudleId", "5").Add("ResId", "cpu");

    ZADI_AgentSubReset();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_CREATE, 1);
    ExpectFault(Send(cpu), "Create ErrRpt failed.");
    Params hb = HeartbeatParams();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_CREATE, 1);
    ExpectFault(Send(hb), "Create ErrRpt failed.");

    // The second parameter attached is ProcessMoudleId (ErrCode is skipped).
    ZADI_AgentSubReset();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_ADDPARAM, 2);
    ExpectFault(Send(hb), "Add param ProcessMoudleId=7 fail.");
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_ADDPARAM), 2) << "attaching must stop at the refusal";
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_SEND), 0);

    ZADI_AgentSubReset();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_SEND, 1);
    ExpectFault(Send(cpu), "Send ErrRpt failed.");
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_SEND, 1);
    ExpectFault(Send(hb), "Send ErrRpt failed.");
    EXPECT_EQ(ZADI_AgentSubSentReports(), 0);

    // The key read back is only logged; a refusal there does not stop the send.
    ZADI_AgentSubReset();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_GETKEY, -1);
    ExpectSent(Send(cpu));
    EXPECT_EQ(ZADI_AgentSubSentReports(), 1);
}

SANDBOX_TEST(AgentSub, EnvironmentPlanAndOutputFile) {
    // What a host without the control calls uses: the environment.
    setenv("ZADI_AGENT_SUB_FAIL", "addparam=3,send", 1);
    setenv("ZADI_AGENT_SUB_OUT", "/tmp/reports.log", 1);
    ZADI_AgentSubReset();
    Params hb = HeartbeatParams();
    ExpectFault(Send(hb), "Add param UserData=17 fail.");
    ExpectFault(Send(hb), "Send ErrRpt failed.");
    EXPECT_EQ(kt::ReadFile("/tmp/reports.log"), "");

    unsetenv("ZADI_AGENT_SUB_FAIL");
    ZADI_AgentSubReset();
    ExpectSent(Send(hb));
    ExpectSent(Send(hb));
    std::string log = kt::ReadFile("/tmp/reports.log");
    std::string line = LastSent() + "\n";
    EXPECT_EQ(log, line + line);
    EXPECT_EQ(line.rfind("errrpt errCode=0xF000020F resType=0xF007 rptType=1 resId=\"worker:17\" desc=\"\" params={", 0),
              0u)
        << line;
}
