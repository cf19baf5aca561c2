#include "common.hpp"

#include <algorithm>
#include <array>
#include <climits>
#include <utility>

#include "zerko/foundation/errors.hpp"

namespace zerko::py {

using json = JsonDocument;

namespace {

// Walks a Python value into JSON. `open` holds the containers being walked
// (at most the depth limit of them): meeting one of them again is a cycle,
// which would otherwise recurse until the stack runs out.
class ToJson {
public:
    json value(nb::handle v) {
        if (v.is_none()) return nullptr;
        if (PyBool_Check(v.ptr())) return v.ptr() == Py_True;
        if (PyLong_Check(v.ptr())) {
            int overflow = 0;
            const long long n = PyLong_AsLongLongAndOverflow(v.ptr(), &overflow);
            if (overflow == 0) return static_cast<std::int64_t>(n);
            const unsigned long long u = PyLong_AsUnsignedLongLong(v.ptr());
            if (PyErr_Occurred()) {
                PyErr_Clear();
                throw TypeError("integer out of range for JSON");
            }
            return static_cast<std::uint64_t>(u);
        }
        if (PyFloat_Check(v.ptr())) return PyFloat_AS_DOUBLE(v.ptr());
        if (PyUnicode_Check(v.ptr())) return utf8(v, "JSON text");
        const bool is_dict = PyDict_Check(v.ptr());
        if (!is_dict && !PyList_Check(v.ptr()) && !PyTuple_Check(v.ptr())) {
            throw TypeError(std::string("value of type ") + Py_TYPE(v.ptr())->tp_name + " is not JSON-shaped");
        }
        if (std::find(open_.begin(), open_.end(), v.ptr()) != open_.end()) {
            throw ValueError("Circular reference detected");
        }
        if (open_.size() >= json_depth_limit) {
            throw ValueError("JSON value nested deeper than " + std::to_string(json_depth_limit) + " levels");
        }
        open_.push_back(v.ptr());
        json out = is_dict ? object(v) : array(v);
        open_.pop_back();
        return out;
    }

private:
    json object(nb::handle v) {
        json out = json::object();
        for (auto [key, item] : nb::borrow<nb::dict>(v)) {
            if (!PyUnicode_Check(key.ptr())) throw TypeError("JSON object keys must be strings");
            out[utf8(key, "JSON object key")] = value(item);
        }
        return out;
    }
    json array(nb::handle v) {
        json out = json::array();
        for (nb::handle item : v) out.push_back(value(item));
        return out;
    }

    std::vector<PyObject*> open_;
};

}  // namespace

json to_json(nb::handle v) { return ToJson().value(v); }

namespace {

PyObject* text(const std::string& s) {
    PyObject* out = PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), nullptr);
    if (!out) throw nb::python_error();
    return out;
}

// New reference to the Python form of `v`; the C API directly, since large
// documents spend most of their reading time here.
PyObject* python_value(const json& v) {
    switch (v.type()) {
        case json::value_t::null: Py_RETURN_NONE;
        case json::value_t::boolean: return PyBool_FromLong(v.get<bool>());
        case json::value_t::number_integer: return PyLong_FromLongLong(v.get<std::int64_t>());
        case json::value_t::number_unsigned: return PyLong_FromUnsignedLongLong(v.get<std::uint64_t>());
        case json::value_t::number_float: return PyFloat_FromDouble(v.get<double>());
        case json::value_t::string: return text(v.get_ref<const std::string&>());
        case json::value_t::array: {
            nb::object out = nb::steal(PyList_New(static_cast<Py_ssize_t>(v.size())));
            if (!out.is_valid()) throw nb::python_error();
            Py_ssize_t i = 0;
            for (const auto& item : v) {
                PyList_SET_ITEM(out.ptr(), i, python_value(item));
                ++i;
            }
            return out.release().ptr();
        }
        case json::value_t::object: {
            nb::object out = nb::steal(PyDict_New());
            if (!out.is_valid()) throw nb::python_error();
            for (const auto& [key, item] : v.items()) {
                nb::object k = nb::steal(text(key));
                nb::object value = nb::steal(python_value(item));
                if (PyDict_SetItem(out.ptr(), k.ptr(), value.ptr()) != 0) throw nb::python_error();
            }
            return out.release().ptr();
        }
        default: Py_RETURN_NONE;
    }
}

}  // namespace

nb::object from_json(const json& v) { return nb::steal(python_value(v)); }

namespace {

// Namespaces are bound classes of their own (one tag type each, from a fixed
// pool), so that stub generation and introspection see what is nested in them.
template <std::size_t I>
struct NamespaceTag {};

using NamespaceMaker = nb::object (*)(nb::handle, const char*, const char*);

template <std::size_t I>
nb::object make_namespace_class(nb::handle parent, const char* name, const char* doc) {
    return nb::class_<NamespaceTag<I>>(parent, name, doc);
}

template <std::size_t... I>
constexpr std::array<NamespaceMaker, sizeof...(I)> namespace_makers(std::index_sequence<I...>) {
    return {&make_namespace_class<I>...};
}

constexpr auto kNamespaceMakers = namespace_makers(std::make_index_sequence<160>{});
std::size_t g_namespaces_made = 0;

}  // namespace

