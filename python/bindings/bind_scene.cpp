// The scene contract: Scene._QueryOp and Scene.Operator with their trampolines.
#include "common.hpp"
#include "scene_trampolines.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::py {

zerko::JsonDocument to_json_result(nb::handle v, const char* what) {
    if (v.is_none()) return zerko::JsonDocument::array();
    try {
        return to_json(v);
    } catch (const TypeError& e) {
        throw TypeError(std::string(what) + " returned data that is not JSON-shaped: " + e.what());
    }
}

zerko::JsonDocument filedata_result(nb::handle v, const char* what) {
    if (v.is_none()) return zerko::JsonDocument::array();
    auto convert = [](nb::handle item) {
        try {
            return to_json(item);
        } catch (const std::exception&) {
            return zerko::JsonDocument();
        }
    };
    if (!PyList_Check(v.ptr()) && !PyTuple_Check(v.ptr())) return convert(v);
    (void)what;
    zerko::JsonDocument out = zerko::JsonDocument::array();
    for (nb::handle item : v) out.push_back(convert(item));
    return out;
}

nb::object from_json_bulk(const zerko::JsonDocument& data) {
    PausedCollector paused;
    return from_json(data);
}

namespace {

// The stored buckets as Python values, made straight from the joints: the
// keys are made once, and no intermediate document is built and freed.
struct StoredToPython {
    nb::object stamp = key("stamp"), name = key("name"), path = key("path"), type = key("type"),
               children = key("children"), icon = key("icon"), color = key("color"), joint = key("joint"),
               checked = key("checked"), opened = key("opened");

    static nb::object key(const char* k) { return nb::steal(PyUnicode_InternFromString(k)); }
    static void put(nb::handle dict, const nb::object& k, nb::object value) {
        if (!value.is_valid() || PyDict_SetItem(dict.ptr(), k.ptr(), value.ptr()) != 0) throw nb::python_error();
    }
    static nb::object str(const std::string& s) {
        return nb::steal(PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "replace"));
    }
    nb::object of(const scene::DataJoint& j) const {
        nb::object out = nb::steal(PyDict_New());
        put(out, stamp, str(j.stamp));
        put(out, name, str(j.name));
        put(out, path, str(j.path));
        put(out, type, str(j.type));
        nb::object list = nb::steal(PyList_New(static_cast<Py_ssize_t>(j.children.size())));
        if (!list.is_valid()) throw nb::python_error();
        for (std::size_t i = 0; i < j.children.size(); ++i) {
            PyList_SET_ITEM(list.ptr(), static_cast<Py_ssize_t>(i), of(*j.children[i]).release().ptr());
        }
        put(out, children, std::move(list));
        put(out, icon, str(j.icon));
        put(out, color, str(j.color));
        return out;
    }
    nb::object of(scene::StoredBuckets buckets) const {
        nb::object out = nb::steal(PyList_New(static_cast<Py_ssize_t>(buckets.size())));
        if (!out.is_valid()) throw nb::python_error();
        for (std::size_t i = 0; i < buckets.size(); ++i) {
            nb::object item = nb::steal(PyDict_New());
            put(item, joint, of(*buckets[i].joint));
            put(item, name, str(*buckets[i].name));
            put(item, checked, nb::bool_(buckets[i].checked));
            put(item, opened, nb::bool_(buckets[i].opened));
            PyList_SET_ITEM(out.ptr(), static_cast<Py_ssize_t>(i), item.release().ptr());
        }
        return out;
    }
};

}  // namespace

void PyOperator::embed_buckets(scene::StoredBuckets buckets) {
    {
        nb::gil_scoped_acquire gil;
        // New plain values form no cycles: the collector is paused while they are made.
        nb::object data;
        {
            PausedCollector paused;
            data = StoredToPython().of(buckets);
        }
        nb::object result = ZERKO_PY_OVERRIDE("embed_filedata", data);
        if (result.is_valid()) return;
    }
    Base::embed_buckets(buckets);
}

namespace {

// A Python context manager held open for the life of a C++ scope.
class PySelectionScope final : public scene::SelectionScope {
public:
    explicit PySelectionScope(nb::object manager) : manager_(std::move(manager)) {
        manager_.attr("__enter__")();
    }
    ~PySelectionScope() override {
        nb::gil_scoped_acquire gil;
        try {
            manager_.attr("__exit__")(nb::none(), nb::none(), nb::none());
        } catch (nb::python_error& e) {
            // A destructor must not raise: the host's failure to restore is logged.
            foundation::Logger::exception(describe(std::make_exception_ptr(e)).text);
        }
        manager_.reset();
    }

private:
    nb::object manager_;
};

// What the base Operator.selection_manager() gives Python: a context manager
// over the C++ scope, which restores the selection when the block ends.
struct ScopeManager {
    std::unique_ptr<scene::SelectionScope> scope;
};

}  // namespace

void PyOperator::select(const scene::Paths& paths) {
    nb::gil_scoped_acquire gil;
    nb::list args;
    for (const auto& p : paths) args.append(nb::str(p.c_str(), p.size()));
    if (ZERKO_PY_OVERRIDE("select", *nb::tuple(args)).is_valid()) return;
    Base::select(paths);
}

std::shared_ptr<void> PyOperator::begin_queries() {
    walking_ = true;
    // The handle ends the walk: the kept path objects are released under the GIL.
    return std::shared_ptr<void>(nullptr, [this](void*) {
        nb::gil_scoped_acquire gil;
        walking_ = false;
        forget_last();
        known_.clear();
    });
}

