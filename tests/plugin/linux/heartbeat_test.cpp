// ProcessHeartBeat and ClearHeartBeatFile over real processes and a private
// /tmp/heartbeat, including what other users may plant there (links, FIFOs).

#include <fcntl.h>
#include <stddef.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>

#include "plugin/linux/process_monitor.h"
#include "plugin/linux/process_monitor_internal.h"
#include "support/sandbox.h"
#include "tests/plugin/linux/items_test_util.h"

using itest::Args;
using itest::Unique;

// Seven nodes overlaid on contextbuff.
static_assert(sizeof(ZADI_PROCESS_HEARTBEAT_NODE) == 144 && offsetof(ZADI_PROCESS_HEARTBEAT_NODE, hangFlowId) == 8 &&
                  offsetof(ZADI_PROCESS_HEARTBEAT_NODE, szBuffer) == 16,
              "heartbeat node");
static_assert(offsetof(ZADI_PROCESS_HEARTBEAT_CONTEXT, hangFlowId) == 8 &&
                  offsetof(ZADI_PROCESS_HEARTBEAT_CONTEXT, stNode) == 12 && ZADI_HEARTBEAT_NODE_MAX == 7,
              "heartbeat table");

namespace {

const std::string kDir = "/tmp/heartbeat";

std::string HbFile(const std::string& name, const std::string& mod, pid_t pid, const std::string& tail = "") {
    return kDir + "/" + name + "___" + mod + "___" + std::to_string(pid) + tail;
}

// One configured item: the agent keeps its context between calls.
struct Item {
    Args a;
    Item(const std::string& name, const std::string& mod) : a{{"ProcessName", name}, {"ProcessMoudleId", mod}} {}
    float Call() {
        a.ResetResult();
        float v = a.Ok(ProcessHeartBeat);
        EXPECT_EQ(a.result.pid, -5) << "pid must not be written";
        return v;
    }
    uint32_t hangflowid() const { return a.result.hangflowid; }
    const ZADI_PROCESS_HEARTBEAT_CONTEXT* table() const {
        return reinterpret_cast<const ZADI_PROCESS_HEARTBEAT_CONTEXT*>(a.context.contextbuff);
    }
    std::vector<uint32_t> TrackedPids() const {
        std::vector<uint32_t> pids;
        for (uint32_t i = 0; i < 7 && table()->stNode[i].uiProcessId != 0; ++i)
            pids.push_back(table()->stNode[i].uiProcessId);
        return pids;
    }
};

// Files that do not belong to the item never count: refreshed, untracked.
void ExpectIgnoresEverything(Item& item) {
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_TRUE(item.TrackedPids().empty());
}

int WalkEmpty(const std::string& dir) {
    return ForeachDir(
        dir.c_str(), [](const char*, const char*, void*) { return 0; }, nullptr);
}

bool Exists(const std::string& p) {
    struct stat st;
    return lstat(p.c_str(), &st) == 0;
}

// A running process under a name of its own, and the heartbeat directory.
struct Watched {
    std::string name;
    kt::Child child;
    explicit Watched(const char* stem) : name(Unique(stem)), child(name, {name}) { kt::MakeDirs(kDir); }
    std::string File(const std::string& mod, const std::string& tail = "") const {
        return HbFile(name, mod, child.pid(), tail);
    }
    std::vector<uint32_t> Pid() const { return {static_cast<uint32_t>(child.pid())}; }  // tracked alone
};

// n processes of one name, each with a heartbeat file for module `mod` holding `text`.
std::vector<kt::Child> Many(const std::string& name, int n, const std::string& mod, const std::string& text) {
    std::vector<kt::Child> children;
    for (int i = 0; i < n; ++i) children.emplace_back(name, std::vector<std::string>{name, std::to_string(i)});
    kt::MakeDirs(kDir);
    for (auto& c : children)
        kt::WriteFile(HbFile(name, mod, c.pid()), text.empty() ? "a\n" + std::to_string(c.pid()) + "\n" : text);
    return children;
}

}  // namespace

