// Finding processes by command line: the wildcard matcher's quirks, the
// cmdline text rules, the /proc readers, exact/prefix/wildcard lookups
// against real processes, and the stored-pid re-use.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "plugin/linux/proc_read_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/sandbox.h"

using P = ZADI_Linux_Plugin;

TEST(FuzzyMatch, KeepsItsAnchoringAndRestartQuirks) {
    // {text, pattern}: anchored only at the first character ("axab" but not
    // "xab" matches "ab").
    // clang-format off
    const std::pair<const char*, const char*> match[] = {
        {"ab", "ab"}, {"axab", "ab"}, {"abc", "ab*"}, {"abc", "a?c"}, {"abc", "*"}, {"", "*"}, {"", ""}, {"aab", "ab"},
        {"abc", "*c"}, {"abc", "a*c"}, {"abc", "***"}, {"abc", "???"}, {"a", "a**"}, {"/bin/app -x", "*app*"},
        {"/bin/app -x", "/*/app -?"}};
    const std::pair<const char*, const char*> noMatch[] = {
        {"xab", "ab"}, {"abab", "ab"}, {"abc", "ab"}, {"abc", ""}, {"abc", "*x"}, {"abc", "?"}, {"abc", "????"},
        {"xyz", "x*z?"}, {nullptr, "*"}, {"a", nullptr}};
    // clang-format on
    for (const auto& c : match) EXPECT_TRUE(P::str_fuzzy_match(c.first, c.second)) << c.first << " ~ " << c.second;
    for (const auto& c : noMatch) EXPECT_FALSE(P::str_fuzzy_match(c.first, c.second)) << c.second;
}

TEST(CmdlineText, NulsBecomeSpacesAndFieldsCountSingleSpaces) {
    char a[] = {'a', '\0', 'b', '\0', '\0', '\0'};
    P::change_cmdlie_to_str(a, sizeof(a));
    EXPECT_STREQ(a, "a b");
    char b[] = {'p', 'r', 'o', 'g', '\0', '\0', 'x', '\0', '\0'};
    P::change_cmdlie_to_str(b, sizeof(b));
    EXPECT_STREQ(b, "prog");  // arguments after an empty one are lost
    // The last byte is never turned into a space, so the text stays terminated.
    char c[] = {'a', '\0', 'b', '\0'};
    P::change_cmdlie_to_str(c, 3);
    EXPECT_EQ(std::string(c, 4), std::string("a b\0", 4));

    // get_items counts single spaces (runs are not merged); past the end is
    // the terminator, not null.
    const char* line = "1 (a) S 4 5";
    EXPECT_EQ(P::get_items(nullptr, 3), nullptr);
    EXPECT_EQ(P::get_items(line, 1), line);
    EXPECT_EQ(P::get_items(line, -4), line);
    const std::pair<int, const char*> items[] = {{3, "S 4 5"}, {5, "5"}, {9, ""}};
    for (const auto& i : items) EXPECT_STREQ(P::get_items(line, i.first), i.second) << i.first;
    EXPECT_STREQ(P::get_items("a  b", 3), "b");
    // A name with a space shifts the fields: accepted.
    EXPECT_EQ(zadi::ParseStatLineTicks("9 (x) S 1 1 1 0 -1 0 0 0 0 0 7 8 0 0"), 15u);
    EXPECT_EQ(zadi::ParseStatLineTicks("9 (x y) S 1 1 1 0 -1 0 0 0 0 0 7 8 0 0"), 7u);
}

