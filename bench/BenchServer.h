#pragma once

#include "tests/support/ListenBacklog.h"

#include <httplib.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace quov::bench {

/// A loopback HTTP server for a whole benchmark run: `routes` installs its handlers
/// before it listens, with a backlog that takes every tracker of an ad at once.
class BenchServer {
public:
    explicit BenchServer(const std::function<void(httplib::Server&)>& routes) {
        server_.set_tcp_nodelay(true);
        server_.set_keep_alive_max_count(1000000);
        server_.set_keep_alive_timeout(1);
        server_.new_task_queue = [] { return new httplib::ThreadPool(16); };
        routes(server_);
        port_ = server_.bind_to_any_port("127.0.0.1");
        if (port_ <= 0) throw std::runtime_error("bench server: cannot bind");
        test::raiseListenBacklog(port_);
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        for (int i = 0; i < 10000 && !server_.is_running(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~BenchServer() {
        server_.stop();
        thread_.join();
    }
    BenchServer(const BenchServer&) = delete;
    BenchServer& operator=(const BenchServer&) = delete;

    std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    httplib::Server server_;
    std::thread thread_;
    int port_ = 0;
};

}  // namespace quov::bench
