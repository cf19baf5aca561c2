// Check: the base that Python check classes derive from, discovery of check
// modules in directories, checklists, and the check queue with its results.
//
// Check classes stay Python classes. The core sees each through an adapter
// that reads its class-level attributes by name and makes a fresh object of
// it per run; the object is driven through another adapter. What exists only
// because the host language is Python (the base class with its defaults, the
// result list, and the importer of modules) is the package's _check module.
#include "check_adapters.hpp"

#include "zerko/check/classes.hpp"
#include "zerko/check/list.hpp"
#include "zerko/check/queue.hpp"
#include "zerko/parameters/block.hpp"
#include "zerko/scene/operator.hpp"
#include "zerko/statistics/statistics.hpp"

namespace zerko::py {

namespace {

using check::Classes;
using check::List;
using check::Queue;
using Control = check::List::Control;
using Category = check::List::Category;
using Task = check::Queue::Task;
using Result = check::Queue::Task::Result;
using Editor = settings::Check::Presets::Editor;

nb::handle g_base;
nb::handle g_named_buffer;
nb::handle g_search;
nb::handle g_validation_error;

/// Where the classes of a directory come from in the Python face.
class PythonSource final : public check::ModuleSource {
public:
    check::Found search(const std::string& directory) override {
        nb::gil_scoped_acquire gil;
        check::Found found;
        nb::tuple result = nb::borrow<nb::tuple>(nb::handle(g_search)(nb::str(directory.c_str(), directory.size())));
        for (nb::handle cls : result[0]) found.classes.push_back(std::make_shared<PythonClass>(nb::borrow(cls)));
        for (nb::handle failure : result[1]) {
            found.failures.push_back({utf8(failure[0]), utf8(failure[1])});
        }
        return found;
    }
};

/// The Python class behind a core class, or None for a C++ one.
nb::object class_object(const std::shared_ptr<check::Class>& check_class) {
    if (!check_class) return nb::none();
    if (auto* python = dynamic_cast<PythonClass*>(check_class.get())) return python->object();
    return nb::cast(check_class);
}

/// A core class for what Python hands in: a Python class, or a bound C++ one.
std::shared_ptr<check::Class> class_from_python(nb::handle value) {
    std::shared_ptr<check::Class> native;
    if (nb::try_cast(value, native) && native) return native;
    if (!PyType_Check(value.ptr())) throw TypeError("a check class is needed");
    return std::make_shared<PythonClass>(nb::borrow(value));
}

std::vector<std::shared_ptr<check::Class>> classes_from_python(nb::handle classes) {
    const Classes* found = nullptr;
    if (nb::try_cast(classes, found) && found) return found->array();
    std::vector<std::shared_ptr<check::Class>> out;
    if (classes.is_none()) return out;
    for (nb::handle cls : classes) out.push_back(class_from_python(cls));
    return out;
}

nb::list to_list(const std::vector<std::shared_ptr<check::Class>>& classes) {
    nb::list out;
    for (const auto& c : classes) out.append(class_object(c));
    return out;
}

/// `_array` and `_denied` are Python lists that keep their identity: each
/// read refills the one list in place from the core's.
nb::object synced_list(nb::handle self, const char* name, const std::vector<std::shared_ptr<check::Class>>& classes) {
    nb::dict attributes = nb::borrow<nb::dict>(nb::getattr(self, "__dict__"));
    nb::object list;
    if (attributes.contains(name)) list = attributes[name];
    if (!list.is_valid() || !PyList_Check(list.ptr())) {
        list = nb::list();
        attributes[name] = list;
    }
    list.attr("clear")();
    list.attr("extend")(to_list(classes));
    return list;
}

std::shared_ptr<settings::Check::Config> config_or_null(nb::handle value) {
    std::shared_ptr<settings::Check::Config> out;
    if (nb::try_cast(value, out)) return out;
    return nullptr;
}

std::shared_ptr<settings::Check::Presets::Set> preset_or_null(nb::handle value) {
    std::shared_ptr<settings::Check::Presets::Set> out;
    if (nb::try_cast(value, out)) return out;
    return nullptr;
}

nb::list controls_to_list(const List::Controls& controls) {
    nb::list out;
    for (const auto& c : controls) out.append(nb::cast(c));
    return out;
}

void bind_classes(nb::handle ns) {
    nb::class_<Classes>(ns, "_Classes", nb::dynamic_attr(), "The check classes found in the check directories.")
        .def("__init__",
             [](Classes* self, std::shared_ptr<settings::Check::Directory::List> directories) {
                 new (self) Classes(std::move(directories), std::make_shared<PythonSource>());
             },
             nb::arg("directories").none())
        .def("__iter__", [](const Classes& self) { return nb::iter(to_list(self.array())); })
        .def("__len__", &Classes::size)
        .def("get", [](const Classes& self, nb::handle class_id) -> nb::object {
            if (!PyUnicode_Check(class_id.ptr())) return nb::none();
            return class_object(self.get(utf8(class_id, "class_id")));
        }, nb::arg("class_id").none())
        .def_prop_ro("_array", [](nb::handle self) {
            return synced_list(self, "_array", nb::cast<const Classes&>(self).array());
        })
        .def_prop_ro("_denied", [](nb::handle self) {
            return synced_list(self, "_denied", nb::cast<const Classes&>(self).get_denied());
        })
        .def("get_denied", [](nb::handle self) {
            return synced_list(self, "_denied", nb::cast<const Classes&>(self).get_denied());
        })
        .def("reload", &Classes::reload)
        .def_prop_ro("_directories", &Classes::directories)
        .def_prop_ro_static("_group_order", [](nb::handle) {
            nb::list out;
            for (const auto name : Classes::group_order) out.append(nb::str(name.data(), name.size()));
            return nb::tuple(out);
        });
}

void bind_list(nb::handle ns) {
    nb::class_<List> list(ns, "_List", nb::dynamic_attr(), "The configured set of checks of a rule or of the scene.");
    nb::class_<Control>(list, "Control", nb::dynamic_attr(), "One check of a checklist: on or off, and its parameters.")
        .def_rw("name", &Control::name)
        .def_prop_ro("check", [](const Control& c) { return class_object(c.check); })
        .def_rw("parameters", &Control::parameters)
        .def_rw("enabled", &Control::enabled)
        .def_rw("opened", &Control::opened)
        .def_prop_ro("_state", &Control::state)
        .def_prop_ro("description", &Control::description)
        .def("load", [](Control& c, std::shared_ptr<settings::Check> state) { c.load(std::move(state)); },
             nb::arg("state"))
        .def("save", &Control::save)
        .def("clear", &Control::clear);
    nb::class_<Category>(list, "Category", nb::dynamic_attr(), "The controls of one category, in order.")
        .def(nb::init<std::string>(), nb::arg("name"))
        .def_rw("name", &Category::name)
        .def("add", &Category::add, nb::arg("control"))
        .def("__iter__", [](const Category& c) { return nb::iter(controls_to_list(c.controls)); })
        .def("__len__", [](const Category& c) { return c.controls.size(); });
    list.def("__init__",
             [](List* self, nb::handle classes, std::shared_ptr<settings::Check::Presets> presets, nb::handle config) {
                 new (self) List(classes_from_python(classes), std::move(presets), config_or_null(config));
             },
             nb::arg("classes").none(), nb::arg("presets").none() = nb::none(), nb::arg("config").none() = nb::none())
        .def_prop_ro("categories", [](const List& l) {
            nb::list out;
            for (const auto& c : l.categories()) out.append(nb::cast(c));
            return out;
        })
        .def_prop_ro("config", &List::config)
        .def_prop_ro("preset", &List::preset)
        .def("__iter__", [](const List& l) { return nb::iter(controls_to_list(l.iterator())); })
        .def("iterator", [](const List& l, bool enabled) { return nb::iter(controls_to_list(l.iterator(enabled))); },
             nb::arg("enabled") = false)
        .def("is_empty", &List::is_empty)
        .def("get", [](const List& l, bool enabled, bool scene_oriented) {
            return controls_to_list(l.get(enabled, scene_oriented));
        }, nb::arg("enabled") = true, nb::arg("scene_oriented") = false)
        .def("load", [](List& l, nb::handle config) { l.load(config_or_null(config)); }, nb::arg("config").none())
        .def("save", &List::save)
        .def("clear", &List::clear);
}

void bind_editor(nb::module_& m) {
    nb::object presets = m.attr("_Settings").attr("Check").attr("Presets");
    nb::class_<Editor>(presets, "Editor", nb::dynamic_attr(), "The presets joined to a checklist.")
        .def("__init__",
             [](Editor* self, std::shared_ptr<settings::Check::Presets> presets, List* check_list) {
                 new (self) Editor(std::move(presets), check_list);
             },
             nb::arg("presets").none(), nb::arg("check_list").none(), nb::keep_alive<1, 3>())
        .def_prop_ro("names", &Editor::names)
        .def_prop_ro("_config_loaded", &Editor::config_loaded)
        .def_prop_ro("_presets", &Editor::presets)
        .def("create", [](Editor& e, nb::handle name) {
            if (PyUnicode_Check(name.ptr())) e.create(utf8(name));
        }, nb::arg("name").none())
        .def("upload", [](Editor& e, nb::handle preset) { e.upload(preset_or_null(preset)); }, nb::arg("preset").none())
        .def("apply", [](Editor& e, nb::handle preset) { e.apply(preset_or_null(preset)); }, nb::arg("preset").none())
        .def("erase", [](Editor& e, nb::handle preset) { e.erase(preset_or_null(preset)); }, nb::arg("preset").none())
        .def("sync_applied", &Editor::sync_applied);
}

void set_icon(Task& task, nb::handle icon) {
    task.icon.clear();
    task.host_icon.reset();
    if (PyUnicode_Check(icon.ptr())) {
        task.icon = utf8(icon);
    } else if (!icon.is_none()) {
        task.host_icon = std::make_shared<HeldObject>(nb::borrow(icon));
    }
}

void bind_queue(nb::handle ns) {
    nb::class_<Queue> queue(ns, "_Queue", nb::dynamic_attr(), "The tasks of a check run with their results.");
    nb::class_<Task> task(queue, "Task", nb::dynamic_attr(), "One object (or the scene) and the results of its checks.");
    nb::class_<Result> result(task, "Result", nb::dynamic_attr(), "One check run on one object with one parameter task.");
    nb::class_<Task::Results>(result, "List", "The results of a task, in the order of adding.")
        .def(nb::init<>())
        .def("__iter__", [](const Task::Results& r) {
            nb::list out;
            for (const auto& item : r) out.append(nb::cast(item));
            return nb::iter(out);
        })
        .def("__len__", &Task::Results::size)
        .def("add", &Task::Results::add, nb::arg("result"));

    result
        .def("__init__",
             [](Result* self, const std::string& path, nb::handle check_class,
                std::shared_ptr<parameters::Task> parameter_task, std::shared_ptr<statistics::Statistics> statistics,
                std::shared_ptr<scene::Operator> op, bool single) {
                 if (!parameter_task) throw TypeError("a parameter task is needed");
                 const auto core_class = class_from_python(check_class);
                 new (self) Result(path, *core_class, *parameter_task, std::move(statistics), std::move(op), single);
             },
             nb::arg("path"), nb::arg("check_class"), nb::arg("parameter_task").none(),
             nb::arg("statistics").none(), nb::arg("operator").none(), nb::arg("single") = true)
        .def_prop_ro("name", &Result::name)
        .def_prop_ro("status", [](const Result& r) { return std::string(r.status()); })
        .def_prop_ro("could_be_fixed", &Result::could_be_fixed)
        .def_prop_ro("could_be_selected", &Result::could_be_selected)
        .def_prop_ro("scene_oriented", &Result::scene_oriented)
        .def_prop_ro("_path", &Result::path)
        .def_prop_ro("_param", &Result::parameters)
        .def_prop_ro("_check", [](Result& r) -> nb::object {
            if (auto* python = dynamic_cast<PythonCheck*>(&r.check_object())) return python->object();
            return nb::none();
        })
        .def("check", &Result::check)
        .def("fix_result", &Result::fix_result)
        .def("select_result", &Result::select_result)
        .def("result_message", &Result::result_message);

    task.def("__init__",
             [](Task* self, const std::string& path, nb::handle check_controls, nb::handle name, nb::handle icon) {
                 List::Controls controls;
                 if (!check_controls.is_none()) controls = objects_of<Control>(check_controls, "check_controls");
                 new (self) Task(path, std::move(controls), expect_optional_string(name, "name"));
                 set_icon(*self, icon);
             },
             nb::arg("path"), nb::arg("check_controls").none(), nb::arg("name").none() = nb::none(),
             nb::arg("icon").none() = nb::none())
        .def_rw("name", &Task::name)
        .def_rw("path", &Task::path)
        // Text stays text for C++ readers; any other object is kept as given.
        .def_prop_rw("icon", [](const Task& t) -> nb::object {
            if (t.host_icon) return static_cast<const HeldObject*>(t.host_icon.get())->get();
            return t.icon.empty() ? nb::none() : nb::object(nb::str(t.icon.c_str(), t.icon.size()));
        }, [](Task& t, nb::handle icon) { set_icon(t, icon); }, nb::arg("value").none())
        .def_prop_ro("check_controls", [](const Task& t) { return controls_to_list(t.check_controls); })
        .def_prop_ro("results", [](Task& t) -> Task::Results& { return t.results; }, nb::rv_policy::reference_internal)
        .def_prop_ro("empty", &Task::empty)
        .def_prop_ro("status", [](const Task& t) { return std::string(t.status()); })
        .def_prop_ro_static("_level_order", [](nb::handle) {
            nb::list out;
            for (const auto s : Task::level_order) out.append(nb::str(s.data(), s.size()));
            return nb::tuple(out);
        });

    queue.def(nb::init<>())
        .def("__iter__", [](const Queue& q) {
            nb::list out;
            for (const auto& t : q) out.append(nb::cast(t));
            return nb::iter(out);
        })
        .def("__len__", &Queue::size)
        .def("add", &Queue::add, nb::arg("task"))
        .def("clear", &Queue::clear)
        .def("is_empty", &Queue::is_empty)
        .def("fix_all", &Queue::fix_all)
        .def("fix_exists", &Queue::fix_exists);
}

}  // namespace

nb::handle check_base_type() { return g_base; }
nb::handle validation_error_type() { return g_validation_error; }

std::shared_ptr<check::Class> check_class_from_python(nb::handle value) { return class_from_python(value); }
std::shared_ptr<check::ModuleSource> python_module_source() { return std::make_shared<PythonSource>(); }

void bind_check(nb::module_& m) {
    nb::object ns = namespace_of(m, "Check", "Check classes, their discovery, checklists and the check queue.");
    nb::object structure = namespace_of(m, "Structure", "Small data structures of checks.");

    // The Python half of checks is a module of the package.
    nb::module_ python_side = nb::module_::import_("zerko._check");
    nb::object named_buffer = python_side.attr("NamedBuffer");
    structure.attr("NamedBuffer") = named_buffer;
    nb::object base = python_side.attr("Base");
    ns.attr("Base") = base;
    // Kept by the module for its whole life.
    g_named_buffer = named_buffer.release();
    g_base = base.release();
    g_search = nb::object(python_side.attr("_search")).release();
    g_validation_error = nb::object(m.attr("Error").attr("ValidationError")).release();

    bind_classes(ns);
    bind_list(ns);
    bind_queue(ns);
    bind_editor(m);

    // _Assert.Check.is_valid: the validation discovery applies.
    nb::object check_assert = namespace_of(m.attr("_Assert"), "Check", "Validation of check classes.");
    check_assert.attr("is_valid") = nb::cpp_function(
        [](nb::handle cls) {
            if (!PyType_Check(cls.ptr())) return false;
            return PythonClass(nb::borrow(cls)).is_valid();
        },
        nb::arg("_class").none(), nb::scope(check_assert), nb::name("is_valid"));
}

nb::handle named_buffer_type() { return g_named_buffer; }

}  // namespace zerko::py
