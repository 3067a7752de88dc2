// ProcessHeartBeat and ClearHeartBeatFile over real processes and a private /tmp/heartbeat: the token rules, the
// table of seven pids, and what other users may plant there (links, FIFOs, a link in place of the directory).

#include <sys/stat.h>

#include <memory>
#include <set>

#include "bench/bench_processes.h"
#include "tests/plugin/linux/items_test_util.h"

namespace {

const std::string kDir = "/tmp/heartbeat";
constexpr uint32_t kNone = 0xFFFFFFFFu;

std::string HbFile(const std::string& name, int pid) { return kDir + "/" + name + "___7___" + std::to_string(pid); }

// One configured item (module 7): the agent keeps its context between calls.
struct Item : itest::Args {
    explicit Item(const std::string& name) : Args{{"ProcessName", name}, {"ProcessMoudleId", "7"}} {}
    float Beat() {  // a beat writes neither pid nor hang flow id
        const float v = Call(ProcessHeartBeat);
        EXPECT_TRUE(result.result == 0 && result.pid == -5 && (v == 0.0f || result.hangflowid == 99u));
        return v;
    }
    auto table() const { return reinterpret_cast<const ZADI_PROCESS_HEARTBEAT_CONTEXT*>(context.contextbuff); }
    std::vector<uint32_t> Tracked() const {
        std::vector<uint32_t> pids;
        for (const auto* n = table()->stNode; n < table()->stNode + 7 && n->uiProcessId != 0; ++n) {
            pids.push_back(n->uiProcessId);
        }
        return pids;
    }
};

}  // namespace

SANDBOX_TEST(Heartbeat, TokensDecideTheVerdictForSevenPidsAtMost) {
    const std::string name = kt::UniqueName("hbtok");
    kt::Child child(name, {name});
    const std::string file = HbFile(name, child.pid());
    kt::WriteFile(file + "junk", "old\n9\n");  // the same pid to atoi: it must not hide a hang
    // A hang reports the id stored with the token; '\r' is part of it; no line 2
    // is "none" (logged signed); line 1 is read 126 characters at a time.
    const std::string a126(126, 'a');
    // clang-format off
    // text "=": left as it is; fresh: a new item; id: stored (a beat) or reported (a hang).
    const struct { std::string text; bool fresh; float value; uint32_t id; } steps[] = {
        {"tok1\n17\n", true, 1, 17}, {"=", false, 0, 17}, {"tok2\n18\n", false, 1, 18}, {"tok2\n19\n", false, 0, 18},
        {"tok2\r\n", false, 1, kNone}, {"=", false, 0, kNone}, {"", true, 1, kNone}, {"", false, 0, kNone},
        {"t\n-2\n", true, 1, 0xFFFFFFFEu}, {"t\n\n", false, 0, 0xFFFFFFFEu}, {"u\nx\n", false, 1, 0},
        {a126 + "123\n", false, 1, 123}, {a126 + "456\n", false, 0, 123}};
    // clang-format on
    std::unique_ptr<Item> item;
    std::string text;
    for (const auto& st : steps) {
        if (st.fresh) {
            item.reset(new Item(name));
        }
        if (st.text != "=") {
            kt::WriteFile(file, text = st.text);
        }
        const float v = item->Beat();
        const ZADI_PROCESS_HEARTBEAT_NODE& node = item->table()->stNode[0];
        const size_t used = text.empty() ? 0 : std::min<size_t>(text.find('\n'), 126);
        EXPECT_EQ(std::make_tuple(v, v == 0 ? item->result.hangflowid : node.hangFlowId, node.uiBufferUsed),
                  std::make_tuple(st.value, st.id, static_cast<uint32_t>(used)))
            << text;
    }
    EXPECT_EQ(kt::SyslogCount("Process " + name + "(7) heartbeat not refreshed, hangFlowId=17."), 1);
    EXPECT_EQ(kt::SyslogCount("Process " + name + "(7) heartbeat not refreshed, hangFlowId=-1."), 2);

    // A crowd: seven pids are tracked, the eighth is not.
    bench::Sleepers crowd;  // kernel name "sleep", command lines "<tag>/pNNNN 3600"
    crowd.Grow(8);
    int pids[8];
    unsigned int used = 0;
    ASSERT_EQ(GetProcessPidExtern(crowd.Name(0).substr(0, crowd.Name(0).size() - 5).c_str(), pids, 8, &used), 0);
    ASSERT_EQ(used, 8u);
    for (int pid : pids) {
        kt::WriteFile(HbFile("sleep", pid), "a\n" + std::to_string(pid) + "\n");
    }
    Item many("sleep");
    EXPECT_EQ(many.Beat(), 1.0f);
    const std::vector<uint32_t> tracked = many.Tracked();
    ASSERT_EQ(std::set<uint32_t>(tracked.begin(), tracked.end()).size(), 7u) << "seven pids, each once";
    // One stale pid is a hang; a middle file gone, the rest close up in order.
    for (int pid : pids) {
        kt::WriteFile(HbFile("sleep", pid), pid == static_cast<int>(tracked[3]) ? "a\n1\n" : "b\n1\n");
    }
    ASSERT_EQ(unlink(HbFile("sleep", static_cast<int>(tracked[1])).c_str()), 0);
    EXPECT_EQ(std::make_pair(many.Beat(), many.result.hangflowid), std::make_pair(0.0f, tracked[3]));
    EXPECT_EQ(many.Tracked(),
              (std::vector<uint32_t>{tracked[0], tracked[2], tracked[3], tracked[4], tracked[5], tracked[6]}));
    const ZADI_PROCESS_HEARTBEAT_NODE &moved = many.table()->stNode[1], &freed = many.table()->stNode[6];
    EXPECT_EQ(std::make_tuple(std::string(moved.szBuffer), freed.uiProcessId, freed.uiBufferUsed, freed.hangFlowId),
              std::make_tuple(std::string("b"), 0u, 0u, kNone));
}