SANDBOX_TEST(ReadFile, KeepsTwoNulsAndReadsTheRequestedLine) {
    kt::WriteFile("/tmp/rf", "first line\nsecond\nthird");
    char buf[16];
    memset(buf, 'x', sizeof(buf));
    ASSERT_EQ(P::read_file("/tmp/rf", buf, sizeof(buf), 1), 0);
    EXPECT_STREQ(buf, "first line\n");
    ASSERT_EQ(P::read_file("/tmp/rf", buf, sizeof(buf), 3), 0);
    EXPECT_STREQ(buf, "third");
    EXPECT_EQ(P::read_file("/tmp/rf", buf, sizeof(buf), 4), -1);
    // At most size - 2 characters: the rest of the buffer is cleared.
    char small[6];
    ASSERT_EQ(P::read_file("/tmp/rf", small, sizeof(small), 1), 0);
    EXPECT_EQ(std::string(small, 6), std::string("firs\0\0", 6));
    memset(buf, 'x', sizeof(buf));
    EXPECT_EQ(P::read_file("/tmp/rf", buf, sizeof(buf), 0), 0);  // nothing read
    EXPECT_EQ(buf[0], 'x');
    EXPECT_EQ(P::read_file("/tmp/none", buf, sizeof(buf), 1), -1);
    EXPECT_EQ(P::read_file(nullptr, buf, sizeof(buf), 1), -1);
    EXPECT_EQ(P::read_file("/tmp/rf", nullptr, sizeof(buf), 1), -1);
    EXPECT_EQ(P::read_file("/tmp/rf", buf, 0, 1), -1);
    kt::WriteFile("/tmp/empty", "");
    EXPECT_EQ(P::read_file("/tmp/empty", buf, sizeof(buf), 1), -1);
    // A command line with a newline: only the part before it is compared.
    kt::WriteFile("/tmp/cl", std::string("prog\0a\nb\0", 9));
    EXPECT_TRUE(P::check_with_cmdline("/tmp/cl", "prog a\n", CMDLINE_MATCH_EXACT));
    EXPECT_TRUE(P::check_with_cmdline("/tmp/cl", "prog", CMDLINE_MATCH_PREFIX));
    EXPECT_TRUE(P::check_with_cmdline("/tmp/cl", "*g a?", CMDLINE_MATCH_FUZZY));
    EXPECT_TRUE(P::check_with_cmdline("/tmp/cl", "prog a\n", 7));  // unknown mode means exact
    EXPECT_FALSE(P::check_with_cmdline("/tmp/cl", "prog", 7));
}

SANDBOX_TEST(Lookup, ExactPrefixAndWildcardAgainstRealProcesses) {
    const std::string u = kt::UniqueName("lk");
    kt::Child a("lka", {"/opt/" + u + "/srv", "--id", "1"});
    kt::Child gap("lkg", {"/opt/" + u + "/gap", "", "x"});
    const std::string nameA = "/opt/" + u + "/srv --id 1";
    // Exact means the whole text; an empty middle argument ends it.
    const std::pair<std::string, pid_t> exact[] = {
        {nameA, a.pid()}, {"/opt/" + u + "/srv", 0}, {"/opt/" + u + "/gap", gap.pid()}, {"/opt/" + u + "/gap  x", 0}};
    for (const auto& e : exact) {
        int pid = 0;
        EXPECT_EQ(P::get_pid_byname(e.first.c_str(), pid), e.second) << e.first;
        EXPECT_EQ(pid, e.second);
    }

    process_cpu_context_t table[4];
    memset(table, 0, sizeof(table));
    unsigned int count = 99;
    P::get_allpid(("/opt/" + u + "/").c_str(), table, 4, &count, CMDLINE_MATCH_PREFIX);
    EXPECT_EQ(count, 2u);
    count = 99;
    P::get_allpid(("*" + u + "/s?v*").c_str(), table, 4, &count, CMDLINE_MATCH_FUZZY);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(table[0].pid, a.pid());
    EXPECT_EQ(table[0].syscputime, 0u);  // only pids are written
    count = 99;
    P::get_allpid(("/opt/" + u).c_str(), table, 1, &count, CMDLINE_MATCH_PREFIX);
    EXPECT_EQ(count, 1u);  // max reached: the walk stops
    count = 99;
    P::get_allpid(("/opt/" + u).c_str(), table, 4, &count, CMDLINE_MATCH_EXACT);
    EXPECT_EQ(count, 0u);

    char buf[64];
    ASSERT_EQ(P::get_procname_bypid(a.pid(), buf, sizeof(buf)), 0);
    EXPECT_STREQ(buf, "lka");
    ASSERT_EQ(P::get_cmdline_bypid(a.pid(), buf, sizeof(buf)), 0);
    EXPECT_EQ(std::string(buf), nameA);
    a.Kill();
    EXPECT_EQ(P::get_procname_bypid(a.pid(), buf, sizeof(buf)), -1);
    EXPECT_EQ(P::get_cmdline_bypid(a.pid(), buf, sizeof(buf)), -1);
    EXPECT_EQ(P::get_cmdline_bypid(gap.pid(), nullptr, 10), -1);
}

