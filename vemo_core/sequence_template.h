#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace cmn {

/// Elements in ascending tick order; every element has abs_time(), its tick
/// index. A value.
template <class T>
class SequenceTemplate {
public:
    using value_type = T;
    using const_iterator = typename std::vector<T>::const_iterator;

    SequenceTemplate() = default;
    explicit SequenceTemplate(std::vector<T> elements) : elements_(std::move(elements)) {}

    const_iterator begin() const { return elements_.begin(); }
    const_iterator end() const { return elements_.end(); }
    std::size_t size() const { return elements_.size(); }
    bool empty() const { return elements_.empty(); }
    const T& operator[](std::size_t index) const { return elements_[index]; }
    const T& front() const { return elements_.front(); }
    const T& back() const { return elements_.back(); }

private:
    std::vector<T> elements_;
};

}  // namespace cmn
