// _Project: rules, the rule tree, records, history, project settings and the collection.
//
// Rules, nodes, records and rule lists that Python makes are owned by Python
// and held by C++ through shared pointers that keep the Python object alive,
// so that an object handed in comes back as itself, with its attributes.
// Projects are made by C++ (saving hands the project itself to its
// collection), and their Python object lives as long as Python holds it.
//
// Every operation that may take the collection's lock, or wait for a shared
// file, runs without the interpreter lock: another thread may hold the
// collection's lock while it needs the interpreter to drop a Python object.
#include <algorithm>
#include <unordered_map>

#include "common.hpp"
#include "zerko/api/api.hpp"
#include "zerko/export/flags.hpp"
#include "zerko/export/options.hpp"
#include "zerko/project/collection.hpp"
#include "zerko/project/record.hpp"
#include "zerko/project/rule.hpp"
#include "zerko/project/settings.hpp"
#include "zerko/project/tree.hpp"
#include "zerko/settings/check.hpp"

namespace zerko::py {

namespace {

using project::Collection;
using project::Document;
using project::Header;
using project::Record;
using project::Rule;
using project::Settings;
using History = Record::History;
using EditToggle = Record::History::EditToggle;
using NodeBase = Rule::Tree::NodeBase;
using Node = Rule::Tree::Node;
using Root = Rule::Tree::Root;
using CheckConfig = settings::Check::Config;
using release_gil = nb::call_guard<nb::gil_scoped_release>;


/// Data handed in from Python: what is no JSON value reads as `fallback`.
Document json_or(nb::handle value, Document fallback) {
    if (value.is_none()) return fallback;
    try {
        return to_json(value);
    } catch (const TypeError&) {
        return fallback;
    }
}

/// A bound object of type T, or null for anything else.
template <typename T>
std::shared_ptr<T> shared_or_null(nb::handle value) {
    if (!nb::isinstance<T>(value)) return nullptr;
    return nb::cast<std::shared_ptr<T>>(value);
}

/// A setter that keeps text and ignores everything else.
template <typename T>
auto text_setter(void (*set)(T&, std::string)) {
    return [set](T& self, nb::handle value) {
        if (is_text(value)) set(self, utf8(value));
    };
}


void bind_rules(nb::handle settings_cls) {
    nb::class_<Rule> rule(settings_cls, "Rule", nb::dynamic_attr(),
                          "What one kind of node of the scene hierarchy looks like.");

    nb::class_<Rule::Range>(rule, "Range", "How many times a rule's objects may occur, both ends inclusive.")
        .def(nb::init<std::int64_t, std::int64_t>(), nb::arg("minimum") = 1, nb::arg("maximum") = 1)
        .def_prop_rw("minimum", [](const Rule::Range& r) { return r.minimum; },
                     [](Rule::Range& r, nb::handle v) { if (is_int(v)) r.minimum = int64_of(v, "minimum"); },
                     nb::arg("value").none())
        .def_prop_rw("maximum", [](const Rule::Range& r) { return r.maximum; },
                     [](Rule::Range& r, nb::handle v) { if (is_int(v)) r.maximum = int64_of(v, "maximum"); },
                     nb::arg("value").none())
        .def_prop_ro("data", &Rule::Range::data)
        .def("__eq__", [](const Rule::Range& r, nb::handle other) {
            return nb::isinstance<Rule::Range>(other) && r == nb::cast<const Rule::Range&>(other);
        })
        .def("__ne__", [](const Rule::Range& r, nb::handle other) {
            return !(nb::isinstance<Rule::Range>(other) && r == nb::cast<const Rule::Range&>(other));
        });

    rule.def("__init__", [](Rule* self, nb::handle data) { new (self) Rule(json_or(data, Document::object())); },
             nb::arg("data").none() = nb::none())
        .def_prop_rw("stamp", &Rule::stamp, text_setter<Rule>([](Rule& r, std::string v) { r.set_stamp(std::move(v)); }),
                     nb::arg("value").none())
        .def_prop_rw("name", &Rule::name, text_setter<Rule>([](Rule& r, std::string v) { r.set_name(std::move(v)); }),
                     nb::arg("value").none())
        .def_prop_rw("regex", &Rule::regex, text_setter<Rule>([](Rule& r, std::string v) { r.set_regex(std::move(v)); }),
                     nb::arg("value").none())
        .def_prop_rw("color", [](const Rule& r) { return r.color; },
                     text_setter<Rule>([](Rule& r, std::string v) { r.color = std::move(v); }), nb::arg("value").none())
        .def_prop_rw("icon", [](const Rule& r) { return r.icon; },
                     text_setter<Rule>([](Rule& r, std::string v) { r.icon = std::move(v); }), nb::arg("value").none())
        .def_prop_rw(
            "types", [](const Rule& r) { return r.types(); },
            [](Rule& r, nb::handle value) {
                // A list or tuple of text; anything else leaves the types as they were.
                if (!PyList_Check(value.ptr()) && !PyTuple_Check(value.ptr())) return;
                std::vector<std::string> types;
                for (nb::handle item : value) {
                    if (!is_text(item)) return;
                    types.push_back(utf8(item));
                }
                r.set_types(std::move(types));
            },
            nb::arg("value").none())
        .def_prop_rw(
            "check_config", [](const Rule& r) { return r.check_config(); },
            [](Rule& r, nb::handle value) { r.set_check_config(shared_or_null<CheckConfig>(value)); },
            nb::arg("value").none())
        .def_prop_ro("range", nb::overload_cast<>(&Rule::range), nb::rv_policy::reference_internal)
        .def("is_ghost", &Rule::is_ghost)
        .def_prop_ro("data", &Rule::data);

    nb::class_<Rule::List>(rule, "List", "The rules of one record, with their names kept unique.")
        .def("__init__", [](Rule::List* self, nb::handle array) { new (self) Rule::List(json_or(array, Document::array())); },
             nb::arg("array").none() = nb::none())
        .def_prop_ro("data", &Rule::List::data)
        .def_prop_ro("names", &Rule::List::names)
        .def("is_empty", &Rule::List::is_empty)
        .def("sync_names", &Rule::List::sync_names)
        .def("has_unique_name",
             [](const Rule::List& l, nb::handle rule) {
                 return !nb::isinstance<Rule>(rule) || l.has_unique_name(nb::cast<const Rule&>(rule));
             },
             nb::arg("rule").none())
        .def("rename", [](Rule::List& l, Rule& rule, const std::string& name) { l.rename(rule, name); }, nb::arg("rule"),
             nb::arg("name"))
        .def("__iter__", [](const Rule::List& l) { return iterate(l.rules()); })
        .def("__len__", &Rule::List::size)
        .def("reorder",
             [](Rule::List& l, nb::args rules) {
                 Rule::List::Rules given;
                 for (nb::handle item : rules) {
                     if (auto rule = shared_or_null<Rule>(item)) given.push_back(std::move(rule));
                 }
                 l.reorder(given);
             })
        .def("get", [](const Rule::List& l, nb::handle stamp) -> std::shared_ptr<Rule> {
                 return is_text(stamp) ? l.get(utf8(stamp)) : nullptr;
             }, nb::arg("stamp").none())
        .def("append", [](Rule::List& l, nb::handle rule) {
                 auto shared = shared_or_null<Rule>(rule);
                 return shared ? l.append(std::move(shared)) : false;
             }, nb::arg("rule").none())
        .def("has_ghost", &Rule::List::has_ghost)
        .def("remove", [](Rule::List& l, nb::handle rule) {
                 auto shared = shared_or_null<Rule>(rule);
                 return shared ? l.remove(shared) : false;
             }, nb::arg("rule").none())
        .def_static("predefined", &Rule::List::predefined);

    nb::object tree = make_namespace(rule, "Tree", "The pattern of a record: a forest of rule references.");

    // A node's children as Python sees them: a live sequence over the
    // node's own list, so `node.children.append(child)` changes the tree.
    struct Children {
        NodeBase* owner;
        std::size_t place(std::ptrdiff_t index, bool insert = false) const {
            const auto size = static_cast<std::ptrdiff_t>(owner->children.size());
            if (index < 0) index += size;
            if (insert) return static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(index, 0, size));
            if (index < 0 || index >= size) throw nb::index_error("child index out of range");
            return static_cast<std::size_t>(index);
        }
        std::ptrdiff_t find(nb::handle node) const {
            const auto shared = shared_or_null<Node>(node);
            const auto& c = owner->children;
            const auto it = std::find(c.begin(), c.end(), shared);
            return shared && it != c.end() ? it - c.begin() : -1;
        }
    };
    auto node_of = [](nb::handle value) {
        auto node = shared_or_null<Node>(value);
        if (!node) throw TypeError("a rule tree takes Node objects only");
        return node;
    };
    nb::class_<Children>(tree, "_Children", "The children of a rule tree node, in order (a live view).")
        .def("__len__", [](const Children& c) { return c.owner->children.size(); })
        .def("__getitem__", [](const Children& c, std::ptrdiff_t i) { return c.owner->children[c.place(i)]; })
        .def("__setitem__", [node_of](Children& c, std::ptrdiff_t i, nb::handle v) {
            c.owner->children[c.place(i)] = node_of(v);
        })
        .def("__delitem__", [](Children& c, std::ptrdiff_t i) {
            c.owner->children.erase(c.owner->children.begin() + static_cast<std::ptrdiff_t>(c.place(i)));
        })
        .def("__iter__", [](const Children& c) {
            nb::list out;
            for (const auto& n : c.owner->children) out.append(nb::cast(n));
            return nb::iter(out);
        })
        .def("__contains__", [](const Children& c, nb::handle v) { return c.find(v) >= 0; })
        .def("__eq__", [](const Children& c, nb::handle other) {
            if (!PyList_Check(other.ptr()) && !PyTuple_Check(other.ptr()) && !nb::isinstance<Children>(other)) return false;
            if (nb::len(other) != c.owner->children.size()) return false;
            std::size_t i = 0;
            for (nb::handle item : other) {
                if (shared_or_null<Node>(item) != c.owner->children[i++]) return false;
            }
            return true;
        })
        .def("__repr__", [](const Children& c) { return "<children: " + std::to_string(c.owner->children.size()) + ">"; })
        // As the node's own append: a node already among the children stays once.
        .def("append", [node_of](Children& c, nb::handle v) { c.owner->append(node_of(v)); }, nb::arg("node").none())
        .def("insert", [node_of](Children& c, std::ptrdiff_t i, nb::handle v) {
            c.owner->children.insert(c.owner->children.begin() + static_cast<std::ptrdiff_t>(c.place(i, true)), node_of(v));
        }, nb::arg("index"), nb::arg("node").none())
        .def("index", [](const Children& c, nb::handle v) {
            const auto at = c.find(v);
            if (at < 0) throw ValueError("node is not a child");
            return at;
        }, nb::arg("node").none())
        .def("remove", [](Children& c, nb::handle v) {
            const auto at = c.find(v);
            if (at < 0) throw ValueError("node is not a child");
            c.owner->children.erase(c.owner->children.begin() + at);
        }, nb::arg("node").none())
        .def("pop", [](Children& c, std::ptrdiff_t i) {
            const auto at = c.place(i);
            auto node = c.owner->children[at];
            c.owner->children.erase(c.owner->children.begin() + static_cast<std::ptrdiff_t>(at));
            return node;
        }, nb::arg("index") = -1)
        .def("clear", [](Children& c) { c.owner->clear(); });

