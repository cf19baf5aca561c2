// Environment, _LocalEnv, _Software and the Api facade.
#include "check_adapters.hpp"
#include "common.hpp"
#include "scene_trampolines.hpp"
#include "zerko/api/api.hpp"
#include "zerko/api/scene.hpp"
#include "zerko/api/environment.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/paths.hpp"

namespace zerko::py {

namespace {

using api::Environment;

nb::handle g_environment_type;

/// A Python subclass of zerko.Environment.
class PyEnvironment final : public Overridable<Environment> {
public:
    NB_TRAMPOLINE(Overridable<Environment>);

    std::string target() const override { return property("target", [this] { return Environment::target(); }); }
    std::string scope() const override { return property("scope", [this] { return Environment::scope(); }); }
    std::string root() const override { return property("root", [this] { return Environment::root(); }); }
    std::string get_settings_file() const override {
        ZERKO_OVERRIDE("get_settings_file", expect_string, Environment::get_settings_file());
    }
    std::string get_settings_directory() const override {
        ZERKO_OVERRIDE("get_settings_directory", expect_string, Environment::get_settings_directory());
    }
    std::string get_projects_directory() const override {
        ZERKO_OVERRIDE("get_projects_directory", expect_string, Environment::get_projects_directory());
    }
    std::string get_statistics_file() const override {
        ZERKO_OVERRIDE("get_statistics_file", expect_string, Environment::get_statistics_file());
    }
    std::string decode_user(const std::string& path) const override {
        ZERKO_OVERRIDE("decode_user", expect_string, Environment::decode_user(path), path);
    }
    std::string encode_user(const std::string& path) const override {
        ZERKO_OVERRIDE("encode_user", expect_string, Environment::encode_user(path), path);
    }

private:
    // Properties are not methods: a subclass that replaces one is read
    // through attribute access, the base's own goes to C++.
    template <typename F>
    std::string property(const char* name, F base) const {
        {
            nb::gil_scoped_acquire gil;
            nb::handle self = nb_trampoline.base();
            if (overrides(self, g_environment_type, name)) return expect_string(nb::getattr(self, name), name);
        }
        return base();
    }
};

/// Any other Python object offered as an environment: every member is read by name.
class ForeignEnvironment final : public Environment {
public:
    explicit ForeignEnvironment(nb::object object) : object_(std::move(object)) {}
    const nb::object& object() const noexcept { return object_.get(); }

    std::string target() const override { return read("target"); }
    std::string scope() const override { return read("scope"); }
    std::string root() const override { return read("root"); }
    std::string get_settings_file() const override { return call("get_settings_file"); }
    std::string get_settings_directory() const override { return call("get_settings_directory"); }
    std::string get_projects_directory() const override { return call("get_projects_directory"); }
    std::string get_statistics_file() const override { return call("get_statistics_file"); }
    std::string decode_user(const std::string& path) const override { return call("decode_user", path); }
    std::string encode_user(const std::string& path) const override { return call("encode_user", path); }

private:
    std::string read(const char* name) const {
        nb::gil_scoped_acquire gil;
        return expect_string(nb::getattr(object_.get(), name), name);
    }
    template <typename... Args>
    std::string call(const char* name, const Args&... args) const {
        nb::gil_scoped_acquire gil;
        nb::object member = nb::getattr(object_.get(), name);
        if (!PyCallable_Check(member.ptr())) throw TypeError(std::string(name) + " is not callable");
        return expect_string(member(args...), name);
    }

