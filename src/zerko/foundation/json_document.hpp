#pragma once
// The one JSON value type of the library.
//
// Objects keep their keys in the order of insertion (files and wire bodies
// are written in the order the program built them), and a key is found
// through a hash index once an object has more than a handful of keys, so
// that reading or writing an object of n keys costs O(n), not O(n^2).
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace zerko {

/// Deepest nesting of arrays and objects that the library reads from text or
/// takes from a caller. Deeper values are refused, so that no recursive walk
/// over a value can exhaust the stack.
inline constexpr std::size_t json_depth_limit = 512;

namespace json_detail {

/// An insertion-ordered map: the entries live in a vector in the order they
/// were added (iteration, equality and output follow it), and a hash index
/// from key to position is kept for objects above `index_threshold` keys.
/// The mutating operations keep the index up to date (appending extends it; a
/// moved or shrunk vector rebuilds it), so that lookups only read it and
/// concurrent const reads of one document stay safe, as with std containers.
template <class Key, class T, class IgnoredLess = std::less<Key>,
          class Allocator = std::allocator<std::pair<const Key, T>>>
class IndexedMap : public std::vector<std::pair<const Key, T>, Allocator> {
public:
    using key_type = Key;
    using mapped_type = T;
    using Container = std::vector<std::pair<const Key, T>, Allocator>;
    using iterator = typename Container::iterator;
    using const_iterator = typename Container::const_iterator;
    using size_type = typename Container::size_type;
    using value_type = typename Container::value_type;
    using key_compare = std::equal_to<>;

    static constexpr size_type index_threshold = 8;

    IndexedMap() noexcept(noexcept(Container())) : Container{} {}
    explicit IndexedMap(const Allocator& alloc) : Container{alloc} {}
    template <class It>
    IndexedMap(It first, It last, const Allocator& alloc = Allocator()) : Container{alloc} {
        insert(first, last);
    }
    IndexedMap(std::initializer_list<value_type> init, const Allocator& alloc = Allocator()) : Container{alloc} {
        insert(init.begin(), init.end());
    }
    // The index holds views into the entries: a copy builds its own; a move
    // keeps the entries' buffer, and so the views, when it can.
    IndexedMap(const IndexedMap& other) : Container(other) { sync_index(); }
    IndexedMap(IndexedMap&& other) noexcept : Container(std::move(other)) { take_index(other); }
    IndexedMap& operator=(const IndexedMap& other) {
        if (this != &other) {
            drop_index();
            Container::operator=(other);
            sync_index();
        }
        return *this;
    }
    IndexedMap& operator=(IndexedMap&& other) noexcept {
        if (this != &other) {
            Container::operator=(std::move(other));
            take_index(other);
        }
        return *this;
    }
    ~IndexedMap() = default;

    template <class KeyType>
    std::pair<iterator, bool> emplace(KeyType&& key, T&& t) {
        if (const auto at = locate(key); at != npos) return {this->begin() + at, false};
        Container::emplace_back(std::forward<KeyType>(key), std::forward<T>(t));
        sync_index();
        return {std::prev(this->end()), true};
    }

    template <class KeyType>
    T& operator[](KeyType&& key) {
        return emplace(std::forward<KeyType>(key), T{}).first->second;
    }
    template <class KeyType>
    const T& operator[](KeyType&& key) const {
        return at(std::forward<KeyType>(key));
    }

    template <class KeyType>
    T& at(KeyType&& key) {
        const auto found = locate(key);
        if (found == npos) throw std::out_of_range("key not found");
        return Container::operator[](found).second;
    }
    template <class KeyType>
    const T& at(KeyType&& key) const {
        const auto found = locate(key);
        if (found == npos) throw std::out_of_range("key not found");
        return Container::operator[](found).second;
    }

    template <class KeyType>
    size_type count(KeyType&& key) const {
        return locate(key) == npos ? 0 : 1;
    }

    template <class KeyType>
    iterator find(KeyType&& key) {
        const auto found = locate(key);
        return found == npos ? this->end() : this->begin() + found;
    }
    template <class KeyType>
    const_iterator find(KeyType&& key) const {
        const auto found = locate(key);
        return found == npos ? this->end() : this->begin() + found;
    }

    template <class KeyType, std::enable_if_t<!std::is_convertible_v<KeyType, const_iterator>, int> = 0>
    size_type erase(KeyType&& key) {
        const auto found = locate(key);
        if (found == npos) return 0;
        erase(this->begin() + found);
        return 1;
    }
    iterator erase(iterator pos) { return erase(pos, std::next(pos)); }
    iterator erase(iterator first, iterator last) {
        if (first == last) return first;
        drop_index();
        // The keys are const: shift the entries by destroying and re-making them in place.
        const auto removed = std::distance(first, last);
        const auto offset = std::distance(this->begin(), first);
        for (auto it = first; std::next(it, removed) != this->end(); ++it) {
            it->~value_type();
            new (&*it) value_type{std::move(*std::next(it, removed))};
        }
        Container::resize(this->size() - static_cast<size_type>(removed));
        sync_index();
        return this->begin() + offset;
    }

    void clear() noexcept {
        drop_index();
        Container::clear();
    }

    std::pair<iterator, bool> insert(value_type&& value) { return emplace(value.first, std::move(value.second)); }
    std::pair<iterator, bool> insert(const value_type& value) {
        if (const auto at = locate(value.first); at != npos) return {this->begin() + at, false};
        Container::push_back(value);
        sync_index();
        return {std::prev(this->end()), true};
    }
    template <typename InputIt,
              typename = std::enable_if_t<std::is_convertible_v<
                  typename std::iterator_traits<InputIt>::iterator_category, std::input_iterator_tag>>>
    void insert(InputIt first, InputIt last) {
        for (auto it = first; it != last; ++it) insert(*it);
    }

private:
    static constexpr size_type npos = static_cast<size_type>(-1);

    template <class KeyType>
    size_type locate(const KeyType& key) const {
        const std::string_view wanted(key);
        // Small objects, and any change made around the mutating operations
        // here, are searched in order.
        if (indexed_data_ != this->data() || indexed_count_ != this->size()) {
            for (size_type i = 0; i < this->size(); ++i) {
                if (std::string_view(Container::operator[](i).first) == wanted) return i;
            }
            return npos;
        }
        const auto found = index_.find(wanted);
        return found == index_.end() ? npos : found->second;
    }

    // Brings the index up to the entries of an object above the threshold:
    // appended entries are added; a moved buffer (keys held in the string's
    // own storage move with it) or fewer entries than indexed mean a rebuild.
    void sync_index() {
        if (this->size() <= index_threshold) {
            if (indexed_data_) drop_index();
            return;
        }
        if (indexed_data_ != this->data() || indexed_count_ > this->size()) {
            index_.clear();
            indexed_count_ = 0;
            indexed_data_ = this->data();
            index_.reserve(this->size());
        }
        for (; indexed_count_ < this->size(); ++indexed_count_) {
            index_.emplace(std::string_view(Container::operator[](indexed_count_).first), indexed_count_);
        }
    }

    // A move hands over the entries' buffer itself, so the views stay valid.
    void take_index(IndexedMap& other) noexcept {
        index_ = std::move(other.index_);
        indexed_data_ = other.indexed_data_;
        indexed_count_ = other.indexed_count_;
        other.drop_index();
    }

    void drop_index() noexcept {
        index_.clear();
        indexed_count_ = 0;
        indexed_data_ = nullptr;
    }

    std::unordered_map<std::string_view, size_type> index_;
    const value_type* indexed_data_ = nullptr;
    size_type indexed_count_ = 0;
};

}  // namespace json_detail

/// Every JSON document, file and wire body of the library.
using JsonDocument = nlohmann::basic_json<json_detail::IndexedMap>;

}  // namespace zerko
