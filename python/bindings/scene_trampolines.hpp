#pragma once
// Python subclasses of Scene._QueryOp and Scene.Operator: every operation that
// a subclass overrides is called from C++; what it returns is checked, and a
// wrong type raises TypeError instead of crashing.
#include "common.hpp"
#include "zerko/scene/operator.hpp"

#include <algorithm>
#include <vector>

namespace zerko::py {

/// Calls the Python override of `name` when the subclass has one; otherwise
/// the C++ base, which raises NotImplementedError for abstract operations.
#define ZERKO_OVERRIDE(name, convert, fallback, ...)                                     \
    do {                                                                                 \
        nb::gil_scoped_acquire nb_gil;                                                   \
        nb::object nb_result = ZERKO_PY_OVERRIDE(name __VA_OPT__(, ) __VA_ARGS__);       \
        if (nb_result.is_valid()) return convert(nb_result, name);                       \
    } while (0);                                                                         \
    return fallback

inline bool to_bool(nb::handle v, const char*) { return PyObject_IsTrue(v.ptr()) == 1; }
inline void to_void(nb::handle, const char*) {}
zerko::JsonDocument to_json_result(nb::handle v, const char* what);
/// The host's stored scene data, element by element: an element that is not
/// JSON-shaped becomes null, which the buffer drops and reports, so one bad
/// element does not cost the others.
zerko::JsonDocument filedata_result(nb::handle v, const char* what);
/// from_json for large documents: the collector is paused while the values
/// are made, since new plain values form no cycles and a collection every
/// few hundred containers would walk the growing heap again and again.
nb::object from_json_bulk(const zerko::JsonDocument& data);

/// Shared overrides of the four query operations.
template <typename Base>
class QueryTrampoline : public Overridable<Base> {
public:
    NB_TRAMPOLINE(Overridable<Base>);

    bool object_exists(const std::string& path) const override {
        ZERKO_OVERRIDE("object_exists", to_bool, Base::object_exists(path), path_object(path));
    }
    std::string get_type(const std::string& path) const override {
        ZERKO_OVERRIDE("get_type", expect_string, Base::get_type(path), path_object(path));
    }
    std::string get_parent(const std::string& path) const override {
        ZERKO_OVERRIDE("get_parent", expect_optional_string, Base::get_parent(path), path_object(path));
    }
    scene::Paths get_children(const std::string& path) const override {
        {
            nb::gil_scoped_acquire gil;
            nb::object result = ZERKO_PY_OVERRIDE("get_children", path_object(path));
            if (result.is_valid()) {
                scene::Paths out;
                if (result.is_none()) return out;
                if (PyUnicode_Check(result.ptr())) throw TypeError("get_children returned a string, not a list of strings");
                const std::size_t first = known_.size();
                for (nb::handle item : result) {
                    if (!PyUnicode_Check(item.ptr())) {
                        throw TypeError(std::string("get_children returned ") + Py_TYPE(item.ptr())->tp_name +
                                        ", not a string");
                    }
                    Py_ssize_t size = 0;
                    const char* text = PyUnicode_AsUTF8AndSize(item.ptr(), &size);
                    if (!text) throw nb::python_error();
                    out.emplace_back(text, static_cast<std::size_t>(size));
                    // The text views the UTF-8 data that the kept object owns.
                    if (walking_) known_.push_back({std::string_view(text, static_cast<std::size_t>(size)), nb::borrow(item)});
                }
                if (walking_) {
                    // First child on top: the walk takes the children in order.
                    std::reverse(known_.begin() + static_cast<std::ptrdiff_t>(first), known_.end());
                    forget_last();  // the object's four queries are done
                }
                return out;
            }
        }
        return Base::get_children(path);
    }

protected:
    // During a snapshot walk the host's own path objects are handed back to
    // it: no new text objects, and the host's dictionaries find them by
    // identity. The children the host listed wait on a stack, first child on
    // top, which is the order of a depth-first walk: the object asked for is
    // on top once the entries above it (objects the walk has finished or
    // skipped) are dropped. Each entry is dropped once, so a walk in another
    // order costs new text objects, never more than that.
    nb::object path_object(const std::string& path) const {
        if (walking_) {
            // The four queries of one object come one after another.
            if (last_.is_valid() && std::string_view(path) == last_path_) return last_;
            while (!known_.empty()) {
                Known top = std::move(known_.back());
                known_.pop_back();
                if (top.text == path) {
                    last_path_ = top.text;
                    last_ = std::move(top.object);
                    return last_;
                }
            }
        }
        return nb::str(path.c_str(), path.size());
    }
    void forget_last() const {
        last_.reset();
        last_path_ = {};
    }
    mutable bool walking_ = false;
    mutable nb::object last_;
    mutable std::string_view last_path_;
    struct Known {
        std::string_view text;
        nb::object object;
    };
    mutable std::vector<Known> known_;
};

using PyQueryOp = QueryTrampoline<scene::QueryOp>;

class PyOperator final : public QueryTrampoline<scene::Operator> {
public:
    using QueryTrampoline<scene::Operator>::QueryTrampoline;
    using Base = scene::Operator;

