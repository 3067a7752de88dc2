// SendErrRpt against the substitute agent library: the key per code, the
// parameters attached and their order, the exact reasons, and that every
// report created is destroyed whatever the agent refuses.

#include "plugin/linux/err_report.h"
#include "support/sandbox.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tools/agent_sub/zadi_agent_sub.h"

using itest::Args;
using itest::Bits;
using itest::kMarkerBits;

namespace {

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

void ExpectFault(float value, const FI_RESULT_S& r, const char* reason) {
    itest::ExpectRefused(value, r, reason);
    EXPECT_EQ(ZADI_AgentSubLiveReports(), 0) << "a report leaked";
}
void ExpectFault(Args& a, const char* reason) {
    a.ResetResult();
    ExpectFault(a.Call(SendErrRpt), a.result, reason);
}

// Sent: 0.0, result 0, reason untouched, nothing leaked.
void ExpectSent(Args& a) {
    a.ResetResult();
    EXPECT_EQ(Bits(a.Ok(SendErrRpt)), Bits(0.0f));
    EXPECT_EQ(a.reason(), "untouched");
    EXPECT_EQ(ZADI_AgentSubLiveReports(), 0) << "a report leaked";
}

Args HeartbeatParams() {
    return {{"ErrCode", "0xF000020F"}, {"ProcessName", "worker"}, {"RecoverCmd", "restart worker"},
            {"ProcessMoudleId", "7"},  {"UserData", "17"},        {"Site", "a\"b"}};
}

}  // namespace

SANDBOX_TEST(ErrRpt, SystemCodesBuildKeyAndAttachNothing) {
    const struct {
        const char* code;
        const char* modId;
        uint16_t resType;
        uint32_t errCode;
    } cases[] = {
        {"0xF0000203", "5", 0xF005, 0xF0000203u},
        {"0XF0000204", "70000", 0xF170, 0xF0000204u},   // module id cut to 16 bits
        {"4026532356", "0x1234", 0xF234, 0xF0000204u},  // decimal code
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        ZADI_AgentSubReset();
        Args a{{"ErrCode", c.code}, {"ProcessMoudleId", c.modId}, {"ResId", "cpu"}, {"Extra", "x"}};
        ExpectSent(a);
        ZADI_PRIMARY_KEY_S key = LastKey();
        EXPECT_EQ(key.resType, c.resType);
        EXPECT_EQ(key.errCode, c.errCode);
        EXPECT_STREQ(key.resId, "cpu");
        EXPECT_EQ(key.rptType, 1);
        EXPECT_NE(LastSent().find("params={}"), std::string::npos) << LastSent();
        EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_ADDPARAM), 0);
    }
    EXPECT_EQ(kt::SyslogCount("DiagCode(0xF0000203) resId cpu."), 1);
}

