#pragma once
// The exporters that the host supplied, each a parameters::Options, and the
// one that is selected. The data form is stored in project records:
// {"selected": attr or null, "formats": {attr: that exporter's data}}.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/export/flags.hpp"
#include "zerko/parameters/options.hpp"

namespace zerko::export_ {

class Options {
public:
    using OptionPtr = std::shared_ptr<parameters::Options>;

    /// Keeps the exporters in order (null ones are dropped) and selects the first.
    explicit Options(std::vector<OptionPtr> options = {});

    const std::vector<OptionPtr>& options() const noexcept { return options_; }
    std::vector<OptionPtr>::const_iterator begin() const { return options_.begin(); }
    std::vector<OptionPtr>::const_iterator end() const { return options_.end(); }
    /// The exporter under the name `attr` (the last of that name), or null.
    OptionPtr option(std::string_view attr) const;
    /// The selected exporter, or null.
    const OptionPtr& selected() const noexcept { return selected_; }

    /// Selects the first exporter that is `option`. Matching none, the
    /// selection stays, or the first exporter is selected when there was none.
    void select(const parameters::Options* option);
    /// Selects the first exporter whose attr or label is `name`, with the
    /// same rule for no match.
    void select(std::string_view name);

    /// Loads each exporter from "formats" (an absent one from {}), then
    /// selects the non-empty "selected".
    void load(const Document& data);
    Document data() const;
    /// Clones every exporter and carries the state and the selection over.
    std::shared_ptr<Options> clone() const;
    /// Selects the first exporter; with none, nothing is selected.
    void select_any();

private:
    template <typename Match>
    void select_if(Match match);

    std::vector<OptionPtr> options_;
    OptionPtr selected_;
};

}  // namespace zerko::export_
