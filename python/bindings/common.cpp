#include "common.hpp"

#include "zerko/foundation/errors.hpp"

namespace zerko::py {

using json = nlohmann::ordered_json;

json to_json(nb::handle v) {
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
    if (PyUnicode_Check(v.ptr())) return nb::cast<std::string>(v);
    if (PyDict_Check(v.ptr())) {
        json out = json::object();
        for (auto [key, item] : nb::borrow<nb::dict>(v)) {
            if (!PyUnicode_Check(key.ptr())) throw TypeError("JSON object keys must be strings");
            out[nb::cast<std::string>(key)] = to_json(item);
        }
        return out;
    }
    if (PyList_Check(v.ptr()) || PyTuple_Check(v.ptr())) {
        json out = json::array();
        for (nb::handle item : v) out.push_back(to_json(item));
        return out;
    }
    throw TypeError(std::string("value of type ") + Py_TYPE(v.ptr())->tp_name + " is not JSON-shaped");
}

nb::object from_json(const json& v) {
    switch (v.type()) {
        case json::value_t::null: return nb::none();
        case json::value_t::boolean: return nb::bool_(v.get<bool>());
        case json::value_t::number_integer: return nb::int_(v.get<std::int64_t>());
        case json::value_t::number_unsigned: return nb::steal(PyLong_FromUnsignedLongLong(v.get<std::uint64_t>()));
        case json::value_t::number_float: return nb::float_(v.get<double>());
        case json::value_t::string: return nb::str(v.get_ref<const std::string&>().c_str(), v.get_ref<const std::string&>().size());
        case json::value_t::array: {
            nb::list out;
            for (const auto& item : v) out.append(from_json(item));
            return std::move(out);
        }
        case json::value_t::object: {
            nb::dict out;
            for (const auto& [key, item] : v.items()) out[nb::str(key.c_str(), key.size())] = from_json(item);
            return std::move(out);
        }
        default: return nb::none();
    }
}

nb::object make_namespace(nb::handle parent, const char* name, const char* doc) {
    nb::dict ns;
    ns["__doc__"] = nb::str(doc);
    ns["__module__"] = nb::str("zerko");
    std::string qualname = name;
    if (nb::hasattr(parent, "__qualname__") && !nb::isinstance<nb::module_>(parent)) {
        qualname = nb::cast<std::string>(parent.attr("__qualname__")) + "." + name;
    }
    ns["__qualname__"] = nb::str(qualname.c_str());
    nb::object cls = nb::module_::import_("builtins").attr("type")(nb::str(name), nb::tuple(), ns);
    nb::setattr(parent, name, cls);
    return cls;
}

std::string expect_string(nb::handle v, const char* what) {
    if (!PyUnicode_Check(v.ptr())) {
        throw TypeError(std::string(what) + " returned " + Py_TYPE(v.ptr())->tp_name + ", not a string");
    }
    return nb::cast<std::string>(v);
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

}  // namespace zerko::py