TEST(HeartbeatArgs, FaultsInOrder) {
    Args ok{{"ProcessName", "w"}, {"ProcessMoudleId", "7"}}, onlyName{{"ProcessName", "w"}},
        onlyMod{{"ProcessMoudleId", "7"}};
    EXPECT_EQ(itest::Bits(ProcessHeartBeat(ok.argc(), ok.argv(), &ok.context, nullptr)), itest::kMarkerBits);
    const itest::BadCall cases[] = {
        {-1, ok.argv(), nullptr, "Input parameter number error."},
        {2, nullptr, &ok.context, "Input parameter number error."},
        {2, ok.argv(), nullptr, "Input parameter context error."},
        {0, ok.argv(), &ok.context, "Get para 'ProcessName' failed."},
        {1, onlyMod.argv(), &ok.context, "Get para 'ProcessName' failed."},
        {1, onlyName.argv(), &ok.context, "Get para 'ProcessMoudleId' failed."},
    };
    for (const auto& c : cases) {
        FI_RESULT_S r = itest::FreshResult();
        itest::ExpectRefused(ProcessHeartBeat(c.argc, c.argv, c.ctx, &r), r, c.reason);
    }
}

SANDBOX_TEST(Heartbeat, TokenChangesDecideTheVerdict) {
    Watched w("hbtok");
    const std::string& name = w.name;
    // The pid field is read with atoi: "PID" and "PIDjunk" name the same
    // process. An older leftover of that kind must not hide a hang.
    kt::WriteFile(w.File("7", "junk"), "old\n9\n");
    Item item(name, "7");

    // Refreshed never writes hangflowid; stale gives the id stored with the
    // token (not the one just read); a carriage return is part of the token;
    // no line 2 means "none", logged signed.
    const struct {
        const char* text;  // null: left as it is
        float value;
        uint32_t id;
    } steps[] = {{"tok1\n17\n", 1, 99}, {nullptr, 0, 17},    {"tok2\n18\n", 1, 99},    {"tok2\n19\n", 0, 18},
                 {"tok2\n20\n", 0, 18}, {"tok2\r\n", 1, 99}, {nullptr, 0, 0xFFFFFFFFu}};
    for (const auto& st : steps) {
        if (st.text != nullptr) kt::WriteFile(w.File("7"), st.text);
        EXPECT_EQ(item.Call(), st.value) << (st.text ? st.text : "unchanged");
        EXPECT_EQ(item.hangflowid(), st.id);
    }
    EXPECT_EQ(item.TrackedPids(), w.Pid());
    EXPECT_EQ(item.table()->uiSize, 7u);
    EXPECT_EQ(kt::SyslogCount("Process " + name + "(7) heartbeat not refreshed, hangFlowId=17."), 1);
    EXPECT_EQ(kt::SyslogCount("Process " + name + "(7) heartbeat not refreshed, hangFlowId=-1."), 1);
}

SANDBOX_TEST(Heartbeat, ContentQuirks) {
    Watched w("hbquirk");
    // An empty token never changes. Line 1 is read 126 characters at a time:
    // the rest becomes line 2 and changes past it are no beat. Line 2
    // converts like strtoll and keeps 32 bits.
    const std::string head(126, 'a');
    const struct {
        std::string text;
        bool fresh;  // a new item
        float value;
        uint32_t id;  // stored (fresh) or reported (stale)
        uint32_t used;
    } steps[] = {{"", true, 1, 0xFFFFFFFFu, 0},
                 {"", false, 0, 0xFFFFFFFFu, 0},
                 {head + "123\n", true, 1, 123, 126},
                 {head + "456\n", false, 0, 123, 126},
                 {"t\n-2\n", true, 1, 0xFFFFFFFEu, 1},
                 {"t\n\n", false, 0, 0xFFFFFFFEu, 1},
                 {"u\nx\n", false, 1, 0, 1}};
    std::unique_ptr<Item> item;
    for (const auto& st : steps) {
        if (st.fresh) item.reset(new Item(w.name, "1"));
        kt::WriteFile(w.File("1"), st.text);
        EXPECT_EQ(item->Call(), st.value) << st.text;
        EXPECT_EQ(st.value == 0 ? item->hangflowid() : item->table()->stNode[0].hangFlowId, st.id) << st.text;
        EXPECT_EQ(item->table()->stNode[0].uiBufferUsed, st.used) << st.text;
    }
}

