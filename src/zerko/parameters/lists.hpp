#pragma once
// Inputs that hold a list of elements the user adds and removes: texts with a
// switch each, plain texts, and integer slices. Loading a stored list
// replaces the list; it does not merge into it.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

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
};

/// A text to match; an element of TextMatchList.
class TextMatch {
public:
    explicit TextMatch(std::string text = {}) : text(std::move(text)) {}
    std::string text;
    std::shared_ptr<TextMatch> clone() const { return std::make_shared<TextMatch>(*this); }
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
};

class TextInputList : public Input {
public:
    using ElementPtr = std::shared_ptr<TextInput>;
    /// A null element raises TypeError.
    explicit TextInputList(std::string attr_name, std::vector<ElementPtr> items = {}, std::string help_text = {});

    const std::vector<ElementPtr>& items() const noexcept { return array_; }
    std::size_t size() const noexcept { return array_.size(); }
    /// std::out_of_range past the end.
    const ElementPtr& at(std::size_t index) const { return array_.at(index); }
    /// Appends a new element with defaults and returns it.
    ElementPtr add();
    /// std::out_of_range past the end.
    void pop(std::size_t index);
    /// The texts of the elements, of the enabled ones only when `enabled`.
    std::vector<std::string> values(bool enabled = true) const;

    /// [{"text", "enabled"}, ...]
    Document data() const override;
    /// Elements without "text" or "enabled" get "" and false.
    void load(const Document& data) override;
    std::shared_ptr<Input> clone() const override;
    /// "<class TextInputList> " and the input's form, then one line per element.
    std::string str() const;
    /// Replaces the elements; a null element raises TypeError.
    void build(std::vector<ElementPtr> items);

private:
    std::vector<ElementPtr> array_;
};

class TextMatchList : public Input {
public:
    using ElementPtr = std::shared_ptr<TextMatch>;
    /// A null element raises TypeError.
    explicit TextMatchList(std::string attr_name, std::vector<ElementPtr> items = {}, std::string help_text = {});

    const std::vector<ElementPtr>& items() const noexcept { return array_; }
    std::size_t size() const noexcept { return array_.size(); }
    const ElementPtr& at(std::size_t index) const { return array_.at(index); }
    ElementPtr add();
    void pop(std::size_t index);
    /// The texts of all elements.
    std::vector<std::string> values() const;

    /// [{"text"}, ...]
    Document data() const override;
    void load(const Document& data) override;
    std::shared_ptr<Input> clone() const override;
    /// Replaces the elements; a null element raises TypeError.
    void build(std::vector<ElementPtr> items);

private:
    std::vector<ElementPtr> array_;
};

/// A list of integer slices that all share the limits, step, prefix and units
/// of a declared default slice, whatever was stored: the stored form holds
/// values only.
class IntSliceList : public Input {
public:
    using ElementPtr = std::shared_ptr<IntSlice>;

    /// What every slice of the list copies from the default's parts.
    struct InputSpec {
        explicit InputSpec(const IntRange& int_range)
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

    const std::vector<ElementPtr>& items() const noexcept { return array_; }
    const std::shared_ptr<IntSlice>& default_slice() const noexcept { return default_; }
    std::int64_t default_start() const noexcept { return default_start_; }
    std::int64_t default_stop() const noexcept { return default_stop_; }
    const InputSpec& spec_start() const noexcept { return spec_start_; }
    const InputSpec& spec_stop() const noexcept { return spec_stop_; }

    /// Appends a slice of the default values with the list's limits and returns it.
    ElementPtr add();
    void pop(std::size_t index);

    /// Copies limits and step, and prefix and units when they are not empty.
    static void apply_spec(IntRange& int_range, const InputSpec& state);

    /// [{"start": {"value"}, "stop": {"value"}}, ...]
    Document data() const override;
    void load(const Document& data) override;
    /// Keeps the name, the default slice and cloned elements; the help text
    /// is not carried over.
    std::shared_ptr<Input> clone() const override;
    /// Replaces the slices, giving each the list's limits; a null slice
    /// raises TypeError.
    void build(std::vector<ElementPtr> items);

private:
    std::vector<ElementPtr> array_;
    std::shared_ptr<IntSlice> default_;
    std::int64_t default_start_;
    std::int64_t default_stop_;
    InputSpec spec_start_;
    InputSpec spec_stop_;
};

}  // namespace zerko::parameters
