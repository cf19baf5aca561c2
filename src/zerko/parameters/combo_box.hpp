#pragma once
// A choice of one item among named items.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/parameters/input.hpp"

namespace zerko::parameters {

class ComboBox : public Input {
public:
    /// One choice: a name, the text a form shows, and whether it is chosen.
    class Item {
    public:
        /// Checks `attr_name` with the attribute-name assertion.
        explicit Item(std::string attr_name, std::string text = {}, bool selected = false);
        const std::string& attr() const noexcept { return attr_; }
        const std::string& text() const noexcept { return text_; }
        bool selected() const noexcept { return selected_; }
        std::shared_ptr<Item> clone() const { return std::make_shared<Item>(*this); }

    private:
        friend class ComboBox;
        std::string attr_;
        std::string text_;
        bool selected_;
    };
    using ItemPtr = std::shared_ptr<Item>;

    /// A null item raises TypeError, a repeated item name AttributeNameRepeat;
    /// both reach the declaring code. Then one item is made the selected one
    /// (the first of those declared selected, or the first of all).
    ComboBox(std::string attr_name, std::vector<ItemPtr> items, std::string label = {},
             std::string help_text = {});

    const std::vector<ItemPtr>& items() const noexcept { return array_; }
    /// The item named `name`, or null.
    ItemPtr item(std::string_view name) const;

    /// Marks `item` selected and every other item not selected (by identity).
    void set_selected(const ItemPtr& item);
    /// The first selected item. With none selected, the first item becomes
    /// selected and is the answer; null when there are no items.
    ItemPtr get_selected() const;
    /// The text of `get_selected()`, or "" when there are no items.
    std::string get_selected_text() const;
    /// The place of the first selected item; 0 when none is.
    std::size_t current_index() const;

    /// {"selected_attr": name of the selected item}, or {} with no items.
    Document data() const override;
    /// Selects the first item named by "selected_attr"; an unknown or absent
    /// name leaves the selection as it is.
    void load(const Document& data) override;
    std::shared_ptr<Input> clone() const override;

    /// Replaces the items; a null item raises TypeError, a repeated name
    /// AttributeNameRepeat. The selection is left as the items carry it.
    void build(std::vector<ItemPtr> items);
    /// Leaves exactly one item selected when there are items: the first of
    /// those selected, else the first of all. Returns it, or null.
    ItemPtr ensure_selection() const;
    /// Selects the first item alone and returns it; null with no items.
    ItemPtr select_first() const;

private:
    std::vector<ItemPtr> array_;
};

}  // namespace zerko::parameters