SANDBOX_TEST(Heartbeat, EveryPidCountsAndTheTableHoldsSeven) {
    std::string name = Unique("hbmany");
    std::vector<kt::Child> children = Many(name, 8, "3", "");
    Item item(name, "3");
    EXPECT_EQ(item.Call(), 1.0f);
    std::vector<uint32_t> tracked = item.TrackedPids();
    ASSERT_EQ(tracked.size(), 7u) << "the eighth pid is ignored";
    EXPECT_EQ(std::set<uint32_t>(tracked.begin(), tracked.end()).size(), 7u) << "each pid once";
    // Every tracked file beats; the untracked one does not matter.
    for (uint32_t pid : tracked) kt::WriteFile(HbFile(name, "3", pid), "b\n1\n");
    EXPECT_EQ(item.Call(), 1.0f);
    // One stale pid among beating ones is enough.
    for (auto& c : children) kt::WriteFile(HbFile(name, "3", c.pid()), "c\n" + std::to_string(c.pid()) + "\n");
    kt::WriteFile(HbFile(name, "3", tracked[3]), "b\n1\n");
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.hangflowid(), 1u);
}

SANDBOX_TEST(Heartbeat, DroppedNodesAreCompactedInOrder) {
    std::string name = Unique("hbgone");
    std::vector<kt::Child> children = Many(name, 3, "1", "a\n5\n");
    Item item(name, "1");
    EXPECT_EQ(item.Call(), 1.0f);
    std::vector<uint32_t> order = item.TrackedPids();
    ASSERT_EQ(order.size(), 3u);

    // The middle file goes: its slot is closed up, the others keep order and
    // tokens, the freed slot keeps no hang flow id.
    ASSERT_EQ(unlink(HbFile(name, "1", order[1]).c_str()), 0);
    EXPECT_EQ(item.Call(), 0.0f);
    EXPECT_EQ(item.TrackedPids(), (std::vector<uint32_t>{order[0], order[2]}));
    const ZADI_PROCESS_HEARTBEAT_NODE& freed = item.table()->stNode[2];
    EXPECT_EQ(freed.uiProcessId + freed.uiBufferUsed + freed.bFileExist, 0u);
    EXPECT_EQ(freed.hangFlowId, 0xFFFFFFFFu);
    EXPECT_STREQ(item.table()->stNode[1].szBuffer, "a");

    // A process that ended leaves its file behind: the node goes, no hang.
    for (uint32_t pid : {order[0], order[2]}) kt::WriteFile(HbFile(name, "1", pid), "b\n6\n");
    EXPECT_EQ(item.Call(), 1.0f);
    for (auto& c : children) {
        if (c.pid() == static_cast<pid_t>(order[0])) c.Kill();
    }
    EXPECT_EQ(item.Call(), 0.0f) << "the surviving file did not change";
    EXPECT_EQ(item.TrackedPids(), (std::vector<uint32_t>{order[2]}));

    // A restart is a new pid and a new node: never a hang, same token or not.
    kt::Child restarted(name, {name, "again"});
    kt::WriteFile(HbFile(name, "1", restarted.pid()), "b\n6\n");
    kt::WriteFile(HbFile(name, "1", order[2]), "c\n7\n");
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.TrackedPids().size(), 2u);
}

// The walk hands over "dir/name" exactly as formed (a trailing slash gives
// two), visits regular files only and stops at the first non-zero answer; a
// directory path longer than an entry path is still opened.
SANDBOX_TEST(Heartbeat, DirectoryWalk) {
    kt::MakeDirs(kDir + "/sub");
    for (const char* f : {"a", "b", "c"}) kt::WriteFile(kDir + "/" + f, "x\n");
    struct Seen {
        std::set<std::string> paths;
        int stopAfter;
    };
    auto record = [](const char* path, const char* name, void* ctx) {
        Seen* seen = static_cast<Seen*>(ctx);
        seen->paths.insert(path);
        EXPECT_EQ(std::string(path), "/tmp/heartbeat//" + std::string(name));
        return static_cast<int>(seen->paths.size()) == seen->stopAfter ? 1 : 0;
    };
    Seen all{{}, 0}, one{{}, 1};
    EXPECT_EQ(ForeachDir(ZADI_HEARTBEAT_DIR, record, &all), 0);
    EXPECT_EQ(all.paths, (std::set<std::string>{kDir + "//a", kDir + "//b", kDir + "//c"}));
    EXPECT_EQ(ForeachDir(ZADI_HEARTBEAT_DIR, record, &one), 0);
    EXPECT_EQ(one.paths.size(), 1u);

    const std::string deep = "/tmp/" + std::string(252, 'd');
    kt::MakeDirs(deep);
    EXPECT_EQ(WalkEmpty(deep), 0);
}

