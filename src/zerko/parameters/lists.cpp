#include "zerko/parameters/lists.hpp"

#include "zerko/foundation/errors.hpp"

namespace zerko::parameters {

namespace {

template <typename T>
std::shared_ptr<T> require(std::shared_ptr<T> element, const char* what) {
    if (!element) throw TypeError(std::string(what) + " is missing");
    return element;
}

std::string element_kind(std::string_view list_kind) { return std::string(list_kind) + " element"; }

}  // namespace

// ------------------------------------------------------------------ elements

std::string TextInput::str() const {
    return std::string("<class TextInput> enabled=") + (enabled ? "True" : "False") + " text=\"" + text + "\"";
}

Document TextInput::data() const { return Document{{"text", text}, {"enabled", enabled}}; }

std::shared_ptr<TextInput> TextInput::from_data(const Document& data, std::string_view list_kind) {
    detail::expect_object(data, element_kind(list_kind));
    return std::make_shared<TextInput>(detail::read_text(data, "text", ""), detail::read_bool(data, "enabled", false));
}

Document TextMatch::data() const { return Document{{"text", text}}; }

std::shared_ptr<TextMatch> TextMatch::from_data(const Document& data, std::string_view list_kind) {
    detail::expect_object(data, element_kind(list_kind));
    return std::make_shared<TextMatch>(detail::read_text(data, "text", ""));
}

IntSlice::IntSlice(std::shared_ptr<IntRange> start, std::shared_ptr<IntRange> stop)
    : start(require(std::move(start), "start")), stop(require(std::move(stop), "stop")) {}

Document IntSlice::data() const { return Document{{"start", start->data()}, {"stop", stop->data()}}; }

void IntSlice::load(const Document& data) {
    detail::expect_object(data, "IntSlice data");
    const Document empty = Document::object();
    const Document* part = detail::find_key(data, "start");
    start->load(part ? *part : empty);
    part = detail::find_key(data, "stop");
    stop->load(part ? *part : empty);
}

std::shared_ptr<IntSlice> IntSlice::clone() const {
    return std::make_shared<IntSlice>(std::static_pointer_cast<IntRange>(start->clone()),
                                      std::static_pointer_cast<IntRange>(stop->clone()));
}

std::shared_ptr<IntSlice> IntSlice::from_data(const Document& data, std::string_view) {
    auto slice = std::make_shared<IntSlice>(std::make_shared<IntRange>("start"), std::make_shared<IntRange>("stop"));
    slice->load(data);
    return slice;
}

// ------------------------------------------------------------------ TextInputList

TextInputList::TextInputList(std::string attr_name, std::vector<ElementPtr> items, std::string help_text)
    : ElementList(std::move(attr_name), std::move(help_text), "TextInputList") {
    build(std::move(items));
}

std::vector<std::string> TextInputList::values(bool enabled) const {
    std::vector<std::string> out;
    for (const auto& item : items()) {
        if (!enabled || item->enabled) out.push_back(item->text);
    }
    return out;
}

std::shared_ptr<Input> TextInputList::clone() const {
    return std::make_shared<TextInputList>(attr(), cloned_items(), help_text());
}

std::string TextInputList::str() const {
    std::string out = "<class TextInputList> " + Input::str();
    for (const auto& item : items()) out += "\n  " + item->str();
    return out;
}

// ------------------------------------------------------------------ TextMatchList

TextMatchList::TextMatchList(std::string attr_name, std::vector<ElementPtr> items, std::string help_text)
    : ElementList(std::move(attr_name), std::move(help_text), "TextMatchList") {
    build(std::move(items));
}

std::vector<std::string> TextMatchList::values() const {
    std::vector<std::string> out;
    for (const auto& item : items()) out.push_back(item->text);
    return out;
}

std::shared_ptr<Input> TextMatchList::clone() const {
    return std::make_shared<TextMatchList>(attr(), cloned_items(), help_text());
}

// ------------------------------------------------------------------ IntSliceList

namespace {
const IntSlice& checked_default(const std::shared_ptr<IntSlice>& slice) {
    if (!slice) throw TypeError("default is missing");
    return *slice;
}
}  // namespace

IntSliceList::IntSliceList(std::string attr_name, std::shared_ptr<IntSlice> default_slice,
                           std::vector<ElementPtr> items, std::string help_text)
    : ElementList(std::move(attr_name), std::move(help_text), "IntSliceList"),
      default_(std::move(default_slice)),
      default_start_(checked_default(default_).start->value),
      default_stop_(default_->stop->value),
      start_limits_(*default_->start),
      stop_limits_(*default_->stop) {
    build(std::move(items));
}

void IntSliceList::apply_limits(IntRange& int_range, const PartLimits& limits) {
    int_range.minimum = limits.minimum;
    int_range.maximum = limits.maximum;
    int_range.step = limits.step;
    if (!limits.prefix.empty()) int_range.prefix_ = limits.prefix;
    if (!limits.units.empty()) int_range.units_ = limits.units;
}

void IntSliceList::shape(IntSlice& slice) const {
    apply_limits(*slice.start, start_limits_);
    apply_limits(*slice.stop, stop_limits_);
}

IntSliceList::ElementPtr IntSliceList::add() {
    auto slice = std::make_shared<IntSlice>(std::make_shared<IntRange>("start", 0, 100, 1, default_start_),
                                            std::make_shared<IntRange>("stop", 0, 100, 1, default_stop_));
    shape(*slice);
    return append(std::move(slice));
}

std::shared_ptr<Input> IntSliceList::clone() const {
    return std::make_shared<IntSliceList>(attr(), default_, cloned_items());
}

}  // namespace zerko::parameters
