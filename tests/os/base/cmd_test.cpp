// The command wrappers: exact command lines (seen as the arguments the
// shell hands to the command), their refusals and their messages.

#include <string>
#include <vector>

#include "os/base/kira_file.h"
#include "tests/support/sandbox.h"

using Args = std::vector<std::string>;
using Calls = std::vector<Args>;

SANDBOX_TEST(KiraCmd, EachWrapperRunsItsExactCommand)
{
    kt::FakeCommand cp("cp");
    kt::FakeCommand rm("rm");
    kt::FakeCommand tar("tar");
    kt::FakeCommand touch("touch");
    kt::FakeCommand mv("mv");
    kt::FakeCommand mkdirCmd("mkdir");

    EXPECT_EQ(KIRA_CmdCp("/a/src", "/b/dst", 0), 0);
    EXPECT_EQ(KIRA_CmdRm("/a/old", 0), 0);
    EXPECT_EQ(KIRA_CmdTar("a.tgz", "/tmp/x", 0), 0);
    EXPECT_EQ(KIRA_CmdTar("a.tgz", "/tmp/x", 1), 0);
    EXPECT_EQ(KIRA_CmdTar("b.tgz", "/tmp/y", -7), 0);  // any non-zero extracts
    EXPECT_EQ(KIRA_CmdTouch("/a/new", 0), 0);
    EXPECT_EQ(KIRA_CmdMv("/a/from", "/b/to", 0), 0);
    EXPECT_EQ(KIRA_CmdMkdir("/tmp/made here"), 0);

    EXPECT_EQ(cp.Calls(), (Calls{{"-af", "/a/src", "/b/dst"}}));
    EXPECT_EQ(rm.Calls(), (Calls{{"-rf", "/a/old"}}));
    EXPECT_EQ(tar.Calls(), (Calls{{"-czvf", "a.tgz", "/tmp/x"},
                                  {"-xzvf", "a.tgz", "-C", "/tmp/x"},
                                  {"-xzvf", "b.tgz", "-C", "/tmp/y"}}));
    EXPECT_EQ(touch.Calls(), (Calls{{"/a/new"}}));
    EXPECT_EQ(mv.Calls(), (Calls{{"/a/from", "/b/to"}}));
    // Only mkdir quotes its path.
    EXPECT_EQ(mkdirCmd.Calls(), (Calls{{"-p", "/tmp/made here"}}));
}

SANDBOX_TEST(KiraCmd, UnquotedPathsAndFailures)
{
    kt::FakeCommand cp("cp");
    kt::FakeCommand rm("rm");
    kt::FakeCommand mv("mv", 3);
    EXPECT_EQ(KIRA_CmdCp("/a/two words", "/b", 0), 0);
    EXPECT_EQ(cp.Calls(), (Calls{{"-af", "/a/two", "words", "/b"}}));

    // A chained command is refused by the shell runner, whose -1 is
    // reported like any failing status.
    kt::SyslogClear();
    EXPECT_EQ(KIRA_CmdRm("/a;reboot", 0), -1);
    EXPECT_TRUE(rm.Calls().empty());
    EXPECT_EQ(kt::SyslogCount("Execute cmd(rm -rf /a;reboot) Fail(-1).\n", 6), 1);
    // The raw wait status is reported, not the exit code.
    EXPECT_EQ(KIRA_CmdMv("/s", "/d", 0), -1);
    EXPECT_EQ(kt::SyslogCount("Execute cmd(mv /s /d) Fail(768).\n", 6), 1);
}

SANDBOX_TEST(KiraCmd, MkdirOfExistingDirectoryRunsNothing)
{
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

SANDBOX_TEST(KiraCmd, ArgumentChecksAndTheirMessages)
{
    kt::FakeCommand cp("cp");
    kt::FakeCommand mv("mv");
    kt::FakeCommand tar("tar");
    kt::FakeCommand rm("rm");
    kt::FakeCommand touch("touch");
    std::string tooLong = "/tmp/" + std::string(256, 'q');
    kt::SyslogClear();

    EXPECT_EQ(KIRA_CmdCp(nullptr, "/d", 0), -1);
    EXPECT_EQ(KIRA_CmdMv("/s", nullptr, 0), -1);
    EXPECT_EQ(KIRA_CmdTar(nullptr, "/d", 0), -1);
    EXPECT_EQ(KIRA_CmdRm(nullptr, 0), -1);
    EXPECT_EQ(KIRA_CmdTouch(nullptr, 0), -1);
    EXPECT_EQ(KIRA_CmdMkdir(nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("Param is null.\n", 6), 6);

    EXPECT_EQ(KIRA_CmdCp(tooLong.c_str(), "/d", 0), -1);
    EXPECT_EQ(KIRA_CmdMv(tooLong.c_str(), "/d", 0), -1);
    EXPECT_EQ(kt::SyslogCount("The length of source file is not correct.\n", 6), 2);
    EXPECT_EQ(KIRA_CmdCp("/s", tooLong.c_str(), 0), -1);
    EXPECT_EQ(KIRA_CmdMv("/s", tooLong.c_str(), 0), -1);
    EXPECT_EQ(kt::SyslogCount("The length of dest file is not correct.\n", 6), 2);
    EXPECT_EQ(KIRA_CmdCp(tooLong.c_str(), tooLong.c_str(), 0), -1);  // the source is checked first
    EXPECT_EQ(kt::SyslogCount("The length of source file is not correct.\n", 6), 3);
    EXPECT_EQ(kt::SyslogCount("The length of dest file is not correct.\n", 6), 2);
    EXPECT_EQ(KIRA_CmdTar(tooLong.c_str(), "/d", 1), -1);
    EXPECT_EQ(KIRA_CmdTar("/a.tgz", tooLong.c_str(), 0), -1);
    EXPECT_EQ(KIRA_CmdRm(tooLong.c_str(), 0), -1);
    EXPECT_EQ(KIRA_CmdTouch(tooLong.c_str(), 0), -1);
    EXPECT_EQ(KIRA_CmdMkdir(tooLong.c_str()), -1);
    EXPECT_EQ(kt::SyslogCount("The length of file is not correct.\n", 6), 5);
    // Each refusal also carries the check's own line.
    EXPECT_EQ(kt::SyslogCount("The length of file is too long.", 6), 10);

    for (const auto* cmd : {&cp, &mv, &tar, &rm, &touch}) {
        EXPECT_TRUE(cmd->Calls().empty()) << cmd->name();
    }
}
