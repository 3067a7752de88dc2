// Building the agent's argument array for a configured item and calling it
// with the item's persistent context.

#include <string.h>
#include <time.h>

#include "tools/runner/runner.h"

namespace zr {

namespace {

void CopyBounded(char* dest, size_t size, const std::string& text) {
    const size_t n = text.size() < size - 1 ? text.size() : size - 1;
    memcpy(dest, text.data(), n);
    dest[n] = '\0';
}

double NowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

}  // namespace

bool PrepareItems(const Config& config, const PluginLibrary& lib, std::vector<ItemState>* states, std::string* error) {
    states->clear();
    states->reserve(config.items.size());
    for (const ConfiguredItem& item : config.items) {
        ItemState state;
        state.config = item;
        state.fn = lib.Item(item.item);
        if (state.fn == nullptr) {
            *error = (item.line > 0 ? "line " + std::to_string(item.line) + ": " : std::string()) + "item \"" +
                     item.item + "\" is not exported by " + lib.path();
            return false;
        }
        state.argv.assign(item.params.size(), FI_PARAM_S{});
        for (size_t i = 0; i < item.params.size(); ++i) {
            CopyBounded(state.argv[i].name, sizeof(state.argv[i].name), item.params[i].name);
            CopyBounded(state.argv[i].value, sizeof(state.argv[i].value), item.params[i].value);
        }
        memset(&state.context, 0, sizeof(state.context));
        states->push_back(std::move(state));
    }
    return true;
}

CallRecord CallItem(ItemState& state, unsigned long round) {
    CallRecord rec;
    rec.round = round;
    rec.state = &state;
    memset(&rec.result, 0, sizeof(rec.result));
    FI_PARAM_S* argv = state.argv.empty() ? nullptr : state.argv.data();
    const double start = NowMs();
    rec.value = state.fn(static_cast<int>(state.argv.size()), argv, &state.context, &rec.result);
    rec.elapsed_ms = NowMs() - start;
    return rec;
}

}  // namespace zr
