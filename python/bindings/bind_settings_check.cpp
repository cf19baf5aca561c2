// _Settings.Check: one check's record, the configuration of checks, the
// directories of check modules and the presets. `Directory` is a real `str`
// subclass (its text is the folder's path) around the core's directory.
#include "common.hpp"
#include "zerko/settings/check.hpp"

namespace zerko::py {

namespace {

using settings::Check;
using Config = Check::Config;
using Directory = Check::Directory;
using DirectoryList = Check::Directory::List;
using Presets = Check::Presets;
using PresetSet = Check::Presets::Set;
using settings::Document;
using State = Check::State;

// The Python class of directories, made once at binding time.
nb::handle g_directory_type;

nb::object wrap(const std::shared_ptr<Directory>& directory) {
    if (!directory) return nb::none();
    return nb::handle(g_directory_type).attr("_wrap")(nb::cast(directory));
}

/// The core of a Python directory, or null for anything else.
std::shared_ptr<Directory> core_of(nb::handle value) {
    if (!g_directory_type.is_valid() || !PyObject_TypeCheck(value.ptr(), (PyTypeObject*)g_directory_type.ptr())) {
        return nullptr;
    }
    return nb::cast<std::shared_ptr<Directory>>(value.attr("_core"));
}


/// JSON handed in from Python; anything that is not JSON-shaped reads as `fallback`.
settings::Document json_or(nb::handle value, settings::Document fallback) {
    try {
        return to_json(value);
    } catch (const TypeError&) {
        return fallback;
    }
}

std::shared_ptr<Config> config_or_null(nb::handle value) {
    std::shared_ptr<Config> out;
    if (nb::try_cast(value, out)) return out;
    return nullptr;
}


}  // namespace

void bind_settings_check(nb::handle settings_class) {
    nb::class_<Check> check(settings_class, "Check", nb::dynamic_attr(), "One check's settings: on or off, opened, its parameters.");
    check.def(nb::init<std::string, bool, bool, Document>(), nb::arg("class_id"), nb::arg("enabled"),
              nb::arg("opened"), nb::arg("parameters"))
        .def_static("empty", &Check::empty, nb::arg("class_id"), nb::arg("enabled") = false,
                    nb::arg("opened") = false, nb::arg("parameters") = Document::array())
        .def_rw("class_id", &Check::class_id)
        .def_prop_rw("enabled", [](const Check& c) { return c.enabled; },
                     [](Check& c, nb::handle v) { if (is_bool(v)) c.enabled = nb::cast<bool>(v); },
                     nb::arg("value").none())
        .def_prop_rw("opened", [](const Check& c) { return c.opened; },
                     [](Check& c, nb::handle v) { if (is_bool(v)) c.opened = nb::cast<bool>(v); },
                     nb::arg("value").none())
        .def_prop_rw("parameters", [](const Check& c) { return c.parameters; },
                     [](Check& c, nb::handle v) {
                         Document value = json_or(v, Document());
                         if (value.is_array()) c.parameters = std::move(value);
                     },
                     nb::arg("value").none())
        .def_prop_ro("data", &Check::data)
        .def("__repr__", [](const Check& c) {
            return "Check(" + c.class_id + ", enabled=" + (c.enabled ? "True" : "False") + ")";
        });

    nb::class_<Config>(check, "Config", nb::dynamic_attr(), "Checks by class id, with their state and parameters.")
        .def("__init__",
             [](Config* self, nb::handle table) {
                 const Document data = json_or(table, Document::object());
                 new (self) Config(data);
             },
             nb::arg("table").none() = nb::none())
        .def_static("empty", &Config::empty)
        .def("is_empty", &Config::is_empty)
        .def("__eq__", [](const Config& self, nb::handle other) {
            const auto config = config_or_null(other);
            return config && self == *config;
        })
        .def("__ne__", [](const Config& self, nb::handle other) {
            const auto config = config_or_null(other);
            return !(config && self == *config);
        })
        .def("__iter__", [](const Config& self) {
            nb::list out;
            for (const auto& record : self) out.append(nb::cast(record));
            return nb::iter(out);
        })
        .def("__len__", &Config::size)
        .def("_load", [](Config& self, nb::handle table) {
            self.load(json_or(table, Document::object()));
        }, nb::arg("table").none())
        .def("mask", [](Config& self, nb::handle keys) {
            std::vector<std::string> ids;
            for (nb::handle key : keys) {
                if (PyUnicode_Check(key.ptr())) ids.push_back(utf8(key));
            }
            self.mask(ids);
        }, nb::arg("keys"))
        .def("clone", &Config::clone)
        .def("apply", [](Config& self, nb::handle config) {
            if (const auto other = config_or_null(config)) self.apply(*other);
        }, nb::arg("config").none())
        .def_prop_ro("data", &Config::data)
        .def("get", &Config::get, nb::arg("class_id"), nb::arg("force") = false);

    // The directory: a private core class, and the str subclass over it.
    nb::class_<Directory>(check, "_DirectoryCore", "The state of a directory of check modules.")
        .def(nb::init<std::string, std::string_view, bool, bool>(), nb::arg("name"), nb::arg("path"),
             nb::arg("enable") = true, nb::arg("locked") = false)
        .def_prop_ro("name", &Directory::name)
        .def_prop_ro("path", &Directory::path)
        .def_prop_rw("enabled", &Directory::enabled, [](Directory& d, nb::handle v) {
            if (!is_bool(v)) throw TypeError("enabled takes a boolean");
            d.set_enabled(nb::cast<bool>(v));
        }, nb::arg("value").none())
        .def_prop_ro("locked", &Directory::locked)
        .def_prop_ro("data", &Directory::data);
    // The str subclass over it is a module of the package.
    nb::object directory_type = nb::module_::import_("zerko._check_directory").attr("Directory");
    check.attr("Directory") = directory_type;
    g_directory_type = directory_type.release();  // kept by the module for its whole life

    nb::class_<DirectoryList> list(check, "_DirectoryList", nb::dynamic_attr(), "The directories to scan, in order.");
    list.def("__init__",
             [](DirectoryList* self, nb::handle data) {
                 const Document value = json_or(data, Document::array());
                 new (self) DirectoryList(value);
             },
             nb::arg("data").none() = nb::none())
        .def("__iter__", [](const DirectoryList& self) {
            nb::list out;
            for (const auto& d : self) out.append(wrap(d));
            return nb::iter(out);
        })
        .def("__len__", &DirectoryList::size)
        .def("__getitem__", [](const DirectoryList& self, std::ptrdiff_t index) {
            const auto size = static_cast<std::ptrdiff_t>(self.size());
            if (index < 0) index += size;
            if (index < 0 || index >= size) throw nb::index_error("list index out of range");
            return wrap(self.at(static_cast<std::size_t>(index)));
        })
        .def("pop", [](DirectoryList& self, std::ptrdiff_t index) {
            const auto size = static_cast<std::ptrdiff_t>(self.size());
            if (index < 0) index += size;
            if (index < 0 || index >= size) throw nb::index_error("pop index out of range");
            nb::object out = wrap(self.at(static_cast<std::size_t>(index)));
            self.erase(static_cast<std::size_t>(index));
            return out;
        }, nb::arg("index") = -1)
        .def_prop_ro("data", &DirectoryList::data)
        .def_prop_ro("_embedded", [](const DirectoryList& self) { return wrap(self.embedded()); })
        .def("embed", [](DirectoryList& self, nb::handle module) {
            // Only a loaded module, one with a file, is a source of checks;
            // anything else (no embedded checks at all, say) is ignored.
            if (auto file = module_file(module)) self.embed(*file);
        }, nb::arg("module").none())
        .def("insert", [](DirectoryList& self, std::ptrdiff_t index, nb::handle d) { self.insert(index, core_of(d)); },
             nb::arg("index"), nb::arg("directory").none())
        .def("append", [](DirectoryList& self, nb::handle d) { self.append(core_of(d)); }, nb::arg("directory").none())
        .def("extend", [](DirectoryList& self, nb::handle directories) {
            DirectoryList::Items items;
            for (nb::handle d : directories) items.push_back(core_of(d));
            self.extend(items);
        }, nb::arg("directories"))
        .def_static("_is_approved", [](nb::handle d) { return DirectoryList::is_approved(core_of(d)); },
                    nb::arg("directory").none())
        .def("__add__", [](const DirectoryList& self, nb::handle other) {
            const DirectoryList* list = nullptr;
            if (nb::try_cast(other, list) && list) return self + *list;
            return self + DirectoryList();
        }, nb::arg("other").none());
    nb::handle(g_directory_type).attr("List") = list;
    list.attr("__qualname__") = nb::str("_Settings.Check.Directory.List");

    nb::class_<Presets> presets(check, "Presets", nb::dynamic_attr(), "Named copies of a check configuration, sorted by name.");
    nb::class_<PresetSet>(presets, "Set", nb::dynamic_attr(), "One preset: a name, a configuration and a stamp for life.")
        .def("__init__",
             [](PresetSet* self, Presets* owner, nb::handle name, nb::handle config, std::optional<std::string> stamp,
                std::optional<double> changed) {
                 const std::string text = PyUnicode_Check(name.ptr()) ? utf8(name) : std::string();
                 new (self) PresetSet(owner, text, config_or_null(config), std::move(stamp), changed);
             },
             nb::arg("presets").none(), nb::arg("name").none(), nb::arg("config").none(),
             nb::arg("stamp").none() = nb::none(), nb::arg("changed").none() = nb::none(), nb::keep_alive<1, 2>())
        .def_static("load", [](Presets* owner, const Document& data) { return PresetSet::load(owner, data); },
                    nb::arg("presets").none(), nb::arg("data"), nb::keep_alive<0, 1>())
        .def("__eq__", [](const PresetSet& self, nb::handle other) {
            const PresetSet* set = nullptr;
            return nb::try_cast(other, set) && set && self == *set;
        })
        .def("__hash__", [](const PresetSet& self) { return std::hash<std::string>{}(self.stamp()); })
        .def("__len__", &PresetSet::size)
        .def_prop_ro("stamp", &PresetSet::stamp)
        .def_prop_rw("name", &PresetSet::name, [](PresetSet& self, nb::handle v) {
            if (PyUnicode_Check(v.ptr())) self.set_name(utf8(v));
        }, nb::arg("value").none())
        .def_prop_rw("config", &PresetSet::config, [](PresetSet& self, nb::handle v) {
            self.set_config(config_or_null(v));
        }, nb::arg("value").none())
        .def_prop_ro("_changed", &PresetSet::changed)
        .def_prop_ro("changed", &PresetSet::changed)
        .def_rw("applied", &PresetSet::applied)
        .def_prop_ro("data", &PresetSet::data)
        .def("__repr__", [](const PresetSet& self) { return "Preset(" + self.name() + ", " + self.stamp() + ")"; });
    presets
        .def("__init__",
             [](Presets* self, nb::handle data) {
                 const Document value = json_or(data, Document::array());
                 new (self) Presets(value);
             },
             nb::arg("data").none() = nb::none())
        .def("__iter__", [](const Presets& self) {
            nb::list out;
            for (const auto& p : self) out.append(nb::cast(p));
            return nb::iter(out);
        })
        .def("__len__", &Presets::size)
        .def_prop_ro("names", &Presets::names)
        .def("add", [](Presets& self, nb::handle name, nb::handle config) {
            const std::string text = PyUnicode_Check(name.ptr()) ? utf8(name) : std::string();
            return self.add(text, config_or_null(config));
        }, nb::arg("name").none(), nb::arg("config").none())
        .def("pop", [](Presets& self, nb::handle preset) {
            std::shared_ptr<PresetSet> set;
            if (nb::try_cast(preset, set)) self.pop(set);
        }, nb::arg("preset").none())
        .def("sort", &Presets::sort)
        .def("sync_applied", [](Presets& self, nb::handle config) {
            const auto c = config_or_null(config);
            self.sync_applied(c ? *c : Config());
        }, nb::arg("config").none())
        .def_prop_ro("data", &Presets::data);

    nb::class_<State>(check, "State", nb::dynamic_attr(), "The \"check\" section of settings.json.")
        .def("__init__",
             [](State* self, nb::handle data) {
                 const Document value = json_or(data, Document::object());
                 new (self) State(value);
             },
             nb::arg("data").none() = nb::none())
        .def_rw("directories", &State::directories)
        .def_prop_rw("mode", [](const State& s) { return s.mode; }, [](State& s, nb::handle v) {
            if (PyLong_Check(v.ptr()) && !PyBool_Check(v.ptr())) s.mode = int_of(v, "mode");
        }, nb::arg("value").none())
        .def_prop_ro("config", [](const State& s) { return s.config; })
        .def_prop_ro("presets", [](const State& s) { return s.presets; })
        .def_prop_ro("data", &State::data);
}

}  // namespace zerko::py
