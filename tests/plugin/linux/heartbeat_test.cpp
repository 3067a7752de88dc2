// ProcessHeartBeat and ClearHeartBeatFile over real processes and a private
// /tmp/heartbeat: the verdict and hang flow id rules, the seven-node table in
// contextbuff, the name and content quirks, and what other users may plant
// in the directory (links, FIFOs) being neither followed, blocked on nor
// deleted.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stddef.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "census_test_params.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/process_monitor_internal.h"
#include "support/sandbox.h"

using census_test::Bits;
using census_test::FreshResult;
using census_test::kFaultBits;
using census_test::Params;
using census_test::Unique;

namespace {

const std::string kDir = "/tmp/heartbeat";

std::string HbFile(const std::string& name, const std::string& mod, pid_t pid, const std::string& tail = "") {
    return kDir + "/" + name + "___" + mod + "___" + std::to_string(pid) + tail;
}

// One configured item: the agent keeps its context between calls.
class Item {
public:
    Item(const std::string& name, const std::string& mod) {
        memset(&ctx_, 0, sizeof(ctx_));
        params_.Add("ProcessName", name).Add("ProcessMoudleId", mod);
    }
    float Call() {
        last_ = FreshResult();
        float v = ProcessHeartBeat(params_.argc(), params_.argv(), &ctx_, &last_);
        EXPECT_EQ(last_.result, 0);
        EXPECT_EQ(last_.pid, 777) << "pid must not be written";
        return v;
    }
    const FI_RESULT_S& last() const { return last_; }
    const ZADI_PROCESS_HEARTBEAT_CONTEXT* table() const {
        return reinterpret_cast<const ZADI_PROCESS_HEARTBEAT_CONTEXT*>(ctx_.contextbuff);
    }
    std::vector<uint32_t> TrackedPids() const {
        std::vector<uint32_t> pids;
        for (uint32_t i = 0; i < 7 && table()->stNode[i].uiProcessId != 0; ++i) pids.push_back(table()->stNode[i].uiProcessId);
        return pids;
    }

private:
    FI_CONTEXT_S ctx_;
    Params params_;
    FI_RESULT_S last_{};
};



// Files that do not belong to the item never count: refreshed, untracked.
void ExpectIgnoresEverything(Item& item) {
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_TRUE(item.TrackedPids().empty());
}

}  // namespace

TEST(HeartbeatLayout, SevenNodesOverlaidOnContextbuff) {
    EXPECT_EQ(sizeof(ZADI_PROCESS_HEARTBEAT_NODE), 144u);
    EXPECT_EQ(offsetof(ZADI_PROCESS_HEARTBEAT_NODE, hangFlowId), 8u);
    EXPECT_EQ(offsetof(ZADI_PROCESS_HEARTBEAT_NODE, szBuffer), 16u);
    EXPECT_EQ(offsetof(ZADI_PROCESS_HEARTBEAT_CONTEXT, hangFlowId), 8u);
    EXPECT_EQ(offsetof(ZADI_PROCESS_HEARTBEAT_CONTEXT, stNode), 12u);
    EXPECT_EQ(ZADI_HEARTBEAT_NODE_MAX, 7u);
}

TEST(HeartbeatArgs, FaultsInOrder) {
    FI_CONTEXT_S ctx{};
    Params ok;
    ok.Add("ProcessName", "w").Add("ProcessMoudleId", "7");
    EXPECT_EQ(Bits(ProcessHeartBeat(ok.argc(), ok.argv(), &ctx, nullptr)), kFaultBits);

    struct Case {
        int argc;
        FI_PARAM_S* argv;
        FI_CONTEXT_S* ctx;
        const char* reason;
    };
    Params onlyName;
    onlyName.Add("ProcessName", "w");
    Params onlyMod;
    onlyMod.Add("ProcessMoudleId", "7");
    const Case cases[] = {
        {-1, ok.argv(), nullptr, "Input parameter number error."},
        {2, nullptr, &ctx, "Input parameter number error."},
        {2, ok.argv(), nullptr, "Input parameter context error."},
        {0, ok.argv(), &ctx, "Get para 'ProcessName' failed."},
        {onlyMod.argc(), onlyMod.argv(), &ctx, "Get para 'ProcessName' failed."},
        {onlyName.argc(), onlyName.argv(), &ctx, "Get para 'ProcessMoudleId' failed."},
    };
    for (const Case& c : cases) {
        FI_RESULT_S r = FreshResult();
        EXPECT_EQ(Bits(ProcessHeartBeat(c.argc, c.argv, c.ctx, &r)), kFaultBits) << c.reason;
        EXPECT_EQ(r.result, -1);
        EXPECT_STREQ(r.reason, c.reason);
        EXPECT_EQ(r.hangflowid, 0xDEADu);
    }
}

