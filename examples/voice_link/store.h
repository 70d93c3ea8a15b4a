// Signals in temporary files, so that memory does not grow with their length.
#pragma once

#include "file.h"

#include <cstdint>
#include <span>
#include <vector>

// Appended to first; then read at any place, by any number of threads at once.
template <typename Item>
class BasicStore {
public:
    void append(std::span<const Item> items);
    void finish(std::size_t size); // cuts it; between the last append() and the first read()
    std::size_t size() const { return size_; }
    // From item `first` on. Before the start and behind the end there are zeros.
    void read(std::int64_t first, std::span<Item> items) const;

private:
    File file_ = temporary_file();
    std::size_t size_ = 0;
};

// Pieces of a store that are asked for in ascending order, or nearly so: read by the thousand items.
template <typename Item>
class BasicWindow {
public:
    explicit BasicWindow(const BasicStore<Item> &store) : store_(store) {}
    // Valid until the next call.
    std::span<const Item> at(std::int64_t first, std::size_t length);

private:
    const BasicStore<Item> &store_;
    std::vector<Item> block_;
    std::int64_t start_ = 0;
};

using Samples = std::vector<std::int16_t>;
using Bits = std::vector<std::uint8_t>;
using Store = BasicStore<std::int16_t>;
using BitStore = BasicStore<std::uint8_t>;
using Window = BasicWindow<std::int16_t>;
using BitWindow = BasicWindow<std::uint8_t>;