SANDBOX_TEST(Lookup, KernelThreadsNeverMatch) {
    // kthreadd (pid 2 in the initial pid namespace) has an empty cmdline.
    char name[32] = {0};
    if (P::get_procname_bypid(2, name, sizeof(name)) != 0 || std::string(name) != "kthreadd") {
        GTEST_SKIP() << "no kthreadd visible";
    }
    EXPECT_FALSE(P::check_with_cmdline("/proc/2/cmdline", "", CMDLINE_MATCH_EXACT));
    EXPECT_FALSE(P::check_with_cmdline("/proc/2/cmdline", "*", CMDLINE_MATCH_FUZZY));
    EXPECT_EQ(P::get_phy_mem(2), 0u);  // no VmRSS line
}

SANDBOX_TEST(Lookup, StoredPidIsReusedWhileItRunsTheSameCommandLine) {
    const std::string name = "/opt/" + kt::UniqueName("twin");
    itest::Twins t(name, "run");

    // {returned pid, stored pid after, cpu samples after} for a stored pid with samples 5 and 6.
    const auto lookup = [&](int stored) {
        unsigned long long sys = 5, proc = 6;
        const int got = P::get_pid_byname((name + " run").c_str(), stored, sys, proc);
        return std::vector<unsigned long long>{static_cast<unsigned long long>(got),
                                               static_cast<unsigned long long>(stored), sys, proc};
    };
    using V = std::vector<unsigned long long>;
    const unsigned long long e = t.earlier, l = t.later;
    // A walk finds the earlier one in directory order and drops the samples ...
    EXPECT_EQ(lookup(0), (V{e, e, 0, 0}));
    // ... but a stored pid that still matches is kept with its samples.
    EXPECT_EQ(lookup(t.later), (V{l, l, 5, 6}));
    // The pid now runs another program: samples dropped, /proc walked again.
    kt::Child other("oth", {"/opt/" + kt::UniqueName("other")});
    EXPECT_EQ(lookup(other.pid()), (V{e, e, 0, 0}));
    // A stored pid that is gone, and nothing matching at all.
    t.a.Kill();
    t.b.Kill();
    EXPECT_EQ(lookup(t.later)[0], 0u);
    EXPECT_EQ(lookup(t.later)[1], 0u);
}

SANDBOX_TEST(PreCmd, OutputMustBeginWithTheKeywords) {
    const auto run = [](std::string cmd, std::string kw) { return P::exec_pre_cmd(&cmd[0], &kw[0]); };
    const std::string longOut = "echo 0123456789012345678901234567890123456789";
    EXPECT_EQ(run("echo active-primary", "active"), 0);
    EXPECT_EQ(run("echo active-primary", "standby"), -1);
    EXPECT_EQ(run("true", ""), 0);
    EXPECT_EQ(run("true", "active"), -1);
    EXPECT_EQ(run(longOut, longOut.substr(5)), -1);  // only 31 characters count
    EXPECT_EQ(run(longOut, longOut.substr(5, 31)), 0);
    char cmd[] = "echo active", kw[] = "active";
    EXPECT_EQ(P::exec_pre_cmd(nullptr, kw), -1);
    EXPECT_EQ(P::exec_pre_cmd(cmd, nullptr), -1);
    // The command is waited for, so no zombie is left behind.
    EXPECT_LE(waitpid(-1, nullptr, WNOHANG), 0);
}

TEST(Lookup, CoreCountIsTheOnlineProcessorCount) {
    EXPECT_EQ(P::get_cpu_core_num(), static_cast<unsigned int>(sysconf(_SC_NPROCESSORS_ONLN)));
}