SANDBOX_TEST(Heartbeat, TokenChangesDecideTheVerdict) {
    std::string name = Unique("hbtok");
    kt::Child child(name, {name, "x"});
    kt::MakeDirs(kDir);
    std::string file = HbFile(name, "7", child.pid());
    Item item(name, "7");

    kt::WriteFile(file, "tok1\n17\n");
    EXPECT_EQ(item.Call(), 1.0f) << "first sight is never stale";
    EXPECT_EQ(item.last().hangflowid, 0xDEADu) << "refreshed must not write hangflowid";
    EXPECT_EQ(item.table()->uiSize, 7u);

    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.last().hangflowid, 17u);
    std::string line = "Process " + name + "(7) heartbeat not refreshed, hangFlowId=17.";
    EXPECT_EQ(kt::SyslogCount(line), 1);

    kt::WriteFile(file, "tok2\n18\n");
    EXPECT_EQ(item.Call(), 1.0f);

    // Line 2 alone changed: still stale, and the id is the one stored with
    // the token, not the one just read.
    kt::WriteFile(file, "tok2\n19\n");
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.last().hangflowid, 18u);
    kt::WriteFile(file, "tok2\n20\n");
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.last().hangflowid, 18u);

    // A carriage return is part of the token.
    kt::WriteFile(file, "tok2\r\n");
    EXPECT_EQ(item.Call(), 1.0f);
    // No line 2: the id is "none", logged signed.
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.last().hangflowid, 0xFFFFFFFFu);
    EXPECT_EQ(kt::SyslogCount("Process " + name + "(7) heartbeat not refreshed, hangFlowId=-1."), 1);

    // Another item for another module sees none of it.
    Item other(name, "8");
    ExpectIgnoresEverything(other);
}

SANDBOX_TEST(Heartbeat, ContentQuirks) {
    std::string name = Unique("hbquirk");
    kt::Child child(name, {name});
    kt::MakeDirs(kDir);
    std::string file = HbFile(name, "1", child.pid());

    {
        // An empty file has an empty token, which never changes.
        Item item(name, "1");
        kt::WriteFile(file, "");
        EXPECT_EQ(item.Call(), 1.0f);
        EXPECT_EQ(item.Call(), 0.0f);
        EXPECT_EQ(item.last().hangflowid, 0xFFFFFFFFu);
    }
    {
        // Line 1 is read 126 characters at a time: the rest becomes line 2,
        // and changes past character 126 are not seen as a beat.
        Item item(name, "1");
        std::string head(126, 'a');
        kt::WriteFile(file, head + "123\n");
        EXPECT_EQ(item.Call(), 1.0f);
        EXPECT_EQ(item.table()->stNode[0].uiBufferUsed, 126u);
        EXPECT_EQ(item.table()->stNode[0].hangFlowId, 123u);
        kt::WriteFile(file, head + "456\n");
        EXPECT_EQ(item.Call(), 0.0f);
        EXPECT_EQ(item.last().hangflowid, 123u);
    }
    {
        // Line 2 converts like strtoll and keeps 32 bits.
        Item item(name, "1");
        kt::WriteFile(file, "t\n-2\n");
        EXPECT_EQ(item.Call(), 1.0f);
        EXPECT_EQ(item.table()->stNode[0].hangFlowId, 0xFFFFFFFEu);
        kt::WriteFile(file, "t\n\n");
        EXPECT_EQ(item.Call(), 0.0f);
        EXPECT_EQ(item.last().hangflowid, 0xFFFFFFFEu);
        kt::WriteFile(file, "u\nx\n");
        EXPECT_EQ(item.Call(), 1.0f);
        EXPECT_EQ(item.table()->stNode[0].hangFlowId, 0u);
    }
}

