// The command wrappers: exact command lines (seen as the arguments the
// shell hands to the command), their refusals and their messages.

#include "os/base/kira_file.h"
#include "tests/os/base/base_test_util.h"

using Calls = std::vector<std::vector<std::string>>;

SANDBOX_TEST(KiraCmd, ExactCommandsUnquotedPathsAndFailures) {
    kt::FakeCommand cp("cp"), rm("rm"), tar("tar"), touch("touch"), mv("mv", 3), mkdirCmd("mkdir");
    EXPECT_EQ(KIRA_CmdCp("/a/src", "/b/dst", 0), 0);
    EXPECT_EQ(KIRA_CmdCp("/a/two words", "/b", 0), 0);
    EXPECT_EQ(KIRA_CmdRm("/a/old", 0), 0);
    EXPECT_EQ(KIRA_CmdTar("a.tgz", "/tmp/x", 0), 0);
    EXPECT_EQ(KIRA_CmdTar("a.tgz", "/tmp/x", 1), 0);
    EXPECT_EQ(KIRA_CmdTar("b.tgz", "/tmp/y", -7), 0);  // any non-zero extracts
    EXPECT_EQ(KIRA_CmdTouch("/a/new", 0), 0);
    EXPECT_EQ(KIRA_CmdMkdir("/tmp/made here"), 0);
    EXPECT_EQ(cp.Calls(), (Calls{{"-af", "/a/src", "/b/dst"}, {"-af", "/a/two", "words", "/b"}}));
    EXPECT_EQ(rm.Calls(), (Calls{{"-rf", "/a/old"}}));
    EXPECT_EQ(
        tar.Calls(),
        (Calls{{"-czvf", "a.tgz", "/tmp/x"}, {"-xzvf", "a.tgz", "-C", "/tmp/x"}, {"-xzvf", "b.tgz", "-C", "/tmp/y"}}));
    EXPECT_EQ(touch.Calls(), (Calls{{"/a/new"}}));
    EXPECT_EQ(mkdirCmd.Calls(), (Calls{{"-p", "/tmp/made here"}}));  // only mkdir quotes its path

    kt::SyslogClear();
    // The raw wait status is reported, not the exit code.
    EXPECT_EQ(KIRA_CmdMv("/s", "/d", 0), -1);
    EXPECT_EQ(mv.Calls(), (Calls{{"/s", "/d"}}));
    EXPECT_EQ(kt::SyslogCount("Execute cmd(mv /s /d) Fail(768).\n", 6), 1);
    // A chained command is refused by the shell runner, whose -1 is reported like any failing status.
    EXPECT_EQ(KIRA_CmdRm("/a;reboot", 0), -1);
    EXPECT_EQ(rm.Calls().size(), 1u);
    EXPECT_EQ(kt::SyslogCount("Execute cmd(rm -rf /a;reboot) Fail(-1).\n", 6), 1);
}

SANDBOX_TEST(KiraCmd, MkdirOfExistingDirectoryRunsNothing) {
    kt::FakeCommand mkdirCmd("mkdir", 1);
    kt::MakeDirs("/tmp/already");
    EXPECT_EQ(KIRA_CmdMkdir("/tmp/already"), 0);
    EXPECT_TRUE(mkdirCmd.Calls().empty());

    kt::WriteFile("/tmp/plainfile", "x");
    kt::SyslogClear();
    EXPECT_EQ(KIRA_CmdMkdir("/tmp/plainfile"), -1);  // not a directory: mkdir runs
    EXPECT_EQ(mkdirCmd.Calls(), (Calls{{"-p", "/tmp/plainfile"}}));
    EXPECT_EQ(kt::SyslogCount("Execute cmd(mkdir -p \"/tmp/plainfile\") Fail(256).\n", 6), 1);
}

SANDBOX_TEST(KiraCmd, ArgumentChecksAndTheirMessages) {
    kt::FakeCommand cmds[] = {kt::FakeCommand("cp"), kt::FakeCommand("mv"), kt::FakeCommand("tar"),
                              kt::FakeCommand("rm"), kt::FakeCommand("touch")};
    std::string tooLongPath = "/tmp/" + std::string(256, 'q');
    const char* big = tooLongPath.c_str();
    auto count = [](const std::string& text) { return kt::SyslogCount(text, 6); };
    kt::SyslogClear();

    EXPECT_EQ(
        (std::vector<int>{KIRA_CmdCp(nullptr, "/d", 0), KIRA_CmdMv("/s", nullptr, 0), KIRA_CmdTar(nullptr, "/d", 0),
                          KIRA_CmdRm(nullptr, 0), KIRA_CmdTouch(nullptr, 0), KIRA_CmdMkdir(nullptr)}),
        std::vector<int>(6, -1));
    EXPECT_EQ(count("Param is null.\n"), 6);

    EXPECT_EQ((std::vector<int>{KIRA_CmdCp(big, "/d", 0), KIRA_CmdMv(big, "/d", 0), KIRA_CmdCp("/s", big, 0),
                                KIRA_CmdMv("/s", big, 0), KIRA_CmdCp(big, big, 0)}),
              std::vector<int>(5, -1));
    // Both too long: the source is checked first.
    EXPECT_EQ(count("The length of source file is not correct.\n"), 3);
    EXPECT_EQ(count("The length of dest file is not correct.\n"), 2);
    EXPECT_EQ((std::vector<int>{KIRA_CmdTar(big, "/d", 1), KIRA_CmdTar("/a.tgz", big, 0), KIRA_CmdRm(big, 0),
                                KIRA_CmdTouch(big, 0), KIRA_CmdMkdir(big)}),
              std::vector<int>(5, -1));
    EXPECT_EQ(count("The length of file is not correct.\n"), 5);
    // Each refusal also carries the check's own line.
    EXPECT_EQ(count("The length of file is too long."), 10);
    for (const auto& cmd : cmds) EXPECT_TRUE(cmd.Calls().empty()) << cmd.name();
}
