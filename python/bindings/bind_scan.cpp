// The stored hierarchies and the scan: Scene._Buffer (with DataJoint and
// DataBucket) and Scene._Scanner. The scan itself runs in C++ with the GIL
// released; the host is called back (under the GIL) only for its answers,
// the embedded data and the postscript hooks.
#include "common.hpp"
#include "zerko/foundation/callbacks.hpp"
#include "zerko/scan/buffer.hpp"
#include "zerko/scan/scanner.hpp"

namespace zerko::py {

namespace {

using scan::Buffer;
using scan::DataBucket;
using scan::Scanner;
using scene::DataJoint;

using Release = nb::call_guard<nb::gil_scoped_release>;

nb::list joint_list(const scene::Joints& joints) {
    nb::list out;
    for (const auto& j : joints) out.append(nb::cast(j));
    return out;
}

nb::list bucket_list(const scan::Buckets& buckets) {
    nb::list out;
    for (const auto& b : buckets) out.append(nb::cast(b));
    return out;
}

nb::list path_groups(const std::vector<scene::Paths>& groups) {
    nb::list out;
    for (const auto& g : groups) {
        nb::list group;
        for (const auto& p : g) group.append(text(p));
        out.append(group);
    }
    return out;
}

// A text field that ignores values that are not text, as every text setter does.
template <std::string DataJoint::*Field>
void text_field(nb::class_<DataJoint>& cls, const char* name, bool as_str) {
    cls.def_prop_rw(
        name,
        [as_str](const DataJoint& j) -> nb::object {
            const std::string& v = j.*Field;
            return as_str ? text(v) : nb::object(nb::str(v.data(), v.size()));
        },
        [](DataJoint& j, nb::handle value) {
            if (is_text(value)) j.*Field = utf8(value, "value");
        });
}

}  // namespace

void bind_scan(nb::module_& m) {
    nb::object scene_ns = m.attr("Scene");
    nb::class_<Buffer> buffer(scene_ns, "_Buffer",
        "An interface class to operate with hierarchies\n        that loaded as data classes and embedded to the scene file.");

    nb::class_<DataJoint> joint(buffer, "DataJoint", "A data class to describe a single item in the hierarchy data.");
    joint.def(
        "__init__",
        [](DataJoint* self, nb::handle stamp, nb::handle name, nb::handle path, nb::handle type, nb::handle children,
           nb::handle icon, nb::handle color) {
            new (self) DataJoint();
            auto take = [](nb::handle v, std::string& field, const char* what) {
                if (is_text(v)) field = utf8(v, what);
            };
            take(stamp, self->stamp, "stamp");
            take(name, self->name, "name");
            take(path, self->path, "path");
            take(type, self->type, "type");
            take(icon, self->icon, "icon");
            take(color, self->color, "color");
            if (!children.is_none()) self->children = objects_of<DataJoint>(children, "children");
        },
        nb::arg("stamp") = "", nb::arg("name") = "", nb::arg("path") = "|", nb::arg("type") = "",
        nb::arg("children").none() = nb::none(), nb::arg("icon") = "", nb::arg("color") = "none");
    text_field<&DataJoint::stamp>(joint, "stamp", true);
    text_field<&DataJoint::name>(joint, "name", true);
    text_field<&DataJoint::path>(joint, "path", true);
    text_field<&DataJoint::type>(joint, "type", true);
    text_field<&DataJoint::icon>(joint, "icon", false);
    text_field<&DataJoint::color>(joint, "color", false);
    joint.def_prop_rw(
            "children", [](const DataJoint& j) { return joint_list(j.children); },
            [](DataJoint& j, nb::handle value) { j.children = objects_of<DataJoint>(value, "children"); })
        .def_prop_ro("is_ghost", &DataJoint::is_ghost)
        .def_prop_ro("data", [](const DataJoint& j) { return from_json(Buffer::joint_data(j)); })
        .def("__eq__", [](const DataJoint& j, nb::handle other) {
            return nb::isinstance<DataJoint>(other) && nb::cast<const DataJoint&>(other) == j;
        })
        .def("__hash__", [](const DataJoint& j) { return static_cast<Py_ssize_t>(j.hash() >> 1); })
        .def("__repr__", [](const DataJoint& j) {
            return "DataJoint(stamp='" + j.stamp + "', name='" + j.name + "', path='" + j.path + "', type='" + j.type +
                   "', children=" + std::to_string(j.children.size()) + ")";
        });

    nb::class_<DataBucket>(buffer, "DataBucket",
        "A data structure that contain hierarchy description\n            and some extra attributes to control its export and display.")
        .def(
            "__init__",
            [](DataBucket* self, std::shared_ptr<DataJoint> joint, nb::handle name, bool checked, bool opened) {
                std::optional<std::string> n;
                if (is_text(name)) n = utf8(name, "name");
                new (self) DataBucket(std::move(joint), std::move(n), checked, opened);
            },
            nb::arg("joint"), nb::arg("name").none() = nb::none(), nb::arg("checked") = true, nb::arg("opened") = true)
        .def_prop_rw("joint", [](const DataBucket& b) { return b.joint; },
                     [](DataBucket& b, std::shared_ptr<DataJoint> j) {
                         if (j) b.joint = std::move(j);
                     })
        .def_prop_rw("name", [](const DataBucket& b) { return text(b.name()); },
                     [](DataBucket& b, nb::handle value) {
                         if (is_text(value)) b.set_name(utf8(value, "name"));
                     })
        .def_rw("checked", &DataBucket::checked)
        .def_rw("opened", &DataBucket::opened)
        .def("get_joints", [](const DataBucket& b) { return joint_list(b.get_joints()); })
        .def_prop_ro("data", [](const DataBucket& b) { return from_json(b.data()); })
        .def("__eq__", [](const DataBucket& b, nb::handle other) {
            return nb::isinstance<DataBucket>(other) && nb::cast<const DataBucket&>(other) == b;
        })
        .def("__hash__", [](const DataBucket& b) { return static_cast<Py_ssize_t>(b.hash() >> 1); })
        .def("__repr__", [](const DataBucket& b) { return "DataBucket(name='" + b.name() + "')"; });

    buffer
        .def(nb::init<std::shared_ptr<scene::Operator>, std::shared_ptr<scene::Virtual>,
                      std::shared_ptr<hierarchy::Hierarchy>>(),
             nb::arg("operator"), nb::arg("virtual"), nb::arg("hierarchy"))
        .def("__contains__", [](const Buffer& b, nb::handle item) {
            return nb::isinstance<DataBucket>(item) && b.contains(nb::cast<const DataBucket&>(item));
        })
        .def("__len__", [](const Buffer& b) { return b.get().size(); })
        .def("get", [](const Buffer& b) { return bucket_list(b.get()); })
        .def("set", [](Buffer& b, nb::handle data) { b.set(objects_of<DataBucket>(data, "data")); }, nb::arg("data"))
        .def("add", [](Buffer& b, nb::handle data) { b.add(objects_of<DataBucket>(data, "data")); }, nb::arg("data"))
        .def("remove", [](Buffer& b, const DataBucket& item) { b.remove(item); }, nb::arg("item"))
        .def("load", &Buffer::load, Release())
        .def("rename", &Buffer::rename, nb::arg("source"), nb::arg("target"))
        .def("repath", &Buffer::repath, nb::arg("source"), nb::arg("target"))
        .def("clear", &Buffer::clear, nb::arg("selected") = false, Release())
        .def("erase", &Buffer::erase, Release())
        .def("update", &Buffer::update, Release())
        .def("sort", [](Buffer& b, nb::handle root) {
            if (root.is_none()) {
                nb::gil_scoped_release release;
                b.sort();
                return;
            }
            auto joints = objects_of<DataJoint>(root, "root");
            Buffer::sort(joints);
            // A Python list is sorted in place, as a list of joints would be.
            if (PyList_Check(root.ptr())) {
                nb::list list = nb::borrow<nb::list>(root);
                for (std::size_t i = 0; i < joints.size(); ++i) list[i] = nb::cast(joints[i]);
            }
        }, nb::arg("root").none() = nb::none())
        .def("exists", &Buffer::exists)
        .def("validate", &Buffer::validate, Release())
        .def("incompatibles", [](Buffer& b) {
            std::vector<scene::Paths> groups;
            {
                nb::gil_scoped_release release;
                groups = b.incompatibles();
            }
            return path_groups(groups);
        })
        .def_prop_ro("_incompatibles", [](const Buffer& b) { return path_groups(b.incompatible_groups()); })
        .def("is_valid", &Buffer::is_valid, Release())
        .def("ghosts_match", &Buffer::ghosts_match, Release())
        .def("ghost_match", &Buffer::ghost_match, nb::arg("bucket"), Release())
        .def("is_match", [](Buffer& b, nb::handle array) {
            if (array.is_none()) {
                nb::gil_scoped_release release;
                return b.is_match();
            }
            const auto joints = objects_of<DataJoint>(array, "_array");
            nb::gil_scoped_release release;
            return b.is_match(joints);
        }, nb::arg("_array").none() = nb::none())
        .def("get_path_groups", [](const Buffer& b) { return path_groups(b.get_path_groups()); })
        .def_static("get_roots", [](const DataJoint& j) {
            nb::list out;
            for (const auto& p : Buffer::get_roots(j)) out.append(text(p));
            return out;
        }, nb::arg("joint"))
        .def("get_checked", [](const Buffer& b) { return bucket_list(b.get_checked()); })
        .def_static("encode", [](nb::handle data) {
            return from_json(Buffer::encode(objects_of<DataBucket>(data, "data")));
        }, nb::arg("data"))
        .def_static("decode", [](const JsonDocument& data) { return bucket_list(Buffer::decode(data)); }, nb::arg("data"))
        .def_static("_decode", [](const JsonDocument& data) -> nb::object {
            auto joints = Buffer::decode(JsonDocument::array({{{"joint", data}}}));
            return joints.empty() ? nb::none() : nb::cast(joints.front()->joint);
        }, nb::arg("data"));

    nb::class_<Scanner>(scene_ns, "_Scanner",
        "A search & load interface for hierarchies\n        that match hierarchy pattern of the loaded project.")
        .def(
            "__init__",
            [](Scanner* self, nb::handle, std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> v,
               std::shared_ptr<hierarchy::Hierarchy> h, std::shared_ptr<Buffer> b, foundation::CallBacks& callbacks) {
                new (self) Scanner(std::move(op), std::move(v), std::move(h), std::move(b), callbacks);
            },
            nb::arg("api").none(), nb::arg("operator"), nb::arg("virtual"), nb::arg("hierarchy"), nb::arg("buffer"),
            nb::arg("callbacks"), nb::keep_alive<1, 2>(), nb::keep_alive<1, 7>())
        .def("upload_buffer", [](Scanner& s, bool append) {
            PausedCollector paused;
            nb::gil_scoped_release release;
            return s.upload_buffer(append);
        }, nb::arg("append") = false)
        .def("reload_buffer", [](Scanner& s) {
            PausedCollector paused;
            nb::gil_scoped_release release;
            s.reload_buffer();
        })
        .def("_find_scope_roots", &Scanner::find_scope_roots, nb::arg("scene_roots"), Release())
        .def("_scan", [](Scanner& s, const scene::Paths& roots) {
            scan::Buckets out;
            {
                nb::gil_scoped_release release;
                out = s.scan(roots);
            }
            return bucket_list(out);
        }, nb::arg("roots"))
        .def_static("_filter", [](nb::handle buckets) {
            return bucket_list(Scanner::filter(objects_of<DataBucket>(buckets, "buckets")));
        }, nb::arg("buckets"))
        .def("_load", [](Scanner& s, const scene::Paths& roots) {
            scene::Joints out;
            {
                nb::gil_scoped_release release;
                out = s.load(roots);
            }
            return joint_list(out);
        }, nb::arg("roots"))
        .def_static("_choose_name", [](nb::handle data) {
            return text(Scanner::choose_name(objects_of<DataJoint>(data, "data")));
        }, nb::arg("data"))
        .def("_reload_bucket", &Scanner::reload_bucket, nb::arg("bucket"), Release());
}

}  // namespace zerko::py
