// Parameters: the inputs, blocks, tasks, groups and options of checks and exporters.
//
// Check authors read a task's inputs as attributes of the task
// (`task.distance.value`) and a combo box's items as attributes of the box
// (`box.high`): both are looked up in the C++ object, so the same input object
// comes back each time. Objects that are no parameter node may stand in a
// declaration; they are carried as foreign nodes and refused where an input is
// needed, as a bad declaration.
#include "common.hpp"
#include "zerko/foundation/assertions.hpp"
#include "zerko/parameters/block.hpp"
#include "zerko/parameters/combo_box.hpp"
#include "zerko/parameters/lists.hpp"
#include "zerko/parameters/options.hpp"

#include <any>
#include <climits>

namespace zerko::py {

namespace {

using namespace parameters;
using ItemPtr = ComboBox::ItemPtr;

// ------------------------------------------------------------------ arguments

// Declarations are checked strictly, and a boolean is no integer. A wrong
// argument raises a TypeError that names it, what it must be and what it was.
std::int64_t int_arg(nb::handle v, std::string_view name) {
    if (!PyLong_Check(v.ptr()) || PyBool_Check(v.ptr())) wrong_argument(name, "an integer", v);
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(v.ptr(), &overflow);
    if (overflow != 0) raise_overflow("integer");
    return n;
}

double float_arg(nb::handle v, std::string_view name) {
    if (!PyFloat_Check(v.ptr())) wrong_argument(name, "a float", v);
    return PyFloat_AS_DOUBLE(v.ptr());
}

/// What a form writes into a float field: a float or an integer.
double number_arg(nb::handle v, std::string_view name) {
    if (PyFloat_Check(v.ptr())) return PyFloat_AS_DOUBLE(v.ptr());
    if (!PyLong_Check(v.ptr()) || PyBool_Check(v.ptr())) wrong_argument(name, "a float or an integer", v);
    return static_cast<double>(int_arg(v, name));
}

std::string str_arg(nb::handle v, std::string_view name) {
    if (!PyUnicode_Check(v.ptr())) wrong_argument(name, "a string", v);
    return utf8(v, "value");
}

bool bool_arg(nb::handle v, std::string_view name) {
    if (!PyBool_Check(v.ptr())) wrong_argument(name, "a boolean", v);
    return v.ptr() == Py_True;
}

bool truth(nb::handle v) {
    const int result = PyObject_IsTrue(v.ptr());
    if (result < 0) throw nb::python_error();
    return result == 1;
}

/// An attribute name, checked before anything else of a declaration.
std::string attr_arg(nb::handle v) {
    if (!PyUnicode_Check(v.ptr())) throw TypeError("Wrong Type for Attribute Name");
    std::string name = utf8(v);
    foundation::Assert::Parameters::Input::attribute(name);
    return name;
}

/// Elements of a list input or combo box; what is not a `T` becomes null,
/// which the input refuses at its place in the list (after the errors of the
/// elements before it), and `checked_items` turns into a full message.
template <typename T>
std::vector<std::shared_ptr<T>> elements_arg(nb::handle items) {
    std::vector<std::shared_ptr<T>> out;
    if (items.is_none()) return out;
    for (nb::handle item : items) {
        std::shared_ptr<T> element;
        if (item.is_none() || !nb::try_cast(item, element)) element = nullptr;
        out.push_back(std::move(element));
    }
    return out;
}

/// Runs `build` on the elements of `items` (taken once into a list, so that
/// any iterable serves); an element of the wrong type is reported by its
/// place, the type it must have and what it is.
template <typename T, typename Build>
auto checked_items(nb::handle items, std::string_view expected, Build&& build) {
    nb::object list = items.is_none() ? nb::object(nb::none()) : nb::object(nb::list(items));
    if (!items.is_none() && PyUnicode_Check(items.ptr())) wrong_argument("items", "a list", items);
    try {
        return build(elements_arg<T>(list));
    } catch (const ElementTypeError& e) {
        wrong_argument("items[" + std::to_string(e.index()) + "]", expected, nb::list(list)[e.index()]);
    }
}

template <typename T>
std::shared_ptr<T> object_arg(nb::handle v, std::string_view name, std::string_view expected) {
    std::shared_ptr<T> out;
    if (v.is_none() || !nb::try_cast(v, out) || !out) wrong_argument(name, expected, v);
    return out;
}

/// A quiet setter for text attributes: anything that is not text is ignored.
template <typename T>
auto text_setter(std::string T::*field) {
    return [field](T& self, nb::handle value) {
        if (PyUnicode_Check(value.ptr())) self.*field = utf8(value);
    };
}

/// Python's index rules for lists: negative counts from the end.
std::size_t list_index(nb::handle index, std::size_t size) {
    std::int64_t i = int_arg(index, "index");
    if (i < 0) i += static_cast<std::int64_t>(size);
    if (i < 0 || static_cast<std::size_t>(i) >= size) throw nb::index_error("list index out of range");
    return static_cast<std::size_t>(i);
}


nb::tuple to_tuple(const std::vector<std::string>& texts) {
    nb::object out = nb::cast(texts);
    return nb::steal<nb::tuple>(PyList_AsTuple(out.ptr()));
}

template <typename Container>
nb::list as_list(const Container& items) {
    nb::list out;
    for (const auto& item : items) out.append(nb::cast(item));
    return out;
}

/// The Python error object of each kept error, as `raise` would give it.
nb::list error_objects(const std::vector<std::exception_ptr>& errors) {
    nb::list out;
    for (const auto& error : errors) {
        // A kept Python error is read as it is: raising it again would hand
        // its payload over and leave the kept copy empty.
        try {
            std::rethrow_exception(error);
        } catch (nb::python_error& e) {
            out.append(nb::borrow(e.value()));
            continue;
        } catch (...) {
        }
        // A bound function that rethrows goes through the registered
        // translators, so C++ errors become their Python types.
        nb::object raiser = nb::cpp_function([error]() { std::rethrow_exception(error); });
        try {
            raiser();
        } catch (nb::python_error& e) {
            out.append(nb::borrow(e.value()));
        }
    }
    return out;
}

// ------------------------------------------------------------------ nodes

NodePtr node_from_python(nb::handle value);

/// A Python object that stands in a declaration without being a parameter
/// node. Cloning it asks the object for its own clone.
class ForeignNode final : public Node {
public:
    explicit ForeignNode(nb::object object) : object_(std::move(object)) {}
    std::shared_ptr<Node> clone_node() const override {
        nb::gil_scoped_acquire gil;
        return node_from_python(object_.get().attr("clone")());
    }
    nb::handle object() const { return object_.get(); }

private:
    HeldObject object_;
};

NodePtr node_from_python(nb::handle value) {
    if (!value.is_none()) {
        std::shared_ptr<Input> input;
        if (nb::try_cast(value, input) && input) return input;
        std::shared_ptr<Group> group;
        if (nb::try_cast(value, group) && group) return group;
    }
    return std::make_shared<ForeignNode>(nb::borrow(value));
}

nb::object node_to_python(const NodePtr& node) {
    if (!node) return nb::none();
    if (auto foreign = dynamic_cast<const ForeignNode*>(node.get())) return nb::borrow(foreign->object());
    if (auto input = std::dynamic_pointer_cast<Input>(node)) return nb::cast(input);
    if (auto group = std::dynamic_pointer_cast<Group>(node)) return nb::cast(group);
    return nb::none();
}

std::vector<NodePtr> nodes_arg(nb::handle items) {
    std::vector<NodePtr> out;
    if (items.is_none()) return out;
    for (nb::handle item : items) out.push_back(node_from_python(item));
    return out;
}

nb::object iterate_nodes(const std::vector<NodePtr>& nodes) {
    nb::list out;
    for (const auto& node : nodes) out.append(node_to_python(node));
    return nb::iter(out);
}

nb::dict inputs_dict(const NamedInputs& inputs) {
    nb::dict out;
    for (const auto& [name, input] : inputs) out[nb::str(name.c_str(), name.size())] = nb::cast(input);
    return out;
}

/// The node behind a Python object for the static type tests; null for foreign objects.
const Node* node_of(nb::handle value) {
    if (value.is_none()) return nullptr;
    Input* input = nullptr;
    if (nb::try_cast(value, input)) return input;
    Group* group = nullptr;
    if (nb::try_cast(value, group)) return group;
    return nullptr;
}

// Visibility switches of groups are any Python object, shared by clones.
std::any switch_from_python(nb::handle value) {
    if (value.is_none()) return {};
    return std::make_shared<HeldObject>(nb::borrow(value));
}

nb::object switch_to_python(const std::any& value) {
    if (auto held = std::any_cast<std::shared_ptr<HeldObject>>(&value)) return (*held)->get();
    return nb::none();
}

// ------------------------------------------------------------------ options trampoline

/// Python subclasses of Parameters.Options: C++ callers (the exporter
/// options) reach the operations the subclass overrides.
class PyOptions : public Overridable<Options> {
public:
    NB_TRAMPOLINE(Overridable<Options>);

