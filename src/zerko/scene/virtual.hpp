#pragma once
// A snapshot of the scene taken once from the host, so that the hierarchy
// search reads plain C++ structures and never calls the host. After upload
// returns the snapshot is read-only until the next upload or offload, which is
// what makes concurrent reads safe without a lock.
#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zerko/scene/operator.hpp"

namespace zerko::scene {

/// One object of the snapshot. Identity is the path.
struct Location {
    std::string name;
    std::string path;
    std::string type;
    Paths children;
    /// The children that exist in the snapshot, resolved once after each
    /// upload, so that walking down the tree needs no lookup by path.
    std::vector<const Location*> child_locations;
    bool operator==(const Location& other) const noexcept { return path == other.path; }
};

class Virtual : public QueryOp {
public:
    /// `op` is the source of the snapshot; it is kept by reference and must outlive uploads.
    explicit Virtual(std::shared_ptr<Operator> op) : operator_(std::move(op)) {}

    /// Forgets everything. Throws zerko::Exception while an upload runs.
    void offload();
    /// Reads `roots` and their whole subtrees from the operator. A child that
    /// is one of its own ancestors (a cycle in a broken scene) is left out of
    /// its parent's children, with one warning per upload. Throws
    /// zerko::Exception when an upload runs already: the snapshot serves one
    /// thread at a time, and a host call may not change it while it is read.
    void upload(const Paths& roots, bool clear = true);

    bool object_exists(const std::string& path) const override;
    std::string get_type(const std::string& path) const override;
    std::string get_parent(const std::string& path) const override;
    Paths get_children(const std::string& path) const override;

    /// The known objects among `roots`, in order; unknown paths are dropped.
    std::vector<const Location*> get_locations(const Paths& roots) const;
    /// The parent path the host gave for `path` ("" for a top object), or
    /// nullptr when the path is unknown or the object does not exist.
    const std::string* stored_parent(std::string_view path) const;
    /// The stored object at `path`, or nullptr when it is unknown or does not exist.
    const Location* find(std::string_view path) const;

    std::size_t size() const noexcept { return used_; }
    const std::shared_ptr<Operator>& op() const noexcept { return operator_; }

private:
    struct Entry {
        bool exists = false;
        bool on_branch = false;  // an ancestor of the object the upload reads now
        std::string parent;
        Location location;
        /// Drops what was read of the object but its path, keeping the
        /// buffers' capacity for the next read.
        void forget() {
            exists = false;
            parent.clear();
            location.name.clear();
            location.type.clear();
            location.children.clear();
            location.child_locations.clear();
        }
    };
    enum class Met { New, Again, Ancestor };
    /// Reads one object and tells whether its path was new, known already, or
    /// an ancestor of the object whose child it is (then nothing is read).
    std::pair<Entry*, Met> upload_one(const std::string& path);
    void walk(const Paths& roots, bool clear);
    void resolve_children();
    [[noreturn]] void refuse(const char* operation) const;

    std::shared_ptr<Operator> operator_;
    // Set while an upload runs, so that a second upload or an offload (from
    // another thread, or from a host call inside the upload) is refused
    // instead of changing the tables under the walk.
    std::atomic<bool> uploading_{false};
    // Entries are never moved once made, so Location pointers stay valid
    // until the next snapshot. The first `used_` belong to the snapshot; the
    // rest are kept from an earlier, larger one, to be reused.
    std::deque<Entry> entries_;
    std::size_t used_ = 0;
    // Path to entry, by open addressing: one flat table probed linearly,
    // each slot with the path's hash code, so a lookup in a scene of
    // hundreds of thousands of objects touches one or two cache lines
    // instead of a bucket, a node and a key. Entries are only ever added
    // between two offloads, so the table needs no deletion.
    class Index {
    public:
        /// Where a path stands or would go: a slot and the path's hash code.
        struct Place {
            std::size_t index;
            std::size_t hash;
        };
        Entry* find(std::string_view path) const;
        /// The place of `path` and its entry, or the free place for it and
        /// null. Makes room first, so the place stays good for `insert`.
        std::pair<Place, Entry*> find_slot(std::string_view path);
        /// Puts `entry` at a free place that find_slot gave for its path.
        void insert(Place place, Entry* entry);
        void reserve(std::size_t count);
        void clear();

    private:
        struct Slot {
            std::size_t hash = 0;
            Entry* entry = nullptr;
        };
        void grow();
        std::vector<Slot> slots_;
        std::size_t size_ = 0;
    };
    Index index_;
};

}  // namespace zerko::scene
