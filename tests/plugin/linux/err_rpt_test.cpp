// SendErrRpt through the agent's stand-in: the key per code, the parameters attached and their order, and every
// report destroyed whatever the agent refuses. Argument refusals are in the walk over every item.

#include "tests/plugin/linux/items_test_util.h"
#include "tools/agent_sub/zadi_agent_sub.h"

SANDBOX_TEST(ErrRpt, KeysParametersAndRefusalsOfTheAgent) {
    const std::string full(400, 'v');
    const itest::Params cpu = {{"ErrCode", "0xF0000203"}, {"ProcessMoudleId", "5"}, {"ResId", "cpu"}},
                        hb = {{"ErrCode", "0xF000020F"}, {"ProcessName", "worker"}, {"RecoverCmd", "restart"},
                              {"ProcessMoudleId", "7"},  {"UserData", "17"},        {"Site", "a\"b"}};
    // resType: 0xF000 | module id; ids cut to 63; the first ErrCode counts; full fields not read past; the heartbeat
    // attaches all but ErrCode, RecoverCmd.
    // clang-format off
    const struct { itest::Params args; uint16_t resType; uint32_t errCode; std::string resId, sent; } reports[] = {
        {cpu, 0xF005, 0xF0000203u, "cpu", "params={}"},
        {{{"ErrCode", "0XF0000204"}, {"ProcessMoudleId", "70000"}, {"ResId", full}}, 0xF170, 0xF0000204u, full.substr(0, 63), "{}"},
        {{{"ErrCode", "4026532356"}, {"ErrCode", "0xF000020F"}, {"ProcessMoudleId", "0x1234"}, {"ResId", "m"}}, 0xF234, 0xF0000204u,
            "m", "{}"},
        {hb, 0xF007, 0xF000020Fu, "worker:17", "errrpt errCode=0xF000020F resType=0xF007 rptType=1 resId=\"worker:17\" desc=\"\" "
            "params={ProcessName=\"worker\", ProcessMoudleId=\"7\", UserData=\"17\", Site=\"a\\\"b\"}"},
        {{{"ErrCode", "4026532367"}, {"ProcessMoudleId", "7"}, {"ProcessName", "w"}}, 0xF007, 0xF000020Fu, "w",
            "params={ProcessMoudleId=\"7\", ProcessName=\"w\"}"},
        {{{"ErrCode", "0xF000020F"}, {"ProcessMoudleId", "2"}, {"ProcessName", "w"}, {"UserData", full}}, 0xF002, 0xF000020Fu,
            ("w:" + full).substr(0, 63), "UserData=\"" + full + "\"}"}};
    // clang-format on
    char line[8192];
    for (const auto& r : reports) {
        ZADI_AgentSubReset();
        itest::Args a(r.args);
        a.params.shrink_to_fit();
        EXPECT_EQ(itest::Bits(a.Call(SendErrRpt)), itest::Bits(0.0f));
        EXPECT_EQ(a.Written(), std::make_tuple(0, std::string("untouched"), -5, 99u));
        ZADI_PRIMARY_KEY_S key{};
        const int n = ZADI_AgentSubLastSent(line, sizeof(line));
        ASSERT_TRUE(ZADI_AgentSubLastSentKey(&key) == 0 && n > 0);
        EXPECT_EQ(
            std::make_tuple(key.resType, key.errCode, std::string(key.resId), key.rptType, ZADI_AgentSubLiveReports()),
            std::make_tuple(r.resType, r.errCode, r.resId, static_cast<uint8_t>(1), 0));
        EXPECT_NE(std::string(line, n).find(r.sent), std::string::npos) << line;
    }
    EXPECT_EQ(kt::SyslogCount("DiagCode(0xF000020F) resId worker:17."), 1);

    // Told to refuse a call: attaching stops at a refused one; a refused key read is only logged.
    // clang-format off
    const struct { const char* fail; itest::Params args; const char* reason; int attached, sends; } refusals[] = {
        {"create", cpu, "Create ErrRpt failed.", 0, 0}, {"create", hb, "Create ErrRpt failed.", 0, 0},
        {"addparam=2", hb, "Add param ProcessMoudleId=7 fail.", 2, 0}, {"addparam=3,send", hb, "Add param UserData=17 fail.", 3, 0},
        {"send", cpu, "Send ErrRpt failed.", 0, 1}, {"send", hb, "Send ErrRpt failed.", 4, 1}, {"getkey", cpu, "", 0, 1}};
    // clang-format on
    for (const auto& r : refusals) {
        setenv("ZADI_AGENT_SUB_FAIL", r.fail, 1);
        ZADI_AgentSubReset();
        itest::Args a(r.args);
        const bool sent = *r.reason == '\0';
        EXPECT_EQ(itest::Bits(a.Call(SendErrRpt)), sent ? itest::Bits(0.0f) : itest::kMarkerBits) << r.fail;
        EXPECT_EQ(a.Written(), std::make_tuple(sent ? 0 : -1, std::string(sent ? "untouched" : r.reason), -5, 99u));
        EXPECT_EQ(
            std::make_tuple(ZADI_AgentSubCallCount(ZADI_SUB_CALL_ADDPARAM), ZADI_AgentSubCallCount(ZADI_SUB_CALL_SEND),
                            ZADI_AgentSubSentReports(), ZADI_AgentSubLiveReports()),
            std::make_tuple(r.attached, r.sends, sent ? 1 : 0, 0))
            << r.fail;
    }
}
