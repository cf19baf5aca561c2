#include "zerko/foundation/regex_cache.hpp"

#include <functional>

namespace zerko::regex::detail {

namespace {
// Compiled patterns kept before the cache starts over; a validator uses a few
// hundred, so only a run-away producer of distinct patterns reaches this.
constexpr std::size_t kCacheBound = 4096;
}  // namespace

RegexCache& RegexCache::instance() {
    static RegexCache* const cache = new RegexCache;
    return *cache;
}

std::size_t RegexCache::Hash::operator()(KeyView k) const noexcept {
    return std::hash<std::string_view>{}(k.pattern) ^ (k.flags * 0x9E3779B97F4A7C15ull);
}

RegexPtr RegexCache::find(std::string_view pattern, unsigned flags) const {
    std::lock_guard lock(mutex_);
    const auto it = map_.find(KeyView{pattern, flags});
    return it == map_.end() ? nullptr : it->second;
}

RegexPtr RegexCache::insert(std::string_view pattern, unsigned flags, RegexPtr compiled) {
    std::lock_guard lock(mutex_);
    if (map_.size() >= kCacheBound) map_.clear();
    const auto [it, inserted] = map_.try_emplace(Key{std::string(pattern), flags}, std::move(compiled));
    return it->second;
}

std::size_t RegexCache::size() const {
    std::lock_guard lock(mutex_);
    return map_.size();
}

}  // namespace zerko::regex::detail
