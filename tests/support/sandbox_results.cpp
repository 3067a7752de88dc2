// Gtest results of a sandboxed body, carried from the child to the parent.
//
// Child: a listener sends every failure and skip through a pipe as a record
// (type, line, file length, file, message length, message; host byte order,
// both ends being the same program) and counts them. Parent: the records are
// read back into SandboxReports.

#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "tests/support/sandbox_internal.h"

namespace kt {
namespace {

void WriteAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

void AppendU32(std::string* out, uint32_t v) { out->append(reinterpret_cast<const char*>(&v), sizeof v); }

// The counts judge the body alone: the child inherits whatever the test
// recorded before the fork.
class ResultForwarder : public ::testing::EmptyTestEventListener {
public:
    explicit ResultForwarder(int fd) : fd_(fd) {}
    void OnTestPartResult(const ::testing::TestPartResult& r) override {
        if (r.type() == ::testing::TestPartResult::kSuccess) return;
        if (r.type() == ::testing::TestPartResult::kSkip) {
            skips_.fetch_add(1);
        } else {
            failures_.fetch_add(1);
        }
        const char* file = r.file_name() != nullptr ? r.file_name() : "";
        std::string rec;
        AppendU32(&rec, static_cast<uint32_t>(r.type()));
        AppendU32(&rec, static_cast<uint32_t>(r.line_number()));
        AppendU32(&rec, static_cast<uint32_t>(strlen(file)));
        rec += file;
        AppendU32(&rec, static_cast<uint32_t>(strlen(r.message())));
        rec += r.message();
        std::lock_guard<std::mutex> lock(mu_);
        WriteAll(fd_, rec);
    }

    int failures() const { return failures_.load(); }
    int skips() const { return skips_.load(); }

private:
    int fd_;
    std::mutex mu_;
    std::atomic<int> failures_{0};
    std::atomic<int> skips_{0};
};

// Owned by gtest's listener list; in a sandbox run from a sandboxed body,
// the enclosing run's forwarder is replaced, or results would reach both.
ResultForwarder* g_forwarder = nullptr;

uint32_t TakeU32(const std::string& buf, size_t* pos) {
    uint32_t v = 0;
    memcpy(&v, buf.data() + *pos, sizeof v);
    *pos += sizeof v;
    return v;
}

}  // namespace

namespace internal {

void ForwardResultsTo(int fd) {
    ::testing::TestEventListeners& listeners = ::testing::UnitTest::GetInstance()->listeners();
    // The parent prints what it receives; printing here too would show every
    // failure twice.
    delete listeners.Release(listeners.default_result_printer());
    if (g_forwarder != nullptr) delete listeners.Release(g_forwarder);
    g_forwarder = new ResultForwarder(fd);
    listeners.Append(g_forwarder);
}

int BodyFailures() { return g_forwarder != nullptr ? g_forwarder->failures() : 0; }
int BodySkips() { return g_forwarder != nullptr ? g_forwarder->skips() : 0; }

std::vector<SandboxReport> ParseReports(const std::string& buf) {
    std::vector<SandboxReport> out;
    size_t pos = 0;
    while (buf.size() - pos >= 3 * sizeof(uint32_t)) {
        SandboxReport r;
        r.type = static_cast<::testing::TestPartResult::Type>(TakeU32(buf, &pos));
        r.line = static_cast<int>(TakeU32(buf, &pos));
        uint32_t flen = TakeU32(buf, &pos);
        if (buf.size() - pos < flen + sizeof(uint32_t)) break;
        r.file.assign(buf, pos, flen);
        pos += flen;
        uint32_t mlen = TakeU32(buf, &pos);
        if (buf.size() - pos < mlen) break;
        r.message.assign(buf, pos, mlen);
        pos += mlen;
        out.push_back(std::move(r));
    }
    return out;
}

}  // namespace internal
}  // namespace kt
