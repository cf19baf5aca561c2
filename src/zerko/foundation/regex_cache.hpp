#pragma once
// The process-wide table of compiled expressions, keyed by pattern and flags:
// rules and filters are matched against many names, and each is compiled once.
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "zerko/foundation/regex.hpp"

namespace zerko::regex::detail {

class RegexCache {
public:
    /// The one cache of the process; never destroyed, so that expressions
    /// held by other static objects stay valid until the very end.
    static RegexCache& instance();

    /// The compiled expression for `pattern` and `flags`, or null.
    RegexPtr find(std::string_view pattern, unsigned flags) const;
    /// Keeps `compiled` unless another thread stored one for the same key
    /// first; returns the one kept.
    RegexPtr insert(std::string_view pattern, unsigned flags, RegexPtr compiled);
    std::size_t size() const;

private:
    struct Key {
        std::string pattern;
        unsigned flags;
    };
    struct KeyView {
        std::string_view pattern;
        unsigned flags;
    };
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(KeyView k) const noexcept;
        std::size_t operator()(const Key& k) const noexcept { return (*this)(KeyView{k.pattern, k.flags}); }
    };
    struct Equal {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(const A& a, const B& b) const noexcept {
            return a.flags == b.flags && std::string_view(a.pattern) == std::string_view(b.pattern);
        }
    };

    RegexCache() = default;
    mutable std::mutex mutex_;
    std::unordered_map<Key, RegexPtr, Hash, Equal> map_;
};

}  // namespace zerko::regex::detail
