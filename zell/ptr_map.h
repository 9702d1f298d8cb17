#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

namespace zell {

/// An ordered map that owns its values on the heap and copies them deeply, so
/// that references to a value survive every change of the map but its erasure.
///
/// Threads: as a standard container.
/// Errors:  std::out_of_range "ptr_map has no such key" from at().
template <class Key, class T>
class ptr_map {
    using Map = std::map<Key, std::unique_ptr<T>>;

    template <class Base, class Value>
    class Iterator {
    public:
        struct Entry {
            const Key& first;
            Value& second;
        };
        explicit Iterator(Base base) : base_(base) {}
        Entry operator*() const { return {base_->first, *base_->second}; }
        Iterator& operator++() {
            ++base_;
            return *this;
        }
        bool operator==(const Iterator& other) const { return base_ == other.base_; }

    private:
        Base base_;
    };

public:
    using iterator = Iterator<typename Map::iterator, T>;
    using const_iterator = Iterator<typename Map::const_iterator, const T>;

    ptr_map() = default;
    ptr_map(const ptr_map& other) { *this = other; }
    ptr_map(ptr_map&&) noexcept = default;
    ptr_map& operator=(const ptr_map& other) {
        Map copy;
        for (const auto& [key, value] : other.map_)
            copy.emplace(key, std::make_unique<T>(*value));
        map_ = std::move(copy);
        return *this;
    }
    ptr_map& operator=(ptr_map&&) noexcept = default;
    ~ptr_map() = default;

    /// False, and nothing changed, when the key is there already.
    bool insert(const Key& key, std::unique_ptr<T> value) { return map_.emplace(key, std::move(value)).second; }

    T& at(const Key& key) { return *Find(map_, key); }
    const T& at(const Key& key) const { return *Find(map_, key); }
    bool contains(const Key& key) const { return map_.contains(key); }
    std::size_t size() const { return map_.size(); }
    bool empty() const { return map_.empty(); }

    /// Ascending by key; an element has first (the key) and second (the value itself).
    iterator begin() { return iterator(map_.begin()); }
    iterator end() { return iterator(map_.end()); }
    const_iterator begin() const { return const_iterator(map_.begin()); }
    const_iterator end() const { return const_iterator(map_.end()); }

private:
    template <class M>
    static auto& Find(M& map, const Key& key) {
        const auto found = map.find(key);
        if (found == map.end())
            throw std::out_of_range("ptr_map has no such key");
        return found->second;
    }

    Map map_;
};

}  // namespace zell
