// Strings and naming, errors, the logger, assertions and callbacks.
#include <nanobind/stl/pair.h>

#include <cerrno>
#include <optional>
#include <unordered_map>

#include "common.hpp"
#include "zerko/api/environment.hpp"
#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/callbacks.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/regex.hpp"

namespace zerko::py {

std::shared_ptr<api::Environment> environment_from_python(nb::handle value);

namespace {

using foundation::Logger;
using foundation::LogLevel;

nb::handle g_str_type;
std::unordered_map<std::string, nb::handle>& error_classes() {
    static auto* classes = new std::unordered_map<std::string, nb::handle>();
    return *classes;
}

// ------------------------------------------------------------------ strings

void bind_strings(nb::module_& m) {
    nb::dict ns;
    ns["__doc__"] = nb::str("Custom string type to handle unicode strings\n    (non ascii symbols, compare operations).");
    ns["__module__"] = nb::str("zerko");
    ns["__slots__"] = nb::tuple();
    // With a host runtime of major version 3 both conversions are the identity.
    auto identity = nb::cpp_function([](nb::object value) { return value; }, nb::arg("value").none());
    nb::object staticmethod = nb::module_::import_("builtins").attr("staticmethod");
    ns["encoded"] = staticmethod(identity);
    ns["decoded"] = staticmethod(identity);
    nb::object builtins = nb::module_::import_("builtins");
    nb::object str_type = builtins.attr("type")("_Str", nb::make_tuple(builtins.attr("str")), ns);
    m.attr("_Str") = str_type;
    g_str_type = str_type.release();  // kept by the module for its whole life

    m.attr("_ENCODING") = nb::str(std::string(foundation::ENCODING).c_str());
    m.def("_str", [](nb::handle value) { return to_str(value); }, nb::arg("value").none(),
          "The value as a _Str when it is a string; anything else unchanged.");
    m.def(
        "_format",
        [](nb::handle templ, nb::handle args) {
            std::vector<foundation::FormatArg> converted;
            for (nb::handle a : args) {
                if (PyBool_Check(a.ptr())) {
                    converted.emplace_back(std::string(a.ptr() == Py_True ? "True" : "False"));
                } else if (PyLong_Check(a.ptr())) {
                    // An int beyond 64 bits is shown as Python shows it.
                    int overflow = 0;
                    const long long n = PyLong_AsLongLongAndOverflow(a.ptr(), &overflow);
                    if (overflow == 0) converted.emplace_back(static_cast<std::int64_t>(n));
                    else converted.emplace_back(utf8(nb::str(a)));
                } else if (PyFloat_Check(a.ptr())) {
                    converted.emplace_back(nb::cast<double>(a));
                } else {
                    converted.emplace_back(utf8(nb::str(a)));
                }
            }
            const auto text = foundation::format(utf8(nb::str(templ)), converted);
            return to_str(nb::str(text.c_str(), text.size()));
        },
        nb::arg("template"), nb::arg("args"), "Fills the {} placeholders of template from the sequence args.");

    using foundation::Naming;
    auto text = [](const std::string& s) { return to_str(nb::str(s.c_str(), s.size())); };
    nb::class_<Naming>(m, "_Naming")
        .def_static("is_attribute", &Naming::is_attribute, nb::arg("name"))
        .def_static("is_private", &Naming::is_private, nb::arg("name"))
        .def_static("force_ascii", [text](std::string_view n, bool title) { return text(Naming::force_ascii(n, title)); },
                    nb::arg("name"), nb::arg("title") = false)
        .def_static("latin_filter", [text](std::string_view t) { return text(Naming::latin_filter(t)); }, nb::arg("text"))
        .def_static("en_ru_filter", [text](std::string_view t) { return text(Naming::en_ru_filter(t)); }, nb::arg("text"))
        .def_static("_char_filter",
                    [text](std::string_view t, const std::vector<std::pair<std::uint32_t, std::uint32_t>>& chars) {
                        std::vector<Naming::Range> ranges;
                        for (auto [a, b] : chars) ranges.emplace_back(a, b);
                        return text(Naming::char_filter(t, ranges));
                    },
                    nb::arg("text"), nb::arg("chars"))
        .def_static("space_filter", [text](std::string_view t) { return text(Naming::space_filter(t)); }, nb::arg("text"))
        .def_static("ghost_filter", [text](std::string_view t) { return text(Naming::ghost_filter(t)); }, nb::arg("text"))
        .def_static("strip", [text](std::string_view n, std::string_view c) { return text(Naming::strip(n, c)); },
                    nb::arg("name"), nb::arg("chars"));

    using foundation::NamesControl;
    nb::class_<NamesControl>(m, "_NamesControl")
        .def(nb::init<>())
        .def("clear", &NamesControl::clear)
        .def("exists", &NamesControl::exists, nb::arg("name"))
        .def("append", &NamesControl::append, nb::arg("name"))
        .def("remove", &NamesControl::remove, nb::arg("name"))
        .def("rename", &NamesControl::rename, nb::arg("remove"), nb::arg("append"))
        .def("get_init", [text](const NamesControl& c, std::string_view n) { return text(c.get_init(n)); }, nb::arg("name"))
        .def("_get_next", [text](const NamesControl& c, std::string_view n) { return text(c.get_next(n)); }, nb::arg("name"))
        .def("_get_alike",
             [text](const NamesControl& c, std::string_view n) {
                 nb::list out;
                 for (const auto& s : c.get_alike(n)) out.append(text(s));
                 return out;
             },
             nb::arg("name"))
        .def("__len__", &NamesControl::size);
}

// ------------------------------------------------------------------ errors

nb::object make_error(nb::handle scope, const char* name, std::string_view sentence, bool named) {
    nb::dict ns;
    ns["__module__"] = nb::str("zerko");
    ns["__qualname__"] = nb::str((std::string("Error.") + name).c_str());
    ns["__doc__"] = nb::str(std::string(sentence).c_str());
    nb::handle exception_type = PyExc_Exception;
    const std::string text(sentence);
    if (named) {
        ns["__init__"] = nb::cpp_function(
            [text, exception_type](nb::handle self, nb::object value) {
                const bool given = PyObject_IsTrue(value.ptr()) == 1;
                const std::string shown = given ? utf8(nb::str(value)) : std::string();
                self.attr("_text") = nb::str(error::named_sentence(text, shown).c_str());
                if (given) exception_type.attr("__init__")(self, value);
                else exception_type.attr("__init__")(self);
            },
            nb::is_method(), nb::arg("name") = "");
    } else {
        ns["__init__"] = nb::cpp_function(
            [text, exception_type](nb::handle self) {
                self.attr("_text") = nb::str(text.c_str());
                exception_type.attr("__init__")(self);
            },
            nb::is_method());
    }
    ns["__str__"] = nb::cpp_function([](nb::handle self) { return self.attr("_text"); }, nb::is_method());
    nb::object cls = nb::module_::import_("builtins").attr("type")(nb::str(name), nb::make_tuple(exception_type), ns);
    nb::setattr(scope, name, cls);
    error_classes()[name] = cls;
    return cls;
}

void raise_instance(nb::handle cls, nb::object instance) { PyErr_SetObject(cls.ptr(), instance.ptr()); }

// The Python class of RegexError: an `re.error`, so that hosts and rule
// editors written against Python catch it as they catch their own pattern
// errors, and a ValueError, so that callers that caught the earlier
// ValueError still do.
nb::handle g_regex_error;

nb::str lenient_str(const std::string& text) {
    // C++ callers may hand in bytes that are not UTF-8; never fail on them here.
    return nb::steal<nb::str>(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

// \N{...} names in patterns resolve through this interpreter's
// unicodedata.lookup, as the host's own `re` resolves them: the same aliases,
// letter case rules and Unicode version, with no second name table in C++.
void install_character_names(nb::module_& m) {
    auto lookup = std::make_shared<HeldObject>(nb::module_::import_("unicodedata").attr("lookup"));
    regex::set_character_names([lookup](std::string_view name) -> std::optional<char32_t> {
        // Patterns are also compiled where the GIL is released (the search).
        nb::gil_scoped_acquire gil;
        nb::object found;
        try {
            found = lookup->get()(nb::str(name.data(), name.size()));
        } catch (nb::python_error&) {
            return std::nullopt;  // KeyError: no such name
        }
        // A named sequence is several characters: no character, as for `re`.
        if (!PyUnicode_Check(found.ptr()) || PyUnicode_GetLength(found.ptr()) != 1) return std::nullopt;
        return static_cast<char32_t>(PyUnicode_ReadChar(found.ptr(), 0));
    });
    // The resolver calls into Python: drop it before the interpreter goes away.
    m.def("_drop_character_names", [] { regex::set_character_names({}); });
    nb::module_::import_("atexit").attr("register")(m.attr("_drop_character_names"));
}

void raise_regex_error(const RegexError& e) {
    // re.error(msg, pattern, pos) builds Python's own text and sets .msg,
    // .pattern, .pos, .lineno and .colno.
    nb::object instance;
    if (!e.has_pattern()) {
        instance = g_regex_error(lenient_str(e.message()));
    } else if (e.position() == RegexError::npos) {
        instance = g_regex_error(lenient_str(e.message()), lenient_str(e.pattern()));
    } else {
        instance = g_regex_error(lenient_str(e.message()), lenient_str(e.pattern()), e.position());
    }
    raise_instance(g_regex_error, instance);
}

void translate(const std::exception_ptr& p, void*) {
    try {
        std::rethrow_exception(p);
    } catch (const error::WrongAttributeName& e) {
        auto cls = error_classes().at("WrongAttributeName");
        raise_instance(cls, cls(nb::str(e.name().c_str())));
    } catch (const error::PrivateAttributeName& e) {
        auto cls = error_classes().at("PrivateAttributeName");
        raise_instance(cls, cls(nb::str(e.name().c_str())));
    } catch (const error::Error& e) {
        auto cls = error_classes().at(e.class_name());
        raise_instance(cls, cls());
    } catch (const TypeError& e) {
        PyErr_SetString(PyExc_TypeError, e.what());
    } catch (const NotImplementedError& e) {
        PyErr_SetString(PyExc_NotImplementedError, e.what());
    } catch (const FileNotFoundError& e) {
        // OSError picks its subclass (FileNotFoundError, FileExistsError...) from errno.
        nb::object err = nb::handle(PyExc_OSError)(e.error_number(), nb::str(e.strerror().c_str()),
                                                    nb::str(e.path().c_str()));
        PyErr_SetObject((PyObject*)Py_TYPE(err.ptr()), err.ptr());
    } catch (const RegexError& e) {
        raise_regex_error(e);
    } catch (const ValueError& e) {
        PyErr_SetString(PyExc_ValueError, e.what());
    } catch (const Exception& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
    }
}

// A Python error carried through C++ is reported with its Python class name.
bool describe_python(const std::exception_ptr& p, ErrorDescription& out) {
    try {
        std::rethrow_exception(p);
    } catch (nb::python_error& e) {
        nb::gil_scoped_acquire gil;
        nb::handle value = e.value();
        out.class_name = utf8(nb::handle((PyObject*)Py_TYPE(value.ptr())).attr("__name__"));
        try {
            out.text = utf8(nb::str(value));
        } catch (nb::python_error&) {
            out.text = "<unprintable error>";
        }
        return true;
    } catch (...) {
        return false;
    }
}

void bind_errors(nb::module_& m) {
    nb::object ns = make_namespace(m, "Error", "The error types of the library with their fixed sentences.");
    make_error(ns, "WrongAttributeName", error::WrongAttributeName::sentence, true);
    make_error(ns, "PrivateAttributeName", error::PrivateAttributeName::sentence, true);
    make_error(ns, "AttributeNameRepeat", error::AttributeNameRepeat::sentence, false);
    make_error(ns, "ParameterInputType", error::ParameterInputType::sentence, false);
    make_error(ns, "AccessQueueTimeout", error::AccessQueueTimeout::sentence, false);
    make_error(ns, "NoFeedbackEmail", error::NoFeedbackEmail::sentence, false);
    make_error(ns, "ValidationError", error::ValidationError::sentence, false);
    nb::dict regex_ns;
    regex_ns["__module__"] = nb::str("zerko");
    regex_ns["__doc__"] = nb::str(
        "An invalid regular expression, or a match that ran over its work bound: an re.error and a ValueError.");
    nb::object regex_error = nb::module_::import_("builtins").attr("type")(
        nb::str("_RegexError"),
        nb::make_tuple(nb::module_::import_("re").attr("error"), nb::handle(PyExc_ValueError)), regex_ns);
    m.attr("_RegexError") = regex_error;
    g_regex_error = regex_error.release();  // kept by the module for its whole life
    install_character_names(m);
    nb::register_exception_translator(&translate);
    set_error_describer(&describe_python);
}

// ------------------------------------------------------------------ logger

// Delivers to Python's root logger from the logger's worker thread.
class RootLoggerSink final : public foundation::LogSink {
public:
    explicit RootLoggerSink(nb::object root) : root_(std::move(root)) {}
    void deliver(LogLevel level, const std::string& message) override {
        nb::gil_scoped_acquire gil;
        deliver_held(level, message);
    }
    void deliver_all(const std::vector<foundation::LogRecord>& records) override {
        nb::gil_scoped_acquire gil;
        for (const auto& [level, message] : records) deliver_held(level, message);
    }

private:
    void deliver_held(LogLevel level, const std::string& message) {
        try {
            root_.get().attr("log")(static_cast<int>(level), nb::str(message.c_str(), message.size()));
        } catch (nb::python_error& e) {
            e.discard_as_unraisable("zerko.Logger");
        }
    }

    HeldObject root_;
};

std::string message_text(nb::handle message) { return utf8(nb::str(message)); }

void bind_logger(nb::module_& m) {
    struct LoggerTag {};
    nb::object root = nb::module_::import_("logging").attr("getLogger")();
    Logger::set_sink(std::make_shared<RootLoggerSink>(root));

    nb::class_<LoggerTag> cls(m, "Logger", "Static logger: every call returns at once; delivery is to the root logger.");
    cls.attr("_root") = root;
    cls.def_static("debug", [](nb::handle msg, nb::kwargs) { Logger::debug(message_text(msg)); }, nb::arg("message").none(), nb::arg("kwargs"))
        .def_static("info", [](nb::handle msg, nb::kwargs) { Logger::info(message_text(msg)); }, nb::arg("message").none(), nb::arg("kwargs"))
        .def_static("warning", [](nb::handle msg, nb::kwargs) { Logger::warning(message_text(msg)); }, nb::arg("message").none(), nb::arg("kwargs"))
        .def_static("error", [](nb::handle msg, nb::kwargs) { Logger::error(message_text(msg)); }, nb::arg("message").none(), nb::arg("kwargs"))
        .def_static(
            "exception",
            [](nb::handle msg, nb::kwargs) {
                // Text is stripped of line feeds; an error object is logged as its text.
                if (nb::hasattr(msg, "strip")) Logger::exception(message_text(msg.attr("strip")("\n")));
                else Logger::error(message_text(msg));
            },
            nb::arg("message").none(), nb::arg("kwargs"))
        .def_static("_flush", [] {
            nb::gil_scoped_release release;
            Logger::flush();
        }, "Waits until every message issued so far has reached the root logger.");

    // Deliver what is queued and stop the worker before the interpreter
    // goes away; the GIL is released so that the worker can finish.
    m.def("_shutdown_logger", [] {
        nb::gil_scoped_release release;
        Logger::shutdown();
    });
    nb::module_::import_("atexit").attr("register")(m.attr("_shutdown_logger"));
}

// ------------------------------------------------------------------ assertions

void bind_assertions(nb::module_& m) {
    using foundation::Assert;
    nb::object ns = make_namespace(m, "_Assert", "Structural assertions on foreign objects and names.");
    nb::object env = make_namespace(ns, "Environment");
    env.attr("is_valid") = nb::cpp_function(
        [](nb::handle instance) {
            auto adapted = environment_from_python(instance);
            return adapted && Assert::Environment::is_valid(*adapted);
        },
        nb::arg("instance").none());
    nb::object params = make_namespace(ns, "Parameters");
    nb::object input = make_namespace(params, "Input");
    input.attr("attribute") = nb::cpp_function(
        [](nb::handle name) {
            if (!PyUnicode_Check(name.ptr())) throw TypeError("Wrong Type for Attribute Name");
            Assert::Parameters::Input::attribute(utf8(name));
        },
        nb::arg("name").none());
    nb::object json_ns = make_namespace(ns, "Json");
    // Python 3 text needs no decoding: the structure comes back as it is, in place.
    json_ns.attr("clean") = nb::cpp_function([](nb::object data) { return data; }, nb::arg("data").none());
}

// ------------------------------------------------------------------ callbacks

class PyCallback final : public foundation::Callback {
public:
    explicit PyCallback(nb::object f) : f_(std::move(f)) {}
    /// A firing from C++: the JSON arguments become Python values.
    void call(const foundation::CallArgs& args) override {
        nb::gil_scoped_acquire gil;
        nb::object positional = from_json(args.positional.is_array() ? args.positional : JsonDocument::array());
        nb::object keyword = from_json(args.keyword.is_object() ? args.keyword : JsonDocument::object());
        call_python(nb::steal(PyList_AsTuple(positional.ptr())), keyword);
    }
    /// A firing from Python: the caller's objects are handed on as they are.
    void call_python(nb::handle positional, nb::handle keyword) {
        PyObject* result = PyObject_Call(f_.get().ptr(), positional.ptr(), keyword.ptr());
        if (!result) throw nb::python_error();
        Py_DECREF(result);
    }
    const void* identity() const noexcept override { return f_.get().ptr(); }
    const nb::object& function() const noexcept { return f_.get(); }

private:
    HeldObject f_;
};

int visit_list(const foundation::CallBacks::List& list, visitproc visit, void* arg) {
    for (const auto& function : list.functions()) {
        if (const auto* python = dynamic_cast<const PyCallback*>(function.get())) Py_VISIT(python->function().ptr());
    }
    return 0;
}

int traverse_list(foundation::CallBacks::List& list, visitproc visit, void* arg) { return visit_list(list, visit, arg); }
void clear_list(foundation::CallBacks::List& list) { list.clear(); }
int traverse_callbacks(foundation::CallBacks& callbacks, visitproc visit, void* arg) {
    return visit_callbacks(callbacks, visit, arg);
}
void clear_callbacks(foundation::CallBacks& callbacks) { callbacks.clear(); }

void bind_callbacks(nb::module_& m) {
    using foundation::CallBacks;
    using CollectedCallBacks = CollectedType<CallBacks, traverse_callbacks, clear_callbacks>;
    using CollectedList = CollectedType<CallBacks::List, traverse_list, clear_list>;
    nb::class_<CallBacks> cls(m, "_CallBacks", nb::type_slots(CollectedCallBacks::slots),
                              "Named events that the host's user interface subscribes to.");
    nb::class_<CallBacks::List>(cls, "List", nb::type_slots(CollectedList::slots))
        .def(nb::init<>())
        .def("register",
             [](CallBacks::List& l, nb::object f) {
                 if (PyCallable_Check(f.ptr())) l.register_(std::make_shared<PyCallback>(std::move(f)));
             },
             nb::arg("function").none())
        .def("delete", [](CallBacks::List& l, nb::handle f) { l.delete_(f.ptr()); }, nb::arg("function").none())
        .def("clear", &CallBacks::List::clear)
        .def("__call__", [](const CallBacks::List& l, nb::args args, nb::kwargs kwargs) {
            // Python functions get the very objects; C++ functions their JSON
            // form, converted once and only when one is registered.
            std::optional<foundation::CallArgs> converted;
            l.fire([&](foundation::Callback& f) {
                if (auto* python = dynamic_cast<PyCallback*>(&f)) {
                    python->call_python(args, kwargs);
                    return;
                }
                if (!converted) converted = foundation::CallArgs{to_json(args), to_json(kwargs)};
                f.call(*converted);
            });
        })
        .def("__len__", &CallBacks::List::size)
        .def("__contains__", [](const CallBacks::List& l, nb::handle f) { return l.contains(f.ptr()); }, nb::arg("function").none());
    cls.def(nb::init<>()).def("clear", &CallBacks::clear);
#define ZERKO_EVENT(name) cls.def_prop_ro(#name, [](CallBacks& c) -> CallBacks::List& { return c.name; }, nb::rv_policy::reference_internal)
    ZERKO_EVENT(empty_scan_selection);
    ZERKO_EVENT(used_scan_selection);
    ZERKO_EVENT(empty_scan_result);
    ZERKO_EVENT(lost_export_directory);
    ZERKO_EVENT(empty_export_selection);
    ZERKO_EVENT(export_skipped);
    ZERKO_EVENT(export_success);
    ZERKO_EVENT(projects_synchronized);
    ZERKO_EVENT(projects_response_closed);
    ZERKO_EVENT(projects_saved);
    ZERKO_EVENT(buffer_loaded);
    ZERKO_EVENT(http_no_response);
#undef ZERKO_EVENT
}

}  // namespace

int visit_callbacks(foundation::CallBacks& callbacks, visitproc visit, void* arg) {
    for (const auto name : foundation::CallBacks::names()) {
        if (const int stop = visit_list(*callbacks.find(name), visit, arg)) return stop;
    }
    return 0;
}

nb::handle str_type() { return g_str_type; }

nb::object to_str(nb::handle value) {
    if (PyUnicode_Check(value.ptr())) return g_str_type(value);
    return nb::borrow(value);
}

void bind_foundation(nb::module_& m) {
    bind_strings(m);
    bind_errors(m);
    bind_logger(m);
    bind_assertions(m);
    bind_callbacks(m);
}

}  // namespace zerko::py
