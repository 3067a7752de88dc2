// The item contract: record layouts, parameter lookup, the argument checks
// and their order, the fault marker, reason writing and period conversion.

#include <stddef.h>

#include <type_traits>

#include "plugin/linux/item_contract_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/sandbox.h"

using itest::Args;

// Layouts the agent depends on.
static_assert(sizeof(FI_PARAM_S) == 500, "FI_PARAM_S size");
static_assert(offsetof(FI_PARAM_S, value) == 100, "FI_PARAM_S.value");
static_assert(sizeof(FI_CONTEXT_S) == 1028, "FI_CONTEXT_S size");
static_assert(offsetof(FI_CONTEXT_S, contextbuff) == 4, "contextbuff offset");
static_assert(sizeof(FI_RESULT_S) == 1036, "FI_RESULT_S size");
static_assert(offsetof(FI_RESULT_S, reason) == 4, "reason offset");
static_assert(offsetof(FI_RESULT_S, pid) == 1028, "pid offset");
static_assert(offsetof(FI_RESULT_S, hangflowid) == 1032, "hangflowid offset");
static_assert(sizeof(process_cpu_context_t) == 24, "cpu context (128 of them are 3072 bytes)");
static_assert(offsetof(process_cpu_context_t, syscputime) == 8, "syscputime offset");
static_assert(offsetof(process_cpu_context_t, procputime) == 16, "procputime offset");
static_assert(sizeof(sys_cpu_context_t) == 16 && offsetof(sys_cpu_context_t, idletime) == 8, "sys cpu context");
static_assert(sizeof(sys_usr_cpu_context_t) == 16 && offsetof(sys_usr_cpu_context_t, uesrtime) == 8,
              "sys usr cpu context");
static_assert(sizeof(process_mem_context_t) == 4 && sizeof(process_handle_context_t) == 4 &&
                  sizeof(process_exist_context_t) == 4,
              "pid contexts");
// One data member, no virtual operations, no constructor.
static_assert(sizeof(ZADI_Linux_Plugin) == sizeof(int), "one int member");
static_assert(!std::is_polymorphic<ZADI_Linux_Plugin>::value, "no virtual operations");
static_assert(std::is_trivially_default_constructible<ZADI_Linux_Plugin>::value, "no constructor");
static_assert(PROCESS_RESOURCE_MEM == 0 && PROCESS_RESOURCE_HANDLE == 1 && PROCESS_RESOURCE_EXIST == 2 &&
                  PROCESS_RESOURCE_MAX == 3,
              "resource numbering");

TEST(ItemContract, GetParaValueReturnsFirstEqualNameInPlace) {
    Args a({{"A", "1"}, {"ProcessName", "first"}, {"ProcessName", "second"}, {"ProcessNameX", "x"}});
    char* v = GetParaValue(a.argc(), a.argv(), "ProcessName");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, a.params[1].value);  // a pointer into argv, not a copy
    EXPECT_EQ(GetParaValue(a.argc(), a.argv(), "ProcessNameX"), a.params[3].value);
    EXPECT_EQ(GetParaValue(a.argc(), a.argv(), "processname"), nullptr);  // case-sensitive
    EXPECT_EQ(GetParaValue(a.argc(), a.argv(), "Process"), nullptr);      // whole-name compare
    EXPECT_EQ(GetParaValue(0, a.argv(), "A"), nullptr);
    EXPECT_EQ(GetParaValue(-3, a.argv(), "A"), nullptr);
}

