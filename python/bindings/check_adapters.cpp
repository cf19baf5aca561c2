#include "check_adapters.hpp"

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/parameters/block.hpp"

namespace zerko::py {

namespace {

/// Calls `function`; a Python error is logged as "{class}: {text}" and
/// gives nothing. A foreign object may raise even on a plain attribute read.
template <typename F>
std::optional<nb::object> quietly(F&& function) {
    try {
        return function();
    } catch (const std::exception&) {
        foundation::Logger::exception(std::current_exception());
        return std::nullopt;
    }
}


/// A Python error raised by a check: the reported issue becomes the core's
/// validation error, anything else goes on as it is.
[[noreturn]] void rethrow_check_error(nb::python_error& e) {
    if (e.matches(validation_error_type())) throw error::ValidationError();
    throw;
}

/// The task as Python sees it: a share of the run's own task, so that a check
/// may keep its argument (in a cache, a closure, a log record) past the run.
/// Only a task that no shared pointer owns goes as a bare reference.
nb::object task_object(parameters::Task& task) {
    if (auto owner = task.weak_from_this().lock()) return nb::cast(std::move(owner));
    return nb::cast(&task, nb::rv_policy::reference);
}

}  // namespace

// ---- PythonCheck ----------------------------------------------------------

void PythonCheck::check(const std::string& path, parameters::Task& parameters) {
    nb::gil_scoped_acquire gil;
    try {
        object().attr("check")(nb::str(path.c_str(), path.size()), task_object(parameters));
    } catch (nb::python_error& e) {
        rethrow_check_error(e);
    }
}

void PythonCheck::fix_result(const std::string& path, parameters::Task& parameters) {
    nb::gil_scoped_acquire gil;
    object().attr("fix_result")(nb::str(path.c_str(), path.size()), task_object(parameters));
}

void PythonCheck::select_result() {
    nb::gil_scoped_acquire gil;
    object().attr("select_result")();
}

std::optional<std::string> PythonCheck::result_message() {
    nb::gil_scoped_acquire gil;
    nb::object message = object().attr("result_message")();
    if (!is_text(message)) return std::nullopt;
    return utf8(message);
}

std::string PythonCheck::long_name() const {
    nb::gil_scoped_acquire gil;
    nb::object value = nb::getattr(object(), "long_name", nb::none());
    return is_text(value) ? utf8(value) : std::string();
}

void PythonCheck::set_long_name(std::string value) {
    nb::gil_scoped_acquire gil;
    set("long_name", nb::str(value.c_str(), value.size()));
}

bool PythonCheck::flag(const char* name) const {
    nb::gil_scoped_acquire gil;
    nb::object value = nb::getattr(object(), name, nb::none());
    const int truth = PyObject_IsTrue(value.ptr());
    if (truth < 0) throw nb::python_error();
    return truth == 1;
}

void PythonCheck::set(const char* name, nb::handle value) { nb::setattr(object(), name, value); }

bool PythonCheck::could_be_fixed() const { return flag("could_be_fixed"); }
void PythonCheck::set_could_be_fixed(bool value) {
    nb::gil_scoped_acquire gil;
    set("could_be_fixed", nb::bool_(value));
}
bool PythonCheck::could_be_selected() const { return flag("could_be_selected"); }
void PythonCheck::set_could_be_selected(bool value) {
    nb::gil_scoped_acquire gil;
    set("could_be_selected", nb::bool_(value));
}
bool PythonCheck::scene_oriented() const { return flag("scene_oriented"); }

void PythonCheck::new_result() {
    nb::gil_scoped_acquire gil;
    set("result", named_buffer_type()());
}

void PythonCheck::clear_result() {
    nb::gil_scoped_acquire gil;
    object().attr("result").attr("clear")();
}

// ---- PythonClass ----------------------------------------------------------

std::string PythonClass::text(const char* name) const {
    nb::gil_scoped_acquire gil;
    try {
        nb::object value = nb::getattr(object(), name, nb::none());
        return is_text(value) ? utf8(value) : std::string();
    } catch (nb::python_error&) {
        return {};
    }
}

long long PythonClass::sort_index() const {
    nb::gil_scoped_acquire gil;
    try {
        nb::object value = nb::getattr(object(), "sort_index", nb::none());
        return is_int(value) ? int64_of(value, "sort_index") : 0;
    } catch (const std::exception&) {
        return 0;
    }
}

bool PythonClass::scene_oriented() const {
    nb::gil_scoped_acquire gil;
    try {
        nb::object value = nb::getattr(object(), "scene_oriented", nb::none());
        return is_bool(value) && nb::cast<bool>(value);
    } catch (nb::python_error&) {
        return false;
    }
}

std::shared_ptr<parameters::Block> PythonClass::parameters() const {
    nb::gil_scoped_acquire gil;
    nb::object block = object().attr("parameters")();
    std::shared_ptr<parameters::Block> out;
    if (!nb::try_cast(block, out) || !out) throw TypeError("parameters() of a check class must give a Parameters.Block");
    return out;
}

std::unique_ptr<check::Base> PythonClass::create() const {
    nb::gil_scoped_acquire gil;
    return std::make_unique<PythonCheck>(object()());
}

bool PythonClass::is_check_class() const {
    nb::gil_scoped_acquire gil;
    const int derives = PyObject_IsSubclass(object().ptr(), check_base_type().ptr());
    if (derives < 0) {
        PyErr_Clear();
        return false;
    }
    if (derives == 0) return false;
    // Itself, at least one class of the host's own, the base and object.
    return nb::len(nb::object(object().attr("__mro__"))) >= 4;
}

bool PythonClass::is_valid() const {
    nb::gil_scoped_acquire gil;
    const nb::object& cls = object();
    // hasattr: only a missing attribute means no; any other error is logged.
    auto has_on = [&](nb::handle target, const char* name) {
        const auto found = quietly([&] {
            try {
                nb::getattr(target, name);
                return nb::object(nb::bool_(true));
            } catch (nb::python_error& e) {
                if (e.matches(PyExc_AttributeError)) return nb::object(nb::bool_(false));
                throw;
            }
        });
        return found && nb::cast<bool>(*found);
    };
    auto has = [&](const char* name) { return has_on(cls, name); };
    auto get = [&](nb::handle target, const char* name) {
        return quietly([&] { return nb::getattr(target, name); });
    };
    if (!has("parameters")) return false;
    const auto parameters = get(cls, "parameters");
    if (!parameters || !PyCallable_Check(parameters->ptr())) return false;
    const auto block = quietly([&] { return (*parameters)(); });
    if (!block || !nb::isinstance<parameters::Block>(*block)) return false;
    for (const char* name : {"class_id", "short_name", "long_name", "description", "category"}) {
        const auto value = has(name) ? get(cls, name) : std::nullopt;
        if (!value || !is_text(*value)) return false;
    }
    {
        const auto value = has("sort_index") ? get(cls, "sort_index") : std::nullopt;
        if (!value || !is_int(*value)) return false;
    }
    for (const char* name : {"scene_oriented", "could_be_fixed", "could_be_selected"}) {
        const auto value = has(name) ? get(cls, name) : std::nullopt;
        if (!value || !is_bool(*value)) return false;
    }
    const auto instance = quietly([&] { return cls(); });
    if (!instance) return false;
    const int derives = PyObject_IsInstance(instance->ptr(), check_base_type().ptr());
    if (derives != 1) {
        PyErr_Clear();
        return false;
    }
    for (const char* name : {"check", "fix_result", "select_result", "result_message"}) {
        if (!has_on(*instance, name)) return false;
        const auto value = get(*instance, name);
        if (!value || !PyCallable_Check(value->ptr())) return false;
    }
    return true;
}

bool PythonClass::same(const check::Class& other) const {
    const auto* python = dynamic_cast<const PythonClass*>(&other);
    return python && python->object().is(object());
}

}  // namespace zerko::py
