// kiv lsp: the server on standard input and output.  Three threads: one
// reads the client's messages, one runs the checks, and this one keeps the
// buffers and answers, so that a long check never holds up an answer and a
// change that comes meanwhile makes that check's result stale.
#include <CLI/CLI.hpp>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unistd.h>

#include "common.h"
#include "core/log.h"
#include "lsp/rpc.h"
#include "lsp/server.h"

namespace kivtool
{

namespace
{

using namespace lsp;

struct event {
    enum { message, too_big, result, ended, broken } what;
    std::string body;
    std::shared_ptr<const analysis> checked;
};

// What the threads hand each other.
struct exchange {
    std::mutex mu;
    std::condition_variable to_main, to_checker;
    std::deque<event> events;
    std::optional<check_job> job;
    bool stop = false;

    void post(event e)
    {
        {
            std::lock_guard<std::mutex> lock(mu);
            events.push_back(std::move(e));
        }
        to_main.notify_one();
    }
};

void read_loop(int fd, int wake, exchange &x)
{
    std::string body;
    for (;;) {
        const read_result r = read_message(fd, &body, wake);
        if (r == read_result::message) {
            x.post({event::message, std::move(body), nullptr});
            body.clear();
        } else if (r == read_result::too_big) {
            fprintf(stderr, "kiv lsp: a message larger than %zu bytes was skipped\n", MAX_MESSAGE);
            x.post({event::too_big, std::move(body), nullptr});
            body.clear();
        } else {
            if (r == read_result::broken)
                fprintf(stderr, "kiv lsp: the input does not follow the protocol's framing\n");
            x.post({r == read_result::broken ? event::broken : event::ended, {}, nullptr});
            return;
        }
    }
}

void check_loop(exchange &x)
{
    // The checks keep their log level to this thread, as the tool's loads do.
    kiv_use_thread_log_level(1);
    for (;;) {
        check_job job;
        {
            std::unique_lock<std::mutex> lock(x.mu);
            x.to_checker.wait(lock, [&] { return x.stop || x.job; });
            if (x.stop)
                return;
            job = std::move(*x.job);
            x.job.reset();
        }
        x.post({event::result, {}, run_check(job)});
    }
}

} // namespace

int lsp::serve(int in, int out, std::chrono::milliseconds debounce)
{
    bool broken_pipe = false;
    auto send = [&](const json &msg) {
        if (!write_message(out, msg.dump(-1, ' ', false, json::error_handler_t::replace)))
            broken_pipe = true;
    };
    server srv(send, {debounce, false});
    // The reading thread may be waiting for input when the client has said
    // exit: a byte on `wake` ends its wait.
    int wake[2];
    if (pipe(wake) != 0) {
        fprintf(stderr, "kiv lsp: cannot make a pipe\n");
        return EXIT_USAGE;
    }
    exchange x;
    std::thread reader(read_loop, in, wake[0], std::ref(x));
    std::thread checker(check_loop, std::ref(x));
    bool busy = false, ended = false;
    while (!srv.exited() && !ended && !broken_pipe) {
        clock::duration wait = clock::duration::max();
        if (!busy)
            if (auto job = srv.take_due(clock::now(), &wait)) {
                {
                    std::lock_guard<std::mutex> lock(x.mu);
                    x.job = std::move(job);
                }
                x.to_checker.notify_one();
                busy = true;
                continue;
            }
        std::deque<event> events;
        {
            std::unique_lock<std::mutex> lock(x.mu);
            auto ready = [&] { return !x.events.empty(); };
            if (wait == clock::duration::max())
                x.to_main.wait(lock, ready);
            else
                x.to_main.wait_for(lock, wait, ready);
            events.swap(x.events);
        }
        for (event &e : events) {
            if (e.what == event::ended || e.what == event::broken) {
                if (e.what == event::broken)
                    srv.broken();
                ended = true;
            } else if (e.what == event::too_big) {
                srv.oversized(e.body);
            } else if (e.what == event::result) {
                busy = false;
                srv.finish(e.checked);
            } else {
                json msg = json::parse(e.body, nullptr, false);
                if (msg.is_discarded())
                    send({{"jsonrpc", "2.0"},
                          {"id", nullptr},
                          {"error", {{"code", -32700}, {"message", "not JSON"}}}});
                else
                    srv.handle(msg);
            }
            if (srv.exited())
                break;
        }
    }
    {
        std::lock_guard<std::mutex> lock(x.mu);
        x.stop = true;
    }
    x.to_checker.notify_one();
    checker.join();
    if (write(wake[1], "", 1) != 1)
        fprintf(stderr, "kiv lsp: cannot stop reading\n");
    reader.join();
    close(wake[0]);
    close(wake[1]);
    return srv.exited() ? srv.exit_code() : EXIT_FAILED;
}

namespace
{

int serve_stdio(std::chrono::milliseconds debounce)
{
    // The protocol owns standard output; whatever else would print there
    // goes to standard error instead.
    const int out = dup(STDOUT_FILENO);
    if (out < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        fprintf(stderr, "kiv lsp: cannot set up standard output\n");
        return EXIT_USAGE;
    }
    const int rc = lsp::serve(STDIN_FILENO, out, debounce);
    close(out);
    return rc;
}

} // namespace

void add_lsp(CLI::App &app, int &rc)
{
    auto debounce = std::make_shared<unsigned>(40);
    CLI::App *sub = app.add_subcommand(
        "lsp", "Serve the Language Server Protocol on standard input and output: the findings of "
               "check and lint as the buffer is typed, completion, hover, quick fixes, symbols, "
               "definitions, references and folding (see docs/editors.md).");
    sub->add_option("--debounce", *debounce,
                    "Milliseconds a buffer must stay unchanged before it is checked (default 40)")
        ->check(CLI::Range(0u, 10000u));
    sub->callback([debounce, &rc] { rc = serve_stdio(std::chrono::milliseconds(*debounce)); });
}

} // namespace kivtool
