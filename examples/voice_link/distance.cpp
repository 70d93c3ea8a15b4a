#include "distance.h"

#include <algorithm>
#include <cmath>
#include <future>
#include <kiss_fftr.h>
#include <memory>
#include <numbers>
#include <optional>

namespace {

constexpr std::size_t kWindowMs = 32;
constexpr double kRange = 1e-4; // 40 dB

std::size_t bark_band(double hertz) { return static_cast<std::size_t>(26.81 * hertz / (1960 + hertz)); }

// The levels of a window of a signal in Bark bands.
class Spectrum {
public:
    // Levels below the level of floor_power are raised to it.
    Spectrum(int rate, double floor_power)
        : floor_(floor_power),
          fft_(kiss_fftr_alloc(static_cast<int>(size(rate)), 0, nullptr, nullptr), std::free),
          hann_(size(rate)), windowed_(size(rate)), bins_(size(rate) / 2 + 1),
          counts_(bark_band(rate / 2.0) + 1) {
        for (std::size_t i = 0; i < hann_.size(); ++i) {
            const double phase = (static_cast<double>(i) + 0.5) / static_cast<double>(hann_.size());
            hann_[i] = static_cast<float>(0.5 - 0.5 * std::cos(2 * std::numbers::pi * phase));
        }
        for (std::size_t i = 0; i < bins_.size(); ++i) {
            bands_.push_back(bark_band(static_cast<double>(i) * 1000 / kWindowMs));
            if (i > 0) ++counts_[bands_[i]]; // without the constant part
        }
    }

    static std::size_t size(int rate) { return static_cast<std::size_t>(rate) * kWindowMs / 1000; }

    // Mean power of one frequency in each band, in dB.
    void levels(std::span<const std::int16_t> window, std::vector<double> &result) {
        for (std::size_t i = 0; i < hann_.size(); ++i) windowed_[i] = window[i] * hann_[i];
        kiss_fftr(fft_.get(), windowed_.data(), bins_.data());
        result.assign(counts_.size(), 0);
        for (std::size_t i = 1; i < bins_.size(); ++i) {
            result[bands_[i]] += bins_[i].r * bins_[i].r + bins_[i].i * bins_[i].i;
        }
        for (std::size_t b = 0; b < result.size(); ++b) {
            result[b] = 10 * std::log10(std::max(result[b] / counts_[b], floor_));
        }
    }

private:
    double floor_;
    std::unique_ptr<kiss_fftr_state, void (*)(void *)> fft_;
    std::vector<float> hann_, windowed_;
    std::vector<kiss_fft_cpx> bins_;
    std::vector<std::size_t> bands_;
    std::vector<double> counts_; // frequencies in each band
};

double root_mean_square(std::span<const double> a, std::span<const double> b) {
    double squares = 0;
    for (std::size_t i = 0; i < a.size(); ++i) squares += (a[i] - b[i]) * (a[i] - b[i]);
    return std::sqrt(squares / static_cast<double>(a.size()));
}

// Calls visit with pieces of both signals, over the length of the shorter one.
template <typename Visit>
void side_by_side(const Store &a, const Store &b, Visit visit) {
    Samples left, right;
    const std::size_t size = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < size; i += left.size()) {
        left.resize(std::min<std::size_t>(size - i, 16384));
        right.resize(left.size());
        a.read(static_cast<std::int64_t>(i), left);
        b.read(static_cast<std::int64_t>(i), right);
        for (std::size_t k = 0; k < left.size(); ++k) visit(double(left[k]), double(right[k]));
    }
}

struct Sums {
    std::vector<double> distances; // of each copy, over the windows
    double count = 0;              // windows
};

struct Comparison {
    const Store &original;
    double power;
    std::span<const Store *const> copies;
    int rate;
    const Places &places;
    const std::function<void(double)> &progress;

    // Around those lost frames that lie in first..last-1.
    Sums sums(std::size_t first, std::size_t last) const {
        const std::size_t size = Spectrum::size(rate);
        // Expected power of one frequency: the sum of the samples' power, times 3/8, the mean square of the
        // Hann window.
        Spectrum spectrum(rate, std::max(kRange * power * 0.375 * static_cast<double>(size), 1.0));
        Window window(original);
        std::vector<Window> windows;
        for (const Store *copy : copies) windows.emplace_back(*copy);

        std::vector<double> a, b;
        Sums sums{std::vector<double>(copies.size())};
        constexpr std::size_t kStep = 1024; // frames from one report of progress to the next
        for (std::size_t i = first; i < last; ++i) {
            if (i % kStep == 0)
                progress(static_cast<double>(kStep) / static_cast<double>(places.lost.size()));
            const std::optional<std::int64_t> at = start(i, size);
            if (!at) continue;
            spectrum.levels(window.at(*at, size), a);
            for (std::size_t k = 0; k < copies.size(); ++k) {
                spectrum.levels(windows[k].at(*at, size), b);
                sums.distances[k] += root_mean_square(a, b);
            }
            ++sums.count;
        }
        return sums;
    }

    // Where the window around frame i starts; none if neither this frame nor a neighbour is lost.
    std::optional<std::int64_t> start(std::size_t i, std::size_t size) const {
        const Losses &lost = places.lost;
        const bool near = lost[i] || (i > 0 && lost[i - 1]) || (i + 1 < lost.size() && lost[i + 1]);
        const std::size_t middle = i * places.frame + places.frame / 2;
        if (!near || middle < places.late || middle - places.late >= original.size()) return {};
        return static_cast<std::int64_t>(middle - places.late) - static_cast<std::int64_t>(size / 2);
    }
};

} // namespace

double snr(const Store &original, const Store &copy) {
    double signal = 0;
    double noise = 0;
    side_by_side(original, copy, [&](double x, double y) {
        signal += x * x;
        noise += (x - y) * (x - y);
    });
    return 10 * std::log10(signal / noise);
}

double mean_power(const Store &signal) {
    double sum = 0;
    side_by_side(signal, signal, [&](double x, double) { sum += x * x; });
    return sum / static_cast<double>(signal.size());
}

std::vector<double> spectral_distances(const Store &original, double power,
                                       std::span<const Store *const> copies, int rate, const Places &places,
                                       const std::function<void(double)> &progress) {
    const Comparison comparison{original, power, copies, rate, places, progress};
    // Always in two halves, so that the sums do not depend on the number of threads.
    const std::size_t frames = places.lost.size();
    auto second = std::async(std::launch::async, [&] { return comparison.sums(frames / 2, frames); });
    Sums sums = comparison.sums(0, frames / 2);
    const Sums more = second.get();
    const double count = sums.count + more.count;
    if (count == 0) return {};
    for (std::size_t k = 0; k < copies.size(); ++k) {
        sums.distances[k] = (sums.distances[k] + more.distances[k]) / count;
    }
    return sums.distances;
}
