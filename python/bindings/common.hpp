#pragma once
// Shared pieces of the Python face: the binding entry points of each
// subsystem, JSON conversion, namespace classes and checked conversions of
// what host code returns.
#include <nanobind/nanobind.h>
#include <nanobind/stl/function.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>
#include <nanobind/stl/unique_ptr.h>
#include <nanobind/stl/vector.h>
#include <nanobind/trampoline.h>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/json_document.hpp"

#include "zerko/foundation/errors.hpp"
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zerko::foundation {
class CallBacks;
}

namespace nb = nanobind;

namespace zerko::py {

void bind_foundation(nb::module_& m);
void bind_constants(nb::module_& m);
void bind_scene(nb::module_& m);
void bind_api(nb::module_& m);
void bind_hierarchy(nb::module_& m);
void bind_scan(nb::module_& m);
void bind_file(nb::module_& m);
void bind_statistics(nb::module_& m);
void bind_settings(nb::module_& m);
void bind_parameters(nb::module_& m);
void bind_export(nb::module_& m);
void bind_check(nb::module_& m);
void bind_project(nb::module_& m);

/// A Python object kept by a C++ object that may die on any thread: the
/// reference is dropped under the GIL, or left alone once the interpreter
/// has gone (there is nothing to drop it into then).
class HeldObject {
public:
    explicit HeldObject(nb::object object) : object_(std::move(object)) {}
    HeldObject(const HeldObject&) = delete;
    HeldObject& operator=(const HeldObject&) = delete;
    ~HeldObject() {
        if (Py_IsInitialized()) {
            nb::gil_scoped_acquire gil;
            object_.reset();
        } else {
            object_.release();
        }
    }
    const nb::object& get() const noexcept { return object_; }

private:
    nb::object object_;
};

// ---- cyclic garbage collection ----------------------------------------------
// A C++ object that holds Python objects hides those references from Python's
// collector, so a cycle through it (a host operator keeping its Api, a
// callback that closes over the Api) is never freed. Types whose objects hold
// Python objects report them through these slots.

/// The Python instance that `object` lives in, or null for an object made in
/// C++. Every shared pointer to an object inside a Python instance was made
/// from that instance and holds a reference to it.
template <typename T>
nb::handle python_owner(const std::shared_ptr<T>& object) {
    if (!object) return {};
    const nb::object found = nb::find(object.get());
    if (!found.is_valid() || !nb::inst_state(found).second) return {};
    // Borrowed: `object` keeps the instance alive.
    return found;
}

/// Reports the Python functions registered in every event of `callbacks`.
int visit_callbacks(foundation::CallBacks& callbacks, visitproc visit, void* arg);

/// tp_traverse and tp_clear for the bound type T. `Traverse` reports what a
/// T holds, `Clear` drops it. Only an instance that owns its T reports or
/// drops anything: a view of another object's part owns no references. The
/// instance dictionary of a type with dynamic attributes is handled as well.
template <typename T, int (*Traverse)(T&, visitproc, void*), void (*Clear)(T&)>
struct CollectedType {
    /// The dictionary slot of the bound type itself; a Python subclass that
    /// adds a dictionary of its own reports it itself.
    static PyObject** dict(PyObject* self) {
        const Py_ssize_t offset = reinterpret_cast<PyTypeObject*>(nb::type<T>().ptr())->tp_dictoffset;
        return offset > 0 ? reinterpret_cast<PyObject**>(reinterpret_cast<char*>(self) + offset) : nullptr;
    }
    static bool owns(PyObject* self) {
        const auto [ready, owned] = nb::inst_state(self);
        return ready && owned;
    }
    static int traverse(PyObject* self, visitproc visit, void* arg) {
        Py_VISIT(Py_TYPE(self));
        if (PyObject** d = dict(self)) Py_VISIT(*d);
        return owns(self) ? Traverse(*nb::inst_ptr<T>(self), visit, arg) : 0;
    }
    static int clear(PyObject* self) {
        if (PyObject** d = dict(self)) Py_CLEAR(*d);
        if (owns(self)) Clear(*nb::inst_ptr<T>(self));
        return 0;
    }
    static inline PyType_Slot slots[] = {{Py_tp_traverse, reinterpret_cast<void*>(&traverse)},
                                         {Py_tp_clear, reinterpret_cast<void*>(&clear)},
                                         {0, nullptr}};
};

/// Python value (None, bool, int, float, str, dict with str keys, list,
/// tuple) to JSON, key order kept. Throws zerko::TypeError for anything else,
/// and zerko::ValueError for a container that contains itself or nesting
/// deeper than the library's limit.
zerko::JsonDocument to_json(nb::handle value);
/// JSON to plain Python values.
nb::object from_json(const zerko::JsonDocument& value);

/// A class that only groups names, like a namespace (`Scene`, `Error`).
nb::object make_namespace(nb::handle parent, const char* name, const char* doc = "");
/// The namespace `name` of `parent` when a binding made it already, else a new one.
nb::object namespace_of(nb::handle parent, const char* name, const char* doc = "");

/// The module's `_Str` type (a str subclass).
nb::handle str_type();
/// `value` as a `_Str` when it is text; anything else unchanged.
nb::object to_str(nb::handle value);

// ---- the cyclic collector -----------------------------------------------------
// Paused while many new Python objects are made or many host calls run: plain
// values form no cycles, and collections set off meanwhile would walk the
// host's whole scene again and again. The collector's state comes back as it was.
class PausedCollector {
public:
    PausedCollector() : was_enabled_(PyGC_Disable()) {}
    ~PausedCollector() {
        if (was_enabled_) PyGC_Enable();
    }
    PausedCollector(const PausedCollector&) = delete;
    PausedCollector& operator=(const PausedCollector&) = delete;

private:
    int was_enabled_;
};

// ---- checked conversions -----------------------------------------------------
// Every conversion of a Python value to C++ text or integers goes through
// these, so that a bad value raises what Python would raise rather than a
// bare cast failure: TypeError naming `what` for a value of the wrong type,
// the UnicodeEncodeError of a str that has no UTF-8 form (a lone surrogate),
// OverflowError for an integer out of range.

/// The UTF-8 form of the str `value`.
std::string utf8(nb::handle value, const char* what = "value");
/// An iterable of str (a str itself is refused); None gives nothing.
std::vector<std::string> utf8_list(nb::handle value, const char* what);
/// An int (not a bool) in the range of int64.
std::int64_t int64_of(nb::handle value, const char* what = "value");
/// An int (not a bool) in the range of int.
int int_of(nb::handle value, const char* what = "value");
/// Raises OverflowError: `what` does not fit.
[[noreturn]] void raise_overflow(const char* what);

/// The bound objects of an iterable; None or an object of another type in it
/// is a TypeError naming `what`.
template <typename T>
std::vector<std::shared_ptr<T>> objects_of(nb::handle items, const char* what) {
    std::vector<std::shared_ptr<T>> out;
    for (nb::handle item : items) {
        std::shared_ptr<T> object;
        if (!nb::try_cast(item, object) || !object) {
            throw TypeError(std::string(what) + " must hold " + nb::type_name(nb::type<T>()).c_str() + " objects, not " +
                            Py_TYPE(item.ptr())->tp_name);
        }
        out.push_back(std::move(object));
    }
    return out;
}

/// What host code returned, checked: raises zerko::TypeError naming `what`
/// when the value has the wrong type.
std::string expect_string(nb::handle value, const char* what);
/// A string, or "" for None.
std::string expect_optional_string(nb::handle value, const char* what);
/// An iterable of strings, or empty for None.
std::vector<std::string> expect_strings(nb::handle value, const char* what);

// ---- small pieces every binding file uses -------------------------------------

/// Type tests of quiet setters and adapters; a bool is no int or number.
inline bool is_text(nb::handle v) { return PyUnicode_Check(v.ptr()); }
inline bool is_int(nb::handle v) { return PyLong_Check(v.ptr()) && !PyBool_Check(v.ptr()); }
inline bool is_bool(nb::handle v) { return PyBool_Check(v.ptr()); }
inline bool is_number(nb::handle v) {
    return (PyLong_Check(v.ptr()) || PyFloat_Check(v.ptr())) && !PyBool_Check(v.ptr());
}
/// `s` as a `_Str`.
inline nb::object text(std::string_view s) { return to_str(nb::str(s.data(), s.size())); }
/// An iterator over a snapshot of `items`: the container may change while
/// Python walks it.
template <typename Container>
nb::object iterate(const Container& items) {
    nb::list out;
    for (const auto& item : items) out.append(nb::cast(item));
    return nb::iter(out);
}

/// The C++ base of a trampoline, plus `no_override`: the fallback that
/// nanobind's NB_OVERRIDE_NAME runs when the Python class does not override a
/// method. It gives no object, so the caller can tell "not overridden" from a
/// Python result and convert that result itself (naming the operation in
/// its errors) or run the C++ base. nanobind still does the lookup, its cache
/// and the guard that sends a super() call back to C++.
template <typename Base>
struct Overridable : Base {
    using Base::Base;
    template <typename... Args>
    static nb::object no_override(Args&&...) {
        return nb::object();
    }
};

/// Inside a trampoline deriving from Overridable: the result of the Python
/// override of the method `name` called with the arguments, or an invalid
/// object when the Python class does not override it. Hold the GIL.
#define ZERKO_PY_OVERRIDE(name, ...) \
    [&]() -> nb::object { NB_OVERRIDE_NAME(name, no_override __VA_OPT__(, ) __VA_ARGS__); }()

/// Whether `self`'s class replaces the attribute `name` that the bound base
/// class `base` defines (a method, a property or a plain value).
bool overrides(nb::handle self, nb::handle base, const char* name);

/// The file of a loaded module (an object with a text `__file__`); nothing
/// for anything else.
std::optional<std::string> module_file(nb::handle module);

/// Raises a TypeError for a wrong argument that names the argument, what it
/// must be and what was given: "value must be an integer, not str 'ten'".
[[noreturn]] void wrong_argument(std::string_view name, std::string_view expected, nb::handle given);

}  // namespace zerko::py

// JSON-shaped values cross as plain Python values, with key order kept.
namespace nanobind::detail {
template <>
struct type_caster<zerko::JsonDocument> {
    NB_TYPE_CASTER(zerko::JsonDocument, const_name("object"))

    // A value of the wrong shape lets another overload try; a cycle or a
    // too deep value is an error of its own and reaches the caller as such.
    bool from_python(handle src, uint8_t, cleanup_list*) {
        try {
            value = zerko::py::to_json(src);
            return true;
        } catch (const zerko::ValueError&) {
            PyErr_Clear();
            throw;
        } catch (...) {
            PyErr_Clear();
            return false;
        }
    }
    static handle from_cpp(const zerko::JsonDocument& v, rv_policy, cleanup_list*) noexcept {
        try {
            return zerko::py::from_json(v).release();
        } catch (...) {
            return handle();
        }
    }
};
}  // namespace nanobind::detail
