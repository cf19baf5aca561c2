#pragma once
// The cross-process guard around a shared JSON file.
//
// There is no lock service and no byte-range locking: the file system is the
// only mechanism. Two kinds of empty marker file stand beside the target
// while it is in use, and other programs that share these files follow the
// same protocol, so names, steps and timings below are an interface:
//
//   <target>.lock          made by every guard that has passed the gate;
//                          removed by the last guard of the group to leave,
//                          or by anyone who finds it older than the threshold
//   <target>.id.<ticket>   one per waiting or holding guard, removed by its
//                          own guard on leaving, or when found outdated
//
// A guard waits at the gate until no lock file stands (0.5 s steps), creates
// the lock file and its ticket, sleeps 0.1 s once, then waits (0.1 s steps)
// until its ticket is the first ticket in the directory listing. Each of the
// two waits is bounded by the access timeout; the time waited is the sum of
// the sleeps. A marker older than the life threshold was left by a dead
// process and is deleted by whoever sees it.
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "zerko/file/json.hpp"

namespace zerko::file {

class Json::AccessQueue {
public:
    static constexpr double gate_step = 0.5;   ///< seconds between looks at the lock file
    static constexpr double queue_step = 0.1;  ///< seconds between looks at the tickets, and the settling sleep

    /// Computes the names and draws the ticket; touches no file. The life
    /// threshold is at least the access timeout, so that a marker is never
    /// judged dead while a guard may lawfully still wait behind it.
    explicit AccessQueue(std::string_view json_path, bool write = false, double access_timeout = 30.0,
                         double life_duration_threshold = 35.0);
    AccessQueue(const AccessQueue&) = delete;
    AccessQueue& operator=(const AccessQueue&) = delete;
    /// A guard that is destroyed while holding gives its place up, without
    /// writing, so that a forgotten leave() does not stall the others until
    /// its markers age out.
    ~AccessQueue();

    /// Takes a place in the queue, waits for the turn and reads the target
    /// (an empty object when it does not exist). On any failure the place is
    /// given up and the error raised (AccessQueueTimeout, FileNotFoundError,
    /// JsonDecodeError).
    Document& enter();
    /// Writes the document back when `write` is set, then gives the place
    /// up. A failed write still releases, then raises.
    void leave();

    /// Runs `body(document)` inside the scope. The document is written back
    /// (with `write`) even when the body throws; the body's error then
    /// propagates, unless leaving fails, whose error replaces it.
    template <typename F>
    decltype(auto) run(F&& body) {
        Document& document = enter();
        try {
            if constexpr (std::is_void_v<std::invoke_result_t<F, Document&>>) {
                body(document);
                leave();
                return;
            } else {
                decltype(auto) result = body(document);
                leave();
                return result;
            }
        } catch (...) {
            if (!left_) leave();
            throw;
        }
    }

    const std::string& path() const noexcept { return path_; }
    const std::string& directory() const noexcept { return directory_; }
    const std::string& filename() const noexcept { return filename_; }
    const std::string& path_lock() const noexcept { return path_lock_; }
    const std::string& path_id() const noexcept { return path_id_; }
    const std::string& ticket() const noexcept { return ticket_; }
    bool write() const noexcept { return write_; }
    double access_timeout() const noexcept { return access_timeout_; }
    double life_duration_threshold() const noexcept { return life_duration_threshold_; }
    /// The document: null before entry, what was read after it.
    Document& data() noexcept { return data_; }

    // The steps of the protocol, in order. Public so that tests and the
    // faces can drive one step at a time.

    /// Raises FileNotFoundError when the directory is missing and
    /// AccessQueueTimeout when either wait runs out.
    void assert_access();
    /// The gate: true once no lock file stands (outdated ones are deleted).
    bool is_free();
    /// Joins the group (lock file, ticket) and waits to be first in line.
    bool is_next();
    /// Live tickets beside the target in directory-listing order; deletes
    /// outdated tickets on the way.
    std::vector<std::string> get_editors_sequence();
    /// Removes `path` when older than the life threshold. A missing file or
    /// a permission error is ignored.
    void delete_outdated(const std::string& path);
    /// Removes the own ticket; the last guard out removes the lock file.
    void release_access();

private:
    std::string path_;
    std::string directory_;
    std::string filename_;
    std::string path_lock_;
    std::string ticket_;
    std::string path_id_;
    bool write_;
    double access_timeout_;
    double life_duration_threshold_;
    Document data_;
    bool left_ = true;
};

/// Logs "Read Corrupted <what>: <path>" and moves the file into quarantine.
void quarantine(const std::string& path, std::string_view what);

/// Reads the shared JSON object file at `path` through the access queue and
/// never raises. A file that is not JSON, nests too deep or holds anything
/// but an object is logged ("Read Corrupted <what>: <path>") and moved into
/// quarantine; that, a missing file and any other failure (logged) answer an
/// empty object.
Document read_shared(const std::string& path, std::string_view what);

/// Read-modify-write of the shared JSON object file at `path`: `body` gets
/// the document and what it leaves there is written back. A damaged file
/// (as for read_shared) is quarantined first and the body starts from an
/// empty object, so one bad file cannot block every later write. Other
/// failures (timeouts, a missing directory, the body's errors) raise.
void update_shared(const std::string& path, std::string_view what, const std::function<void(Document&)>& body);

/// A random ticket: the whole part of a uniform [0, 1) draw times 10^9,
/// as decimal text without padding. Carries no time or process information.
std::string draw_ticket();

}  // namespace zerko::file