SANDBOX_TEST(Heartbeat, EveryPidCountsAndTheTableHoldsSeven) {
    std::string name = Unique("hbmany");
    std::vector<kt::Child> children;
    for (int i = 0; i < 8; ++i) children.emplace_back(name, std::vector<std::string>{name, std::to_string(i)});
    kt::MakeDirs(kDir);
    for (auto& c : children) kt::WriteFile(HbFile(name, "3", c.pid()), "a\n" + std::to_string(c.pid()) + "\n");

    Item item(name, "3");
    EXPECT_EQ(item.Call(), 1.0f);
    std::vector<uint32_t> tracked = item.TrackedPids();
    ASSERT_EQ(tracked.size(), 7u) << "the eighth pid is ignored";
    std::set<uint32_t> trackedSet(tracked.begin(), tracked.end());

    // Every tracked file beats; the untracked one does not matter.
    pid_t untracked = -1;
    for (auto& c : children) {
        if (trackedSet.count(static_cast<uint32_t>(c.pid())) != 0) {
            kt::WriteFile(HbFile(name, "3", c.pid()), "b\n1\n");
        } else {
            untracked = c.pid();
        }
    }
    ASSERT_NE(untracked, -1);
    EXPECT_EQ(item.Call(), 1.0f);

    // One stale pid among beating ones is enough.
    for (auto& c : children) kt::WriteFile(HbFile(name, "3", c.pid()), "c\n" + std::to_string(c.pid()) + "\n");
    kt::WriteFile(HbFile(name, "3", static_cast<pid_t>(tracked[3])), "b\n1\n");  // unchanged token
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.last().hangflowid, 1u);
}

SANDBOX_TEST(Heartbeat, DroppedNodesAreCompactedInOrder) {
    std::string name = Unique("hbgone");
    std::vector<kt::Child> children;
    for (int i = 0; i < 3; ++i) children.emplace_back(name, std::vector<std::string>{name, std::to_string(i)});
    kt::MakeDirs(kDir);
    for (auto& c : children) kt::WriteFile(HbFile(name, "1", c.pid()), "a\n5\n");

    Item item(name, "1");
    EXPECT_EQ(item.Call(), 1.0f);
    std::vector<uint32_t> order = item.TrackedPids();
    ASSERT_EQ(order.size(), 3u);

    // The middle file goes away; its slot is closed up, the others keep
    // their order and tokens, the freed slot keeps no hang flow id.
    ASSERT_EQ(unlink(HbFile(name, "1", static_cast<pid_t>(order[1])).c_str()), 0);
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.TrackedPids(), (std::vector<uint32_t>{order[0], order[2]}));
    const ZADI_PROCESS_HEARTBEAT_NODE& freed = item.table()->stNode[2];
    EXPECT_EQ(freed.uiProcessId, 0u);
    EXPECT_EQ(freed.uiBufferUsed, 0u);
    EXPECT_FALSE(freed.bFileExist);
    EXPECT_EQ(freed.hangFlowId, 0xFFFFFFFFu);
    EXPECT_STREQ(item.table()->stNode[1].szBuffer, "a");

    // A process that ended leaves its file behind: the node goes, no hang.
    for (uint32_t pid : {order[0], order[2]}) kt::WriteFile(HbFile(name, "1", static_cast<pid_t>(pid)), "b\n6\n");
    EXPECT_EQ(item.Call(), 1.0f);
    for (auto& c : children) {
        if (static_cast<uint32_t>(c.pid()) == order[0]) c.Kill();
    }
    EXPECT_EQ(item.Call(), 0.0f) << "the surviving file did not change";
    EXPECT_EQ(item.TrackedPids(), (std::vector<uint32_t>{order[2]}));

    // A restart is a new pid and a new node: never a hang, same token or not.
    kt::Child restarted(name, {name, "again"});
    kt::WriteFile(HbFile(name, "1", restarted.pid()), "b\n6\n");
    kt::WriteFile(HbFile(name, "1", static_cast<pid_t>(order[2])), "c\n7\n");
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.TrackedPids().size(), 2u);
}

