#pragma once
// Collects what the library logs while it lives; restores standard error after.
#include <memory>
#include <optional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "zerko/foundation/logger.hpp"

namespace zerko::test_support {

class LogCapture {
public:
    LogCapture() : sink_(std::make_shared<Sink>()) {
        foundation::Logger::flush();  // earlier messages go to the earlier sink
        foundation::Logger::set_sink(sink_);
    }
    ~LogCapture() {
        foundation::Logger::flush();
        foundation::Logger::set_sink(nullptr);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Every message delivered so far at `level` (all levels when omitted).
    std::vector<std::string> messages(std::optional<foundation::LogLevel> level = std::nullopt) {
        foundation::Logger::flush();
        std::lock_guard lock(sink_->mutex);
        std::vector<std::string> out;
        for (const auto& [l, m] : sink_->messages) {
            if (!level || *level == l) out.push_back(m);
        }
        return out;
    }
    /// Whether some message at `level` begins with `prefix`.
    bool has(foundation::LogLevel level, const std::string& prefix) {
        for (const auto& m : messages(level)) {
            if (m.rfind(prefix, 0) == 0) return true;
        }
        return false;
    }
    void clear() {
        foundation::Logger::flush();
        std::lock_guard lock(sink_->mutex);
        sink_->messages.clear();
    }

private:
    struct Sink : foundation::LogSink {
        void deliver(foundation::LogLevel level, const std::string& message) override {
            std::lock_guard lock(mutex);
            messages.emplace_back(level, message);
        }
        std::mutex mutex;
        std::vector<std::pair<foundation::LogLevel, std::string>> messages;
    };
    std::shared_ptr<Sink> sink_;
};

}  // namespace zerko::test_support
