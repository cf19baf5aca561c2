#include "zerko/foundation/logger.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "zerko/foundation/errors.hpp"

namespace zerko::foundation {

void LogSink::deliver_all(const std::vector<LogRecord>& records) {
    for (const auto& [level, message] : records) deliver(level, message);
}

void StderrSink::deliver(LogLevel level, const std::string& message) {
    if (level >= LogLevel::Warning) std::fprintf(stderr, "%s\n", message.c_str());
}

namespace {

// The worker and its queue. Created on first use and never destroyed, so
// that logging from static destructors cannot touch a dead object.
class Worker {
public:
    void push(LogLevel level, std::string message) {
        std::unique_lock lock(mutex_);
        if (stopping_ || stopped_) {
            // Once shutdown has begun the queue takes nothing more, so that a
            // thread that keeps logging (a daemon's loop, say) cannot hold
            // the worker, and the process's exit, for ever.
            lock.unlock();
            StderrSink{}.deliver(level, message);
            return;
        }
        if (!thread_.joinable()) {
            thread_ = std::thread([this] { run(); });
            worker_id_ = thread_.get_id();
            // Plain C++ programs get their messages delivered at exit too.
            std::atexit([] { Logger::shutdown(); });
        }
        queue_.emplace_back(level, std::move(message));
        ++issued_;
        wake_.notify_one();
    }

    void set_sink(std::shared_ptr<LogSink> sink) {
        std::lock_guard lock(mutex_);
        sink_ = sink ? std::move(sink) : std::make_shared<StderrSink>();
    }

    void flush() {
        std::unique_lock lock(mutex_);
        // A handler that flushes runs on the worker itself, which would wait
        // for the very message it is delivering.
        if (std::this_thread::get_id() == worker_id_) return;
        const auto target = issued_;
        done_.wait(lock, [&] { return delivered_ >= target || stopped_; });
    }

    void shutdown() {
        std::thread thread;
        {
            std::lock_guard lock(mutex_);
            if (stopped_ || stopping_) return;
            stopping_ = true;
            deadline_ = std::chrono::steady_clock::now() + drain_time;
            wake_.notify_one();
            // A handler that shuts the logger down runs on the worker, which
            // cannot join itself: it ends on its own once the queue is empty.
            if (std::this_thread::get_id() == worker_id_) return;
            thread = std::move(thread_);
        }
        if (thread.joinable()) thread.join();
        std::shared_ptr<LogSink> old;
        {
            std::lock_guard lock(mutex_);
            stopped_ = true;
            old = std::move(sink_);
            sink_ = std::make_shared<StderrSink>();
        }
        done_.notify_all();
        // The sink is released here, outside the lock: a Python sink drops
        // its references to the host's logger while the caller holds the GIL.
        old.reset();
    }

private:
    void run() {
        std::unique_lock lock(mutex_);
        std::vector<LogRecord> batch;
        while (true) {
            wake_.wait(lock, [&] { return !queue_.empty() || stopping_; });
            if (queue_.empty() && stopping_) return;
            if (stopping_ && std::chrono::steady_clock::now() > deadline_) {
                // A thread that logged in a tight loop may have queued more
                // than the host's handlers can take before the process is
                // to end: the rest is dropped, and that is said once.
                StderrSink{}.deliver(LogLevel::Warning, "zerko: " + std::to_string(queue_.size()) +
                                                            " log messages dropped at shutdown");
                queue_.clear();
                return;
            }
            // What is queued goes in batches: a sink that must wait for an
            // interpreter waits once per batch, not once per message, and
            // keeps up with threads that log in a tight loop. Batches are
            // bounded so that a shutdown sees its deadline between them.
            const auto count = std::min<std::size_t>(queue_.size(), 4096);
            batch.assign(std::make_move_iterator(queue_.begin()),
                         std::make_move_iterator(queue_.begin() + static_cast<std::ptrdiff_t>(count)));
            queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(count));
            auto sink = sink_;
            lock.unlock();
            // No catch-all here: a thread ended by the runtime while it waits
            // for an interpreter must be allowed to unwind. Sinks catch their own errors.
            sink->deliver_all(batch);
            lock.lock();
            delivered_ += batch.size();
            batch.clear();
            done_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_, done_;
    std::deque<LogRecord> queue_;
    std::shared_ptr<LogSink> sink_ = std::make_shared<StderrSink>();
    std::thread thread_;
    std::thread::id worker_id_;
    std::uint64_t issued_ = 0, delivered_ = 0;
    bool stopping_ = false, stopped_ = false;
    // How long shutdown goes on delivering what is queued.
    static constexpr std::chrono::seconds drain_time{2};
    std::chrono::steady_clock::time_point deadline_;
};

Worker& worker() {
    static auto* instance = new Worker();  // intentionally immortal
    return *instance;
}

}  // namespace

void Logger::log(LogLevel level, std::string_view message) { worker().push(level, std::string(message)); }

void Logger::exception(std::string_view message) {
    const auto b = message.find_first_not_of('\n');
    if (b == std::string_view::npos) {
        message = {};
    } else {
        message = message.substr(b, message.find_last_not_of('\n') - b + 1);
    }
    error(message);
}

void Logger::exception(const std::exception_ptr& error_ptr) {
    const auto d = describe(error_ptr);
    error(d.class_name + ": " + d.text);
}

void Logger::set_sink(std::shared_ptr<LogSink> sink) { worker().set_sink(std::move(sink)); }
void Logger::flush() { worker().flush(); }
void Logger::shutdown() { worker().shutdown(); }

}  // namespace zerko::foundation