std::unique_ptr<scene::SelectionScope> PyOperator::selection_manager() {
    nb::gil_scoped_acquire gil;
    nb::object manager = ZERKO_PY_OVERRIDE("selection_manager");
    if (manager.is_valid()) return std::make_unique<PySelectionScope>(std::move(manager));
    return Base::selection_manager();
}

void PyOperator::export_(const scene::Paths& roots, const std::string& file_path, const std::string& type,
                         const zerko::JsonDocument& args, bool automatic_uv, bool triangulate, bool reset_xforms) {
    nb::gil_scoped_acquire gil;
    if (ZERKO_PY_OVERRIDE("export", roots, file_path, type, from_json(args), nb::arg("automatic_uv") = automatic_uv,
                          nb::arg("triangulate") = triangulate, nb::arg("reset_xforms") = reset_xforms)
            .is_valid()) {
        return;
    }
    Base::export_(roots, file_path, type, args, automatic_uv, triangulate, reset_xforms);
}

void bind_scene(nb::module_& m) {
    using scene::Operator;
    using scene::QueryOp;
    nb::object ns = make_namespace(m, "Scene",
                                   "The namespace contains classes to communicate\n    with the opened scene in dcc application.");

    nb::class_<QueryOp, PyQueryOp>(ns, "_QueryOp", "An abstract class to get hierarchy info from the scene.")
        .def(nb::init<>())
        .def("object_exists", &QueryOp::object_exists, nb::arg("path"))
        .def("get_type", &QueryOp::get_type, nb::arg("path"))
        .def("get_parent", [](const QueryOp& q, const std::string& p) -> nb::object {
            auto parent = q.get_parent(p);
            return parent.empty() ? nb::none() : nb::object(nb::str(parent.c_str()));
        }, nb::arg("path"))
        .def("get_children", &QueryOp::get_children, nb::arg("path"));

    nb::class_<ScopeManager>(ns, "_SelectionScope", "Restores the selection of its start when the block ends.")
        .def("__enter__", [](nb::handle self) { return nb::borrow(self); })
        .def("__exit__", [](ScopeManager& s, nb::args) {
            s.scope.reset();
            return false;
        });

    nb::class_<Operator, QueryOp, PyOperator> op(ns, "Operator", "An abstract class to communicate with the scene.");
    op.attr("TYPE_MAPPING") = nb::dict();
    op.def(
          "__init__",
          [](nb::pointer_and_handle<Operator> v) {
              // The subclass's class-level TYPE_MAPPING becomes its type table.
              constants::TypeMapping::Table table;
              nb::object mapping = nb::handle((PyObject*)Py_TYPE(v.h.ptr())).attr("TYPE_MAPPING");
              if (!PyDict_Check(mapping.ptr())) throw TypeError("TYPE_MAPPING must be a dict");
              for (auto [k, t] : nb::borrow<nb::dict>(mapping)) table.emplace_back(utf8(k, "TYPE_MAPPING"), utf8(t, "TYPE_MAPPING"));
              if (nb::inst_python_derived(v.h)) new (v.p) PyOperator(table);
              else new (v.p) Operator(table);
          })
        .def_prop_ro("type_mapping", &Operator::type_mapping, nb::rv_policy::reference_internal)
        .def("map_type", [](const Operator& o, std::string_view name) -> nb::object {
            auto t = o.map_type(name);
            return t ? to_str(nb::str(t->c_str())) : nb::none();
        }, nb::arg("name"))
        .def("get_selection", &Operator::get_selection)
        .def("get_selection_roots", &Operator::get_selection_roots)
        .def("select", [](Operator& o, nb::args paths) {
            scene::Paths list;
            for (nb::handle p : paths) list.push_back(utf8(p, "paths"));
            o.select(list);
        })
        .def("selection_manager", [](Operator& o) { return ScopeManager{o.selection_manager()}; })
        .def("register_scene_opened_callback", [](Operator& o, nb::object f) {
            o.register_scene_opened_callback([f] { nb::gil_scoped_acquire g; f(); });
        }, nb::arg("function"))
        .def("register_shutdown_callback", [](Operator& o, nb::object f) {
            o.register_shutdown_callback([f] { nb::gil_scoped_acquire g; f(); });
        }, nb::arg("function"))
        .def("delete_callbacks", &Operator::delete_callbacks)
        .def("export", &Operator::export_, nb::arg("roots"), nb::arg("file_path"), nb::arg("type"), nb::arg("args"),
             nb::arg("automatic_uv") = false, nb::arg("triangulate") = false, nb::arg("reset_xforms") = false)
        .def("get_current_file", &Operator::get_current_file)
        .def("directory_dialog", &Operator::directory_dialog, nb::arg("starting") = "~", nb::arg("caption") = "")
        .def("file_dialog", &Operator::file_dialog, nb::arg("starting") = "~", nb::arg("caption") = "",
             nb::arg("file_filter") = "")
        .def("query_filedata", &Operator::query_filedata)
        .def("embed_filedata", &Operator::embed_filedata, nb::arg("data"))
        .def("erase_filedata", &Operator::erase_filedata)
        .def("postscript_scan_append", &Operator::postscript_scan_append, nb::arg("joint"))
        .def("postscript_scan_remove", &Operator::postscript_scan_remove, nb::arg("joint"))
        .def_static("name_from_path", [](std::string_view p) { return to_str(nb::str(Operator::name_from_path(p).c_str())); },
                    nb::arg("path"));
}

}  // namespace zerko::py
