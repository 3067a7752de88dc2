// Line reader over a memfd: the first byte picks the buffer size, the rest
// is the file. Reading to the end must give back the file without its
// carriage returns, in pieces no longer than size - 1 that end at a newline
// or fill the piece, and never write outside the buffer. The buffered reader
// of the configuration files must hand over exactly the same pieces.

#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "os/base/kira_file.h"
#include "os/base/kira_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    static int fd = memfd_create("readline_fuzz", 0);
    if (fd < 0) {
        abort();
    }
    int bufSize = data[0] % 64;
    std::string file(reinterpret_cast<const char*>(data + 1), size - 1);
    for (char& c : file) {
        if (c == '\0') {
            c = '0';  // pieces are read back as C strings
        }
    }
    if (ftruncate(fd, 0) != 0 || pwrite(fd, file.data(), file.size(), 0) != static_cast<ssize_t>(file.size())) {
        abort();
    }
    lseek(fd, 0, SEEK_SET);

    std::string expected;
    for (char c : file) {
        if (c != '\r') {
            expected.push_back(c);
        }
    }
    // Exactly bufSize bytes on the heap, so the sanitizer sees any overrun.
    std::vector<char> buf(static_cast<size_t>(bufSize > 0 ? bufSize : 1));
    std::string got;
    std::vector<std::string> pieces;
    for (size_t calls = 0; calls <= file.size() + 1; calls++) {
        char* line = KIRA_readline(fd, bufSize > 0 ? buf.data() : nullptr, bufSize);
        if (line == nullptr) {
            break;
        }
        size_t len = strlen(line);
        if (len == 0 || static_cast<int>(len) > bufSize - 1) {
            abort();
        }
        if (line[len - 1] != '\n' && static_cast<int>(len) != bufSize - 1 && got.size() + len != expected.size()) {
            abort();
        }
        got += line;
        pieces.push_back(line);
    }
    if (bufSize > 1 && got != expected) {
        abort();
    }
    if (bufSize <= 1 && !got.empty()) {
        abort();
    }

    kira::LineReader reader;
    if (!reader.OpenPlain(("/proc/self/fd/" + std::to_string(fd)).c_str())) {
        abort();
    }
    size_t i = 0;
    while (reader.ReadLine(bufSize > 0 ? buf.data() : nullptr, bufSize)) {
        if (i >= pieces.size() || pieces[i++] != buf.data()) {
            abort();
        }
    }
    if (i != pieces.size()) {
        abort();
    }
    return 0;
}
