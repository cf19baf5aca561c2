#include "zerko/parameters/lists.hpp"

#include "zerko/foundation/errors.hpp"

namespace zerko::parameters {

namespace {

template <typename T>
std::shared_ptr<T> require(std::shared_ptr<T> element) {
    if (!element) throw TypeError("");
    return element;
}

template <typename T>
void pop_at(std::vector<T>& array, std::size_t index) {
    if (index >= array.size()) throw std::out_of_range("pop index out of range");
    array.erase(array.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace

// ------------------------------------------------------------------ elements

std::string TextInput::str() const {
    return std::string("<class TextInput> enabled=") + (enabled ? "True" : "False") + " text=\"" + text + "\"";
}

IntSlice::IntSlice(std::shared_ptr<IntRange> start, std::shared_ptr<IntRange> stop)
    : start(require(std::move(start))), stop(require(std::move(stop))) {}

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

// ------------------------------------------------------------------ TextInputList

TextInputList::TextInputList(std::string attr_name, std::vector<ElementPtr> items, std::string help_text)
    : Input(std::move(attr_name), {}, std::move(help_text)) {
    build(std::move(items));
}

void TextInputList::build(std::vector<ElementPtr> items) {
    array_.clear();
    for (auto& item : items) array_.push_back(require(std::move(item)));
}

TextInputList::ElementPtr TextInputList::add() { return array_.emplace_back(std::make_shared<TextInput>()); }

void TextInputList::pop(std::size_t index) { pop_at(array_, index); }

std::vector<std::string> TextInputList::values(bool enabled) const {
    std::vector<std::string> out;
    for (const auto& item : array_) {
        if (!enabled || item->enabled) out.push_back(item->text);
    }
    return out;
}

Document TextInputList::data() const {
    Document out = Document::array();
    for (const auto& item : array_) out.push_back(Document{{"text", item->text}, {"enabled", item->enabled}});
    return out;
}

void TextInputList::load(const Document& data) {
    std::vector<ElementPtr> items;
    for (const auto& element : detail::expect_array(data, "TextInputList data")) {
        detail::expect_object(element, "TextInputList element");
        items.push_back(std::make_shared<TextInput>(detail::read_text(element, "text", ""),
                                                    detail::read_bool(element, "enabled", false)));
    }
    build(std::move(items));
}

std::shared_ptr<Input> TextInputList::clone() const {
    std::vector<ElementPtr> items;
    for (const auto& item : array_) items.push_back(item->clone());
    return std::make_shared<TextInputList>(attr(), std::move(items), help_text());
}

std::string TextInputList::str() const {
    std::string out = "<class TextInputList> " + Input::str();
    for (const auto& item : array_) out += "\n  " + item->str();
    return out;
}

// ------------------------------------------------------------------ TextMatchList

TextMatchList::TextMatchList(std::string attr_name, std::vector<ElementPtr> items, std::string help_text)
    : Input(std::move(attr_name), {}, std::move(help_text)) {
    build(std::move(items));
}

void TextMatchList::build(std::vector<ElementPtr> items) {
    array_.clear();
    for (auto& item : items) array_.push_back(require(std::move(item)));
}

TextMatchList::ElementPtr TextMatchList::add() { return array_.emplace_back(std::make_shared<TextMatch>()); }

void TextMatchList::pop(std::size_t index) { pop_at(array_, index); }

std::vector<std::string> TextMatchList::values() const {
    std::vector<std::string> out;
    for (const auto& item : array_) out.push_back(item->text);
    return out;
}

Document TextMatchList::data() const {
    Document out = Document::array();
    for (const auto& item : array_) out.push_back(Document{{"text", item->text}});
    return out;
}

void TextMatchList::load(const Document& data) {
    std::vector<ElementPtr> items;
    for (const auto& element : detail::expect_array(data, "TextMatchList data")) {
        detail::expect_object(element, "TextMatchList element");
        items.push_back(std::make_shared<TextMatch>(detail::read_text(element, "text", "")));
    }
    build(std::move(items));
}

std::shared_ptr<Input> TextMatchList::clone() const {
    std::vector<ElementPtr> items;
    for (const auto& item : array_) items.push_back(item->clone());
    return std::make_shared<TextMatchList>(attr(), std::move(items), help_text());
}

// ------------------------------------------------------------------ IntSliceList

namespace {
const IntSlice& checked_default(const std::shared_ptr<IntSlice>& slice) {
    if (!slice) throw TypeError("");
    return *slice;
}
}  // namespace

IntSliceList::IntSliceList(std::string attr_name, std::shared_ptr<IntSlice> default_slice,
                           std::vector<ElementPtr> items, std::string help_text)
    : Input(std::move(attr_name), {}, std::move(help_text)),
      default_(std::move(default_slice)),
      default_start_(checked_default(default_).start->value),
      default_stop_(default_->stop->value),
      spec_start_(*default_->start),
      spec_stop_(*default_->stop) {
    build(std::move(items));
}

void IntSliceList::apply_spec(IntRange& int_range, const InputSpec& state) {
    int_range.minimum = state.minimum;
    int_range.maximum = state.maximum;
    int_range.step = state.step;
    if (!state.prefix.empty()) int_range.prefix_ = state.prefix;
    if (!state.units.empty()) int_range.units_ = state.units;
}

void IntSliceList::build(std::vector<ElementPtr> items) {
    array_.clear();
    for (auto& item : items) {
        require(item);
        apply_spec(*item->start, spec_start_);
        apply_spec(*item->stop, spec_stop_);
        array_.push_back(std::move(item));
    }
}

IntSliceList::ElementPtr IntSliceList::add() {
    auto start = std::make_shared<IntRange>("start", 0, 100, 1, default_start_);
    auto stop = std::make_shared<IntRange>("stop", 0, 100, 1, default_stop_);
    apply_spec(*start, spec_start_);
    apply_spec(*stop, spec_stop_);
    return array_.emplace_back(std::make_shared<IntSlice>(std::move(start), std::move(stop)));
}

void IntSliceList::pop(std::size_t index) { pop_at(array_, index); }

Document IntSliceList::data() const {
    Document out = Document::array();
    for (const auto& item : array_) out.push_back(item->data());
    return out;
}

void IntSliceList::load(const Document& data) {
    std::vector<ElementPtr> items;
    for (const auto& element : detail::expect_array(data, "IntSliceList data")) {
        auto slice = std::make_shared<IntSlice>(std::make_shared<IntRange>("start"), std::make_shared<IntRange>("stop"));
        slice->load(element);
        items.push_back(std::move(slice));
    }
    build(std::move(items));
}

std::shared_ptr<Input> IntSliceList::clone() const {
    std::vector<ElementPtr> items;
    for (const auto& item : array_) items.push_back(item->clone());
    return std::make_shared<IntSliceList>(attr(), default_, std::move(items));
}

}  // namespace zerko::parameters
