#include "zerko/file/access_queue.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>
#include <thread>

#include "zerko/file/utilities.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/paths.hpp"

namespace zerko::file {

namespace fs = std::filesystem;

namespace {

void sleep_seconds(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

// What a stat-based existence test answers: any failure reads as "absent".
bool exists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec) && !ec;
}

[[noreturn]] void raise_os_error(const std::error_code& ec, const std::string& path) {
    throw FileNotFoundError(ec.value() ? ec.value() : EIO, path);
}

bool is_missing_or_denied(const std::error_code& ec) {
    return ec == std::errc::no_such_file_or_directory || ec == std::errc::permission_denied ||
           ec == std::errc::operation_not_permitted;
}

// Creates an empty file, or truncates one that stands (which refreshes its
// modification time).
void touch(const std::string& path) {
    errno = 0;
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) throw FileNotFoundError(errno ? errno : EIO, path);
    std::fclose(f);
}

void remove_file(const std::string& path) {
    std::error_code ec;
    if (!fs::remove(path, ec) && !ec) ec = std::make_error_code(std::errc::no_such_file_or_directory);
    if (ec) raise_os_error(ec, path);
}

// os.path.split: the head keeps a root of slashes, loses trailing ones otherwise.
std::pair<std::string, std::string> split(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return {"", path};
    std::string head = path.substr(0, slash + 1);
    std::string tail = path.substr(slash + 1);
    if (head.find_first_not_of('/') != std::string::npos) {
        while (!head.empty() && head.back() == '/') head.pop_back();
    }
    return {head, tail};
}

// A ticket of the target: "<file name>.id." followed by a digit. The file
// name is compared as plain text, so names such as "a[1].json" or
// "c++.json" find their own tickets.
bool is_ticket_name(std::string_view name, std::string_view prefix) {
    return name.size() > prefix.size() && name.substr(0, prefix.size()) == prefix &&
           std::isdigit(static_cast<unsigned char>(name[prefix.size()]));
}

}  // namespace

std::string draw_ticket() {
    // A fresh device draw each time: a forked process must not repeat its
    // parent's tickets, as a seeded generator copied by fork would.
    std::random_device device;
    const std::uint64_t bits = (static_cast<std::uint64_t>(device()) << 32) | device();
    const double unit = static_cast<double>(bits >> 11) * 0x1.0p-53;  // uniform in [0, 1)
    const auto ticket = static_cast<std::uint64_t>(std::floor(unit * 1000000000.0));
    return std::to_string(ticket);
}

Json::AccessQueue::AccessQueue(std::string_view json_path, bool write, double access_timeout,
                               double life_duration_threshold)
    : path_((assert_path(json_path), foundation::path::normalise(json_path))),
      ticket_(draw_ticket()),
      write_(write),
      access_timeout_(access_timeout),
      life_duration_threshold_(std::max(access_timeout, life_duration_threshold)),
      data_(nullptr) {
    std::tie(directory_, filename_) = split(path_);
    path_lock_ = path_ + ".lock";
    path_id_ = path_ + ".id." + ticket_;
}

Json::AccessQueue::~AccessQueue() {
    if (left_) return;
    try {
        release_access();
    } catch (...) {
        // Nothing to report to: the markers age out.
    }
}

Document& Json::AccessQueue::enter() {
    try {
        assert_access();
        data_ = exists(path_) ? Json::read(path_) : Document::object();
    } catch (...) {
        release_access();
        throw;
    }
    left_ = false;
    return data_;
}

void Json::AccessQueue::leave() {
    left_ = true;
    if (write_) {
        try {
            Json::write(path_, data_);
        } catch (...) {
            release_access();
            throw;
        }
    }
    release_access();
}

void Json::AccessQueue::assert_access() {
    if (!exists(directory_)) throw FileNotFoundError(ENOENT, directory_);
    if (!is_free()) throw error::AccessQueueTimeout();
    if (!is_next()) throw error::AccessQueueTimeout();
}

bool Json::AccessQueue::is_free() {
    double duration = 0.0;
    while (duration < access_timeout_) {
        delete_outdated(path_lock_);
        if (!exists(path_lock_)) return true;
        sleep_seconds(gate_step);
        duration += gate_step;
    }
    return false;
}

bool Json::AccessQueue::is_next() {
    touch(path_lock_);
    touch(path_id_);
    sleep_seconds(queue_step);
    double duration = 0.0;
    while (duration < access_timeout_) {
        const auto paths = get_editors_sequence();
        if (!paths.empty() && paths.front() == path_id_) return true;
        sleep_seconds(queue_step);
        duration += queue_step;
    }
    return false;
}

std::vector<std::string> Json::AccessQueue::get_editors_sequence() {
    const std::string prefix = filename_ + ".id.";
    std::vector<std::string> names;
    {
        std::error_code ec;
        fs::directory_iterator it(directory_, ec);
        if (ec) raise_os_error(ec, directory_);
        for (const fs::directory_iterator end; it != end; it.increment(ec)) {
            names.push_back(it->path().filename().string());
        }
        if (ec) raise_os_error(ec, directory_);
    }
    // Queue order is listing order, deliberately unsorted.
    std::vector<std::string> paths;
    for (const auto& name : names) {
        if (!is_ticket_name(name, prefix)) continue;
        auto path = foundation::path::join(directory_, name);
        delete_outdated(path);
        if (exists(path)) paths.push_back(std::move(path));
    }
    return paths;
}

void Json::AccessQueue::delete_outdated(const std::string& path) {
    std::error_code ec;
    const auto modified = fs::last_write_time(path, ec);
    if (ec) {
        if (is_missing_or_denied(ec)) return;
        raise_os_error(ec, path);
    }
    const std::chrono::duration<double> age = fs::file_time_type::clock::now() - modified;
    if (age.count() > life_duration_threshold_) {
        fs::remove(path, ec);
        if (ec && !is_missing_or_denied(ec)) raise_os_error(ec, path);
    }
}

void Json::AccessQueue::release_access() {
    if (exists(path_id_)) remove_file(path_id_);
    if (get_editors_sequence().empty()) {
        std::error_code ec;
        fs::remove(path_lock_, ec);
        if (ec && ec != std::errc::no_such_file_or_directory) raise_os_error(ec, path_lock_);
    }
}

void quarantine(const std::string& path, std::string_view what) {
    foundation::Logger::error(foundation::format("Read Corrupted {}: {}", {std::string(what), path}));
    move_corrupted(path);
}

Document read_shared(const std::string& path, std::string_view what) {
    try {
        Document data = Json::AccessQueue(path).run([](Document& document) { return std::move(document); });
        if (data.is_object()) return data;
    } catch (const JsonDecodeError&) {
        // Not JSON, or nested too deep: handled like a document of the wrong kind.
    } catch (const std::exception&) {
        foundation::Logger::exception(std::current_exception());
        return Document::object();
    }
    quarantine(path, what);
    return Document::object();
}

void update_shared(const std::string& path, std::string_view what, const std::function<void(Document&)>& body) {
    auto guarded = [&](Document& document) {
        if (!document.is_object()) {
            // Held by this guard: the damaged file goes aside and a fresh
            // document takes its place when the guard writes.
            quarantine(path, what);
            document = Document::object();
        }
        body(document);
    };
    try {
        Json::AccessQueue(path, true).run(guarded);
        return;
    } catch (const JsonDecodeError&) {
        // The guard gave its place up on the failed read; quarantine, then once more.
    }
    quarantine(path, what);
    Json::AccessQueue(path, true).run(guarded);
}

}  // namespace zerko::file
