#include "zerko/parameters/combo_box.hpp"

#include <set>

#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/errors.hpp"

namespace zerko::parameters {

namespace {
std::string checked_attr(std::string name) {
    foundation::Assert::Parameters::Input::attribute(name);
    return name;
}
}  // namespace

ComboBox::Item::Item(std::string attr_name, std::string text, bool selected)
    : attr_(checked_attr(std::move(attr_name))), text_(std::move(text)), selected_(selected) {}

ComboBox::ComboBox(std::string attr_name, std::vector<ItemPtr> items, std::string label, std::string help_text)
    : Input(std::move(attr_name), std::move(label), std::move(help_text)) {
    build(std::move(items));
    ensure_selection();
}

void ComboBox::build(std::vector<ItemPtr> items) {
    array_.clear();
    std::set<std::string, std::less<>> names;
    for (std::size_t i = 0; i < items.size(); ++i) {
        auto& item = items[i];
        if (!item) throw ElementTypeError(i);
        if (names.contains(item->attr())) throw error::AttributeNameRepeat();
        names.insert(item->attr());
        array_.push_back(std::move(item));
    }
}

ComboBox::ItemPtr ComboBox::item(std::string_view name) const {
    for (const auto& item : array_) {
        if (item->attr() == name) return item;
    }
    return nullptr;
}

ComboBox::ItemPtr ComboBox::ensure_selection() const {
    ItemPtr selected;
    for (const auto& item : array_) {
        if (selected) item->selected_ = false;
        else if (item->selected_) selected = item;
    }
    return selected ? selected : select_first();
}

ComboBox::ItemPtr ComboBox::select_first() const {
    if (array_.empty()) return nullptr;
    for (const auto& item : array_) item->selected_ = false;
    array_.front()->selected_ = true;
    return array_.front();
}

void ComboBox::set_selected(const ItemPtr& item) {
    if (item) item->selected_ = true;
    for (const auto& other : array_) {
        if (other != item) other->selected_ = false;
    }
}

ComboBox::ItemPtr ComboBox::get_selected() const {
    for (const auto& item : array_) {
        if (item->selected_) return item;
    }
    return ensure_selection();
}

std::string ComboBox::get_selected_text() const {
    auto item = get_selected();
    return item ? item->text() : std::string();
}

std::size_t ComboBox::current_index() const {
    for (std::size_t i = 0; i < array_.size(); ++i) {
        if (array_[i]->selected_) return i;
    }
    return 0;
}

Document ComboBox::data() const {
    auto item = get_selected();
    if (!item) return Document::object();
    return Document{{"selected_attr", item->attr()}};
}

void ComboBox::load(const Document& data) {
    const Document* name = detail::find_key(detail::expect_object(data, "ComboBox data"), "selected_attr");
    if (!name || !name->is_string()) return;
    for (const auto& item : array_) {
        if (item->attr() == name->get_ref<const std::string&>()) {
            set_selected(item);
            return;
        }
    }
}

std::shared_ptr<Input> ComboBox::clone() const {
    std::vector<ItemPtr> items;
    items.reserve(array_.size());
    for (const auto& item : array_) items.push_back(item->clone());
    return std::make_shared<ComboBox>(attr(), std::move(items), label(), help_text());
}

}  // namespace zerko::parameters