SANDBOX_TEST(Heartbeat, NamesThatDoNotMatch) {
    std::string name = Unique("hbname");
    kt::Child child(name, {name});
    std::string longName = name + std::string(16 - name.size() + 1, 'z');  // 16+: the kernel keeps 15
    kt::Child cut(longName, {longName});
    std::string other = Unique("hbother");
    kt::Child otherChild(other, {other});
    kt::MakeDirs(kDir);

    kt::WriteFile(kDir + "/" + name + "___7", "a\n");                        // no pid field
    kt::WriteFile(HbFile(name, "07", child.pid()), "a\n");                   // module compared as text
    kt::WriteFile(HbFile(name, "7", otherChild.pid()), "a\n");               // pid runs another program
    kt::WriteFile(HbFile(longName, "7", cut.pid()), "a\n");                  // name longer than the kernel's
    kt::WriteFile(HbFile(name, "7", 999999999), "a\n");                      // no such process
    Item item(name, "7");
    Item longItem(longName, "7");
    ExpectIgnoresEverything(item);
    ExpectIgnoresEverything(longItem);

    // Anything after a third separator is ignored.
    kt::WriteFile(HbFile(name, "7", child.pid(), "___old"), "a\n");
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.TrackedPids(), (std::vector<uint32_t>{static_cast<uint32_t>(child.pid())}));
    EXPECT_EQ(item.Call(), 0.0f);
}

TEST(HeartbeatSteps, SplitName) {
    struct Case {
        const char* in;
        const char* f[3];
    } cases[] = {
        {"worker___7___2310", {"worker", "7", "2310"}},
        {"worker___7___2310___old", {"worker", "7", "2310"}},
        {"worker___7", {"worker", "7", nullptr}},
        {"worker", {"worker", nullptr, nullptr}},
        {"a____b", {"a", "_b", nullptr}},
        {"______", {"", "", ""}},
        {"", {"", nullptr, nullptr}},
    };
    for (const Case& c : cases) {
        char buf[64];
        strcpy(buf, c.in);
        char* f[3] = {nullptr, nullptr, nullptr};
        SpliteHeartFileName(buf, 0, f);
        for (int i = 0; i < 3; ++i) {
            if (c.f[i] == nullptr) {
                EXPECT_EQ(f[i], nullptr) << c.in << " field " << i;
            } else {
                ASSERT_NE(f[i], nullptr) << c.in << " field " << i;
                EXPECT_STREQ(f[i], c.f[i]) << c.in << " field " << i;
            }
        }
    }
    char* f[3] = {nullptr, nullptr, nullptr};
    EXPECT_FALSE(CheckFileAndProc("a", "b", f, 3));
    char a[] = "a", b[] = "b", p[] = "1";
    char* full[3] = {a, b, p};
    EXPECT_FALSE(CheckFileAndProc("a", "b", full, 2));
    EXPECT_FALSE(CheckProcIdAndProcName(nullptr, "a"));
}

