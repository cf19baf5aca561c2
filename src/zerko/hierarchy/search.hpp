#pragma once
// The greedy one-pass assignment of one layer of the scene to one layer of
// the pattern. A wrong guess ends the layer with an empty result and takes
// back the anchors the pass captured; that is all the backtracking there is.
#include <memory>
#include <span>
#include <vector>

#include "zerko/hierarchy/anchor.hpp"
#include "zerko/hierarchy/pattern.hpp"
#include "zerko/scene/virtual.hpp"

namespace zerko::hierarchy {

/// One assignment of a scene object to a scope.
struct Response {
    const scene::Location* location;
    std::shared_ptr<Scope> scope;
};

/// The assignments of a layer, grouped by scope in scope order.
class Result {
public:
    Result() = default;
    explicit Result(std::vector<Response> array) : array_(std::move(array)) {}
    bool is_empty() const noexcept { return array_.empty(); }
    auto begin() const { return array_.begin(); }
    auto end() const { return array_.end(); }
    std::size_t size() const noexcept { return array_.size(); }
    const std::vector<Response>& array() const noexcept { return array_; }

private:
    std::vector<Response> array_;
};

/// The paths of one layer of the scene, with an optional mask of paths to
/// skip, so that callers that cut a long list piece by piece need not copy it.
struct RootView {
    std::span<const std::string> paths;
    const char* removed = nullptr;  ///< parallel to `paths` when given: non-zero means gone
};

class Search {
public:
    explicit Search(std::shared_ptr<const scene::Virtual> query) : query_(std::move(query)) {}

    /// Assigns the objects of `roots` to `scopes`. In an exact run every
    /// object must be claimed.
    Result layer(const scene::Paths& roots, const Scopes& scopes, bool exact = true);
    Result layer(RootView roots, const Scopes& scopes, bool exact = true);
    /// The same for objects already looked up (the children of a location).
    Result layer(std::span<const scene::Location* const> locations, const Scopes& scopes, bool exact = true);

    Anchor logic;
    const std::shared_ptr<const scene::Virtual>& query() const noexcept { return query_; }

private:
    // The unassigned objects of the layer, looked up only as the walk reaches
    // them: a non-exact run that stops early never touches the rest.
    class Locations {
    public:
        Locations(const scene::Virtual& query, RootView roots) : query_(query), roots_(roots) {}
        Locations(const scene::Virtual& query, std::span<const scene::Location* const> known)
            : query_(query), items_(known.begin(), known.end()), taken_(known.size(), 0) {}
        /// The i-th known object, or null past the end.
        const scene::Location* at(std::size_t i);
        bool taken(std::size_t i) const { return taken_[i] != 0; }
        void take(std::size_t i) { taken_[i] = 1; }
        /// Whether an object is left unassigned (looks up the rest).
        bool any_left();

    private:
        const scene::Virtual& query_;
        RootView roots_;
        std::size_t next_ = 0;
        std::vector<const scene::Location*> items_;
        std::vector<char> taken_;
    };

    bool scope_match(const scene::Location& location, const Scope& scope);
    void make_guess(Locations& locations, const Scopes& scopes);
    bool wrong_guess(Locations& locations, const Scopes& scopes, bool exact) const;
    Result run(Locations& locations, const Scopes& scopes, bool exact);
    /// Takes back what the layer captured.
    void restore();

    std::shared_ptr<const scene::Virtual> query_;
    // The guess: one entry per distinct rule (equal rules share one).
    std::vector<std::pair<const Rule*, std::vector<const scene::Location*>>> guess_;
    std::size_t backup_ = 0;
    const std::vector<const scene::Location*>* guessed(const Rule& rule) const;
};

}  // namespace zerko::hierarchy