    nb::class_<NodeBase>(tree, "_Node", nb::dynamic_attr(), "What every node of a rule tree has: its children.")
        .def(nb::init<>())
        .def_prop_rw(
            "children", [](NodeBase& n) { return Children{&n}; },
            [](NodeBase& n, nb::handle value) {
                if (!PyList_Check(value.ptr()) && !PyTuple_Check(value.ptr()) && !nb::isinstance<Children>(value)) return;
                NodeBase::Children children;
                for (nb::handle item : value) {
                    auto node = shared_or_null<Node>(item);
                    if (!node) return;
                    children.push_back(std::move(node));
                }
                n.children = std::move(children);
            },
            nb::for_getter(nb::keep_alive<0, 1>()), nb::arg("value").none())
        .def("__str__", &NodeBase::text)
        .def("clear", &NodeBase::clear)
        .def("append", [](NodeBase& n, nb::handle node) { n.append(shared_or_null<Node>(node)); }, nb::arg("node").none())
        .def("remove", [](NodeBase& n, nb::handle node) {
                 if (auto shared = shared_or_null<Node>(node)) n.remove(shared);
             }, nb::arg("node").none())
        .def_static("create_node", &NodeBase::create_node, nb::arg("rule"));

    nb::class_<Node, NodeBase>(tree, "Node", nb::dynamic_attr(), "One reference to a rule, with the nodes below it.")
        .def("__init__",
             [](Node* self, std::shared_ptr<Rule> rule, nb::handle children) {
                 new (self) Node(std::move(rule), children.is_none() ? NodeBase::Children{}
                                                                     : objects_of<Node>(children, "children"));
             },
             nb::arg("rule"), nb::arg("children").none() = nb::none())
        .def_prop_rw("rule", [](const Node& n) { return n.rule; },
                     [](Node& n, nb::handle value) {
                         if (auto rule = shared_or_null<Rule>(value)) n.rule = std::move(rule);
                     },
                     nb::arg("value").none());

