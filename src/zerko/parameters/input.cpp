#include "zerko/parameters/input.hpp"

#include <algorithm>

#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/errors.hpp"

namespace zerko::parameters {

namespace detail {

const Document& expect_object(const Document& data, std::string_view what) {
    if (!data.is_object()) throw TypeError(std::string(what) + " must be a JSON object");
    return data;
}

const Document& expect_array(const Document& data, std::string_view what) {
    if (!data.is_array()) throw TypeError(std::string(what) + " must be a JSON array");
    return data;
}

const Document* find_key(const Document& object, const char* key) {
    if (!object.is_object()) return nullptr;
    auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

namespace {
[[noreturn]] void wrong_kind(const char* key, const char* kind) {
    throw TypeError(std::string("\"") + key + "\" must be " + kind);
}
}  // namespace

std::int64_t read_int(const Document& object, const char* key, std::int64_t fallback) {
    const Document* value = find_key(object, key);
    if (!value) return fallback;
    if (value->is_number_integer()) {
        if (value->is_number_unsigned() && value->get<std::uint64_t>() > std::uint64_t(INT64_MAX)) {
            wrong_kind(key, "an integer of 64 bits");
        }
        return value->get<std::int64_t>();
    }
    wrong_kind(key, "an integer");
}

double read_float(const Document& object, const char* key, double fallback) {
    const Document* value = find_key(object, key);
    if (!value) return fallback;
    if (value->is_number()) return value->get<double>();
    wrong_kind(key, "a number");
}

bool read_bool(const Document& object, const char* key, bool fallback) {
    const Document* value = find_key(object, key);
    if (!value) return fallback;
    if (value->is_boolean()) return value->get<bool>();
    wrong_kind(key, "a boolean");
}

std::string read_text(const Document& object, const char* key, std::string_view fallback) {
    const Document* value = find_key(object, key);
    if (!value) return std::string(fallback);
    if (value->is_string()) return value->get<std::string>();
    wrong_kind(key, "a string");
}

}  // namespace detail

// ------------------------------------------------------------------ Input

namespace {
std::string checked_attr(std::string name) {
    foundation::Assert::Parameters::Input::attribute(name);
    return name;
}
}  // namespace

Input::Input(std::string attr_name, std::string label, std::string help_text)
    : attr_(checked_attr(std::move(attr_name))), label_(std::move(label)), help_text_(std::move(help_text)) {}

Document Input::data() const { throw NotImplementedError(); }
void Input::load(const Document&) { throw NotImplementedError(); }
std::shared_ptr<Input> Input::clone() const { throw NotImplementedError(); }

std::string Input::str() const {
    return "attr=\"" + attr_ + "\" label=\"" + label_ + "\" help=\"" + help_text_ + "\"";
}

void NamedInputs::set(const std::string& name, InputPtr input) {
    auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.first == name; });
    if (found != entries_.end()) found->second = std::move(input);
    else entries_.emplace_back(name, std::move(input));
}

InputPtr NamedInputs::find(std::string_view name) const {
    for (const auto& [key, input] : entries_) {
        if (key == name) return input;
    }
    return nullptr;
}

// ------------------------------------------------------------------ RegEx

RegEx::RegEx(std::string attr_name, std::string text, std::string label, std::string help_text)
    : Input(std::move(attr_name), std::move(label), std::move(help_text)), text(std::move(text)) {}

Document RegEx::data() const { return Document{{"text", text}}; }

void RegEx::load(const Document& data) {
    text = detail::read_text(detail::expect_object(data, "RegEx data"), "text", ".+");
}

std::shared_ptr<Input> RegEx::clone() const { return std::make_shared<RegEx>(*this); }

// ------------------------------------------------------------------ Switch

Switch::Switch(std::string attr_name, bool enabled, std::string label, std::string help_text)
    : Input(std::move(attr_name), std::move(label), std::move(help_text)), enabled(enabled) {}

Document Switch::data() const { return Document{{"enabled", enabled}}; }

void Switch::load(const Document& data) {
    enabled = detail::read_bool(detail::expect_object(data, "Switch data"), "enabled", false);
}

std::shared_ptr<Input> Switch::clone() const { return std::make_shared<Switch>(*this); }

}  // namespace zerko::parameters
