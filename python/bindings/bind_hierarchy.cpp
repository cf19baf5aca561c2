// The scene snapshot (Scene._Virtual) and the matching engine (_Hierarchy).
#include <nanobind/stl/pair.h>
#include <nanobind/stl/set.h>

#include "common.hpp"
#include "zerko/check/classes.hpp"
#include "zerko/check/list.hpp"
#include "zerko/hierarchy/hierarchy.hpp"
#include "zerko/project/record.hpp"
#include "zerko/project/tree.hpp"
#include "zerko/settings/check.hpp"
#include "zerko/scene/virtual.hpp"

namespace zerko::py {

namespace {

using hierarchy::Anchor;
using hierarchy::AnchorState;
using hierarchy::Capture;
using hierarchy::Hierarchy;
using hierarchy::Pattern;
using hierarchy::Rule;
using hierarchy::Scope;
using hierarchy::Scopes;
using hierarchy::Search;
using scene::Location;
using scene::Virtual;
using Document = project::Document;


nb::object location_object(const Location& l) { return nb::cast(l, nb::rv_policy::copy); }

// Record-shaped objects of the host are read by attribute name and turned
// into project rules and records once; the pattern is then built from them by
// the same code as from the project's own.

/// str() of an attribute, "" when it is missing.
std::string attribute_text(nb::handle source, const char* name) {
    return utf8(nb::str(nb::getattr(source, name, nb::str(""))), name);
}

/// A project rule, or an object with its attributes: stamp, name, icon, color,
/// regex, types, range (minimum, maximum) and check_config.
std::shared_ptr<project::Rule> project_rule_from(nb::handle source) {
    std::shared_ptr<project::Rule> rule;
    if (nb::try_cast(source, rule) && rule) return rule;
    Document data = Document::object();
    for (const char* name : {"stamp", "name", "icon", "color", "regex"}) data[name] = attribute_text(source, name);
    Document types = Document::array();
    const nb::object given_types = nb::getattr(source, "types", nb::none());
    if (!given_types.is_none()) {
        for (nb::handle t : given_types) types.push_back(utf8(nb::str(t), "types"));
    }
    data["types"] = std::move(types);
    const nb::object range = nb::getattr(source, "range", nb::none());
    data["range"] = range.is_none() ? Document::array({0, 0})
                                    : Document::array({int64_of(range.attr("minimum"), "range.minimum"),
                                                       int64_of(range.attr("maximum"), "range.maximum")});
    rule = std::make_shared<project::Rule>(data);
    std::shared_ptr<settings::Check::Config> config;
    if (nb::try_cast(nb::getattr(source, "check_config", nb::none()), config) && config) rule->set_check_config(config);
    return rule;
}

/// The stamp-only form of a rule tree node: node.rule.stamp and node.children.
Document tree_data(nb::handle node) {
    Document out = Document::object();
    const nb::object rule = nb::getattr(node, "rule", nb::none());
    out["stamp"] = rule.is_none() ? std::string() : attribute_text(rule, "stamp");
    Document children = Document::array();
    const nb::object given = nb::getattr(node, "children", nb::none());
    if (!given.is_none()) {
        for (nb::handle child : given) children.push_back(tree_data(child));
    }
    out["children"] = std::move(children);
    return out;
}

/// An object with `rules` and a rule tree `pattern` as a project record.
project::Record record_from(nb::handle source) {
    project::Record record(nullptr, Document::object());
    Document rules = Document::array();
    std::vector<std::shared_ptr<settings::Check::Config>> configs;
    for (nb::handle r : source.attr("rules")) {
        const auto rule = project_rule_from(r);
        rules.push_back(rule->data());
        configs.push_back(rule->check_config());
    }
    // A list made from data keeps the names as given.
    record.rules = std::make_shared<project::Rule::List>(rules);
    for (std::size_t i = 0; i < configs.size(); ++i) record.rules->rules()[i]->set_check_config(configs[i]);
    record.pattern = std::make_shared<project::Rule::Tree::Root>();
    record.pattern->load(tree_data(source.attr("pattern"))["children"], *record.rules);
    return record;
}

Scopes scopes_from(nb::handle list, const char* what) { return objects_of<Scope>(list, what); }

nb::list scopes_to(const Scopes& scopes) {
    nb::list out;
    for (const auto& s : scopes) out.append(nb::cast(s));
    return out;
}

nb::dict expressions_to(const AnchorState& state) {
    nb::dict out;
    for (const auto& [key, captures] : state.expressions()) {
        nb::set set;
        for (const auto& c : captures) set.add(nb::make_tuple(text(c.text), text(c.path)));
        out[text(key)] = set;
    }
    return out;
}

/// (text, path) pairs.
std::vector<Capture> captures_from(nb::handle pairs, const char* what) {
    std::vector<Capture> out;
    for (nb::handle pair : pairs) out.push_back({utf8(pair[0], what), utf8(pair[1], what)});
    return out;
}

hierarchy::Expressions expressions_from(nb::handle mapping, const char* what) {
    if (!PyDict_Check(mapping.ptr())) {
        throw TypeError(std::string(what) + " must be a dict, not " + Py_TYPE(mapping.ptr())->tp_name);
    }
    hierarchy::Expressions out;
    for (auto [key, values] : nb::borrow<nb::dict>(mapping)) out.emplace_back(utf8(key, what), captures_from(values, what));
    return out;
}

void bind_virtual(nb::module_& m) {
    nb::object scene_ns = m.attr("Scene");
    nb::class_<Virtual, scene::QueryOp> cls(scene_ns, "_Virtual",
        "A thread safe implementation of the scene query\n        that does not depend on a specific dcc api.");
    nb::class_<Location>(cls, "_Location", "A short description of the scene object.")
        .def(
            "__init__",
            [](Location* self, std::string name, std::string path, std::string type, nb::handle children) {
                new (self) Location{std::move(name), std::move(path), std::move(type),
                                    utf8_list(children, "children"), {}};
            },
            nb::arg("name"), nb::arg("path"), nb::arg("type"), nb::arg("children").none() = nb::none())
        .def_prop_ro("name", [](const Location& l) { return text(l.name); })
        .def_prop_ro("path", [](const Location& l) { return text(l.path); })
        .def_prop_ro("type", [](const Location& l) { return text(l.type); })
        .def_prop_ro("children", [](const Location& l) {
            nb::list out;
            for (const auto& c : l.children) out.append(text(c));
            return out;
        })
        .def("__eq__", [](const Location& l, nb::handle other) {
            return nb::isinstance<Location>(other) && nb::cast<const Location&>(other).path == l.path;
        })
        .def("__hash__", [](const Location& l) { return nb::hash(nb::str(l.path.c_str())); })
        .def("__repr__", [](const Location& l) { return "_Location(" + l.path + ")"; });

    cls.def(nb::init<std::shared_ptr<scene::Operator>>(), nb::arg("operator"))
        .def("offload", &Virtual::offload)
        .def("upload", &Virtual::upload, nb::arg("roots"), nb::arg("clear") = true,
             "Reads the roots and their subtrees from the operator (on the host's thread).")
        .def("object_exists", &Virtual::object_exists, nb::arg("path"))
        .def("get_type", &Virtual::get_type, nb::arg("path"))
        .def("get_parent", [](const Virtual& v, const std::string& p) -> nb::object {
            // What the host answered, "" for a top object; nothing only for an unknown path.
            const std::string* parent = v.stored_parent(p);
            return parent ? text(*parent) : nb::none();
        }, nb::arg("path"))
        .def("get_children", &Virtual::get_children, nb::arg("path"))
        .def("get_locations", [](const Virtual& v, const scene::Paths& roots) {
            nb::list out;
            for (const auto* l : v.get_locations(roots)) out.append(location_object(*l));
            return out;
        }, nb::arg("roots"))
        .def("__len__", &Virtual::size)
        .def_prop_ro("_operator", [](const Virtual& v) { return v.op(); });
}

void bind_pattern(nb::object hierarchy_cls) {
    nb::class_<Pattern> pattern(hierarchy_cls, "Pattern", "A class to describe hierarchy pattern.");

    nb::class_<hierarchy::Range>(pattern, "_Range")
        .def(nb::init<>())
        .def_rw("minimum", &hierarchy::Range::minimum)
        .def_rw("maximum", &hierarchy::Range::maximum);

    nb::class_<Rule>(pattern, "Rule", nb::dynamic_attr(), "A class to describe an item of the hierarchy pattern.")
        .def(
            "__init__",
            [](Rule* self, nb::handle config, nb::handle checklist) {
                new (self) Rule(Pattern::copy_rule(*project_rule_from(config)));
                if (!nb::try_cast(checklist, self->checklist)) self->checklist = nullptr;
            },
            nb::arg("config"), nb::arg("checklist").none() = nb::none())
        .def_prop_ro("checklist", [](const Rule& r) { return r.checklist; })
        .def_prop_ro("stamp", [](const Rule& r) { return text(r.stamp); })
        .def_prop_ro("name", [](const Rule& r) { return text(r.name); })
        .def_prop_ro("icon", [](const Rule& r) { return text(r.icon); })
        .def_prop_ro("color", [](const Rule& r) { return text(r.color); })
        .def_prop_ro("regex", [](const Rule& r) { return text(r.regex); })
        .def_prop_ro("types", [](const Rule& r) {
            nb::list out;
            for (const auto& t : r.types) out.append(text(t));
            return out;
        })
        .def_prop_ro("range", [](Rule& r) -> hierarchy::Range& { return r.range; }, nb::rv_policy::reference_internal)
        .def("get_range", &Rule::get_range)
        .def("is_optional", &Rule::is_optional)
        .def("__eq__", [](const Rule& r, nb::handle other) {
            return nb::isinstance<Rule>(other) && r == nb::cast<const Rule&>(other);
        })
        .def("__hash__", [](const Rule& r) {
            return nb::hash(nb::make_tuple(nb::str(r.stamp.c_str()), nb::str(r.name.c_str()), nb::str(r.regex.c_str())));
        });

    nb::class_<Scope>(pattern, "Scope", nb::dynamic_attr(), "Connection between a pattern item and its children.")
        .def(
            "__init__",
            [](Scope* self, std::shared_ptr<Rule> rule, nb::handle children) {
                new (self) Scope{std::move(rule), children.is_none() ? Scopes{} : scopes_from(children, "children")};
            },
            nb::arg("rule").none(), nb::arg("children").none() = nb::none())
        .def_prop_ro("rule", [](const Scope& s) { return s.rule; })
        .def_prop_ro("children", [](const Scope& s) { return scopes_to(s.children); });

    struct SorterTag {};
    nb::class_<SorterTag>(pattern, "_Sorter", "A sort algorithm for hierarchy pattern items for more effective search.")
        .def_static("sort", [](nb::list layer) {
            // Sorts the given list in place, keeping its identity.
            auto scopes = scopes_from(layer, "pattern");
            hierarchy::Sorter::sort(scopes);
            for (std::size_t i = 0; i < scopes.size(); ++i) layer[i] = nb::cast(scopes[i]);
        }, nb::arg("pattern"))
        .def_static("has_dependency", &hierarchy::Sorter::has_dependency, nb::arg("definition"), nb::arg("usage"));

    pattern.def(nb::init<std::shared_ptr<check::Classes>>(), nb::arg("check_classes").none() = nb::none())
        .def("set", [](Pattern& p, nb::handle record) {
            const project::Record* project_record = nullptr;
            if (nb::try_cast(record, project_record) && project_record) p.set(*project_record);
            else p.set(record_from(record));
        }, nb::arg("project_settings_record"), "Builds the pattern from a project record's rules and rule tree.")
        .def_rw("check_classes", &Pattern::check_classes)
        .def("get_checklist", &Pattern::get_checklist, nb::arg("stamp"))
        .def("is_verifiable", &Pattern::is_verifiable, nb::arg("stamp"))
        .def("get", [](Pattern& p) { return scopes_to(p.get()); })
        .def("get_ghost", &Pattern::get_ghost)
        .def("has_ghost", &Pattern::has_ghost)
        .def_prop_ro("_rules", [](const Pattern& p) {
            nb::dict out;
            for (const auto& r : p.rules()) out[text(r->stamp)] = nb::cast(r);
            return out;
        })
        .def_prop_ro("_hierarchy", [](const Pattern& p) { return scopes_to(p.hierarchy()); });
}

void bind_anchor(nb::object hierarchy_cls) {
    nb::class_<Anchor> anchor(hierarchy_cls, "Anchor", "An extended logic for regular expression.");
    nb::class_<AnchorState>(anchor, "_State")
        .def(nb::init<>())
        .def("set", [](AnchorState& s, nb::handle e) { s.set(expressions_from(e, "expressions")); }, nb::arg("expressions"))
        .def("set_expressions", [](AnchorState& s, nb::handle e) { s.set_expressions(expressions_from(e, "structure")); },
             nb::arg("structure"))
        .def("make_hash", &AnchorState::make_hash)
        .def("clone", &AnchorState::clone)
        .def("apply", &AnchorState::apply, nb::arg("clone"))
        .def("__add__", &AnchorState::operator+)
        .def("get_hash", &AnchorState::get_hash)
        .def("__hash__", &AnchorState::get_hash)
        .def("__eq__", [](const AnchorState& s, nb::handle o) {
            return nb::isinstance<AnchorState>(o) && s == nb::cast<const AnchorState&>(o);
        })
        .def_prop_ro("expressions", &expressions_to);

    anchor.def(nb::init<>())
        .def_prop_ro("state", [](Anchor& a) -> AnchorState& { return a.state(); }, nb::rv_policy::reference_internal)
        .def_static("findall", &Anchor::findall, nb::arg("text"), nb::arg("unpacked") = false)
        .def_static("find", &Anchor::find, nb::arg("text"))
        .def_static("has_definition", &Anchor::has_definition, nb::arg("text"))
        .def_static("unpack_anchor", &Anchor::unpack_anchor, nb::arg("expression"))
        .def_static("same_scope", &Anchor::same_scope, nb::arg("scope"), nb::arg("path"))
        .def_static("merge_begins", &Anchor::merge_begins, nb::arg("anchor"), nb::arg("expr_part"), nb::arg("expr_source"))
        .def_static("merge_ends", &Anchor::merge_ends, nb::arg("anchor"), nb::arg("expr_part"), nb::arg("expr_source"))
        .def_static("count_shared_symbols", &Anchor::count_shared_symbols, nb::arg("source"), nb::arg("target"))
        .def_static("get_scope_sorted", [](std::string_view path, nb::handle array) {
            nb::list out;
            for (const auto& c : Anchor::get_scope_sorted(path, captures_from(array, "array"))) out.append(nb::make_tuple(text(c.text), text(c.path)));
            return out;
        }, nb::arg("path"), nb::arg("array"))
        .def("match", &Anchor::match, nb::arg("expression"), nb::arg("name"), nb::arg("path"))
        .def("replace_anchors", &Anchor::replace_anchors, nb::arg("expression"), nb::arg("path"))
        .def("apply_anchors", &Anchor::apply_anchors, nb::arg("expression"))
        .def("extract_anchors", &Anchor::extract_anchors, nb::arg("expression"), nb::arg("name"), nb::arg("path"))
        .def("has_anchor", &Anchor::has_anchor, nb::arg("expression"))
        .def("has_sub_anchor", &Anchor::has_sub_anchor, nb::arg("expression"));
}

void bind_search(nb::object hierarchy_cls) {
    nb::class_<Search> search(hierarchy_cls, "Search", "Compare algorithm of a single hierarchy layer with the pattern layer.");
    nb::class_<hierarchy::Response>(search, "Response")
        .def_prop_ro("location", [](const hierarchy::Response& r) { return location_object(*r.location); })
        .def_prop_ro("scope", [](const hierarchy::Response& r) { return r.scope; });
    nb::class_<hierarchy::Result>(search, "Result")
        .def("is_empty", &hierarchy::Result::is_empty)
        .def("__len__", &hierarchy::Result::size)
        .def("__iter__", [](const hierarchy::Result& r) {
            nb::list out;
            for (const auto& response : r) out.append(nb::cast(response, nb::rv_policy::copy));
            return nb::iter(out);
        });
    search.def(nb::init<std::shared_ptr<const Virtual>>(), nb::arg("operator"))
        .def_prop_ro("logic", [](Search& s) -> Anchor& { return s.logic; }, nb::rv_policy::reference_internal)
        .def("layer", [](Search& s, const scene::Paths& roots, nb::handle scopes, bool exact) {
            const auto list = scopes_from(scopes, "scopes");
            nb::gil_scoped_release release;
            return s.layer(roots, list, exact);
        }, nb::arg("roots"), nb::arg("scopes"), nb::arg("exact") = true);
}

}  // namespace

void bind_hierarchy(nb::module_& m) {
    bind_virtual(m);
    nb::class_<Hierarchy> cls(m, "_Hierarchy", "Compare algorithm of a single hierarchy with the specific pattern.");
    bind_pattern(cls);
    bind_anchor(cls);
    bind_search(cls);
    using Guard = nb::call_guard<nb::gil_scoped_release>;
    cls.def(nb::init<std::shared_ptr<const Virtual>>(), nb::arg("query_operator"))
        .def(nb::init<std::shared_ptr<const Virtual>, std::shared_ptr<check::Classes>>(), nb::arg("query_operator"),
             nb::arg("check_classes").none())
        .def_prop_ro("pattern", [](Hierarchy& h) -> Pattern& { return h.pattern(); }, nb::rv_policy::reference_internal)
        .def_prop_ro("search", [](Hierarchy& h) -> Search& { return h.search(); }, nb::rv_policy::reference_internal)
        .def("root_scopes", &Hierarchy::root_scopes, nb::arg("roots"), Guard())
        .def("ghost_scope_match", &Hierarchy::ghost_scope_match, nb::arg("roots"), Guard())
        .def("is_ghost_root", [](const Hierarchy& h, const Scope& ghost, const std::string& path) {
            nb::gil_scoped_release release;
            return h.is_ghost_root(ghost, path);
        }, nb::arg("ghost"), nb::arg("path"))
        .def("mask", nb::overload_cast<const scene::Paths&>(&Hierarchy::mask), nb::arg("roots"), Guard())
        .def("is_valid", &Hierarchy::is_valid, nb::arg("roots"), Guard())
        .def("find_anchors", &Hierarchy::find_anchors, Guard())
        .def("match", [](Hierarchy& h, const scene::Paths& roots, nb::handle pattern) {
            const auto scopes = scopes_from(pattern, "pattern");
            nb::gil_scoped_release release;
            return h.match(roots, scopes);
        }, nb::arg("roots"), nb::arg("pattern"))
        .def("cut", &Hierarchy::cut, nb::arg("scope"), Guard(),
             "Masks, takes away and validates candidate hierarchies until nothing is claimed.")
        .def_static("_is_optional", [](nb::handle pattern) { return Hierarchy::is_optional(scopes_from(pattern, "pattern")); },
                    nb::arg("pattern"))
        .def_static("_is_deadlock", &Hierarchy::is_deadlock, nb::arg("response"));
}

}  // namespace zerko::py