TEST(HeartbeatSteps, SplitName) {
    // The three fields joined by '|', '-' for one not found.
    const std::pair<const char*, const char*> cases[] = {
        {"worker___7___2310", "worker|7|2310"},
        {"worker___7___2310___old", "worker|7|2310"},
        {"worker___7", "worker|7|-"},
        {"worker", "worker|-|-"},
        {"a____b", "a|_b|-"},
        {"______", "||"},
        {"", "|-|-"},
    };
    for (const auto& c : cases) {
        char buf[64], *f[3] = {nullptr, nullptr, nullptr};
        strcpy(buf, c.first);
        SpliteHeartFileName(buf, 0, f);
        std::string got;
        for (int i = 0; i < 3; ++i) got += (i > 0 ? "|" : "") + std::string(f[i] != nullptr ? f[i] : "-");
        EXPECT_EQ(got, c.second) << c.first;
    }
    char* f[3] = {nullptr, nullptr, nullptr};
    EXPECT_FALSE(CheckFileAndProc("a", "b", f, 3));
    char a[] = "a", b[] = "b", p[] = "1";
    char* full[3] = {a, b, p};
    EXPECT_FALSE(CheckFileAndProc("a", "b", full, 2));
    EXPECT_FALSE(CheckProcIdAndProcName(nullptr, "a"));
}

