#pragma once
// The inputs that checks and exporters declare: a name, what a form shows
// about it, its limits and one current value. Inputs hold values only; they
// neither clamp nor validate a value, the host's form respects the limits.
//
// Every input has a JSON form (`data`), takes a stored form back (`load`) and
// copies itself (`clone`). The load fallbacks of IntRange, FloatRange and
// RegEx are fixed (50, 0.5, ".+") and do not follow the declared value: a
// declared value reaches a task through its block's default state instead.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "zerko/file/json.hpp"
#include "zerko/foundation/errors.hpp"

namespace zerko::parameters {

using Document = file::Document;

/// An element of a declared list (of a list input or a combo box) that is
/// missing or of the wrong kind; `index` is its place in the list.
class ElementTypeError : public TypeError {
public:
    explicit ElementTypeError(std::size_t index)
        : TypeError("items[" + std::to_string(index) + "] is not an element of this input"), index_(index) {}
    std::size_t index() const noexcept { return index_; }

private:
    std::size_t index_;
};

/// Anything that may stand in a declaration: an input or a group. Hosts may
/// add node kinds of their own (the Python face wraps foreign objects).
class Node {
public:
    virtual ~Node() = default;
    /// An independent copy with the current values.
    virtual std::shared_ptr<Node> clone_node() const = 0;
};

/// The abstract base of every named input.
class Input : public Node {
public:
    /// Checks `attr_name` with the attribute-name assertion (ValueError,
    /// WrongAttributeName or PrivateAttributeName).
    explicit Input(std::string attr_name, std::string label = {}, std::string help_text = {});

    const std::string& attr() const noexcept { return attr_; }
    const std::string& label() const noexcept { return label_; }
    const std::string& help_text() const noexcept { return help_text_; }

    /// The JSON form of the current value. NotImplementedError here.
    virtual Document data() const;
    /// Takes a stored form back. NotImplementedError here.
    virtual void load(const Document& data);
    /// A new input of the same type from the current attributes and value.
    /// NotImplementedError here.
    virtual std::shared_ptr<Input> clone() const;
    std::shared_ptr<Node> clone_node() const override { return clone(); }

    /// attr="..." label="..." help="..."
    std::string str() const;

private:
    std::string attr_;
    std::string label_;
    std::string help_text_;
};

using InputPtr = std::shared_ptr<Input>;
using NodePtr = std::shared_ptr<Node>;

namespace detail {

// Reading stored forms: a value of the wrong kind raises TypeError, which a
// parameter task keeps as a load error instead of letting it crash a run.
const Document& expect_object(const Document& data, std::string_view what);
const Document& expect_array(const Document& data, std::string_view what);
/// The value under `key` of an object, or null when absent.
const Document* find_key(const Document& object, const char* key);
std::int64_t read_int(const Document& object, const char* key, std::int64_t fallback);
double read_float(const Document& object, const char* key, double fallback);
bool read_bool(const Document& object, const char* key, bool fallback);
std::string read_text(const Document& object, const char* key, std::string_view fallback);

}  // namespace detail

/// Inputs by attribute name in the order of first entry; entering a known
/// name replaces the input in its place.
class NamedInputs {
public:
    using Entry = std::pair<std::string, InputPtr>;
    void set(const std::string& name, InputPtr input);
    InputPtr find(std::string_view name) const;
    bool contains(std::string_view name) const { return find(name) != nullptr; }
    void clear() { entries_.clear(); }
    bool empty() const noexcept { return entries_.empty(); }
    std::size_t size() const noexcept { return entries_.size(); }
    std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
    std::vector<Entry>::const_iterator end() const { return entries_.end(); }

private:
    std::vector<Entry> entries_;
};

/// A number with limits, a step, a prefix and units; its stored form is
/// {"value": value}. The integer and the real range differ only in the type
/// of their numbers (and the real one's display precision).
template <typename T>
class NumberRange : public Input {
public:
    T minimum;
    T maximum;
    T step;
    T value;
    const std::string& prefix() const noexcept { return prefix_; }
    const std::string& units() const noexcept { return units_; }

    /// {"value": value}
    Document data() const override { return Document{{"value", value}}; }
    /// "value" must be a number of the range's type; without it the value
    /// becomes the fixed fallback.
    void load(const Document& data) override {
        if constexpr (std::is_integral_v<T>) {
            value = detail::read_int(detail::expect_object(data, "IntRange data"), "value", 50);
        } else {
            value = detail::read_float(detail::expect_object(data, "FloatRange data"), "value", 0.5);
        }
    }

protected:
    NumberRange(std::string attr_name, T minimum, T maximum, T step, T value, std::string prefix, std::string units,
                std::string label, std::string help_text)
        : Input(std::move(attr_name), std::move(label), std::move(help_text)),
          minimum(minimum),
          maximum(maximum),
          step(step),
          value(value),
          prefix_(std::move(prefix)),
          units_(std::move(units)) {}

    std::string prefix_;
    std::string units_;
};

class IntRange : public NumberRange<std::int64_t> {
public:
    IntRange(std::string attr_name, std::int64_t minimum = 0, std::int64_t maximum = 100, std::int64_t step = 1,
             std::int64_t value = 50, std::string prefix = {}, std::string units = {}, std::string label = {},
             std::string help_text = {})
        : NumberRange(std::move(attr_name), minimum, maximum, step, value, std::move(prefix), std::move(units),
                      std::move(label), std::move(help_text)) {}

    std::shared_ptr<Input> clone() const override { return std::make_shared<IntRange>(*this); }

private:
    friend class IntSliceList;  // makes every slice of a list look alike
};

class FloatRange : public NumberRange<double> {
public:
    FloatRange(std::string attr_name, double minimum = 0.0, double maximum = 1.0, double step = 0.05,
               std::int64_t precision = 2, double value = 0.5, std::string prefix = {}, std::string units = {},
               std::string label = {}, std::string help_text = {})
        : NumberRange(std::move(attr_name), minimum, maximum, step, value, std::move(prefix), std::move(units),
                      std::move(label), std::move(help_text)),
          precision(precision) {}

    std::int64_t precision;

    std::shared_ptr<Input> clone() const override { return std::make_shared<FloatRange>(*this); }
};

/// A regular expression that the user writes; the check applies it.
class RegEx : public Input {
public:
    explicit RegEx(std::string attr_name, std::string text = ".+", std::string label = {},
                   std::string help_text = {});

    std::string text;

    /// {"text": text}
    Document data() const override;
    /// "text" must be a string; without it the text becomes ".+".
    void load(const Document& data) override;
    std::shared_ptr<Input> clone() const override;

    /// Equal to another expression of the same text, or to that text itself.
    bool operator==(const RegEx& other) const { return text == other.text; }
    bool operator==(std::string_view other) const { return text == other; }
};

class Switch : public Input {
public:
    explicit Switch(std::string attr_name, bool enabled = false, std::string label = {}, std::string help_text = {});

    bool enabled;

    /// {"enabled": enabled}
    Document data() const override;
    /// "enabled" must be a boolean; without it the switch turns off.
    void load(const Document& data) override;
    std::shared_ptr<Input> clone() const override;
};

}  // namespace zerko::parameters