SANDBOX_TEST(Heartbeat, ForeignEntriesAreIgnoredAndOnlyFilesOfGoneProcessesCleared) {
    const std::string name = kt::UniqueName("hbname"), other = kt::UniqueName("hbothr");
    kt::Child child(name, {name}), otherChild(other, {other});
    Item item(name);
    EXPECT_TRUE(item.Beat() == 1.0f && kt::SyslogCount("eartbeat") == 0);  // no directory: a beat, silently
    // Cleared: files of no pid, of another program, of no process, a 255-long
    // name. Kept: another module, a planted link and FIFO, a directory.
    kt::MakeDirs(kDir + "/subdir");
    const std::string file = HbFile(name, child.pid()), fifo = file + "___fifo";
    // clang-format off
    const std::vector<std::string> gone = {kDir + "/" + name + "___7", HbFile(name, otherChild.pid()),
        HbFile(name, 999999999), kDir + "/notes.txt", kDir + "/gone___7___9" + std::string(243, 'x')};
    const std::vector<std::string> kept = {kDir + "/" + name + "___07___" + std::to_string(child.pid()), file + "___old", file,
        fifo, kDir + "/subdir", "/tmp/target"};
    // clang-format on
    for (const std::string& f : gone) {
        kt::WriteFile(f, "a\n");
    }
    for (const std::string& f : {kept[0], kept[5]}) {
        kt::WriteFile(f, "a\n");
    }
    ASSERT_TRUE(symlink("/tmp/target", file.c_str()) == 0 && mkfifo(fifo.c_str(), 0666) == 0);
    EXPECT_TRUE(item.Beat() + item.Beat() == 2.0f && item.Tracked().empty());
    ZADI_PROCESS_HEARTBEAT_NODE node{};  // opened by path, as after a swap: neither blocks nor follows
    EXPECT_EQ(std::make_pair(ReadHeartbeatFile(file.c_str(), &node) + ReadHeartbeatFile(fifo.c_str(), &node),
                             node.hangFlowId),
              std::make_pair(2, kNone));
    EXPECT_EQ(kt::SyslogCount("Open failed(" + file + ")"), 1);
    kt::WriteFile(file + "___old", "a\n");  // anything after a third separator is ignored
    EXPECT_EQ((std::vector<float>{item.Beat(), item.Beat()}), (std::vector<float>{1, 0}));
    itest::Args clear;
    EXPECT_EQ(std::make_pair(clear.Call(ClearHeartBeatFile), clear.result.result), std::make_pair(1.0f, 0));
    for (const std::string& f : gone) {
        EXPECT_NE(access(f.c_str(), F_OK), 0) << f;
    }
    for (const std::string& f : kept) {
        EXPECT_EQ(access(f.c_str(), F_OK), 0) << f;
    }

    // A link in place of the directory: followed only when root owns it.
    kt::WriteFile("/tmp/victim/" + name + "___7___" + std::to_string(child.pid()), "a\n");
    kt::WriteFile("/tmp/victim/gone", "a\n");
    ASSERT_TRUE(rename(kDir.c_str(), "/tmp/hb.real") == 0 && symlink("/tmp/victim", kDir.c_str()) == 0 &&
                lchown(kDir.c_str(), 4321, 4321) == 0);
    Item viaLink(name);
    EXPECT_EQ(viaLink.Beat() + viaLink.Beat() + clear.Call(ClearHeartBeatFile), 3.0f);
    EXPECT_TRUE(access("/tmp/victim/gone", F_OK) == 0 && viaLink.Tracked().empty());
    EXPECT_EQ(kt::SyslogCount("Heartbeat directory /tmp/heartbeat is a link owned by uid 4321, not followed."), 3);
    ASSERT_EQ(lchown(kDir.c_str(), 0, 0), 0);
    Item viaRootLink(name);
    EXPECT_EQ((std::vector<float>{viaRootLink.Beat(), viaRootLink.Beat()}), (std::vector<float>{1, 0}));
    clear.Call(ClearHeartBeatFile);
    EXPECT_NE(access("/tmp/victim/gone", F_OK), 0);
}
