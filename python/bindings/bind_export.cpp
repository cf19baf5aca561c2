// _Export: flags, the export queue and the exporter options.
#include "common.hpp"
#include "zerko/export/flags.hpp"
#include "zerko/export/options.hpp"
#include "zerko/export/queue.hpp"

namespace zerko::py {

namespace {

using export_::Document;

std::vector<std::shared_ptr<parameters::Options>> exporters_arg(const nb::args& args) {
    // Anything that is no Parameters.Options is dropped without a word.
    std::vector<std::shared_ptr<parameters::Options>> out;
    for (nb::handle arg : args) {
        std::shared_ptr<parameters::Options> option;
        if (!arg.is_none() && nb::try_cast(arg, option) && option) out.push_back(std::move(option));
    }
    return out;
}

/// `_tasks` is one Python list per queue that follows the core's list, so
/// that whoever holds it sees the queue's `add` and `clear` (which empties it
/// in place rather than handing out a new list).
nb::object synced_tasks(nb::handle self, bool create) {
    nb::dict attributes = nb::borrow<nb::dict>(nb::getattr(self, "__dict__"));
    nb::object list;
    if (attributes.contains("_tasks")) list = attributes["_tasks"];
    if (!list.is_valid() || !PyList_Check(list.ptr())) {
        if (!create) return nb::none();
        list = nb::list();
        attributes["_tasks"] = list;
    }
    list.attr("clear")();
    for (const auto& task : nb::cast<const export_::Queue&>(self).tasks()) list.attr("append")(nb::cast(task));
    return list;
}

}  // namespace

void bind_export(nb::module_& m) {
    nb::object ns = namespace_of(m, "_Export", "The data classes of an export: flags, queue and exporter options.");

    nb::class_<export_::Flags>(ns, "Flags", "The four switches that go with every exporter.")
        .def(nb::init<>())
        .def_rw("automatic_uv", &export_::Flags::automatic_uv)
        .def_rw("triangulate", &export_::Flags::triangulate)
        .def_rw("reset_xforms", &export_::Flags::reset_xforms)
        .def_rw("version_control", &export_::Flags::version_control)
        .def_prop_ro("data", &export_::Flags::data)
        .def("load", &export_::Flags::load, nb::arg("data").none(), "A missing key turns its flag off.");

    using Queue = export_::Queue;
    nb::class_<Queue> queue(ns, "Queue", "The files that an export is to write.", nb::dynamic_attr());
    nb::class_<Queue::Task>(queue, "Task", "One file: its base name and the scene paths that go into it.")
        .def(nb::init<std::string>(), nb::arg("name"))
        .def_rw("name", &Queue::Task::name)
        .def_rw("roots", &Queue::Task::roots)
        .def("add",
             [](Queue::Task& t, nb::args paths) {
                 for (nb::handle path : paths) t.add(expect_string(path, "a root path"));
             })
        .def("is_empty", &Queue::Task::is_empty)
        .def("confirm", &Queue::Task::confirm)
        .def("is_confirmed", &Queue::Task::is_confirmed)
        .def_prop_ro("_confirmed", &Queue::Task::is_confirmed);
    queue.def(nb::init<>())
        .def("add",
             [](nb::handle self, std::shared_ptr<Queue::Task> task) {
                 nb::cast<Queue&>(self).add(std::move(task));
                 synced_tasks(self, false);
             },
             nb::arg("task"))
        .def("clear",
             [](nb::handle self) {
                 nb::cast<Queue&>(self).clear();
                 synced_tasks(self, false);
             })
        .def("is_empty", &Queue::is_empty)
        .def("__len__", &Queue::size)
        .def("__iter__", [](const Queue& q) { return nb::iter(nb::cast(q.tasks())); })
        .def_prop_ro("_tasks", [](nb::handle self) { return synced_tasks(self, true); });

    using Options = export_::Options;
    nb::class_<Options>(ns, "Options", "The exporters that the host supplied; each is also an attribute under its name.")
        .def("__init__", [](Options* self, nb::args options) { new (self) Options(exporters_arg(options)); })
        .def("__iter__", [](const Options& o) { return nb::iter(nb::cast(o.options())); })
        .def("__getattr__",
             [](const Options& o, const std::string& name) {
                 if (auto option = o.option(name)) return option;
                 throw nb::attribute_error(("'Options' object has no attribute '" + name + "'").c_str());
             },
             nb::arg("name"))
        .def_prop_ro("selected", &Options::selected)
        .def(
            "select",
            [](Options& o, nb::handle option) {
                if (PyUnicode_Check(option.ptr())) return o.select(std::string_view(utf8(option)));
                parameters::Options* exporter = nullptr;
                if (option.is_none() || !nb::try_cast(option, exporter)) exporter = nullptr;
                o.select(exporter);
            },
            nb::arg("option").none(), "Selects by the exporter, its attr or its label; no match keeps a selection.")
        .def("load", &Options::load, nb::arg("data").none())
        .def_prop_ro("data", &Options::data)
        .def("clone", &Options::clone)
        .def_prop_ro("_options", [](const Options& o) { return nb::cast(o.options()); })
        .def_prop_ro("_selected", &Options::selected)
        .def("_select_any", &Options::select_any);
}

}  // namespace zerko::py