SANDBOX_TEST(Heartbeat, ForeignFilesLinksAndFifosAreIgnored) {
    std::string name = Unique("hbname");
    kt::Child child(name, {name});
    std::string longName = name + std::string(16 - name.size() + 1, 'z');  // the kernel keeps 15
    kt::Child cut(longName, {longName});
    std::string other = Unique("hbother");
    kt::Child otherChild(other, {other});
    Item item(name, "7"), longItem(longName, "7");

    // No directory at all: refreshed, silently.
    ExpectIgnoresEverything(item);
    EXPECT_EQ(WalkEmpty(kDir), -1);
    EXPECT_EQ(kt::SyslogCount("heartbeat"), 0);

    kt::MakeDirs(kDir);
    kt::WriteFile(kDir + "/" + name + "___7", "a\n");           // no pid field
    kt::WriteFile(HbFile(name, "07", child.pid()), "a\n");      // module compared as text
    kt::WriteFile(HbFile(name, "7", otherChild.pid()), "a\n");  // pid runs another program
    kt::WriteFile(HbFile(longName, "7", cut.pid()), "a\n");     // name longer than the kernel's
    kt::WriteFile(HbFile(name, "7", 999999999), "a\n");         // no such process
    // Planted by another user: a link and a FIFO under the item's own names.
    const std::string file = HbFile(name, "7", child.pid()), fifo = HbFile(name, "7", child.pid(), "___fifo");
    kt::MakeDirs("/tmp/elsewhere");
    kt::WriteFile("/tmp/elsewhere/target", "a\n1\n");
    ASSERT_EQ(symlink("/tmp/elsewhere/target", file.c_str()), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    ExpectIgnoresEverything(item);
    ExpectIgnoresEverything(longItem);

    // Opened by path (a race could swap an entry): neither blocks nor follows.
    ZADI_PROCESS_HEARTBEAT_NODE node{};
    EXPECT_EQ(ReadHeartbeatFile(file.c_str(), &node), 1);
    EXPECT_EQ(ReadHeartbeatFile(fifo.c_str(), &node), 1);
    EXPECT_EQ(node.hangFlowId, 0xFFFFFFFFu);
    EXPECT_EQ(kt::SyslogCount("Open failed(" + file + ")"), 1);

    // Anything after a third separator is ignored.
    kt::WriteFile(HbFile(name, "7", child.pid(), "___old"), "a\n");
    EXPECT_EQ(item.Call(), 1.0f);
    EXPECT_EQ(item.TrackedPids(), (std::vector<uint32_t>{static_cast<uint32_t>(child.pid())}));
    EXPECT_EQ(item.Call(), 0.0f);

    // The directory itself a link: followed when root owns it, refused and
    // logged when anyone else does.
    ASSERT_EQ(rename(kDir.c_str(), "/tmp/hb.real"), 0);
    kt::MakeDirs("/tmp/victim");
    kt::WriteFile("/tmp/victim/" + name + "___7___" + std::to_string(child.pid()), "a\n");
    ASSERT_EQ(symlink("/tmp/victim", kDir.c_str()), 0);
    Item viaRootLink(name, "7");
    EXPECT_EQ(viaRootLink.Call(), 1.0f);
    EXPECT_EQ(viaRootLink.Call(), 0.0f);
    ASSERT_EQ(lchown(kDir.c_str(), 4321, 4321), 0);
    Item viaLink(name, "7");
    ExpectIgnoresEverything(viaLink);
    EXPECT_EQ(kt::SyslogCount("Heartbeat directory /tmp/heartbeat is a link owned by uid 4321, not followed."), 2);
}

SANDBOX_TEST(Heartbeat, ClearRemovesOnlyFilesOfGoneProcesses) {
    std::string name = Unique("hbclear"), other = Unique("hbclro");
    kt::Child child(name, {name}), otherChild(other, {other});
    kt::MakeDirs(kDir);
    kt::MakeDirs("/tmp/elsewhere");
    kt::WriteFile("/tmp/elsewhere/keep", "x\n");
    // Kept: files of running processes, any module. Removed: a pid gone or
    // reused by another program, other names, and a name as long as the
    // system allows (its path passes 255 characters).
    std::vector<std::string> kept = {HbFile(name, "7", child.pid()), HbFile(name, "99", child.pid())};
    const std::vector<std::string> removed = {HbFile(name, "7", 999999999), HbFile(name, "7", otherChild.pid()),
                                              kDir + "/notes.txt", kDir + "/" + name + "___7",
                                              kDir + "/gone___7___999999" + std::string(255 - 17, 'x')};
    for (const auto& f : kept) kt::WriteFile(f, "x\n");
    for (const auto& f : removed) kt::WriteFile(f, "x\n");
    // Other kinds of entries stay whatever their names.
    const std::string link = kDir + "/junk_link", fifo = kDir + "/junk_fifo", subdir = kDir + "/junk_dir";
    ASSERT_EQ(symlink("/tmp/elsewhere/keep", link.c_str()), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    kt::MakeDirs(subdir);
    kept.insert(kept.end(), {link, fifo, subdir, "/tmp/elsewhere/keep"});

    FI_RESULT_S r = itest::FreshResult();
    EXPECT_EQ(ClearHeartBeatFile(-5, nullptr, nullptr, &r), 1.0f);
    EXPECT_EQ(r.result, 0);
    for (const auto& f : removed) EXPECT_FALSE(Exists(f)) << f;
    for (const auto& f : kept) EXPECT_TRUE(Exists(f)) << f;

    // Through a link in place of the directory: only a root-owned one is
    // followed.
    ASSERT_EQ(rename(kDir.c_str(), "/tmp/hb.real"), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", kDir.c_str()), 0);
    ASSERT_EQ(lchown(kDir.c_str(), 4321, 4321), 0);
    EXPECT_EQ(ClearHeartBeatFile(0, nullptr, nullptr, nullptr), 1.0f);
    EXPECT_TRUE(Exists("/tmp/elsewhere/keep"));
    EXPECT_EQ(kt::SyslogCount("is a link owned by uid 4321"), 1);
    ASSERT_EQ(lchown(kDir.c_str(), 0, 0), 0);
    EXPECT_EQ(ClearHeartBeatFile(0, nullptr, nullptr, nullptr), 1.0f);
    EXPECT_FALSE(Exists("/tmp/elsewhere/keep"));
}

SANDBOX_TEST(Heartbeat, FileRewrittenDuringTheCheck) {
    Watched w("hbrace");
    const std::string file = w.File("2");
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
    Item item(w.name, "2");
    for (int i = 0; i < 300; ++i) {
        float v = item.Call();
        EXPECT_TRUE(v == 0.0f || v == 1.0f) << v;
        ASSERT_LE(item.table()->stNode[0].uiBufferUsed, 126u);
    }
    stop = true;
    writer.join();
}
