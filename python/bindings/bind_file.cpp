// _File: JSON files, the access queue around shared ones, text files, timed
// names and the quarantine of corrupted files.
#include "common.hpp"
#include "zerko/file/access_queue.hpp"
#include "zerko/file/json.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::py {

namespace {

using file::Json;

/// A path argument: text, or anything os.fspath turns into text. A NUL in
/// it is refused here, before anything is opened.
std::string path_text(nb::handle value) {
    nb::object path = PyUnicode_Check(value.ptr()) ? nb::borrow(value) : nb::module_::import_("os").attr("fspath")(value);
    if (!PyUnicode_Check(path.ptr())) throw TypeError("path must be text");
    std::string text = utf8(path, "path");
    file::assert_path(text);
    return text;
}

/// The guard with the document as Python sees it: the body mutates that
/// object, and leaving writes back what it holds then.
struct PyAccessQueue {
    PyAccessQueue(const std::string& path, bool write, double timeout, double threshold)
        : queue(path, write, timeout, threshold) {}
    Json::AccessQueue queue;
    nb::object data;
};

nb::object enter(PyAccessQueue& self) {
    {
        nb::gil_scoped_release release;
        self.queue.enter();
    }
    self.data = from_json(self.queue.data());
    return self.data;
}

bool leave(PyAccessQueue& self, nb::args) {
    if (self.queue.write()) {
        file::Document document;
        try {
            document = to_json(self.data);
        } catch (...) {
            // A document that cannot be written still gives the place up.
            nb::gil_scoped_release release;
            self.queue.release_access();
            throw;
        }
        self.queue.data() = std::move(document);
    }
    nb::gil_scoped_release release;
    self.queue.leave();
    return false;  // the body's own error is not suppressed
}

template <typename F>
auto unlocked(F&& f) {
    nb::gil_scoped_release release;
    return f();
}

void translate_decode_error(const std::exception_ptr& p, void*) {
    try {
        std::rethrow_exception(p);
    } catch (const file::JsonDecodeError& e) {
        nb::object cls = nb::module_::import_("json").attr("JSONDecodeError");
        const auto& doc = e.document();
        nb::object error = cls(nb::str(e.message().c_str()),
                               nb::steal(PyUnicode_DecodeUTF8(doc.data(), static_cast<Py_ssize_t>(doc.size()), "replace")),
                               e.position());
        PyErr_SetObject(cls.ptr(), error.ptr());
    }
}

}  // namespace

void bind_file(nb::module_& m) {
    nb::register_exception_translator(&translate_decode_error);

    nb::object ns = make_namespace(m, "_File", "The file operations that the system shares.");
    ns.attr("_ENCODING") = nb::str(std::string(file::encoding).c_str());
    ns.attr("timed_filename") = nb::cpp_function(
        [](nb::handle filename) { return file::timed_filename(path_text(filename)); }, nb::arg("filename"),
        "'<stem>-<seconds since the epoch><extension>'.");
    ns.attr("move_corrupted") = nb::cpp_function(
        [](nb::handle path) {
            std::string text;
            try {
                text = path_text(path);
            } catch (nb::python_error& e) {
                foundation::Logger::exception(std::current_exception());
                return;
            } catch (const std::exception&) {
                foundation::Logger::exception(std::current_exception());
                return;
            }
            nb::gil_scoped_release release;
            file::move_corrupted(text);
        },
        nb::arg("path").none(), "Moves a file into the '.corrupted' directory beside it; never raises.");

    nb::object text_ns = make_namespace(ns, "Text", "Plain text files.");
    text_ns.attr("read") = nb::cpp_function(
        [](nb::handle path) {
            const std::string p = path_text(path);
            std::string raw = unlocked([&] { return file::Text::read(p); });
            nb::object encoding = nb::module_::import_("locale").attr("getpreferredencoding")(false);
            return nb::bytes(raw.data(), raw.size()).attr("decode")(encoding);
        },
        nb::arg("path"), "The whole file in text mode, in the platform's default encoding.");

    nb::object json_ns = make_namespace(ns, "Json", "The single place where JSON files are read and written.");
    json_ns.attr("read") = nb::cpp_function(
        [](nb::handle path) {
            const std::string p = path_text(path);
            return from_json(unlocked([&] { return Json::read(p); }));
        },
        nb::arg("path"), "Parses the whole file as UTF-8 JSON; errors reach the caller.");
    json_ns.attr("write") = nb::cpp_function(
        [](nb::handle path, nb::handle data) {
            const std::string p = path_text(path);
            file::Document document = to_json(data);
            nb::gil_scoped_release release;
            Json::write(p, std::move(document));
        },
        nb::arg("path"), nb::arg("data").none(), "Writes JSON with an indent of 2, non-ASCII kept; takes no lock.");

    nb::class_<PyAccessQueue>(json_ns, "AccessQueue",
                              "Scoped guard of a read or read-modify-write of a shared JSON file: entry returns "
                              "the document, leaving writes it back if `write` is true.")
        .def(
            "__init__",
            [](PyAccessQueue* self, nb::handle json_path, bool write, double access_timeout,
               double life_duration_threshold) {
                new (self) PyAccessQueue(path_text(json_path), write, access_timeout, life_duration_threshold);
            },
            nb::arg("json_path"), nb::arg("write") = false, nb::arg("access_timeout") = 30.0,
            nb::arg("life_duration_threshold") = 35.0)
        .def("__enter__", &enter)
        .def("__exit__", &leave, nb::arg("args"))
        .def_prop_ro("_path", [](const PyAccessQueue& q) { return q.queue.path(); })
        .def_prop_ro("_directory", [](const PyAccessQueue& q) { return q.queue.directory(); })
        .def_prop_ro("_filename", [](const PyAccessQueue& q) { return q.queue.filename(); })
        .def_prop_ro("_path_lock", [](const PyAccessQueue& q) { return q.queue.path_lock(); })
        .def_prop_ro("_path_id", [](const PyAccessQueue& q) { return q.queue.path_id(); })
        .def_prop_ro("_write", [](const PyAccessQueue& q) { return q.queue.write(); })
        .def_prop_ro("_access_timeout", [](const PyAccessQueue& q) { return q.queue.access_timeout(); })
        .def_prop_ro("_life_duration_threshold",
                     [](const PyAccessQueue& q) { return q.queue.life_duration_threshold(); })
        .def_prop_rw(
            "_data",
            [](PyAccessQueue& q) -> nb::object { return q.data.is_valid() ? q.data : from_json(q.queue.data()); },
            [](PyAccessQueue& q, nb::handle value) { q.data = nb::borrow(value); }, nb::arg("value").none())
        .def("_assert_access", [](PyAccessQueue& q) { unlocked([&] { q.queue.assert_access(); }); })
        .def("_is_free", [](PyAccessQueue& q) { return unlocked([&] { return q.queue.is_free(); }); })
        .def("_is_next", [](PyAccessQueue& q) { return unlocked([&] { return q.queue.is_next(); }); })
        .def("_get_editors_sequence",
             [](PyAccessQueue& q) { return unlocked([&] { return q.queue.get_editors_sequence(); }); })
        .def(
            "_delete_outdated",
            [](PyAccessQueue& q, nb::handle path) {
                const std::string p = path_text(path);
                unlocked([&] { q.queue.delete_outdated(p); });
            },
            nb::arg("path"))
        .def("_release_access", [](PyAccessQueue& q) { unlocked([&] { q.queue.release_access(); }); });
}

}  // namespace zerko::py