SANDBOX_TEST(Heartbeat, MissingDirectoryIsRefreshed) {
    Item item("anything", "1");
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(ForeachDir(kDir.c_str(), [](const char*, const char*, void*) { return 0; }, nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("heartbeat"), 0);
}

SANDBOX_TEST(Heartbeat, PlantedLinksAndFifosAreNotFollowed) {
    std::string name = Unique("hblink");
    kt::Child child(name, {name});
    kt::MakeDirs(kDir);
    kt::MakeDirs("/tmp/elsewhere");
    kt::WriteFile("/tmp/elsewhere/target", "a\n1\n");
    ASSERT_EQ(symlink("/tmp/elsewhere/target", HbFile(name, "7", child.pid()).c_str()), 0);
    ASSERT_EQ(mkfifo(HbFile(name, "7", child.pid(), "___fifo").c_str(), 0666), 0);

    Item item(name, "7");
    ExpectIgnoresEverything(item);

    // Opened by path (a race could swap an entry): neither blocks nor follows.
    ZADI_PROCESS_HEARTBEAT_NODE node{};
    EXPECT_EQ(ReadHeartbeatFile(HbFile(name, "7", child.pid()).c_str(), &node), 1);
    EXPECT_EQ(ReadHeartbeatFile(HbFile(name, "7", child.pid(), "___fifo").c_str(), &node), 1);
    EXPECT_EQ(node.hangFlowId, 0xFFFFFFFFu);
    EXPECT_EQ(kt::SyslogCount("Open failed(" + HbFile(name, "7", child.pid()) + ")"), 1);

    // The directory itself replaced by a link: nothing is read through it.
    ASSERT_EQ(rename(kDir.c_str(), "/tmp/hb.real"), 0);
    kt::MakeDirs("/tmp/victim");
    kt::WriteFile("/tmp/victim/" + name + "___7___" + std::to_string(child.pid()), "a\n");
    ASSERT_EQ(symlink("/tmp/victim", kDir.c_str()), 0);
    Item viaLink(name, "7");
    ExpectIgnoresEverything(viaLink);
}

SANDBOX_TEST(Heartbeat, ClearRemovesOnlyFilesOfGoneProcesses) {
    std::string name = Unique("hbclear");
    kt::Child child(name, {name});
    std::string other = Unique("hbclro");
    kt::Child otherChild(other, {other});
    kt::MakeDirs(kDir);
    const std::string keepLive = HbFile(name, "7", child.pid());
    const std::string keepOtherModule = HbFile(name, "99", child.pid());
    const std::string goneDead = HbFile(name, "7", 999999999);
    const std::string goneReused = HbFile(name, "7", otherChild.pid());
    const std::string goneJunk = kDir + "/notes.txt";
    const std::string goneNoPid = kDir + "/" + name + "___7";
    for (const std::string& f : {keepLive, keepOtherModule, goneDead, goneReused, goneJunk, goneNoPid}) {
        kt::WriteFile(f, "x\n");
    }
    kt::MakeDirs("/tmp/elsewhere");
    kt::WriteFile("/tmp/elsewhere/keep", "x\n");
    const std::string link = kDir + "/junk_link";
    const std::string fifo = kDir + "/junk_fifo";
    const std::string subdir = kDir + "/junk_dir";
    ASSERT_EQ(symlink("/tmp/elsewhere/keep", link.c_str()), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    kt::MakeDirs(subdir);

    FI_RESULT_S r = FreshResult();
    EXPECT_EQ(ClearHeartBeatFile(-5, nullptr, nullptr, &r), 1.0f);
    EXPECT_EQ(r.result, 0);
    auto exists = [](const std::string& p) {
        struct stat st;
        return lstat(p.c_str(), &st) == 0;
    };
    EXPECT_TRUE(exists(keepLive));
    EXPECT_TRUE(exists(keepOtherModule));
    EXPECT_FALSE(exists(goneDead));
    EXPECT_FALSE(exists(goneReused));
    EXPECT_FALSE(exists(goneJunk));
    EXPECT_FALSE(exists(goneNoPid));
    EXPECT_TRUE(exists(link));
    EXPECT_TRUE(exists(fifo));
    EXPECT_TRUE(exists(subdir));
    EXPECT_TRUE(exists("/tmp/elsewhere/keep"));

    // Through a link in place of the directory nothing is deleted.
    ASSERT_EQ(rename(kDir.c_str(), "/tmp/hb.real"), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", kDir.c_str()), 0);
    EXPECT_EQ(ClearHeartBeatFile(0, nullptr, nullptr, nullptr), 1.0f);
    EXPECT_TRUE(exists("/tmp/elsewhere/keep"));
}

SANDBOX_TEST(Heartbeat, FileRewrittenDuringTheCheck) {
    std::string name = Unique("hbrace");
    kt::Child child(name, {name});
    kt::MakeDirs(kDir);
    const std::string file = HbFile(name, "2", child.pid());
    kt::WriteFile(file, "0\n0\n");
    std::atomic<bool> stop{false};
    // Rewritten in place, so the check sees empty and partial contents too.
    std::thread writer([&] {
        for (unsigned n = 1; !stop; ++n) {
            int fd = open(file.c_str(), O_WRONLY | O_TRUNC);
            std::string text = std::string(n % 200, 'x') + std::to_string(n) + "\n" + std::to_string(n) + "\n";
            for (char c : text) (void)!write(fd, &c, 1);
            close(fd);
        }
    });
    Item item(name, "2");
    for (int i = 0; i < 300; ++i) {
        float v = item.Call();
        EXPECT_TRUE(v == 0.0f || v == 1.0f) << v;
        ASSERT_LE(item.table()->stNode[0].uiBufferUsed, 126u);
    }
    stop = true;
    writer.join();
}
