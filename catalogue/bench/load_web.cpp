// catalogue_load_web HOST PORT PID [REQUESTS] [CLIENTS]: sends REQUESTS
// (10,000) searches from CLIENTS (8) concurrent clients, each on its own
// kept-alive connection, to `ngi-catalogue serve` (process PID) and prints
// the latency's median, 99th percentile and maximum, and the server's
// resident memory sampled through the run. The searches are "file_NNNN"
// for random NNNN, names of the benchmark index (bench_index.cpp) that
// about a hundred versions hold. For scripts/bench-web.sh only.

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

// The process's resident set in KiB, from /proc.
long ResidentKib(const std::string& pid) {
    std::ifstream status("/proc/" + pid + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "Usage: catalogue_load_web HOST PORT PID [REQUESTS] [CLIENTS]\n");
        return 2;
    }
    const std::string host = argv[1], pid = argv[3];
    const int port = std::stoi(argv[2]);
    const int requests = argc > 4 ? std::stoi(argv[4]) : 10000;
    const int clients = argc > 5 ? std::stoi(argv[5]) : 8;

    std::atomic<int> next{0}, failed{0};
    std::vector<double> latencies(static_cast<size_t>(requests));
    std::vector<long> rss{ResidentKib(pid)};
    std::atomic<bool> done{false};
    std::thread sampler([&] {
        while (!done) {
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            rss.push_back(ResidentKib(pid));
        }
    });
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            httplib::Client client(host, port);
            client.set_keep_alive(true);
            std::mt19937 random(static_cast<unsigned>(c + 1));
            std::uniform_int_distribution<int> pick(1000, 9999);
            for (int i; (i = next++) < requests;) {
                const std::string path = "/api/search?limit=100&q=file_" + std::to_string(pick(random));
                const auto t0 = std::chrono::steady_clock::now();
                const auto result = client.Get(path);
                const auto t1 = std::chrono::steady_clock::now();
                latencies[static_cast<size_t>(i)] = std::chrono::duration<double, std::milli>(t1 - t0).count();
                if (!result || result->status != 200 || result->body.find("\"results\":[{") == std::string::npos)
                    ++failed;
            }
        });
    }
    for (auto& t : threads) t.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    done = true;
    sampler.join();
    rss.push_back(ResidentKib(pid));

    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double q) { return latencies[std::min(latencies.size() - 1, size_t(q * latencies.size()))]; };
    std::printf("%d searches from %d clients in %.1f s (%.0f a second), %d failed\n", requests, clients, seconds,
                requests / seconds, failed.load());
    std::printf("latency: median %.2f ms, 99th percentile %.2f ms, max %.2f ms\n", at(0.5), at(0.99),
                latencies.back());
    // Memory: at the start, the quarters of the run, and the end.
    std::printf("server resident memory (MiB):");
    for (size_t q = 0; q <= 4; ++q) std::printf(" %.1f", rss[std::min(rss.size() - 1, q * (rss.size() - 1) / 4)] / 1024.0);
    std::printf("  (max %.1f)\n", *std::max_element(rss.begin(), rss.end()) / 1024.0);
    return failed ? 1 : 0;
}