    Document data() const override {
        {
            nb::gil_scoped_acquire gil;
            nb::handle self = nb_trampoline.base();
            // `data` is a property, which the trampoline lookup cannot tell
            // from an override; the class dictionaries can.
            if (overrides(self, nb::type<Options>(), "data")) return to_json(nb::getattr(self, "data"));
        }
        return Options::data();
    }
    void load(const Document& data) override {
        {
            nb::gil_scoped_acquire gil;
            if (ZERKO_PY_OVERRIDE("load", from_json(data)).is_valid()) return;
        }
        Options::load(data);
    }
    void reset() override {
        {
            nb::gil_scoped_acquire gil;
            if (ZERKO_PY_OVERRIDE("reset").is_valid()) return;
        }
        Options::reset();
    }
    std::shared_ptr<Options> clone() const override {
        {
            nb::gil_scoped_acquire gil;
            nb::object result = ZERKO_PY_OVERRIDE("clone");
            if (result.is_valid()) {
                std::shared_ptr<Options> copy;
                if (result.is_none() || !nb::try_cast(result, copy) || !copy) {
                    throw TypeError("clone() of exporter options must return Parameters.Options");
                }
                return copy;
            }
        }
        return Options::clone();
    }
};

// ------------------------------------------------------------------ bindings

/// The fields the two ranges share. A real range's fields take an int as well.
template <typename Range>
void bind_range_fields(nb::class_<Range, Input>& cls) {
    using Number = decltype(Range::value);
    auto field = [&cls](const char* name, Number Range::*member) {
        cls.def_prop_rw(
            name, [member](const Range& r) { return r.*member; },
            [member, name](Range& r, nb::handle v) {
                if constexpr (std::is_integral_v<Number>) r.*member = int_arg(v, name);
                else r.*member = number_arg(v, name);
            },
            nb::arg("value").none());
    };
    field("minimum", &Range::minimum);
    field("maximum", &Range::maximum);
    field("step", &Range::step);
    field("value", &Range::value);
    cls.def_prop_ro("prefix", [](const Range& r) { return r.prefix(); })
        .def_prop_ro("units", [](const Range& r) { return r.units(); });
}

void bind_inputs(nb::handle ns) {
    nb::class_<Input>(ns, "_Input", "The abstract base of every named input.")
        .def("__init__",
             [](Input* self, nb::handle attr_name, nb::handle label, nb::handle help_text) {
                 std::string attr = attr_arg(attr_name);
                 new (self) Input(std::move(attr), str_arg(label, "label"), str_arg(help_text, "help_text"));
             },
             nb::arg("attr_name").none(), nb::arg("label").none() = "", nb::arg("help_text").none() = "")
        .def_prop_ro("attr", &Input::attr)
        .def_prop_ro("label", &Input::label)
        .def_prop_ro("help_text", &Input::help_text)
        .def_prop_ro("data", &Input::data, "The JSON form of the current value.")
        .def("load", &Input::load, nb::arg("data").none(), "Takes a stored form back.")
        .def("clone", &Input::clone, "A new input of the same type with the current values.")
        .def("__str__", &Input::str);

    nb::class_<IntRange, Input> int_range(ns, "IntRange", "An integer with limits, a step, a prefix and units.");
    int_range
        .def("__init__",
             [](IntRange* self, nb::handle attr_name, nb::handle minimum, nb::handle maximum, nb::handle step,
                nb::handle value, nb::handle prefix, nb::handle units, nb::handle label, nb::handle help_text) {
                 std::string attr = attr_arg(attr_name);
                 std::string l = str_arg(label, "label"), h = str_arg(help_text, "help_text");
                 new (self) IntRange(std::move(attr), int_arg(minimum, "minimum"), int_arg(maximum, "maximum"), int_arg(step, "step"),
                                     int_arg(value, "value"), str_arg(prefix, "prefix"), str_arg(units, "units"), std::move(l), std::move(h));
             },
             nb::arg("attr_name").none(), nb::arg("minimum").none() = 0, nb::arg("maximum").none() = 100,
             nb::arg("step").none() = 1, nb::arg("value").none() = 50, nb::arg("prefix").none() = "",
             nb::arg("units").none() = "", nb::arg("label").none() = "", nb::arg("help_text").none() = "");
    bind_range_fields(int_range);

    nb::class_<FloatRange, Input> float_range(ns, "FloatRange",
                                              "A real number with limits, a step, a precision, a prefix and units.");
    float_range
        .def("__init__",
             [](FloatRange* self, nb::handle attr_name, nb::handle minimum, nb::handle maximum, nb::handle step,
                nb::handle precision, nb::handle value, nb::handle prefix, nb::handle units, nb::handle label,
                nb::handle help_text) {
                 std::string attr = attr_arg(attr_name);
                 std::string l = str_arg(label, "label"), h = str_arg(help_text, "help_text");
                 new (self) FloatRange(std::move(attr), float_arg(minimum, "minimum"), float_arg(maximum, "maximum"), float_arg(step, "step"),
                                       int_arg(precision, "precision"), float_arg(value, "value"), str_arg(prefix, "prefix"), str_arg(units, "units"),
                                       std::move(l), std::move(h));
             },
             nb::arg("attr_name").none(), nb::arg("minimum").none() = 0.0, nb::arg("maximum").none() = 1.0,
             nb::arg("step").none() = 0.05, nb::arg("precision").none() = 2, nb::arg("value").none() = 0.5,
             nb::arg("prefix").none() = "", nb::arg("units").none() = "", nb::arg("label").none() = "",
             nb::arg("help_text").none() = "")
        .def_prop_rw("precision", [](const FloatRange& r) { return r.precision; },
                     [](FloatRange& r, nb::handle v) { r.precision = int_arg(v, "precision"); }, nb::arg("value").none());
    bind_range_fields(float_range);

    nb::class_<RegEx, Input>(ns, "RegEx", "A regular expression that the user writes.")
        .def("__init__",
             [](RegEx* self, nb::handle attr_name, nb::handle text, nb::handle label, nb::handle help_text) {
                 std::string attr = attr_arg(attr_name);
                 std::string l = str_arg(label, "label"), h = str_arg(help_text, "help_text");
                 new (self) RegEx(std::move(attr), str_arg(text, "text"), std::move(l), std::move(h));
             },
             nb::arg("attr_name").none(), nb::arg("text").none() = ".+", nb::arg("label").none() = "",
             nb::arg("help_text").none() = "")
        .def_prop_rw("text", [](const RegEx& r) { return r.text; }, text_setter(&RegEx::text), nb::arg("value").none())
        .def("__eq__",
             [](const RegEx& self, nb::handle other) {
                 if (PyUnicode_Check(other.ptr())) return self == utf8(other);
                 RegEx* regex = nullptr;
                 if (!other.is_none() && nb::try_cast(other, regex) && regex) return self == *regex;
                 return false;
             },
             nb::arg("other").none())
        .def("__ne__",
             [](nb::handle self, nb::handle other) { return !nb::cast<bool>(self.attr("__eq__")(other)); },
             nb::arg("other").none())
        .def("__hash__", [](const RegEx& self) { return nb::hash(nb::str(self.text.c_str(), self.text.size())); });

    nb::class_<Switch, Input>(ns, "Switch", "A truth value.")
        .def("__init__",
             [](Switch* self, nb::handle attr_name, nb::handle enabled, nb::handle label, nb::handle help_text) {
                 std::string attr = attr_arg(attr_name);
                 std::string l = str_arg(label, "label"), h = str_arg(help_text, "help_text");
                 new (self) Switch(std::move(attr), bool_arg(enabled, "enabled"), std::move(l), std::move(h));
             },
             nb::arg("attr_name").none(), nb::arg("enabled").none() = false, nb::arg("label").none() = "",
             nb::arg("help_text").none() = "")
        .def_prop_rw("enabled", [](const Switch& s) { return s.enabled; },
                     [](Switch& s, nb::handle v) { s.enabled = bool_arg(v, "enabled"); }, nb::arg("value").none());
}

void bind_combo_box(nb::handle ns) {
    nb::class_<ComboBox, Input> box(ns, "ComboBox", "A choice of one item among named items; each item is also an attribute.");
    nb::class_<ComboBox::Item>(box, "Item", "One choice of a combo box.")
        .def("__init__",
             [](ComboBox::Item* self, nb::handle attr_name, nb::handle text, nb::handle selected) {
                 std::string attr = attr_arg(attr_name);
                 new (self) ComboBox::Item(std::move(attr), str_arg(text, "text"), bool_arg(selected, "selected"));
             },
             nb::arg("attr_name").none(), nb::arg("text").none() = "", nb::arg("selected").none() = false)
        .def_prop_ro("attr", &ComboBox::Item::attr)
        .def_prop_ro("text", &ComboBox::Item::text)
        .def_prop_ro("selected", &ComboBox::Item::selected)
        .def("clone", &ComboBox::Item::clone);

    box.def("__init__",
            [](ComboBox* self, nb::handle attr_name, nb::handle items, nb::handle label, nb::handle help_text) {
                std::string attr = attr_arg(attr_name);
                std::string l = str_arg(label, "label"), h = str_arg(help_text, "help_text");
                checked_items<ComboBox::Item>(items, "a Parameters.ComboBox.Item", [&](auto elements) {
                    new (self) ComboBox(std::move(attr), std::move(elements), std::move(l), std::move(h));
                });
            },
            nb::arg("attr_name").none(), nb::arg("items").none(), nb::arg("label").none() = "",
            nb::arg("help_text").none() = "")
        .def("__iter__", [](const ComboBox& b) { return iterate(b.items()); })
        .def("__getattr__",
             [](const ComboBox& b, const std::string& name) {
                 if (auto item = b.item(name)) return item;
                 throw nb::attribute_error(("'ComboBox' object has no attribute '" + name + "'").c_str());
             },
             nb::arg("name"))
        .def("set_selected", &ComboBox::set_selected, nb::arg("item"))
        .def("get_selected",
             [](const ComboBox& b, nb::handle text) -> nb::object {
                 if (truth(text)) return nb::str(b.get_selected_text().c_str());
                 return nb::cast(b.get_selected());
             },
             nb::arg("text").none() = false)
        .def_prop_ro("current_index", &ComboBox::current_index)
        .def_prop_ro("_array", [](const ComboBox& b) { return as_list(b.items()); })
        .def("_build", [](ComboBox& b, nb::handle items) {
            checked_items<ComboBox::Item>(items, "a Parameters.ComboBox.Item", [&](auto elements) { b.build(std::move(elements)); });
        },
             nb::arg("items").none())
        .def("_ensure_selection", &ComboBox::ensure_selection)
        .def("_select_first", &ComboBox::select_first);
}

/// How an error names the element type of a list input.
template <typename Element>
constexpr std::string_view element_name() {
    if constexpr (std::is_same_v<Element, TextInput>) return "a Parameters.TextInput";
    else if constexpr (std::is_same_v<Element, TextMatch>) return "a Parameters.TextMatch";
    else return "a Parameters.IntSlice";
}

/// What every list input offers: its elements in order, add and pop, and the
/// raw array and rebuild for the host's form.
template <typename List>
void bind_element_list(nb::class_<List, Input>& cls) {
    using Element = typename List::ElementPtr::element_type;
    cls.def("__iter__", [](const List& l) { return iterate(l.items()); })
        .def("add", &List::add)
        .def("pop", [](List& l, nb::handle i) { l.pop(list_index(i, l.size())); }, nb::arg("index").none())
        .def_prop_ro("_array", [](const List& l) { return as_list(l.items()); })
        .def("_build", [](List& l, nb::handle items) {
            checked_items<Element>(items, element_name<Element>(), [&](auto elements) { l.build(std::move(elements)); });
        }, nb::arg("items").none());
}

/// The lists of texts: built from a name, elements and a help text, and
/// indexed like a Python list.
template <typename List>
void bind_text_list(nb::class_<List, Input>& cls) {
    using Element = typename List::ElementPtr::element_type;
    cls.def("__init__",
            [](List* self, nb::handle attr_name, nb::handle items, nb::handle help_text) {
                std::string attr = attr_arg(attr_name);
                std::string h = str_arg(help_text, "help_text");
                checked_items<Element>(items, element_name<Element>(), [&](auto elements) {
                    new (self) List(std::move(attr), std::move(elements), std::move(h));
                });
            },
            nb::arg("attr_name").none(), nb::arg("items").none() = nb::tuple(), nb::arg("help_text").none() = "")
        .def("__len__", [](const List& l) { return l.size(); })
        .def("__getitem__", [](const List& l, nb::handle i) { return l.at(list_index(i, l.size())); },
             nb::arg("index").none());
    bind_element_list(cls);
}

void bind_lists(nb::handle ns) {
    nb::class_<TextInput>(ns, "TextInput", "A text with a switch; an element of TextInputList.")
        .def("__init__",
             [](TextInput* self, nb::handle text, nb::handle enabled) {
                 std::string t = str_arg(text, "text");
                 new (self) TextInput(std::move(t), bool_arg(enabled, "enabled"));
             },
             nb::arg("text").none() = "", nb::arg("enabled").none() = false)
        .def_prop_rw("text", [](const TextInput& t) { return t.text; }, text_setter(&TextInput::text), nb::arg("value").none())
        .def_prop_rw("enabled", [](const TextInput& t) { return t.enabled; },
                     [](TextInput& t, nb::handle v) { t.enabled = bool_arg(v, "enabled"); }, nb::arg("value").none())
        .def("clone", &TextInput::clone)
        .def("__str__", &TextInput::str);

    nb::class_<TextMatch>(ns, "TextMatch", "A text to match; an element of TextMatchList.")
        .def("__init__", [](TextMatch* self, nb::handle text) { new (self) TextMatch(str_arg(text, "text")); },
             nb::arg("text").none() = "")
        .def_prop_rw("text", [](const TextMatch& t) { return t.text; }, text_setter(&TextMatch::text), nb::arg("value").none())
        .def("clone", &TextMatch::clone);

    nb::class_<IntSlice>(ns, "IntSlice", "A range of integers given by two IntRange inputs.")
        .def("__init__",
             [](IntSlice* self, nb::handle start, nb::handle stop) {
                 new (self) IntSlice(object_arg<IntRange>(start, "start", "a Parameters.IntRange"),
                                     object_arg<IntRange>(stop, "stop", "a Parameters.IntRange"));
             },
             nb::arg("start").none(), nb::arg("stop").none())
        .def_prop_rw("start", [](const IntSlice& s) { return s.start; },
                     [](IntSlice& s, nb::handle v) { s.start = object_arg<IntRange>(v, "start", "a Parameters.IntRange"); }, nb::arg("value").none())
        .def_prop_rw("stop", [](const IntSlice& s) { return s.stop; },
                     [](IntSlice& s, nb::handle v) { s.stop = object_arg<IntRange>(v, "stop", "a Parameters.IntRange"); }, nb::arg("value").none())
        .def_prop_ro("data", &IntSlice::data)
        .def("load", &IntSlice::load, nb::arg("data").none())
        .def("clone", &IntSlice::clone);

    nb::class_<TextInputList, Input> text_inputs(ns, "TextInputList", "A list of texts, each with a switch.");
    text_inputs
        .def("values",
             [](const TextInputList& l, nb::handle enabled) { return to_tuple(l.values(truth(enabled))); },
             nb::arg("enabled").none() = true)
        .def("__str__", &TextInputList::str);
    bind_text_list<TextInputList>(text_inputs);

    nb::class_<TextMatchList, Input> text_matches(ns, "TextMatchList", "A list of texts to match.");
    text_matches
        .def("values", [](const TextMatchList& l) { return to_tuple(l.values()); });
    bind_text_list<TextMatchList>(text_matches);

    nb::class_<IntSliceList, Input> slices(ns, "IntSliceList", "A list of integer slices shaped like a default slice.");
    using PartLimits = IntSliceList::PartLimits;
    nb::class_<PartLimits>(slices, "_PartLimits", "What every slice of a list copies from one part of the default.")
        .def("__init__",
             [](PartLimits* self, nb::handle int_range) { new (self) PartLimits(*object_arg<IntRange>(int_range, "int_range", "a Parameters.IntRange")); },
             nb::arg("int_range").none())
        .def_ro("prefix", &PartLimits::prefix)
        .def_ro("units", &PartLimits::units)
        .def_ro("minimum", &PartLimits::minimum)
        .def_ro("maximum", &PartLimits::maximum)
        .def_ro("step", &PartLimits::step);
    slices
        .def("__init__",
             [](IntSliceList* self, nb::handle attr_name, nb::handle default_slice, nb::handle items,
                nb::handle help_text) {
                 std::string attr = attr_arg(attr_name);
                 std::string h = str_arg(help_text, "help_text");
                 auto slice = object_arg<IntSlice>(default_slice, "default", "a Parameters.IntSlice");
                 checked_items<IntSlice>(items, "a Parameters.IntSlice", [&](auto elements) {
                     new (self) IntSliceList(std::move(attr), std::move(slice), std::move(elements), std::move(h));
                 });
             },
             nb::arg("attr_name").none(), nb::arg("default").none(), nb::arg("items").none() = nb::tuple(),
             nb::arg("help_text").none() = "")
        .def_static("_apply_limits", &IntSliceList::apply_limits, nb::arg("int_range"), nb::arg("limits"))
        .def_prop_ro("_default", &IntSliceList::default_slice)
        .def_prop_ro("_default_start", &IntSliceList::default_start)
        .def_prop_ro("_default_stop", &IntSliceList::default_stop)
        .def_prop_ro("_start_limits", &IntSliceList::start_limits)
        .def_prop_ro("_stop_limits", &IntSliceList::stop_limits);
    bind_element_list<IntSliceList>(slices);
}

void bind_group_and_options(nb::handle ns) {
    nb::class_<Group>(ns, "Group", "A labelled node of inputs and groups, for whoever draws the form.")
        .def("__init__",
             [](Group* self, nb::handle label, nb::handle contents, nb::handle visibility_switch) {
                 std::string l = str_arg(label, "label");
                 new (self) Group(std::move(l), nodes_arg(contents), switch_from_python(visibility_switch));
             },
             nb::arg("label").none() = "", nb::arg("contents").none() = nb::tuple(),
             nb::arg("visibility_switch").none() = nb::none())
        .def_prop_rw("label", [](const Group& g) { return g.label; }, text_setter(&Group::label), nb::arg("value").none())
        .def_prop_ro("visibility_switch", [](const Group& g) { return switch_to_python(g.visibility_switch()); })
        .def_prop_ro("_contents", [](const Group& g) { return nb::list(iterate_nodes(g.contents())); })
        .def("__iter__", [](const Group& g) { return iterate_nodes(g.contents()); })
        .def("clone", &Group::clone);

    // The operations are bound to the base implementations: a Python
    // subclass that overrides one reaches the base through super(), and C++
    // callers reach the override through the trampoline.
    nb::class_<Options, PyOptions>(ns, "Options", "Exporter parameters: a tree of inputs and groups, stored as changes to the defaults.")
        .def("__init__",
             [](Options* self, nb::handle attr_name, nb::handle label, nb::handle help_text, nb::handle contents) {
                 std::string attr = attr_arg(attr_name);
                 new (self) PyOptions(std::move(attr), str_arg(label, "label"), str_arg(help_text, "help_text"), nodes_arg(contents));
             },
             nb::arg("attr_name").none() = "", nb::arg("label").none() = "", nb::arg("help_text").none() = "",
             nb::arg("contents").none() = nb::tuple())
        .def_prop_ro("attr", &Options::attr)
        .def_prop_ro("label", &Options::label)
        .def_prop_ro("help_text", &Options::help_text)
        .def("__iter__", [](const Options& o) { return iterate_nodes(o.contents()); })
        .def_prop_ro("data", [](const Options& o) { return o.Options::data(); },
                     "The values that differ from the defaults.")
        .def("load", [](Options& o, const Document& data) { o.Options::load(data); }, nb::arg("data").none())
        .def("reset", [](Options& o) { o.Options::reset(); })
        .def("clone", [](const Options& o) { return o.Options::clone(); })
        .def_prop_ro("_contents", [](const Options& o) { return nb::list(iterate_nodes(o.contents())); })
        .def_prop_ro("_parameters", [](const Options& o) { return inputs_dict(o.parameters()); })
        .def_prop_ro("_defaults", &Options::defaults)
        .def("_get_state", &Options::get_state)
        .def("_apply", &Options::apply, nb::arg("data").none())
        .def("_find_parameters",
             [](const Options& o, nb::handle parent) {
                 if (parent.is_none()) return inputs_dict(o.find_parameters());
                 Group* group = nullptr;
                 if (!nb::try_cast(parent, group) || !group) wrong_argument("parent", "a Parameters group or None", parent);
                 return inputs_dict(o.find_parameters(group));
             },
             nb::arg("parent").none() = nb::none())
        .def_static("is_group", [](nb::handle n) { return Options::is_group(node_of(n)); }, nb::arg("node").none())
        .def_static("is_switch", [](nb::handle n) { return Options::is_switch(node_of(n)); }, nb::arg("node").none())
        .def_static("is_integer", [](nb::handle n) { return Options::is_integer(node_of(n)); }, nb::arg("node").none())
        .def_static("is_float", [](nb::handle n) { return Options::is_float(node_of(n)); }, nb::arg("node").none())
        .def_static("is_combobox", [](nb::handle n) { return Options::is_combobox(node_of(n)); }, nb::arg("node").none())
        .def_static("is_input", [](nb::handle n) { return Options::is_input(node_of(n)); }, nb::arg("node").none());
}

void bind_block(nb::handle ns) {
    nb::class_<Block> block(ns, "Block", "A check's declared inputs and its tasks, each a complete set of values.");

    nb::class_<Task>(block, "Task", "One set of values of a block; each input is an attribute under its name.")
        .def("__init__",
             [](Task* self, nb::handle inputs, nb::handle as_info) {
                 new (self) Task(nodes_arg(inputs), truth(as_info));
             },
             nb::arg("inputs").none(), nb::arg("as_info").none() = false)
        // An input of the task is found before the task's own names, so that a
        // check reads `task.<name>` whatever the name.
        .def("__getattribute__",
             [](nb::handle self, nb::handle name) -> nb::object {
                 if (PyUnicode_Check(name.ptr()) && nb::inst_ready(self)) {
                     const Task& task = nb::cast<const Task&>(self);
                     if (!task.attributes().empty()) {
                         if (auto input = task.attribute(utf8(name))) return nb::cast(input);
                     }
                 }
                 PyObject* found = PyObject_GenericGetAttr(self.ptr(), name.ptr());
                 if (!found) throw nb::python_error();
                 return nb::steal(found);
             },
             nb::arg("name"))
        .def("__iter__", [](const Task& t) { return iterate_nodes(t.inputs()); })
        .def_prop_rw("as_info", [](const Task& t) { return t.as_info; },
                     [](Task& t, nb::handle v) { t.as_info = truth(v); }, nb::arg("value").none())
        .def_prop_rw("number", [](const Task& t) { return t.number; },
                     [](Task& t, nb::handle v) {
                         const std::int64_t n = int_arg(v, "number");
                         if (n < INT_MIN || n > INT_MAX) wrong_argument("number", "an integer of 32 bits", v);
                         t.number = static_cast<int>(n);
                     },
                     nb::arg("value").none())
        .def_prop_ro("data", &Task::data)
        .def_prop_ro("state", &Task::state)
        .def("load", &Task::load, nb::arg("state").none())
        .def("clone", &Task::clone)
        .def("assert_no_errors", &Task::assert_no_errors,
             "Raises the first error of the declaration, else the first of the stored data.")
        .def_prop_ro("_inputs", [](const Task& t) { return nb::list(iterate_nodes(t.inputs())); })
        .def_prop_ro("_table", [](const Task& t) { return inputs_dict(t.table()); })
        .def_prop_ro("_build_exceptions", [](const Task& t) { return error_objects(t.build_errors()); })
        .def_prop_ro("_load_exceptions", [](const Task& t) { return error_objects(t.load_errors()); });

    block
        .def("__init__", [](Block* self, nb::args inputs) { new (self) Block(nodes_arg(inputs)); })
        .def("__iter__", [](const Block& b) { return iterate(b.tasks()); })
        .def("__len__", &Block::length)
        .def_prop_ro("length", &Block::length)
        .def_prop_ro("defaults", &Block::defaults)
        .def_prop_ro("data", &Block::data)
        .def_prop_ro("empty", &Block::empty)
        .def_prop_rw("complex", &Block::complex, [](Block& b, nb::handle v) { b.set_complex(truth(v)); },
                     nb::arg("value").none())
        .def_prop_rw("as_info", &Block::as_info, [](Block& b, nb::handle v) { b.set_as_info(truth(v)); },
                     nb::arg("value").none())
        .def("load", &Block::load, nb::arg("data").none(),
             "Replaces the tasks by those of the stored data; empty data gives one default task.")
        .def("append_task", &Block::append_task)
        .def("remove_task",
             [](Block& b, nb::handle task) {
                 Task* t = nullptr;
                 if (!task.is_none() && nb::try_cast(task, t)) b.remove_task(t);
             },
             nb::arg("task").none())
        .def("update_numerator", &Block::update_numerator)
        .def("reset", &Block::reset)
        .def("clone", [](const Block& b) { b.clone(); })
        .def_static("_get_state", [](nb::handle inputs) { return Block::get_state(nodes_arg(inputs)); },
                    nb::arg("inputs").none())
        .def_prop_ro("_inputs", [](const Block& b) { return nb::list(iterate_nodes(b.inputs())); })
        .def_prop_ro("_tasks", [](const Block& b) { return as_list(b.tasks()); })
        .def_prop_ro("_state", &Block::state)
        .def_prop_ro("_empty", &Block::empty);
}

}  // namespace

void bind_parameters(nb::module_& m) {
    nb::object ns = namespace_of(m, "Parameters", "The declared inputs of checks and exporters.");
    bind_inputs(ns);
    bind_combo_box(ns);
    bind_lists(ns);
    bind_group_and_options(ns);
    bind_block(ns);
}

}  // namespace zerko::py
