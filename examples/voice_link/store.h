// Signals in temporary files, so that memory use does not grow with their length.
#pragma once

#include "file.h"

#include <cstdint>
#include <span>
#include <vector>

// First items are appended. Then any number of threads may read at any place at once.
template <typename Item>
class BasicStore {
public:
    void append(std::span<const Item> items);
    void finish(std::size_t size); // cuts to this size; between the last append() and the first read()
    std::size_t size() const { return size_; }
    // Reads from item `first` on. Items before the start and after the end are zero.
    void read(std::int64_t first, std::span<Item> items) const;

private:
    File file_ = temporary_file();
    std::size_t size_ = 0;
};

// Gives pieces of a store, asked for in ascending order or nearly so. Reads thousands of items at a time.
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