SANDBOX_TEST(ErrRpt, HeartbeatAttachesAllButCodeAndRecoverCmdInOrder) {
    const std::string full(400, 'v');
    const struct {
        Args args;
        uint32_t errCode;
        std::string resId;
        std::string params;  // "" when not checked
    } cases[] = {
        {HeartbeatParams(), 0xF000020Fu, "worker:17",
         "params={ProcessName=\"worker\", ProcessMoudleId=\"7\", UserData=\"17\", Site=\"a\\\"b\"}"},
        // Decimal code, no UserData: the id is the name alone.
        {{{"ErrCode", "4026532367"}, {"ProcessMoudleId", "7"}, {"ProcessName", "worker"}, {"ResId", "r"}},
         0xF000020Fu,
         "worker",
         "params={ProcessMoudleId=\"7\", ProcessName=\"worker\", ResId=\"r\"}"},
        // Only the low 32 bits of the code count.
        {{{"ErrCode", "0x1F000020F"}, {"ProcessName", "w"}, {"ProcessMoudleId", "1"}}, 0xF000020Fu, "w", ""},
        // Ids are cut to 63; a value filling all 400 bytes has no terminator
        // and, as the last parameter, reading past it would leave the array.
        {{{"ErrCode", "0xF000020F"}, {"ProcessName", std::string(70, 'n')}, {"ProcessMoudleId", "3"}},
         0xF000020Fu,
         std::string(63, 'n'),
         ""},
        {{{"ErrCode", "0xF0000203"}, {"ProcessMoudleId", "2"}, {"ResId", full}}, 0xF0000203u, full.substr(0, 63), ""},
        {{{"ErrCode", "0xF000020F"}, {"ProcessMoudleId", "2"}, {"ProcessName", "w"}, {"UserData", full}},
         0xF000020Fu,
         ("w:" + full).substr(0, 63),
         "UserData=\"" + full + "\"}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.resId);
        ZADI_AgentSubReset();
        Args a = c.args;
        ExpectSent(a);
        ZADI_PRIMARY_KEY_S key = LastKey();
        EXPECT_EQ(key.errCode, c.errCode);
        EXPECT_EQ(std::string(key.resId), c.resId);
        EXPECT_NE(LastSent().find(c.params), std::string::npos) << LastSent();
    }
    ZADI_AgentSubReset();
    Args hb = HeartbeatParams();
    ExpectSent(hb);
    EXPECT_EQ(LastKey().resType, 0xF007);
    EXPECT_EQ(kt::SyslogCount("DiagCode(0xF000020F) resId worker:17."), 2);
}

SANDBOX_TEST(ErrRpt, ArgumentAndParameterFaults) {
    ZADI_AgentSubReset();
    Args good = HeartbeatParams();
    EXPECT_EQ(Bits(SendErrRpt(good.argc(), good.argv(), nullptr, nullptr)), kMarkerBits);
    FI_RESULT_S r = itest::FreshResult();
    ExpectFault(SendErrRpt(-1, good.argv(), nullptr, &r), r, "Input parameter number error.");
    ExpectFault(SendErrRpt(1, nullptr, nullptr, &r), r, "Input parameter number error.");
    ExpectFault(SendErrRpt(0, good.argv(), nullptr, &r), r, "Get para 'ErrCode' failed.");

    const struct {
        Args params;
        const char* reason;
    } cases[] = {
        {{{"ProcessMoudleId", "1"}}, "Get para 'ErrCode' failed."},
        {{{"ErrCode", "0xFFFFFFFF"}}, "Get para 'ErrCode' failed."},
        {{{"ErrCode", "4294967295"}}, "Get para 'ErrCode' failed."},
        {{{"ErrCode", "0x12"}}, "ErrCode 0x12 is not supported."},
        {{{"ErrCode", "0xf000020e"}}, "ErrCode 0xF000020E is not supported."},
        {{{"ErrCode", "zz"}}, "ErrCode 0x0 is not supported."},
        // Converted up to the first bad character: 0xF0000203 selects CPU.
        {{{"ErrCode", "0xF0000203zz"}, {"ResId", "r"}}, "Get para 'ProcessMoudleId' failed."},
        {{{"ErrCode", "0xF0000204"}, {"ProcessMoudleId", "1"}}, "Get para 'ResId' failed."},
        {{{"ErrCode", "0xF000020F"}, {"ProcessMoudleId", "1"}}, "Get para 'ProcessName' failed."},
        {{{"ErrCode", "0xF000020F"}}, "Get para 'ProcessName' failed."},
        {{{"ErrCode", "0xF000020F"}, {"ProcessName", "w"}}, "Get para 'ProcessMoudleId' failed."},
    };
    for (auto c : cases) ExpectFault(c.params, c.reason);
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_CREATE), 0);
    EXPECT_EQ(ZADI_AgentSubSentReports(), 0);
    EXPECT_EQ(kt::SyslogCount("DiagCode"), 0);

    // The first of two parameters with the same name is the one used.
    Args dup{{"ErrCode", "0xF0000203"}, {"ErrCode", "0xF000020F"}, {"ProcessMoudleId", "1"}, {"ResId", "x"}};
    ExpectSent(dup);
    EXPECT_EQ(LastKey().errCode, 0xF0000203u);
}

SANDBOX_TEST(ErrRpt, AgentRefusalsDestroyTheReport) {
    Args cpu{{"ErrCode", "0xF0000203"}, {"ProcessMoudleId", "5"}, {"ResId", "cpu"}}, hb = HeartbeatParams();
    ZADI_AgentSubReset();
    for (Args* a : {&cpu, &hb}) {
        ZADI_AgentSubFailCall(ZADI_SUB_CALL_CREATE, 1);
        ExpectFault(*a, "Create ErrRpt failed.");
    }
    // The second parameter attached is ProcessMoudleId (ErrCode is skipped).
    ZADI_AgentSubReset();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_ADDPARAM, 2);
    ExpectFault(hb, "Add param ProcessMoudleId=7 fail.");
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_ADDPARAM), 2) << "attaching must stop at the refusal";
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_SEND), 0);
    ZADI_AgentSubReset();
    for (Args* a : {&cpu, &hb}) {
        ZADI_AgentSubFailCall(ZADI_SUB_CALL_SEND, 1);
        ExpectFault(*a, "Send ErrRpt failed.");
    }
    EXPECT_EQ(ZADI_AgentSubSentReports(), 0);
    // The key read back is only logged; a refusal there does not stop the send.
    ZADI_AgentSubReset();
    ZADI_AgentSubFailCall(ZADI_SUB_CALL_GETKEY, -1);
    ExpectSent(cpu);
    EXPECT_EQ(ZADI_AgentSubSentReports(), 1);
}

SANDBOX_TEST(AgentSub, EnvironmentPlanAndOutputFile) {
    // What a host without the control calls uses: the environment.
    setenv("ZADI_AGENT_SUB_FAIL", "addparam=3,send", 1);
    setenv("ZADI_AGENT_SUB_OUT", "/tmp/reports.log", 1);
    ZADI_AgentSubReset();
    Args hb = HeartbeatParams();
    ExpectFault(hb, "Add param UserData=17 fail.");
    ExpectFault(hb, "Send ErrRpt failed.");
    EXPECT_EQ(kt::ReadFile("/tmp/reports.log"), "");
    unsetenv("ZADI_AGENT_SUB_FAIL");
    ZADI_AgentSubReset();
    ExpectSent(hb);
    ExpectSent(hb);
    std::string line = LastSent() + "\n";
    EXPECT_EQ(kt::ReadFile("/tmp/reports.log"), line + line);
    EXPECT_EQ(
        line.rfind("errrpt errCode=0xF000020F resType=0xF007 rptType=1 resId=\"worker:17\" desc=\"\" params={", 0), 0u)
        << line;
}
