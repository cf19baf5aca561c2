#pragma once
// Logger: every call hands its message to one background worker and returns at
// once, so a slow handler in the host never holds up a scan or a check. The
// worker delivers to a sink: the host's root logger in the Python face,
// standard error (warnings and errors, like Python's last-resort handler) in
// plain C++.
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zerko::foundation {

enum class LogLevel : int { Debug = 10, Info = 20, Warning = 30, Error = 40 };

using LogRecord = std::pair<LogLevel, std::string>;

/// Where the worker delivers messages. Called on the worker thread only.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void deliver(LogLevel level, const std::string& message) = 0;
    /// Delivers several messages in order; a sink with a costly entry (a
    /// lock to take) overrides it to pay that once.
    virtual void deliver_all(const std::vector<LogRecord>& records);
};

/// Writes warnings and errors to standard error; drops lower levels.
class StderrSink : public LogSink {
public:
    void deliver(LogLevel level, const std::string& message) override;
};

class Logger {
public:
    static void debug(std::string_view message) { log(LogLevel::Debug, message); }
    static void info(std::string_view message) { log(LogLevel::Info, message); }
    static void warning(std::string_view message) { log(LogLevel::Warning, message); }
    /// Error level; never with exception details.
    static void error(std::string_view message) { log(LogLevel::Error, message); }
    /// Logs `message` stripped of line feeds at both ends, at error level,
    /// without the stack of the error being handled.
    static void exception(std::string_view message);
    /// Logs "{class name}: {text}" of the error being handled (or of `error`).
    static void exception(const std::exception_ptr& error);

    static void log(LogLevel level, std::string_view message);

    /// Replaces the sink; nullptr restores standard error.
    static void set_sink(std::shared_ptr<LogSink> sink);
    /// Waits until every message issued so far has been delivered.
    static void flush();
    /// Delivers what is queued, stops the worker and drops the sink. Later
    /// messages go synchronously to standard error. Safe to call twice.
    static void shutdown();
};

}  // namespace zerko::foundation