    scene::Paths get_selection() const override {
        ZERKO_OVERRIDE("get_selection", expect_strings, Base::get_selection());
    }
    scene::Paths get_selection_roots() const override {
        ZERKO_OVERRIDE("get_selection_roots", expect_strings, Base::get_selection_roots());
    }
    void select(const scene::Paths& paths) override;
    std::unique_ptr<scene::SelectionScope> selection_manager() override;
    void register_scene_opened_callback(std::function<void()> function) override {
        ZERKO_OVERRIDE("register_scene_opened_callback", to_void, Base::register_scene_opened_callback(function),
                       nb::cpp_function(function));
    }
    void register_shutdown_callback(std::function<void()> function) override {
        ZERKO_OVERRIDE("register_shutdown_callback", to_void, Base::register_shutdown_callback(function),
                       nb::cpp_function(function));
    }
    void delete_callbacks() override { ZERKO_OVERRIDE("delete_callbacks", to_void, Base::delete_callbacks()); }
    void export_(const scene::Paths& roots, const std::string& file_path, const std::string& type,
                 const zerko::JsonDocument& args, bool automatic_uv, bool triangulate, bool reset_xforms) override;
    std::string get_current_file() const override {
        ZERKO_OVERRIDE("get_current_file", expect_optional_string, Base::get_current_file());
    }
    std::string directory_dialog(const std::string& starting, const std::string& caption) override {
        ZERKO_OVERRIDE("directory_dialog", expect_optional_string, Base::directory_dialog(starting, caption),
                       starting, caption);
    }
    std::string file_dialog(const std::string& starting, const std::string& caption,
                            const std::string& file_filter) override {
        ZERKO_OVERRIDE("file_dialog", expect_optional_string, Base::file_dialog(starting, caption, file_filter),
                       starting, caption, file_filter);
    }
    zerko::JsonDocument query_filedata() const override {
        ZERKO_OVERRIDE("query_filedata", filedata_result, Base::query_filedata());
    }
    void embed_filedata(const zerko::JsonDocument& data) override {
        ZERKO_OVERRIDE("embed_filedata", to_void, Base::embed_filedata(data), from_json_bulk(data));
    }
    void erase_filedata() override { ZERKO_OVERRIDE("erase_filedata", to_void, Base::erase_filedata()); }
    void embed_buckets(scene::StoredBuckets buckets) override;
    void postscript_scan_append(const std::shared_ptr<scene::DataJoint>& joint) override {
        ZERKO_OVERRIDE("postscript_scan_append", to_void, Base::postscript_scan_append(joint), joint);
    }
    void postscript_scan_remove(const std::shared_ptr<scene::DataJoint>& joint) override {
        ZERKO_OVERRIDE("postscript_scan_remove", to_void, Base::postscript_scan_remove(joint), joint);
    }
    std::shared_ptr<void> begin_queries() override;
};

}  // namespace zerko::py