TEST(ItemContract, ChecksRunInOrderWithExactTexts) {
    ZADI_Linux_Plugin p;
    const auto plain = &ZADI_Linux_Plugin::input_para_check;
    const auto precmd = &ZADI_Linux_Plugin::input_para_check_precmd;
    const auto period = &ZADI_Linux_Plugin::input_para_check_cfgperiod;
    const std::pair<std::string, std::string> pn{"ProcessName", "x"}, pc{"PreCmd", "c"}, rk{"RetKeyWords", "k"},
        pe{"Period", "1"};
    const struct {
        const char* label;
        bool (ZADI_Linux_Plugin::*check)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*);
        std::vector<std::pair<std::string, std::string>> params;
        bool null_argv, null_context, ok;
        const char* reason;
    } cases[] = {
        {"plain ok, name ignored", plain, {{"Whatever", "x"}}, false, false, true, ""},
        {"precmd ok", precmd, {pn, pc, rk}, false, false, true, ""},
        {"precmd order matters", precmd, {pc, pn, rk}, false, false, false, "Input parameter error."},
        {"precmd third name", precmd, {pn, pc, {"RetKeyWord", "k"}}, false, false, false, "Input parameter error."},
        {"precmd name suffix", precmd, {{"ProcessNameX", "x"}, pc, rk}, false, false, false, "Input parameter error."},
        {"precmd names before context", precmd, {pc, pn, rk}, false, true, false, "Input parameter error."},
        {"period ok", period, {pn, pe}, false, false, true, ""},
        {"period names swapped", period, {pe, pn}, false, false, false, "Input parameter error."},
        {"period names first", period, {pn, {"period", "1"}}, false, true, false, "Input parameter error."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Args a(c.params);
        EXPECT_EQ(
            (p.*c.check)(a.argc(), c.null_argv ? nullptr : a.argv(), c.null_context ? nullptr : &a.context, &a.result),
            c.ok);
        // Nothing written on success.
        EXPECT_EQ(a.result.result, c.ok ? 77 : -1);
        EXPECT_EQ(a.reason(), c.ok ? "untouched" : c.reason);
        EXPECT_EQ(a.result.pid, -5);
        EXPECT_EQ(a.result.hangflowid, 99u);
        // A null result stops every check before anything else.
        EXPECT_FALSE((p.*c.check)(a.argc(), a.argv(), &a.context, nullptr));
    }
}

TEST(ItemContract, ReasonIsCutBeforeTheFieldsAfterIt) {
    FI_RESULT_S r;
    memset(&r, 'Z', sizeof(r));
    const std::string longText(3000, 'r');
    zadi::SetFault(&r, "%s", longText.c_str());
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(strnlen(r.reason, sizeof(r.reason)), 1023u);
    EXPECT_EQ(r.reason[1023], '\0');
    // The fields after reason are not touched by the cut text.
    int pid;
    memcpy(&pid, reinterpret_cast<char*>(&r) + offsetof(FI_RESULT_S, pid), sizeof(pid));
    EXPECT_EQ(pid, 0x5A5A5A5A);
}

TEST(ItemContract, ConvertStr2PeriodUSFollowsTheWrappingProduct) {
    const struct {
        const char* text;
        int us;
    } cases[] = {
        {"1", 1000000},   {"240", 240000000}, {"241", 240000000}, {"2147", 240000000}, {"2148", 500000},
        {"3600", 500000}, {"0", 500000},      {"-5", 500000},     {"abc", 500000},     {"", 500000},
        {"7s", 7000000},  {"4295", 500000},   {"4296", 1032704},  {"4300", 5032704},   {"8590", 500000},
    };
    for (const auto& c : cases) EXPECT_EQ(ConvertStr2PeriodUS(c.text), c.us) << c.text;
}

// Values that fill their whole field, without a terminator, in a parameter
// array that ends exactly at the end of its heap block: an item that reads
// past a field reads past the block, which the sanitizer builds report.
SANDBOX_TEST(ItemContract, FullFieldsAreNeverReadPastTheirEnd) {
    const std::string full(400, 'a'), command = "true" + std::string(396, ' ');
    for (const itest::ItemCase& item : itest::kItems) {
        if (itest::ArgcOf(item.shape) == 0) continue;
        SCOPED_TRACE(item.name);
        Args a;
        a.Add(item.shape == itest::kDisk ? "Path" : "ProcessName",
              item.shape == itest::kDisk ? "/" + std::string(399, '/') : full);
        if (item.shape == itest::kPeriod) a.Add("Period", std::string(400, '0'));
        if (item.shape == itest::kPreCmd) a.Add("PreCmd", command).Add("RetKeyWords", full);
        a.params.shrink_to_fit();
        const float value = a.Call(item.fn);
        EXPECT_EQ(a.result.result, 0);
        // For a process that does not run; the disk has any figure.
        if (item.shape != itest::kDisk) {
            EXPECT_EQ(value, item.shape == itest::kPreCmd ? 1.0f : 0.0f);
        }
    }
}
