// Glintcore::PrimitiveVector: the framework's growable array of plain values
// (points, floats, mask bytes). Owns its elements; not synchronised.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <vector>

namespace Glintcore {

template <typename T>
class PrimitiveVector {
public:
    PrimitiveVector() = default;
    PrimitiveVector(std::initializer_list<T> init) : items_(init) {}
    explicit PrimitiveVector(size_t n, const T& value = T()) : items_(n, value) {}
    template <typename It>
    PrimitiveVector(It first, It last) : items_(first, last) {}

    size_t size() const { return items_.size(); }
    bool empty() const { return items_.empty(); }
    T* data() { return items_.data(); }
    const T* data() const { return items_.data(); }
    T& operator[](size_t i) { return items_[i]; }
    const T& operator[](size_t i) const { return items_[i]; }
    void push_back(const T& v) { items_.push_back(v); }
    void resize(size_t n) { items_.resize(n); }
    void reserve(size_t n) { items_.reserve(n); }
    void clear() { items_.clear(); }
    auto begin() { return items_.begin(); }
    auto end() { return items_.end(); }
    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }

private:
    std::vector<T> items_;
};

}  // namespace Glintcore
