#pragma once
// Scratch directories and log capture for the tests of the stores.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zerko/api/environment.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/scene/operator.hpp"

namespace zerko::test_support {

/// The least a host gives an Api: no stored data, and scene-opened handlers kept.
class HostlessScene : public scene::Operator {
public:
    using Operator::Operator;
    void register_scene_opened_callback(std::function<void()> function) override { opened.push_back(std::move(function)); }
    JsonDocument query_filedata() const override { return filedata; }
    void embed_filedata(const JsonDocument& data) override { filedata = data; }
    void erase_filedata() override { filedata = JsonDocument::array(); }
    /// Calls the handlers as a host does after it opened another scene.
    void open_scene() {
        for (const auto& f : opened) f();
    }
    std::vector<std::function<void()>> opened;
    JsonDocument filedata = JsonDocument::array();
};

/// A fresh directory under the temporary directory, removed with its content at the end.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zerko-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const noexcept { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    static void put(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    static std::string get(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

private:
    std::string path_;
};

/// A host environment that keeps everything in one directory, with its
/// projects directory made.
class DirectoryEnv : public api::Environment {
public:
    explicit DirectoryEnv(std::string dir) : dir_(std::move(dir)) {
        std::filesystem::create_directories(dir_ + "/projects");
    }
    std::string target() const override { return "maya"; }
    std::string scope() const override { return "Maya 2025"; }
    std::string get_settings_file() const override { return dir_ + "/settings.json"; }
    std::string get_settings_directory() const override { return dir_; }
    std::string get_projects_directory() const override { return dir_ + "/projects"; }
    std::string get_statistics_file() const override { return dir_ + "/statistics.json"; }

private:
    std::string dir_;
};

/// Collects what the library logs while it lives; standard error again after.
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

    /// Messages delivered so far at `level`.
    std::vector<std::string> messages(foundation::LogLevel level) {
        foundation::Logger::flush();
        std::lock_guard lock(sink_->mutex);
        std::vector<std::string> out;
        for (const auto& [l, m] : sink_->messages) {
            if (l == level) out.push_back(m);
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
