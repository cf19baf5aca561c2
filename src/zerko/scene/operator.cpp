#include "zerko/scene/operator.hpp"

#include "zerko/foundation/errors.hpp"

namespace zerko::scene {

namespace {
[[noreturn]] void abstract(const char* name) { throw NotImplementedError(name); }

class RestoringScope final : public SelectionScope {
public:
    explicit RestoringScope(Operator& op) : op_(op), saved_(op.get_selection()) {}
    ~RestoringScope() override {
        try {
            op_.select(saved_);
        } catch (...) {
            // A destructor must not throw; the host's select already failed once.
        }
    }

private:
    Operator& op_;
    Paths saved_;
};
}  // namespace

bool QueryOp::object_exists(const std::string&) const { abstract("object_exists"); }
std::string QueryOp::get_type(const std::string&) const { abstract("get_type"); }
std::string QueryOp::get_parent(const std::string&) const { abstract("get_parent"); }
Paths QueryOp::get_children(const std::string&) const { abstract("get_children"); }

Operator::Operator(const constants::TypeMapping::Table& type_mapping) : type_mapping_(type_mapping) {}

Paths Operator::get_selection() const { abstract("get_selection"); }
Paths Operator::get_selection_roots() const { abstract("get_selection_roots"); }
void Operator::select(const Paths&) { abstract("select"); }
std::unique_ptr<SelectionScope> Operator::selection_manager() { return std::make_unique<RestoringScope>(*this); }
void Operator::register_scene_opened_callback(std::function<void()>) { abstract("register_scene_opened_callback"); }
void Operator::register_shutdown_callback(std::function<void()>) { abstract("register_shutdown_callback"); }
void Operator::delete_callbacks() { abstract("delete_callbacks"); }
void Operator::export_(const Paths&, const std::string&, const std::string&, const JsonDocument&, bool,
                       bool, bool) {
    abstract("export");
}
std::string Operator::get_current_file() const { abstract("get_current_file"); }
std::string Operator::directory_dialog(const std::string&, const std::string&) { abstract("directory_dialog"); }
std::string Operator::file_dialog(const std::string&, const std::string&, const std::string&) {
    abstract("file_dialog");
}
JsonDocument Operator::query_filedata() const { abstract("query_filedata"); }
void Operator::embed_filedata(const JsonDocument&) { abstract("embed_filedata"); }
void Operator::erase_filedata() { abstract("erase_filedata"); }
void Operator::postscript_scan_append(const std::shared_ptr<DataJoint>&) { abstract("postscript_scan_append"); }
void Operator::postscript_scan_remove(const std::shared_ptr<DataJoint>&) { abstract("postscript_scan_remove"); }

void Operator::embed_buckets(StoredBuckets buckets) { embed_filedata(buckets_data(buckets)); }

JsonDocument Operator::joint_data(const DataJoint& joint) {
    JsonDocument out = JsonDocument::object();
    out["stamp"] = joint.stamp;
    out["name"] = joint.name;
    out["path"] = joint.path;
    out["type"] = joint.type;
    JsonDocument children = JsonDocument::array();
    children.get_ref<JsonDocument::array_t&>().reserve(joint.children.size());
    for (const auto& child : joint.children) children.push_back(joint_data(*child));
    out["children"] = std::move(children);
    out["icon"] = joint.icon;
    out["color"] = joint.color;
    return out;
}

JsonDocument Operator::buckets_data(StoredBuckets buckets) {
    JsonDocument out = JsonDocument::array();
    out.get_ref<JsonDocument::array_t&>().reserve(buckets.size());
    for (const auto& b : buckets) {
        JsonDocument item = JsonDocument::object();
        item["joint"] = joint_data(*b.joint);
        item["name"] = *b.name;
        item["checked"] = b.checked;
        item["opened"] = b.opened;
        out.push_back(std::move(item));
    }
    return out;
}

std::string Operator::name_from_path(std::string_view path) {
    const auto last = path.find_last_of("|/");
    return std::string(last == std::string_view::npos ? path : path.substr(last + 1));
}

}  // namespace zerko::scene
