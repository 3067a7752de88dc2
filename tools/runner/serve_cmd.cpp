// "serve": the configured items measured on their own periods in the
// background of an HTTP endpoint that serves their last answers at /metrics
// in Prometheus's text format. The HTTP side is cpp-httplib's server;
// everything listens on the given address only (default loopback).

#include <stdio.h>
#include <stdlib.h>

#include <thread>

#include "tools/runner/metrics.h"
#include "tools/runner/runner_env.h"

#ifdef ZADI_RUNNER_HTTP
#include <httplib.h>
#endif

namespace zadi_runner {

namespace {

constexpr char kDefaultListen[] = "127.0.0.1:9731";

// "ADDR:PORT" (the port 0 takes any free one).
bool ParseListen(const std::string& text, std::string* host, int* port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size() ||
        text.find_first_not_of("0123456789", colon + 1) != std::string::npos) {
        return false;
    }
    *host = text.substr(0, colon);
    *port = atoi(text.c_str() + colon + 1);
    return *port <= 65535;
}

}  // namespace

int ServeCommand(RunnerEnv& env, const Args& args) {
    const std::string listen = env.options.listen.empty() ? kDefaultListen : env.options.listen;
    if (!args.empty()) {
        fprintf(stderr, "zadi_runner: usage: zadi_runner serve [--listen ADDR:PORT] (default %s)\n", kDefaultListen);
        return kExitUsage;
    }
    std::string host;
    int port = 0;
    if (!ParseListen(listen, &host, &port)) {
        fprintf(stderr, "zadi_runner: --listen needs ADDR:PORT, not \"%s\"\n", listen.c_str());
        return kExitUsage;
    }
#ifdef ZADI_RUNNER_HTTP
    Metrics metrics;
    httplib::Server server;
    server.Get("/metrics", [&metrics](const httplib::Request&, httplib::Response& res) {
        res.set_content(metrics.Exposition(), "text/plain; version=0.0.4; charset=utf-8");
    });
    const int bound =
        port == 0 ? server.bind_to_any_port(host.c_str()) : (server.bind_to_port(host.c_str(), port) ? port : -1);
    if (bound < 0) {
        fprintf(stderr, "zadi_runner: cannot listen on %s\n", listen.c_str());
        return kExitSetup;
    }
    fprintf(stderr, "zadi_runner: serving http://%s:%d/metrics\n", host.c_str(), bound);
    std::thread http([&server] { server.listen_after_bind(); });
    env.metrics = &metrics;
    const int status = RunItems(env, false);
    env.metrics = nullptr;
    server.stop();
    http.join();
    return status == kExitUsage || status == kExitSetup ? status : kExitOk;
#else
    fprintf(stderr, "zadi_runner: this build has no HTTP server (cpp-httplib was not found)\n");
    return kExitSetup;
#endif
}

}  // namespace zadi_runner
