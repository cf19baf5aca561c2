// _Settings: the settings store with its sections, the server section and
// the web addresses. The check section's own classes live under
// `_Settings.Check` and are bound beside these; whichever binding runs first
// makes `_Settings`, and this one keeps what the other nested in it.
#include "common.hpp"
#include "zerko/api/environment.hpp"
#include "zerko/settings/sections.hpp"
#include "zerko/settings/server.hpp"
#include "zerko/settings/settings.hpp"
#include "zerko/settings/urls.hpp"

namespace zerko::py {

std::shared_ptr<api::Environment> environment_from_python(nb::handle value);
void bind_settings_check(nb::handle settings_class);

namespace {

using settings::Document;
using settings::Export;
using settings::Server;
using settings::Settings;
using settings::URLs;
using settings::Workspace;

/// A section handed in from Python: anything that is not a JSON object reads as an empty one.
Document section_from_python(nb::handle data) {
    try {
        Document out = to_json(data);
        return out.is_object() ? out : Document::object();
    } catch (const TypeError&) {
        return Document::object();
    }
}

// Setters that keep values of their own kind and quietly ignore the rest.

template <typename T, typename Set>
auto quiet_setter(bool (*accepts)(nb::handle), Set set) {
    return [accepts, set](T& self, nb::handle value) {
        if (accepts(value)) set(self, value);
    };
}

void bind_sections(nb::handle outer) {
    nb::class_<Workspace>(outer, "Workspace", "The \"workspace\" section of settings.json.")
        .def("__init__", [](Workspace* self, nb::handle data) { new (self) Workspace(section_from_python(data)); },
             nb::arg("data").none() = nb::none())
        .def_prop_rw("project", [](const Workspace& w) { return to_str(nb::str(w.project.c_str())); },
                     quiet_setter<Workspace>(is_text, [](Workspace& w, nb::handle v) { w.project = utf8(v); }),
                     nb::arg("value").none())
        .def_prop_rw("check_updates", [](const Workspace& w) { return w.check_updates; },
                     quiet_setter<Workspace>(is_bool, [](Workspace& w, nb::handle v) { w.check_updates = nb::cast<bool>(v); }),
                     nb::arg("value").none())
        .def_prop_ro("data", &Workspace::data);

    nb::class_<Export>(outer, "Export", "The \"export\" section of settings.json.")
        .def("__init__", [](Export* self, nb::handle data) { new (self) Export(section_from_python(data)); },
             nb::arg("data").none() = nb::none())
        .def_prop_rw("mode", [](const Export& e) { return e.mode; },
                     quiet_setter<Export>(is_int, [](Export& e, nb::handle v) { e.mode = int_of(v, "mode"); }),
                     nb::arg("value").none())
        .def_prop_rw("directory", [](const Export& e) { return to_str(nb::str(e.directory.c_str())); },
                     quiet_setter<Export>(is_text, [](Export& e, nb::handle v) { e.directory = utf8(v); }),
                     nb::arg("value").none())
        .def_prop_ro("data", &Export::data);

    nb::class_<Server>(outer, "Server", "The \"server\" section of settings.json: the exchange endpoint.")
        .def("__init__", [](Server* self, nb::handle data) { new (self) Server(section_from_python(data)); },
             nb::arg("data").none() = nb::none())
        .def_prop_rw("enabled", [](const Server& s) { return s.enabled; },
                     quiet_setter<Server>(is_bool, [](Server& s, nb::handle v) { s.enabled = nb::cast<bool>(v); }),
                     nb::arg("value").none())
        .def_prop_rw("erase_sent", [](const Server& s) { return s.erase_sent; },
                     quiet_setter<Server>(is_bool, [](Server& s, nb::handle v) { s.erase_sent = nb::cast<bool>(v); }),
                     nb::arg("value").none())
        .def_prop_rw("host", [](const Server& s) { return to_str(nb::str(s.host().c_str())); },
                     quiet_setter<Server>(is_text, [](Server& s, nb::handle v) { s.set_host(utf8(v)); }),
                     nb::arg("value").none())
        .def_prop_rw("port", [](const Server& s) { return s.port(); },
                     quiet_setter<Server>(is_int, [](Server& s, nb::handle v) {
                         // Out of the range of a port number is not a port.
                         int port = 0;
                         if (nb::try_cast<int>(v, port)) s.set_port(port);
                     }),
                     nb::arg("value").none())
        .def_prop_ro("_host", &Server::host)
        .def_prop_ro("_port", &Server::port)
        .def_prop_ro("data", &Server::data)
        .def("_set_environment", &Server::set_environment);
}

void bind_urls(nb::handle outer) {
    nb::class_<URLs> urls(outer, "URLs", "The web addresses that the system hands to the host.");
    nb::class_<URLs::Path>(urls, "Path", "The paths of the web addresses.")
        .def(nb::init<std::string, std::string>(), nb::arg("target"), nb::arg("scope"))
        .def_prop_ro("latest", &URLs::Path::latest)
        .def_prop_ro("documentation", [](const URLs::Path&) { return URLs::Path::documentation(); })
        .def_prop_ro("feedback", [](const URLs::Path&) { return URLs::Path::feedback(); })
        .def_prop_ro("_target", &URLs::Path::target)
        .def_prop_ro("_scope", &URLs::Path::scope)
        .def_static("format_scope", &URLs::Path::format_scope, nb::arg("scope"));
    urls.def(nb::init<std::string, std::string>(), nb::arg("target"), nb::arg("scope"))
        .def_prop_ro("host", &URLs::host)
        .def_prop_ro("port", &URLs::port)
        .def_prop_ro("path", &URLs::path)
        .def_prop_ro("home", &URLs::home)
        .def_prop_ro("latest", &URLs::latest)
        .def_prop_ro("documentation", &URLs::documentation)
        .def_prop_ro("feedback", &URLs::feedback)
        .def_prop_ro("documentation_editor", &URLs::documentation_editor)
        .def_prop_ro("_target", &URLs::target)
        .def_prop_ro("_scope", &URLs::scope)
        .def_prop_ro("_host", &URLs::host)
        .def_prop_ro("_port", &URLs::port);
}

/// A filter method named by any object: only text can name one.
std::string method_name(nb::handle method) {
    return PyUnicode_Check(method.ptr()) ? utf8(method) : std::string("\x01unknown");
}

}  // namespace

void bind_settings(nb::module_& m) {
    nb::object earlier = nb::hasattr(m, "_Settings") ? nb::object(m.attr("_Settings")) : nb::object();
    nb::class_<Settings> cls(m, "_Settings", "The user's settings of the whole system, kept in settings.json.");
    if (earlier.is_valid()) {
        // Another binding made `_Settings` first as a plain namespace: carry
        // over what it nested there (the check settings).
        nb::object names = nb::module_::import_("builtins").attr("vars")(earlier);
        for (nb::handle name : nb::list(names)) {
            const std::string text = utf8(name);
            if (text.rfind("__", 0) == 0) continue;
            nb::setattr(cls, name, earlier.attr(name));
        }
    }
    cls.attr("version") = Settings::version;
    bind_settings_check(cls);
    bind_sections(cls);
    bind_urls(cls);

    cls.def(
           "__init__",
           [](Settings* self, nb::handle environment) {
               auto env = environment_from_python(environment);
               if (!env) throw TypeError("_Settings needs an Environment");
               nb::gil_scoped_release release;
               new (self) Settings(*env);
           },
           nb::arg("environment").none())
        .def_prop_ro("check", [](const Settings& s) { return s.check_state(); })
        .def_prop_ro("export", &Settings::export_, nb::rv_policy::reference_internal)
        .def_prop_ro("workspace", &Settings::workspace, nb::rv_policy::reference_internal)
        .def_prop_ro("server", &Settings::server, nb::rv_policy::reference_internal)
        .def_prop_ro("urls", &Settings::urls)
        .def_prop_ro("data", &Settings::data)
        .def_prop_ro("_path", &Settings::path)
        .def("write", &Settings::write, nb::call_guard<nb::gil_scoped_release>())
        .def("_read", &Settings::read, nb::call_guard<nb::gil_scoped_release>())
        .def_static(
            "approved_name",
            [](const std::string& text, bool none, nb::handle method) -> nb::object {
                const auto approved = Settings::approved_name(text, none, method_name(method));
                return approved ? to_str(nb::str(approved->c_str(), approved->size())) : nb::none();
            },
            nb::arg("text"), nb::arg("none") = false,
            nb::arg("method").none() = nb::str(std::string(Settings::default_method).c_str()))
        .def_static(
            "is_approved",
            [](const std::string& text, nb::handle method) { return Settings::is_approved(text, method_name(method)); },
            nb::arg("text"), nb::arg("method").none() = nb::str(std::string(Settings::default_method).c_str()));
}

}  // namespace zerko::py
