#pragma once
// The contract between the core and a host application. The core never
// touches a host directly: each host delivers one subclass of Operator.
// Every operation throws NotImplementedError unless the subclass overrides it,
// except the few implemented here.
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/foundation/json_document.hpp"

#include "zerko/constants/type_mapping.hpp"
#include "zerko/scene/joint.hpp"

namespace zerko::scene {

using Paths = std::vector<std::string>;

/// The narrow read-only query on which the hierarchy logic rests.
class QueryOp {
public:
    virtual ~QueryOp() = default;
    virtual bool object_exists(const std::string& path) const;
    /// The object's type name in the host's terms.
    virtual std::string get_type(const std::string& path) const;
    /// The parent's path; empty for an object at the top of the scene.
    virtual std::string get_parent(const std::string& path) const;
    /// The children's paths; may be empty.
    virtual Paths get_children(const std::string& path) const;
};

/// Restores the selection it found when it ends (RAII; a context manager in Python).
class SelectionScope {
public:
    virtual ~SelectionScope() = default;
};

class Operator : public QueryOp {
public:
    explicit Operator(const constants::TypeMapping::Table& type_mapping = {});

    const constants::TypeMapping& type_mapping() const noexcept { return type_mapping_; }
    /// The unified type for a host type name; nothing for an unknown name.
    std::optional<std::string> map_type(std::string_view name) const { return type_mapping_.get(name); }

    virtual Paths get_selection() const;
    virtual Paths get_selection_roots() const;
    /// Makes `paths` the selection; no paths clears it.
    virtual void select(const Paths& paths);
    /// A scope that restores the selection of its start when it ends. The
    /// default reads get_selection() and gives it back to select().
    virtual std::unique_ptr<SelectionScope> selection_manager();
    virtual void register_scene_opened_callback(std::function<void()> function);
    virtual void register_shutdown_callback(std::function<void()> function);
    virtual void delete_callbacks();
    virtual void export_(const Paths& roots, const std::string& file_path, const std::string& type,
                         const JsonDocument& args, bool automatic_uv = false, bool triangulate = false,
                         bool reset_xforms = false);
    virtual std::string get_current_file() const;
    virtual std::string directory_dialog(const std::string& starting = "~", const std::string& caption = "");
    virtual std::string file_dialog(const std::string& starting = "~", const std::string& caption = "",
                                    const std::string& file_filter = "");
    /// The list stored by embed_filedata, or an empty list.
    virtual JsonDocument query_filedata() const;
    virtual void embed_filedata(const JsonDocument& data);
    virtual void erase_filedata();
    /// Stores buckets: embed_filedata of their list of maps. A face may
    /// override it to build its own values straight from the joints.
    virtual void embed_buckets(StoredBuckets buckets);
    /// The map of one joint and its children, as the scene file holds it.
    static JsonDocument joint_data(const DataJoint& joint);
    /// The list of maps of `buckets`.
    static JsonDocument buckets_data(StoredBuckets buckets);
    /// Called by the scanner for each joint it finds, so that the host may mark the object.
    virtual void postscript_scan_append(const std::shared_ptr<DataJoint>& joint);
    /// Called for each joint that leaves the buffer.
    virtual void postscript_scan_remove(const std::shared_ptr<DataJoint>& joint);

    /// Called by the snapshot around a walk of many queries; an operator may
    /// keep per-walk state (the Python face keeps the host's own path
    /// objects) until the returned handle is dropped. Nothing by default.
    virtual std::shared_ptr<void> begin_queries() { return nullptr; }

    /// "|" becomes "/" and the text after the last "/" is the name.
    static std::string name_from_path(std::string_view path);

private:
    constants::TypeMapping type_mapping_;
};

}  // namespace zerko::scene