nb::object make_namespace(nb::handle parent, const char* name, const char* doc) {
    if (g_namespaces_made >= kNamespaceMakers.size()) throw std::runtime_error("too many namespaces for the tag pool");
    return kNamespaceMakers[g_namespaces_made++](parent, name, doc);
}

nb::object namespace_of(nb::handle parent, const char* name, const char* doc) {
    if (nb::hasattr(parent, name)) return nb::getattr(parent, name);
    return make_namespace(parent, name, doc);
}

std::string utf8(nb::handle v, const char* what) {
    if (!PyUnicode_Check(v.ptr())) {
        throw TypeError(std::string(what) + " must be a str, not " + Py_TYPE(v.ptr())->tp_name);
    }
    Py_ssize_t size = 0;
    const char* data = PyUnicode_AsUTF8AndSize(v.ptr(), &size);
    if (!data) throw nb::python_error();
    return std::string(data, static_cast<std::size_t>(size));
}

std::vector<std::string> utf8_list(nb::handle v, const char* what) {
    std::vector<std::string> out;
    if (v.is_none()) return out;
    if (PyUnicode_Check(v.ptr())) throw TypeError(std::string(what) + " must be a list of str, not a str");
    if (!nb::isinstance<nb::iterable>(v)) {
        throw TypeError(std::string(what) + " must be a list of str, not " + Py_TYPE(v.ptr())->tp_name);
    }
    for (nb::handle item : v) out.push_back(utf8(item, what));
    return out;
}

void raise_overflow(const char* what) {
    PyErr_Format(PyExc_OverflowError, "%s is out of range", what);
    throw nb::python_error();
}

std::int64_t int64_of(nb::handle v, const char* what) {
    if (!PyLong_Check(v.ptr()) || PyBool_Check(v.ptr())) {
        throw TypeError(std::string(what) + " must be an int, not " + Py_TYPE(v.ptr())->tp_name);
    }
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(v.ptr(), &overflow);
    if (overflow != 0) raise_overflow(what);
    return static_cast<std::int64_t>(n);
}

int int_of(nb::handle v, const char* what) {
    const std::int64_t n = int64_of(v, what);
    if (n < INT_MIN || n > INT_MAX) raise_overflow(what);
    return static_cast<int>(n);
}

std::string expect_string(nb::handle v, const char* what) {
    if (!PyUnicode_Check(v.ptr())) {
        throw TypeError(std::string(what) + " returned " + Py_TYPE(v.ptr())->tp_name + ", not a string");
    }
    return utf8(v, what);
}

std::string expect_optional_string(nb::handle v, const char* what) {
    return v.is_none() ? std::string() : expect_string(v, what);
}

std::vector<std::string> expect_strings(nb::handle v, const char* what) {
    std::vector<std::string> out;
    if (v.is_none()) return out;
    if (PyUnicode_Check(v.ptr())) throw TypeError(std::string(what) + " returned a string, not a list of strings");
    for (nb::handle item : v) out.push_back(expect_string(item, what));
    return out;
}

bool overrides(nb::handle self, nb::handle base, const char* name) {
    nb::handle type = nb::handle((PyObject*)Py_TYPE(self.ptr()));
    if (type.is(base)) return false;
    // Look through the MRO as attribute lookup does, without triggering descriptors.
    nb::object mro = type.attr("__mro__");
    for (nb::handle cls : mro) {
        if (cls.is(base)) return false;
        nb::object dict = cls.attr("__dict__");
        if (PyMapping_HasKeyString(dict.ptr(), name)) return true;
    }
    return false;
}

std::optional<std::string> module_file(nb::handle module) {
    if (module.is_none()) return std::nullopt;
    nb::object file;
    try {
        file = nb::getattr(module, "__file__", nb::none());
    } catch (nb::python_error&) {
        // An object whose attributes raise is no loaded module either.
        return std::nullopt;
    }
    if (!PyUnicode_Check(file.ptr())) return std::nullopt;
    return utf8(file, "__file__");
}

void wrong_argument(std::string_view name, std::string_view expected, nb::handle given) {
    std::string shown;
    try {
        shown = nb::cast<std::string>(nb::repr(given));
    } catch (nb::python_error&) {
        shown = "<unprintable>";
    }
    // A long value is cut: the type and the start are what a reader needs.
    constexpr std::size_t limit = 60;
    if (shown.size() > limit) {
        std::size_t cut = limit - 3;
        while (cut > 0 && (static_cast<unsigned char>(shown[cut]) & 0xC0) == 0x80) --cut;  // whole characters only
        shown = shown.substr(0, cut) + "...";
    }
    std::string type = Py_TYPE(given.ptr())->tp_name;
    try {
        type = nb::cast<std::string>(nb::handle((PyObject*)Py_TYPE(given.ptr())).attr("__name__"));
    } catch (nb::python_error&) {
    }
    std::string text = std::string(name) + " must be " + std::string(expected) + ", not " + type;
    if (!given.is_none()) text += " " + shown;
    throw TypeError(text);
}

}  // namespace zerko::py
