#include "store.h"

#include "stop.h"

#include <algorithm>
#include <unistd.h>

template <typename Item>
void BasicStore<Item>::append(std::span<const Item> items) {
    check_stop();
    if (std::fwrite(items.data(), sizeof(Item), items.size(), file_.get()) != items.size()) {
        fail("temporary file", "cannot write");
    }
    size_ += items.size();
}

template <typename Item>
void BasicStore<Item>::finish(std::size_t size) {
    size_ = std::min(size_, size);
    if (std::fflush(file_.get()) != 0) fail("temporary file", "cannot write");
}

template <typename Item>
void BasicStore<Item>::read(std::int64_t first, std::span<Item> items) const {
    check_stop();
    const auto size = static_cast<std::int64_t>(size_);
    const std::int64_t last = first + static_cast<std::int64_t>(items.size());
    const std::int64_t begin = std::min(std::max(first, std::int64_t{0}), last);
    const std::int64_t end = std::clamp(size, begin, last);
    std::fill(items.begin(), items.end(), Item{0});
    constexpr auto kItem = static_cast<std::int64_t>(sizeof(Item));
    auto *to = reinterpret_cast<char *>(items.data() + (begin - first));
    for (std::int64_t at = begin * kItem; at < end * kItem;) {
        const ssize_t n = pread(fileno(file_.get()), to, static_cast<std::size_t>(end * kItem - at), at);
        if (n <= 0) fail("temporary file", "cannot read");
        to += n;
        at += n;
    }
}

template <typename Item>
std::span<const Item> BasicWindow<Item>::at(std::int64_t first, std::size_t length) {
    const auto size = static_cast<std::int64_t>(block_.size());
    if (first < start_ || first + static_cast<std::int64_t>(length) > start_ + size) {
        block_.resize(std::max<std::size_t>(length, 16384));
        start_ = first;
        store_.read(start_, block_);
    }
    return std::span<const Item>(block_).subspan(static_cast<std::size_t>(first - start_), length);
}

template class BasicStore<std::int16_t>;
template class BasicStore<std::uint8_t>;
template class BasicWindow<std::int16_t>;
template class BasicWindow<std::uint8_t>;
