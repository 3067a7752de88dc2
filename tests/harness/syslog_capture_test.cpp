// Syslog capture: glibc's datagram form parsed to priority, ident and exact
// text; lines from the process and from child shells; bursts past the
// socket's queue length.

#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include "tests/support/sandbox.h"
#include "tests/support/sandbox_internal.h"

namespace {

kt::SyslogLine Parse(const std::string& datagram) {
    return kt::internal::ParseSyslogDatagram(datagram.data(), datagram.size());
}

TEST(SyslogParse, GlibcDatagramForms) {
    kt::SyslogLine l = Parse("<11>Nov  1 05:06:07 prog[123]: Open failed(x): y\n");
    EXPECT_EQ(l.priority, 3);
    EXPECT_EQ(l.ident, "prog");
    EXPECT_EQ(l.message, "Open failed(x): y\n");  // only the first ": " ends the ident

    l = Parse("<190>Dec 31 23:59:59 tag: text");  // facility local7, info
    EXPECT_EQ(l.priority, 6);
    EXPECT_EQ(l.ident, "tag");
    EXPECT_EQ(l.message, "text");

    l = Parse("<8>Jan 10 00:00:00 x[y]: <3>kernel-style");  // not a pid: kept
    EXPECT_EQ(l.priority, 0);
    EXPECT_EQ(l.ident, "x[y]");
    EXPECT_EQ(l.message, "<3>kernel-style");

    l = Parse("no header at all");
    EXPECT_EQ(l.priority, -1);
    EXPECT_EQ(l.message, "no header at all");
}

SANDBOX_TEST(SyslogCapture, PrioritiesIdentsAndTextsInOrder) {
    syslog(LOG_INFO, "%s: first %d", "KIRA_Func", 1);
    syslog(LOG_EMERG, "timer fault");
    syslog(LOG_WARNING | LOG_DAEMON, "suppressed 5 lines\n");
    openlog("kt-ident", LOG_PID, LOG_USER);
    syslog(LOG_ERR, "with pid");
    closelog();
    std::vector<kt::SyslogLine> lines = kt::SyslogLines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_EQ(lines[0].message, "KIRA_Func: first 1");
    EXPECT_EQ(lines[0].ident, program_invocation_short_name);
    EXPECT_EQ(lines[1].priority, 0);
    EXPECT_EQ(lines[2].priority, 4);
    EXPECT_EQ(lines[2].message, "suppressed 5 lines\n");
    EXPECT_EQ(lines[3].ident, "kt-ident");
    EXPECT_EQ(lines[3].priority, 3);
    EXPECT_EQ(lines[3].message, "with pid");

    EXPECT_EQ(kt::SyslogCount("first"), 1);
    EXPECT_EQ(kt::SyslogCount("first", 6), 1);
    EXPECT_EQ(kt::SyslogCount("first", 3), 0);
    kt::SyslogClear();
    EXPECT_TRUE(kt::SyslogLines().empty());
}

SANDBOX_TEST(SyslogCapture, LinesFromChildShells) {
    if (system("command -v logger >/dev/null 2>&1") != 0) GTEST_SKIP() << "logger is not installed";
    ASSERT_EQ(system("sh -c 'logger -p user.err kt-from-shell'"), 0);
    EXPECT_EQ(kt::SyslogCount("kt-from-shell", 3), 1);
}

// Only 10 datagrams may wait unread; glibc's syslog() blocks on the 11th.
TEST(SyslogCapture, BurstPastTheQueueLengthDoesNotHang) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    kt::SandboxOptions opts;
    opts.timeout_s = 20;
    kt::RunSandboxed(
        [] {
            for (int i = 0; i < 40; ++i) syslog(LOG_INFO, "burst %d", i);
            std::vector<kt::SyslogLine> lines = kt::SyslogLines();
            ASSERT_EQ(lines.size(), 40u);
            for (int i = 0; i < 40; ++i) EXPECT_EQ(lines[i].message, "burst " + std::to_string(i));
        },
        opts);
}

}  // namespace
