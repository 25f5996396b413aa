#include "jobs.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "core/log.h"

namespace kivtool
{

unsigned default_jobs()
{
    return std::max(1u, std::thread::hardware_concurrency());
}

void run_jobs(size_t n, unsigned jobs, const std::function<void(size_t)> &work,
              const std::function<void(size_t)> &done)
{
    const unsigned threads = static_cast<unsigned>(std::min<size_t>(jobs ? jobs : 1, n));
    if (threads <= 1) {
        for (size_t i = 0; i < n; ++i) {
            work(i);
            done(i);
        }
        return;
    }
    std::atomic<size_t> next{0};
    std::mutex mu;
    std::condition_variable ready;
    std::vector<char> finished(n, 0);
    const int level = kiv_get_log_level();
    auto worker = [&] {
        kiv_use_thread_log_level(level);
        for (size_t i; (i = next.fetch_add(1)) < n;) {
            work(i);
            std::lock_guard lock(mu);
            finished[i] = 1;
            ready.notify_one();
        }
    };
    std::vector<std::thread> pool;
    for (unsigned t = 0; t < threads; ++t)
        pool.emplace_back(worker);
    for (size_t i = 0; i < n; ++i) {
        std::unique_lock lock(mu);
        ready.wait(lock, [&] { return finished[i] != 0; });
        lock.unlock();
        done(i);
    }
    for (std::thread &t : pool)
        t.join();
}

} // namespace kivtool