    nb::class_<Root, NodeBase>(tree, "Root", nb::dynamic_attr(), "The invisible root of a rule tree.")
        .def(nb::init<>())
        .def("is_empty", &Root::is_empty)
        .def("is_root", [](const Root& r, nb::handle rule) {
                 return nb::isinstance<Rule>(rule) && r.is_root(nb::cast<const Rule&>(rule));
             }, nb::arg("rule").none())
        .def_prop_ro("data", &Root::data)
        .def("load", [](Root& r, nb::handle data, const Rule::List& rules) { r.load(json_or(data, Document::array()), rules); },
             nb::arg("data").none(), nb::arg("rules"));
}

void bind_records(nb::handle settings_cls) {
    nb::class_<Record> record(settings_cls, "Record", nb::dynamic_attr(), "One saved state of a project's content.");

    nb::class_<Record::Export>(record, "Export", "Where and how a record's hierarchies are exported.")
        .def("__init__", [](Record::Export* self, nb::handle data) {
                 new (self) Record::Export(json_or(data, Document::object()));
             }, nb::arg("data").none() = nb::none())
        .def_prop_rw("directory", [](const Record::Export& e) { return e.directory; },
                     text_setter<Record::Export>([](Record::Export& e, std::string v) { e.directory = std::move(v); }),
                     nb::arg("value").none())
        .def_prop_rw(
            "flags", [](Record::Export& e) -> export_::Flags& { return e.flags; },
            [](Record::Export& e, nb::handle value) {
                if (nb::isinstance<export_::Flags>(value)) e.flags = nb::cast<const export_::Flags&>(value);
            },
            nb::rv_policy::reference_internal, nb::arg("value").none())
        .def("get_options", &Record::Export::get_options)
        .def("set_options",
             [](Record::Export& e, nb::handle options) {
                 // Only the exporters' options are taken; any other value is ignored.
                 if (nb::isinstance<export_::Options>(options)) e.set_options(nb::cast<const export_::Options&>(options));
             },
             nb::arg("options").none())
        .def_prop_ro("_options", &Record::Export::get_options)
        .def_prop_ro("data", &Record::Export::data);

    nb::class_<History> history(record, "History", "The records of one project by timestamp, with the selected one.");
    nb::class_<EditToggle>(history, "EditToggle", "The editor's view of the history, newest first.")
        .def("__iter__", [](const EditToggle& t) { return iterate(t.records()); })
        .def("__len__", [](const EditToggle& t) { return t.records().size(); })
        .def_prop_ro("current", &EditToggle::current)
        .def_prop_ro("_current", &EditToggle::current_or_null)
        .def_prop_ro("_records", &EditToggle::records)
        .def("switch", &EditToggle::switch_to, nb::arg("index"))
        .def("clear", &EditToggle::clear)
        .def("update", &EditToggle::update)
        .def("set_promise", [](EditToggle& t, nb::handle record) { t.set_promise(shared_or_null<Record>(record)); },
             nb::arg("record").none());

    history.def("__iter__", [](const History& h) { return iterate(h.records()); })
        .def("__len__", &History::size)
        .def_prop_rw("pointer", &History::pointer,
                     [](History& h, nb::handle value) { if (is_int(value)) h.set_pointer(int64_of(value, "pointer")); },
                     nb::arg("value").none())
        .def_prop_ro("_pointer", &History::pointer)
        .def_prop_ro("edit_toggle", &History::edit_toggle, nb::rv_policy::reference_internal)
        .def_prop_ro("_project_settings", [](const History& h) -> std::shared_ptr<Settings> {
            return h.project_settings() ? h.project_settings()->weak_from_this().lock() : nullptr;
        })
        .def("clear", &History::clear)
        .def("bake", &History::bake)
        .def("load", [](History& h, nb::handle data) { h.load(json_or(data, Document::object())); }, nb::arg("file_data").none())
        .def("get_record", &History::get_record)
        .def("select_record", [](History& h, nb::handle record) {
                 if (auto shared = shared_or_null<Record>(record)) h.select_record(shared);
             }, nb::arg("record").none())
        .def("save_record", [](History& h, nb::handle record) {
                 auto shared = shared_or_null<Record>(record);
                 if (!shared) return;
                 nb::gil_scoped_release release;
                 h.save_record(shared);
             }, nb::arg("record").none())
        .def_prop_ro("data", &History::data);

    record
        .def("__init__",
             [](Record* self, nb::handle history, nb::handle data, nb::handle timestamp) {
                 std::int64_t stamp = 0;
                 if (PyFloat_Check(timestamp.ptr())) {
                     const double seconds = PyFloat_AS_DOUBLE(timestamp.ptr());
                     if (!(seconds > -9.2e18 && seconds < 9.2e18)) raise_overflow("timestamp");
                     stamp = static_cast<std::int64_t>(seconds);
                 }
                 else if (PyBool_Check(timestamp.ptr())) stamp = timestamp.ptr() == Py_True;
                 else if (!timestamp.is_none()) stamp = int64_of(timestamp, "timestamp");
                 new (self) Record(shared_or_null<History>(history), json_or(data, Document::object()), stamp);
             },
             nb::arg("history").none(), nb::arg("data").none() = nb::none(), nb::arg("timestamp").none() = 0)
        .def_static("emtpy", [](nb::handle history) { return Record::emtpy(shared_or_null<History>(history)); },
                    nb::arg("history").none())
        .def("__eq__", [](const Record& r, nb::handle other) {
            return nb::isinstance<Record>(other) && r == nb::cast<const Record&>(other);
        })
        .def("__ne__", [](const Record& r, nb::handle other) {
            return !(nb::isinstance<Record>(other) && r == nb::cast<const Record&>(other));
        })
        .def("select", &Record::select)
        .def("is_selected", &Record::is_selected)
        .def("is_promise", &Record::is_promise)
        .def("is_changed", &Record::is_changed)
        .def("reset", &Record::reset)
        .def("clone", &Record::clone)
        .def("save", [](Record& r) { r.save(); }, release_gil())
        .def("clear_author", &Record::clear_author)
        .def("clear_comment", &Record::clear_comment)
        .def("clear_timestamp", &Record::clear_timestamp)
        .def_prop_rw("timestamp", [](const Record& r) { return r.timestamp; },
                     [](Record& r, nb::handle v) { if (is_int(v)) r.timestamp = int64_of(v, "timestamp"); },
                     nb::arg("value").none())
        .def_prop_rw("author", [](const Record& r) { return r.author; },
                     text_setter<Record>([](Record& r, std::string v) { r.author = std::move(v); }), nb::arg("value").none())
        .def_prop_rw("comment", [](const Record& r) { return r.comment; },
                     text_setter<Record>([](Record& r, std::string v) { r.comment = std::move(v); }), nb::arg("value").none())
        .def_prop_rw("export", [](const Record& r) { return r.export_; },
                     [](Record& r, nb::handle v) { if (auto e = shared_or_null<Record::Export>(v)) r.export_ = std::move(e); },
                     nb::arg("value").none())
        .def_prop_rw("rules", [](const Record& r) { return r.rules; },
                     [](Record& r, nb::handle v) { if (auto l = shared_or_null<Rule::List>(v)) r.rules = std::move(l); },
                     nb::arg("value").none())
        .def_prop_rw("pattern", [](const Record& r) { return r.pattern; },
                     [](Record& r, nb::handle v) { if (auto p = shared_or_null<Root>(v)) r.pattern = std::move(p); },
                     nb::arg("value").none())
        .def_prop_ro("_history", &Record::history)
        .def_prop_ro("data", &Record::data);
}

// The format version is a class attribute (the current one) that each
// project's own `version` shadows: a descriptor answers both.
struct FormatVersion {};

void bind_version(nb::handle settings_cls) {
    nb::class_<FormatVersion>(settings_cls, "_FormatVersion",
                              "The format version: the current one on the class, the document's on a project.")
        .def("__get__",
             [](const FormatVersion&, nb::handle instance, nb::handle) -> int {
                 if (instance.is_none()) return Settings::current_version;
                 return nb::cast<const Settings&>(instance).version;
             },
             nb::arg("instance").none(), nb::arg("owner").none() = nb::none())
        .def("__set__",
             [](const FormatVersion&, Settings& instance, nb::handle value) {
                 if (is_int(value)) instance.version = int_of(value, "version");
             },
             nb::arg("instance"), nb::arg("value").none());
    nb::setattr(settings_cls, "version", nb::cast(FormatVersion{}));
}

void bind_settings_class(nb::class_<Settings>& cls) {
    cls.def(nb::new_([](nb::handle related_collection, std::string directory, std::string filename, nb::handle file_data) {
                Collection* collection = related_collection.is_none() ? nullptr : nb::cast<Collection*>(related_collection);
                return std::make_shared<Settings>(collection, std::move(directory), std::move(filename),
                                                  json_or(file_data, Document::object()));
            }),
            nb::arg("related_collection").none(), nb::arg("directory"), nb::arg("filename"),
            nb::arg("file_data").none() = nb::none())
        .def_static(
            "init",
            [](nb::handle parent, const std::string& json_path) {
                Collection* collection = parent.is_none() ? nullptr : nb::cast<Collection*>(parent);
                nb::gil_scoped_release release;
                return Settings::init(collection, json_path);
            },
            nb::arg("parent").none(), nb::arg("json_path"))
        .def_static("_open", &Settings::open, nb::arg("path"), release_gil())
        .def_static("predefined_rules", &Settings::predefined_rules)
        .def("apply", [](Settings& s, nb::handle data) { s.apply(json_or(data, Document::object())); },
             nb::arg("file_data").none())
        .def_prop_ro("data", &Settings::data)
        .def("__eq__", [](const Settings& s, nb::handle other) {
            return nb::isinstance<Settings>(other) && s == nb::cast<const Settings&>(other);
        })
        .def("__ne__", [](const Settings& s, nb::handle other) {
            return !(nb::isinstance<Settings>(other) && s == nb::cast<const Settings&>(other));
        })
        .def("__iter__", [](const Settings& s) { return iterate(s.records()); })
        .def_prop_ro("directory", &Settings::directory)
        .def_prop_ro("filename", &Settings::filename)
        .def_prop_ro("target", &Settings::target)
        .def_prop_ro("history", &Settings::history)
        .def_prop_ro("path", &Settings::path)
        .def_prop_ro("compatible", &Settings::compatible)
        .def_prop_ro("_write_timestamp", &Settings::write_timestamp)
        .def_prop_ro("_collection", [](const Settings& s) -> nb::object {
            Collection* collection = s.collection();
            return collection ? nb::cast(collection, nb::rv_policy::reference) : nb::none();
        })
        .def_prop_rw("name", &Settings::name,
                     text_setter<Settings>([](Settings& s, std::string v) { s.set_name(std::move(v)); }),
                     nb::arg("value").none())
        .def_prop_rw("description", &Settings::description,
                     text_setter<Settings>([](Settings& s, std::string v) { s.set_description(std::move(v)); }),
                     nb::arg("value").none())
        .def_prop_rw("edit_timestamp", [](const Settings& s) { return s.edit_timestamp; },
                     [](Settings& s, nb::handle v) { if (is_number(v)) s.edit_timestamp = nb::cast<double>(v); },
                     nb::arg("value").none())
        .def_prop_rw("deleted", [](const Settings& s) { return s.deleted; },
                     [](Settings& s, nb::handle v) { if (PyBool_Check(v.ptr())) s.deleted = nb::cast<bool>(v); },
                     nb::arg("value").none())
        .def("delete", &Settings::delete_)
        .def("get_record_promise", &Settings::get_record_promise)
        .def("clone", &Settings::clone)
        .def("clear_name", &Settings::clear_name)
        .def("clear_filename", &Settings::clear_filename)
        .def("mark_edited", &Settings::mark_edited)
        .def("save", &Settings::save, release_gil())
        .def("write", &Settings::write, release_gil())
        .def("reload", &Settings::reload, release_gil())
        .def("is_outdated", &Settings::is_outdated, release_gil());
    bind_version(cls);
}

nb::object header_text(const Header& h) { return nb::str(h.text().c_str()); }

// A collection keeps its Api's Python object alive (keep_alive at
// construction); reporting it lets the collector free a host's Api that keeps
// its collection. The core collection holds only the Api's callbacks, so the
// binding remembers which Api each collection was made with. An entry whose
// collection is gone (its link reads null) is dropped at the next
// construction; a new collection at the same address replaces it.
struct CollectionApi {
    std::weak_ptr<Collection*> link;
    api::Api* api;
};
std::unordered_map<const Collection*, CollectionApi>& collection_apis() {
    static auto* apis = new std::unordered_map<const Collection*, CollectionApi>();
    return *apis;
}

void remember_api(const Collection& c, api::Api& api) {
    auto& apis = collection_apis();
    std::erase_if(apis, [](const auto& entry) {
        const auto link = entry.second.link.lock();
        return !link || !*link;
    });
    apis[&c] = {c.link(), &api};
}

int traverse_collection(Collection& c, visitproc visit, void* arg) {
    const auto found = collection_apis().find(&c);
    if (found == collection_apis().end()) return 0;
    const nb::object api = nb::find(found->second.api);
    Py_VISIT(api.ptr());
    return 0;
}
void clear_collection(Collection&) {}

void bind_collection(nb::handle project_ns) {
    nb::class_<Header>(project_ns, "Header", "A light summary of one project for lists.")
        .def(nb::init<const Settings&>(), nb::arg("settings"))
        .def_prop_ro("name", [](const Header& h) { return h.name; })
        .def_prop_ro("filename", [](const Header& h) { return h.filename; })
        .def_prop_ro("edit_timestamp", [](const Header& h) { return h.edit_timestamp; })
        .def_prop_ro("compatible", [](const Header& h) { return h.compatible; })
        .def("__str__", &header_text)
        .def("__repr__", &header_text);

    using CollectedCollection = CollectedType<Collection, traverse_collection, clear_collection>;
    nb::class_<Collection> cls(project_ns, "Collection", nb::dynamic_attr(), nb::type_slots(CollectedCollection::slots),
                               "The projects of one directory and target, kept in step with the server.");

    nb::dict headers;
    headers[nb::str(std::string(Collection::HttpRequest::header.first).c_str())] =
        nb::str(std::string(Collection::HttpRequest::header.second).c_str());

    nb::class_<Collection::HttpRequest> request(cls, "HttpRequest", "The body of the project exchange.");
    request.attr("headers") = headers;
    request.def(nb::init<std::string, Document>(), nb::arg("target"), nb::arg("projects"))
        .def_prop_ro("target", &Collection::HttpRequest::target)
        .def_prop_ro("projects", &Collection::HttpRequest::projects)
        .def("__iter__", [](const Collection::HttpRequest& r) { return nb::iter(from_json(r.projects())); })
        .def("__str__", &Collection::HttpRequest::text)
        .def("__bytes__", [](const Collection::HttpRequest& r) {
            const auto body = r.text();
            return nb::bytes(body.data(), body.size());
        });

    nb::class_<Collection::HttpResponse> response(cls, "HttpResponse",
        "The server's list of projects; accepted only as exactly \"application/json\".");
    response.attr("headers") = headers;
    response
        .def("__init__",
             [](Collection::HttpResponse* self, nb::handle platform) {
                 const auto getheader = [platform](std::string_view name, std::string_view fallback) -> std::optional<std::string> {
                     nb::object value = platform.attr("getheader")(nb::str(name.data(), name.size()),
                                                                   nb::str(fallback.data(), fallback.size()));
                     if (!is_text(value)) return std::nullopt;
                     return utf8(value);
                 };
                 const auto read = [platform]() -> std::string {
                     nb::object body = platform.attr("read")();
                     if (PyBytes_Check(body.ptr())) return std::string(PyBytes_AS_STRING(body.ptr()), PyBytes_GET_SIZE(body.ptr()));
                     if (PyByteArray_Check(body.ptr())) {
                         return std::string(PyByteArray_AS_STRING(body.ptr()), PyByteArray_GET_SIZE(body.ptr()));
                     }
                     throw TypeError(std::string("response body is ") + Py_TYPE(body.ptr())->tp_name + ", not bytes");
                 };
                 new (self) Collection::HttpResponse(getheader, read);
             },
             nb::arg("response").none())
        .def_prop_ro("projects", &Collection::HttpResponse::projects)
        .def_prop_ro("_projects", &Collection::HttpResponse::projects)
        .def_prop_ro("accepted", &Collection::HttpResponse::accepted)
        .def_prop_ro("_accepted", &Collection::HttpResponse::accepted)
        .def("__iter__", [](const Collection::HttpResponse& r) { return nb::iter(from_json(r.projects())); })
        .def("__eq__", [](const Collection::HttpResponse& r, nb::handle other) {
            return nb::isinstance<Collection::HttpResponse>(other) && r == nb::cast<const Collection::HttpResponse&>(other);
        })
        .def("__ne__", [](const Collection::HttpResponse& r, nb::handle other) {
            return !(nb::isinstance<Collection::HttpResponse>(other) && r == nb::cast<const Collection::HttpResponse&>(other));
        });

    nb::class_<Collection::Iteration>(cls, "_Iteration", "A walk over the projects; the collection stays usable between steps.")
        .def("__iter__", [](nb::handle self) { return nb::borrow(self); })
        .def("__next__", [](Collection::Iteration& it) {
            std::shared_ptr<Settings> next;
            {
                nb::gil_scoped_release release;
                next = it.next();
            }
            if (!next) throw nb::stop_iteration();
            return next;
        });

    cls.def(
           "__init__",
           [](Collection* self, api::Api& api, std::string target) {
               {
                   nb::gil_scoped_release release;
                   new (self) Collection(api.callbacks(), api.env()->get_projects_directory(), std::move(target));
               }
               remember_api(*self, api);
           },
           nb::arg("api"), nb::arg("target"), nb::keep_alive<1, 2>())
        .def_prop_ro("target", &Collection::target)
        .def_prop_ro("directory", &Collection::directory)
        .def_prop_ro("names", &Collection::names, release_gil())
        .def_prop_ro("headers", &Collection::headers, release_gil())
        .def_prop_ro("_table", [](Collection& c) {
            decltype(c.table()) table;
            {
                nb::gil_scoped_release release;
                table = c.table();
            }
            nb::dict out;
            for (const auto& [path, settings] : table) out[nb::str(path.c_str())] = nb::cast(settings);
            return out;
        })
        .def("__iter__", [](Collection& c) { return new Collection::Iteration(c); }, nb::keep_alive<0, 1>(),
             nb::rv_policy::take_ownership)
        .def("get", &Collection::get, nb::arg("filename"), release_gil())
        .def("save_project", &Collection::save_project, nb::arg("settings"), release_gil())
        .def("_save_project", &Collection::save_project, nb::arg("settings"), release_gil())
        .def("is_approved", [](const Collection& c, nb::handle settings) {
                 return nb::isinstance<Settings>(settings) && c.is_approved(&nb::cast<const Settings&>(settings));
             }, nb::arg("settings").none())
        .def("get_file", &Collection::get_file, nb::arg("name"), release_gil())
        .def("get_empty", &Collection::get_empty)
        .def("create_http_request", &Collection::create_http_request, release_gil())
        .def(
            "accept_http_response",
            [](Collection& c, nb::handle projects) {
                // A response object stands for its projects.
                Document list = nb::isinstance<Collection::HttpResponse>(projects)
                                    ? nb::cast<const Collection::HttpResponse&>(projects).projects()
                                    : to_json(projects);
                nb::gil_scoped_release release;
                c.accept_http_response(list);
            },
            nb::arg("projects"));
}

}  // namespace

void bind_project(nb::module_& m) {
    nb::object project_ns = namespace_of(m, "_Project", "Project documents and the collection of projects.");
    nb::class_<Settings> settings_cls(project_ns, "Settings", nb::dynamic_attr(),
                                      "One project: a versioned document with the history of its records.");
    bind_rules(settings_cls);
    bind_records(settings_cls);
    bind_settings_class(settings_cls);
    bind_collection(project_ns);
}

}  // namespace zerko::py
