#include "zerko/export/options.hpp"

#include <algorithm>

#include "zerko/foundation/errors.hpp"

namespace zerko::export_ {

Options::Options(std::vector<OptionPtr> options) {
    for (auto& option : options) {
        if (option) options_.push_back(std::move(option));
    }
    select_any();
}

Options::OptionPtr Options::option(std::string_view attr) const {
    auto found = std::find_if(options_.rbegin(), options_.rend(), [&](const OptionPtr& o) { return o->attr() == attr; });
    return found == options_.rend() ? nullptr : *found;
}

void Options::select_any() {
    if (!options_.empty()) selected_ = options_.front();
}

template <typename Match>
void Options::select_if(Match match) {
    for (const auto& option : options_) {
        if (match(*option)) {
            selected_ = option;
            return;
        }
    }
    // An unknown value does not clear a selection.
    if (!selected_) select_any();
}

void Options::select(const parameters::Options* option) {
    select_if([&](const parameters::Options& o) { return &o == option; });
}

void Options::select(std::string_view name) {
    select_if([&](const parameters::Options& o) { return o.attr() == name || o.label() == name; });
}

void Options::load(const Document& data) {
    if (!data.is_object()) throw TypeError("export options data must be a JSON object");
    const Document empty = Document::object();
    auto formats_at = data.find("formats");
    const Document& formats = formats_at == data.end() ? empty : *formats_at;
    if (!formats.is_object()) throw TypeError("\"formats\" must be a JSON object");
    for (const auto& option : options_) {
        auto state = formats.find(option->attr());
        option->load(state == formats.end() ? empty : *state);
    }
    // Only a name can match an exporter; anything else leaves the selection.
    auto selected = data.find("selected");
    if (selected != data.end() && selected->is_string() && !selected->get_ref<const std::string&>().empty()) {
        select(std::string_view(selected->get_ref<const std::string&>()));
    }
}

Document Options::data() const {
    Document out = Document::object();
    out["selected"] = selected_ ? Document(selected_->attr()) : Document(nullptr);
    Document formats = Document::object();
    for (const auto& option : options_) formats[option->attr()] = option->data();
    out["formats"] = std::move(formats);
    return out;
}

std::shared_ptr<Options> Options::clone() const {
    std::vector<OptionPtr> clones;
    clones.reserve(options_.size());
    for (const auto& option : options_) clones.push_back(option->clone());
    auto copy = std::make_shared<Options>(std::move(clones));
    copy->load(data());
    if (selected_) copy->select(std::string_view(selected_->attr()));
    return copy;
}

}  // namespace zerko::export_
