// _Statistics: the store of usage records, its record kinds and the two
// messages of the statistics exchange.
#include "common.hpp"
#include "zerko/api/environment.hpp"
#include "zerko/statistics/http.hpp"
#include "zerko/statistics/records.hpp"
#include "zerko/statistics/statistics.hpp"

namespace zerko::py {

std::shared_ptr<api::Environment> environment_from_python(nb::handle value);

namespace {

using statistics::Document;
using statistics::HttpRequest;
using statistics::HttpResponse;
using statistics::Statistics;
namespace type = statistics::type;

nb::str text(std::string_view s) { return nb::str(s.data(), s.size()); }

// A platform response: only its `status` is read. A status that is no JSON
// value compares unequal to 200, as any foreign object would.
HttpResponse response_from_python(nb::handle response) {
    return HttpResponse([response]() -> Document {
        nb::object status = response.attr("status");
        try {
            return to_json(status);
        } catch (const TypeError&) {
            return nullptr;
        }
    });
}

void bind_records(nb::handle outer) {
    nb::object ns = make_namespace(outer, "Type", "The kinds of usage records.");
    nb::class_<type::Record> record(ns, "_Record", "A record whose timestamp is the moment its data is read.");
    record.def(nb::init<>()).def_prop_ro("data", &type::Record::data, "The record as JSON.");
    record.attr("key") = text(type::Record::category);

    nb::class_<type::Validate, type::Record>(ns, "Validate", "One validation run.")
        .def(nb::init<double, double, std::optional<std::string>>(), nb::arg("timestamp"), nb::arg("speed"),
             nb::arg("project").none() = nb::none())
        .attr("key") = text(type::Validate::category);
    nb::class_<type::Checks, type::Record>(ns, "Checks", "One run of one check with one parameter task.")
        .def(nb::init<double, double, std::string, std::string>(), nb::arg("timestamp"), nb::arg("speed"),
             nb::arg("name"), nb::arg("result"))
        .attr("key") = text(type::Checks::category);
    nb::class_<type::Exported, type::Record>(ns, "Exported", "One export run.")
        .def(nb::init<>())
        .attr("key") = text(type::Exported::category);
    nb::class_<type::FeedbackSent, type::Record>(ns, "FeedbackSent", "One feedback message sent.")
        .def(nb::init<>())
        .attr("key") = text(type::FeedbackSent::category);
}

void bind_messages(nb::handle outer) {
    nb::class_<HttpRequest> request(outer, "HttpRequest", "The statistics body for the server.");
    nb::dict headers;
    headers[text(HttpRequest::header.first)] = text(HttpRequest::header.second);
    request.attr("headers") = headers;
    request.def(nb::init<std::string, Document>(), nb::arg("username"), nb::arg("contents"))
        .def_prop_ro("username", &HttpRequest::username)
        .def_prop_ro("contents", &HttpRequest::contents)
        .def("__str__", &HttpRequest::text)
        .def("__bytes__", [](const HttpRequest& r) {
            const auto body = r.text();
            return nb::bytes(body.data(), body.size());
        });

    nb::class_<HttpResponse>(outer, "HttpResponse", "The server's answer: accepted when its status is 200.")
        .def(
            "__init__",
            [](HttpResponse* self, nb::handle response) { new (self) HttpResponse(response_from_python(response)); },
            nb::arg("response").none())
        .def_prop_ro("accepted", &HttpResponse::accepted)
        .def_prop_ro("_accepted", &HttpResponse::accepted);
}

}  // namespace

void bind_statistics(nb::module_& m) {
    nb::class_<Statistics> cls(m, "_Statistics", "Usage records kept in statistics.json and merged on write.");
    cls.attr("version") = Statistics::version;
    bind_records(cls);
    bind_messages(cls);
    cls.def(
           "__init__",
           [](Statistics* self, nb::handle environment) {
               auto env = environment_from_python(environment);
               if (!env) throw TypeError("_Statistics needs an Environment");
               nb::gil_scoped_release release;  // the file may be busy
               new (self) Statistics(*env);
           },
           nb::arg("environment").none())
        .def(
            "add",
            [](Statistics& s, nb::handle record) {
                // Any object with `key` and `data` is a record; a key that is
                // no text names no category, so the record goes nowhere.
                nb::object key = record.attr("key");
                if (!PyUnicode_Check(key.ptr())) return;
                const std::string category = utf8(key);
                Document data = to_json(record.attr("data"));
                nb::gil_scoped_release release;
                s.add(category, std::move(data));
            },
            nb::arg("record"))
        .def("write", &Statistics::write, nb::arg("clear") = false, nb::call_guard<nb::gil_scoped_release>())
        .def("create_http_request", &Statistics::create_http_request, nb::arg("username"),
             nb::call_guard<nb::gil_scoped_release>())
        .def(
            "accept_http_response",
            [](Statistics& s, nb::handle response, bool clear) {
                const HttpResponse parsed = response_from_python(response);
                nb::gil_scoped_release release;
                s.accept_http_response(parsed, clear);
            },
            nb::arg("response").none(), nb::arg("clear") = true)
        .def_prop_ro("_data", &Statistics::data)
        .def_prop_ro("_path", &Statistics::path)
        .def("_read", &Statistics::read, nb::call_guard<nb::gil_scoped_release>())
        .def("_clear", &Statistics::clear, nb::call_guard<nb::gil_scoped_release>());
}

}  // namespace zerko::py