    HeldObject object_;
};

nb::object environment_to_python(const std::shared_ptr<Environment>& env) {
    if (auto* foreign = dynamic_cast<const ForeignEnvironment*>(env.get())) return foreign->object();
    return nb::cast(env);
}

// Process variables go through os.environ, which also sets them for C code;
// a bare setenv would leave Python's view of the environment stale.
void python_setenv(const std::string& name, const std::string& value) {
    nb::gil_scoped_acquire gil;
    nb::module_::import_("os").attr("environ")[nb::str(name.c_str())] = nb::str(value.c_str());
}

// The Api holds the host's operator, environment and callbacks. A host
// operator keeps its Api (`operator.api = api`) and callbacks close over it,
// so both form cycles that the collector must see to free them.

/// Whether every share of the operator and of the services that hold it lies
/// inside this Api: only then is the operator's Python reference the Api's own.
/// A service handed out to Python (or a check run holding the operator) adds
/// a share, and the operator is kept until it is gone.
bool owns_operator(const api::Api& a) {
    // The operator: the Api, its scene snapshot, the buffer, the scanner and
    // the scene component. The snapshot: the Api, the hierarchy, the
    // hierarchy's search, the buffer and the scanner. The hierarchy: the Api,
    // the buffer, the scanner and the scene component. The buffer: the
    // scanner and the scene component; the scanner: the scene component.
    const auto& scene = a.scene();
    return a.op().use_count() == 5 && a.virtual_scene().use_count() == 5 && a.hierarchy().use_count() == 4 &&
           scene.use_count() == 1 && scene->buffer().use_count() == 2 && scene->scanner().use_count() == 1;
}

int traverse_api(api::Api& a, visitproc visit, void* arg) {
    if (owns_operator(a)) Py_VISIT(python_owner(a.op()).ptr());
    if (a.env().use_count() == 1) {
        if (const auto* foreign = dynamic_cast<const ForeignEnvironment*>(a.env().get())) {
            Py_VISIT(foreign->object().ptr());
        } else {
            Py_VISIT(python_owner(a.env()).ptr());
        }
    }
    return visit_callbacks(a.callbacks(), visit, arg);
}

// The operator and the environment are needed for as long as the Api lives;
// dropping the callbacks (and the instance dictionary) is enough to break
// every cycle through it.
void clear_api(api::Api& a) { a.callbacks().clear(); }

}  // namespace

std::shared_ptr<Environment> environment_from_python(nb::handle value) {
    if (value.is_none()) return nullptr;
    if (nb::isinstance<Environment>(value)) return nb::cast<std::shared_ptr<Environment>>(value);
    return std::make_shared<ForeignEnvironment>(nb::borrow(value));
}

void bind_api(nb::module_& m) {
    foundation::process::set_setter(&python_setenv);
    nb::class_<Environment, PyEnvironment> env(m, "Environment",
        "Where the settings, projects and statistics of the tool live for a host.");
    g_environment_type = env;
    const auto& home = Environment::user_home();
    env.attr("user_home") = home ? nb::object(nb::str(home->c_str())) : nb::none();
    env.attr("name") = nb::str(std::string(Environment::name).c_str());
    env.def(
           "__init__",
           [](nb::pointer_and_handle<Environment> v) {
               // Publishes the process variables; a subclass therefore has its
               // directories ready before it calls this constructor.
               if (nb::inst_python_derived(v.h)) new (v.p) PyEnvironment();
               else new (v.p) Environment();
               nb::inst_mark_ready(v.h);
               v.p->publish();
           })
        .def_prop_ro("target", &Environment::target)
        .def_prop_ro("scope", &Environment::scope)
        .def_prop_ro("root", &Environment::root)
        .def("get_settings_file", &Environment::get_settings_file)
        .def("get_settings_directory", &Environment::get_settings_directory)
        .def("get_projects_directory", &Environment::get_projects_directory)
        .def("get_statistics_file", &Environment::get_statistics_file)
        .def_static("decode_user", [](std::string_view p) { return Environment::decode_user_path(p); }, nb::arg("path"))
        .def_static("encode_user", [](std::string_view p) { return Environment::encode_user_path(p); }, nb::arg("path"));

    nb::class_<api::LocalEnv, Environment>(m, "_LocalEnv", "The environment the system falls back on.")
        .def(nb::init<>())
        .def_prop_ro("_settings", &api::LocalEnv::get_settings_directory)
        .def_prop_ro("_projects", &api::LocalEnv::get_projects_directory);

    struct SoftwareTag {};
    nb::class_<SoftwareTag>(m, "_Software", "The probe for the running host.")
        .def_static("detect", [] {
            return api::Software::detect([](std::string_view module) {
                try {
                    nb::module_::import_(std::string(module).c_str());
                    return true;
                } catch (nb::python_error& e) {
                    // Only a failure to load moves on; anything else propagates.
                    if (e.matches(PyExc_ImportError)) return false;
                    throw;
                }
            });
        });

    nb::tuple version = nb::make_tuple(api::version[0], api::version[1], api::version[2]);
    m.attr("version") = version;

    using CollectedApi = CollectedType<api::Api, traverse_api, clear_api>;
    nb::class_<api::Api> api_cls(m, "Api", nb::dynamic_attr(), nb::type_slots(CollectedApi::slots), "A common class to have access to all program components.");
    api_cls
        .def(
            "__init__",
            [](api::Api* self, std::shared_ptr<scene::Operator> op, nb::handle environment, nb::handle export_options,
               nb::handle checks) {
                (void)export_options;
                api::Api::Checks sources{python_module_source(), std::nullopt};
                // The host's embedded checks, as the directory list embeds
                // them: a loaded module with a file, else nothing.
                sources.module_file = module_file(checks);
                new (self) api::Api(std::move(op), environment_from_python(environment), std::move(sources));
            },
            nb::arg("operator"), nb::arg("environment").none(), nb::arg("export_options").none() = nb::none(),
            nb::arg("checks").none() = nb::none())
        .def_prop_ro("version", [m](const api::Api&) { return m.attr("version"); })
        .def_prop_ro("constants", [m](const api::Api&) { return m.attr("Constants"); })
        .def_prop_ro("logger", [m](const api::Api&) { return m.attr("Logger"); })
        .def_prop_ro("masks", [m](const api::Api& a) { return m.attr("Mask")(nb::cast(a.op()->type_mapping())); })
        .def_prop_ro("_op", [](const api::Api& a) { return a.op(); })
        .def_prop_ro("callbacks", [](api::Api& a) -> foundation::CallBacks& { return a.callbacks(); },
                     nb::rv_policy::reference_internal)
        .def_prop_ro("env", [](const api::Api& a) { return environment_to_python(a.env()); })
        .def_prop_ro("settings", &api::Api::settings, nb::rv_policy::reference_internal)
        .def_prop_ro("statistics", &api::Api::statistics, nb::rv_policy::reference_internal)
        .def_prop_ro("_virtual", &api::Api::virtual_scene)
        .def_prop_ro("_hierarchy", &api::Api::hierarchy)
        .def_prop_ro("_classes", &api::Api::classes)
        // The component refers to its Api, which its Python object keeps alive.
        .def_prop_ro("scene", &api::Api::scene, nb::keep_alive<0, 1>())
        .def("shutdown", &api::Api::shutdown);

    nb::class_<api::Scene>(api_cls, "_Scene", "Scanner, hierarchy and buffer of the open scene.")
        // The scanner fires the Api's events: it keeps the component, and so the Api, alive.
        .def_prop_ro("scanner", &api::Scene::scanner, nb::keep_alive<0, 1>())
        .def_prop_ro("hierarchy", &api::Scene::hierarchy)
        .def_prop_ro("buffer", &api::Scene::buffer)
        .def("directory_dialog", [](api::Scene& s, const std::string& start) -> nb::object {
            const auto path = s.directory_dialog(start);
            return path ? text(*path) : nb::none();
        }, nb::arg("start"))
        .def("_load_buffer", &api::Scene::load_buffer, nb::call_guard<nb::gil_scoped_release>());
}

}  // namespace zerko::py
