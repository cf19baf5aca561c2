#pragma once
// Inputs that hold a list of elements the user adds and removes: texts with a
// switch each, plain texts, and integer slices. Loading a stored list
// replaces the list; it does not merge into it.
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/foundation/errors.hpp"
#include "zerko/parameters/input.hpp"

namespace zerko::parameters {

/// A text with a switch; an element of TextInputList.
class TextInput {
public:
    explicit TextInput(std::string text = {}, bool enabled = false) : text(std::move(text)), enabled(enabled) {}
    std::string text;
    bool enabled;
    std::shared_ptr<TextInput> clone() const { return std::make_shared<TextInput>(*this); }
    /// <class TextInput> enabled=True text="..."
    std::string str() const;
    /// {"text", "enabled"}
    Document data() const;
    /// An element without "text" or "enabled" gets "" and false.
    static std::shared_ptr<TextInput> from_data(const Document& data, std::string_view list_kind);
};

/// A text to match; an element of TextMatchList.
class TextMatch {
public:
    explicit TextMatch(std::string text = {}) : text(std::move(text)) {}
    std::string text;
    std::shared_ptr<TextMatch> clone() const { return std::make_shared<TextMatch>(*this); }
    /// {"text"}
    Document data() const;
    static std::shared_ptr<TextMatch> from_data(const Document& data, std::string_view list_kind);
};

/// A range of integers given by two IntRange inputs.
class IntSlice {
public:
    /// Null parts raise TypeError.
    IntSlice(std::shared_ptr<IntRange> start, std::shared_ptr<IntRange> stop);
    std::shared_ptr<IntRange> start;
    std::shared_ptr<IntRange> stop;
    /// {"start": start.data, "stop": stop.data}
    Document data() const;
    /// Passes "start" and "stop" (or an empty object) to the parts, so a
    /// missing part takes the IntRange fallback.
    void load(const Document& data);
    std::shared_ptr<IntSlice> clone() const;
    /// A slice of two fresh parts loaded from `data`.
    static std::shared_ptr<IntSlice> from_data(const Document& data, std::string_view list_kind);
};

/// An input that holds a list of elements of one type. Elements are shared
/// objects: a host that holds one sees the list's edits of it.
template <typename Element>
class ElementList : public Input {
public:
    using ElementPtr = std::shared_ptr<Element>;

    const std::vector<ElementPtr>& items() const noexcept { return array_; }
    std::size_t size() const noexcept { return array_.size(); }
    /// std::out_of_range past the end.
    const ElementPtr& at(std::size_t index) const { return array_.at(index); }
    /// std::out_of_range past the end.
    void pop(std::size_t index) {
        if (index >= array_.size()) throw std::out_of_range("pop index out of range");
        array_.erase(array_.begin() + static_cast<std::ptrdiff_t>(index));
    }
    /// Replaces the elements; a null element raises ElementTypeError.
    void build(std::vector<ElementPtr> items) {
        array_.clear();
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (!items[i]) throw ElementTypeError(i);
            shape(*items[i]);
            array_.push_back(std::move(items[i]));
        }
    }

    /// The data of every element, in order.
    Document data() const override {
        Document out = Document::array();
        for (const auto& item : array_) out.push_back(item->data());
        return out;
    }
    /// Replaces the elements by those of the stored list.
    void load(const Document& data) override {
        std::vector<ElementPtr> items;
        for (const auto& element : detail::expect_array(data, std::string(kind_) + " data")) {
            items.push_back(Element::from_data(element, kind_));
        }
        build(std::move(items));
    }

protected:
    /// `kind` names the list in the errors of stored data.
    ElementList(std::string attr_name, std::string help_text, std::string_view kind)
        : Input(std::move(attr_name), {}, std::move(help_text)), kind_(kind) {}
    /// Gives an element the list's own shape as it is taken in.
    virtual void shape(Element&) const {}
    /// Appends `item` as it is and returns it.
    const ElementPtr& append(ElementPtr item) { return array_.emplace_back(std::move(item)); }
    std::vector<ElementPtr> cloned_items() const {
        std::vector<ElementPtr> out;
        for (const auto& item : array_) out.push_back(item->clone());
        return out;
    }

private:
    std::vector<ElementPtr> array_;
    std::string_view kind_;
};

class TextInputList final : public ElementList<TextInput> {
public:
    /// A null element raises TypeError.
    explicit TextInputList(std::string attr_name, std::vector<ElementPtr> items = {}, std::string help_text = {});

    /// Appends a new element with defaults and returns it.
    ElementPtr add() { return append(std::make_shared<TextInput>()); }
    /// The texts of the elements, of the enabled ones only when `enabled`.
    std::vector<std::string> values(bool enabled = true) const;
    std::shared_ptr<Input> clone() const override;
    /// "<class TextInputList> " and the input's form, then one line per element.
    std::string str() const;
};

class TextMatchList final : public ElementList<TextMatch> {
public:
    /// A null element raises TypeError.
    explicit TextMatchList(std::string attr_name, std::vector<ElementPtr> items = {}, std::string help_text = {});

    ElementPtr add() { return append(std::make_shared<TextMatch>()); }
    /// The texts of all elements.
    std::vector<std::string> values() const;
    std::shared_ptr<Input> clone() const override;
};

/// A list of integer slices that all share the limits, step, prefix and units
/// of a declared default slice, whatever was stored: the stored form holds
/// values only.
class IntSliceList final : public ElementList<IntSlice> {
public:
    /// What every slice of the list copies from one part of the default slice.
    struct PartLimits {
        explicit PartLimits(const IntRange& int_range)
            : prefix(int_range.prefix()),
              units(int_range.units()),
              minimum(int_range.minimum),
              maximum(int_range.maximum),
              step(int_range.step) {}
        std::string prefix;
        std::string units;
        std::int64_t minimum;
        std::int64_t maximum;
        std::int64_t step;
    };

    /// A null `default_slice` or element raises TypeError.
    IntSliceList(std::string attr_name, std::shared_ptr<IntSlice> default_slice, std::vector<ElementPtr> items = {},
                 std::string help_text = {});

    const std::shared_ptr<IntSlice>& default_slice() const noexcept { return default_; }
    std::int64_t default_start() const noexcept { return default_start_; }
    std::int64_t default_stop() const noexcept { return default_stop_; }
    const PartLimits& start_limits() const noexcept { return start_limits_; }
    const PartLimits& stop_limits() const noexcept { return stop_limits_; }

    /// Appends a slice of the default values with the list's limits and returns it.
    ElementPtr add();

    /// Copies limits and step, and prefix and units when they are not empty.
    static void apply_limits(IntRange& int_range, const PartLimits& limits);

    /// Keeps the name, the default slice and cloned elements; the help text
    /// is not carried over.
    std::shared_ptr<Input> clone() const override;

private:
    void shape(IntSlice& slice) const override;

    std::shared_ptr<IntSlice> default_;
    std::int64_t default_start_;
    std::int64_t default_stop_;
    PartLimits start_limits_;
    PartLimits stop_limits_;
};

}  // namespace zerko::parameters
