// Constants, masks and the type mapping.
#include <nanobind/stl/map.h>

#include "common.hpp"
#include "zerko/constants/constants.hpp"
#include "zerko/constants/mask.hpp"
#include "zerko/constants/type_mapping.hpp"

namespace zerko::py {

namespace {

using constants::Mask;
using constants::TypeMapping;


// The tree of plain classes whose leaves are the named values.
void bind_constant_tree(nb::module_& m) {
    nb::object root = make_namespace(m, "Constants", "The closed vocabularies of the system.");
    for (const auto& branch : constants::tree()) {
        const std::string path(branch.path);
        const auto dot = path.find('.');
        const std::string outer = path.substr(0, dot), inner = path.substr(dot + 1);
        nb::object parent = nb::hasattr(root, outer.c_str()) ? root.attr(outer.c_str())
                                                              : make_namespace(root, outer.c_str());
        nb::object leafs = make_namespace(parent, inner.c_str(), std::string(branch.doc).c_str());
        for (std::size_t i = 0; i < branch.size; ++i) {
            const auto& leaf = branch.leaves[i];
            const std::string name(leaf.name);
            switch (leaf.kind) {
                case constants::Leaf::Text: nb::setattr(leafs, name.c_str(), text(leaf.text)); break;
                case constants::Leaf::Integer: nb::setattr(leafs, name.c_str(), nb::int_(leaf.number)); break;
                case constants::Leaf::Truth: nb::setattr(leafs, name.c_str(), nb::bool_(leaf.number != 0)); break;
            }
        }
    }
}

nb::list item_list(const Mask::Item& item) {
    nb::list out;
    for (const auto& c : item.constants()) out.append(text(c));
    return out;
}

void bind_mask(nb::module_& m) {
    nb::class_<TypeMapping>(m, "TypeMapping", "Translates host-specific types to the unified types of the scene.")
        .def(
            "__init__",
            [](TypeMapping* self, nb::dict table) {
                TypeMapping::Table t;
                for (auto [k, v] : table) t.emplace_back(utf8(k, "table"), utf8(v, "table"));
                new (self) TypeMapping(t);
            },
            nb::arg("table"))
        .def("get", [](const TypeMapping& t, std::string_view name) -> nb::object {
                 auto v = t.get(name);
                 return v ? text(*v) : nb::none();
             }, nb::arg("name"))
        .def("exist", &TypeMapping::exist, nb::arg("type"))
        .def_prop_ro("_table", [](const TypeMapping& t) {
            nb::dict d;
            for (const auto& [k, v] : t.table()) d[text(k)] = text(v);
            return d;
        })
        .def_prop_ro("_types", [](const TypeMapping& t) {
            nb::set s;
            for (const auto& v : t.types()) s.add(text(v));
            return s;
        });

    nb::class_<Mask> mask(m, "Mask", nb::dynamic_attr(), "Choice sets of the user interface, filtered by the host's type table.");
    nb::class_<Mask::Item>(mask, "Item", "A list of constants with a label, a field name and a mapped flag.")
        .def(
            "__init__",
            [](Mask::Item* self, nb::args constants, std::string name, std::string attr, bool mapped) {
                std::vector<std::string> list;
                for (nb::handle c : constants) list.push_back(utf8(c, "constants"));
                new (self) Mask::Item(std::move(list), std::move(name), std::move(attr), mapped);
            },
            nb::arg("constants"), nb::kw_only(), nb::arg("name") = "", nb::arg("attr") = "", nb::arg("mapped") = false)
        .def_prop_ro("name", [](const Mask::Item& i) { return text(i.name()); })
        .def_prop_ro("attr", [](const Mask::Item& i) { return text(i.attr()); })
        .def_prop_ro("mapped", &Mask::Item::mapped)
        .def("__len__", [](const Mask::Item& i) { return i.constants().size(); })
        .def("__getitem__", [](const Mask::Item& i, nb::handle index) { return item_list(i).attr("__getitem__")(index); })
        .def("__iter__", [](const Mask::Item& i) { return nb::iter(item_list(i)); })
        .def("__contains__", [](const Mask::Item& i, nb::handle v) { return PySequence_Contains(item_list(i).ptr(), v.ptr()) == 1; })
        .def("__eq__", [](const Mask::Item& i, nb::handle other) -> bool {
            if (nb::isinstance<Mask::Item>(other)) return i == nb::cast<const Mask::Item&>(other);
            return item_list(i).equal(other);
        })
        .def("__repr__", [](const Mask::Item& i) { return nb::repr(item_list(i)); });
    nb::type<Mask::Item>().attr("__hash__") = nb::none();

    // Items are shared objects, so that a field and a list entry are the same Python object.
    auto items_of = [](const Mask::Set& s) {
        nb::list out;
        for (const auto& i : s.items()) out.append(nb::cast(std::const_pointer_cast<Mask::Item>(i)));
        return out;
    };
    nb::class_<Mask::Set>(mask, "_Set", "A list of items; items with an attr are also fields.")
        .def(
            "__init__",
            [](Mask::Set* self, nb::args items) {
                const auto given = objects_of<Mask::Item>(items, "items");
                new (self) Mask::Set(std::vector<Mask::ItemPtr>(given.begin(), given.end()));
            },
            nb::arg("items"))
        .def("__len__", [](const Mask::Set& s) { return s.items().size(); })
        .def("__getitem__", [items_of](const Mask::Set& s, nb::handle index) { return items_of(s).attr("__getitem__")(index); })
        .def("__iter__", [items_of](const Mask::Set& s) { return nb::iter(items_of(s)); })
        .def("__getattr__", [](const Mask::Set& s, std::string_view name) {
            if (auto item = s.field(name)) return nb::cast(std::const_pointer_cast<Mask::Item>(item));
            throw nb::attribute_error(std::string(name).c_str());
        })
        .def("__repr__", [items_of](const Mask::Set& s) { return nb::repr(items_of(s)); });
    nb::class_<Mask::Ghost, Mask::Set>(mask, "Ghost").def(nb::init<>());
    nb::class_<Mask::Type, Mask::Set>(mask, "Type").def(nb::init<>());
    nb::class_<Mask::Result, Mask::Set>(mask, "Result").def(nb::init<>());

    mask.def(
            "__init__",
            [](nb::pointer_and_handle<Mask> v, const TypeMapping& mapping) {
                new (v.p) Mask(mapping);
                nb::inst_mark_ready(v.h);
                // Each set is offered on the instance under the name of its class.
                v.h.attr("Ghost") = nb::cast(v.p->ghost());
                v.h.attr("Type") = nb::cast(v.p->type());
                v.h.attr("Result") = nb::cast(v.p->result());
            },
            nb::arg("type_mapping"))
        .def_prop_ro("_mapping", [](const Mask& mk) { return mk.mapping(); });
}

}  // namespace

void bind_constants(nb::module_& m) {
    bind_constant_tree(m);
    bind_mask(m);
}

}  // namespace zerko::py
