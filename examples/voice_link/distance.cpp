#include "distance.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace {

using Complex = std::complex<double>;

constexpr int kWindowMs = 32;   // a power of two in samples, at 8000 and at 16000 Hz
constexpr double kRange = 1e-4; // 40 dB

// In place; the length is a power of two.
void fft(std::span<Complex> x) {
    const std::size_t half = x.size() / 2;
    if (half == 0) return;
    std::vector<Complex> even(half), odd(half);
    for (std::size_t i = 0; i < half; ++i) {
        even[i] = x[2 * i];
        odd[i] = x[2 * i + 1];
    }
    fft(even);
    fft(odd);
    for (std::size_t i = 0; i < half; ++i) {
        const double angle = -std::numbers::pi * static_cast<double>(i) / static_cast<double>(half);
        const Complex turned = std::polar(1.0, angle) * odd[i];
        x[i] = even[i] + turned;
        x[half + i] = even[i] - turned;
    }
}

std::size_t bark_band(double hertz) { return static_cast<std::size_t>(26.81 * hertz / (1960 + hertz)); }

// Mean power of one frequency in each band, at least the floor, over the window with the given middle. Beyond
// its ends the signal is silent.
std::vector<double> band_powers(std::span<const std::int16_t> signal, std::size_t middle, int rate,
                                double floor) {
    std::vector<Complex> x(static_cast<std::size_t>(rate * kWindowMs / 1000));
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::size_t at = middle + i - x.size() / 2; // before the start it wraps to a huge value
        if (at >= signal.size()) continue;
        const double phase =
            2 * std::numbers::pi * (static_cast<double>(i) + 0.5) / static_cast<double>(x.size());
        x[i] = signal[at] * (0.5 - 0.5 * std::cos(phase));
    }
    fft(x);
    std::vector<double> powers(bark_band(rate / 2.0) + 1), counts(powers.size());
    for (std::size_t i = 1; i <= x.size() / 2; ++i) {
        const std::size_t band = bark_band(static_cast<double>(i) * 1000 / kWindowMs);
        powers[band] += std::norm(x[i]);
        ++counts[band];
    }
    for (std::size_t b = 0; b < powers.size(); ++b) powers[b] = std::max(powers[b] / counts[b], floor);
    return powers;
}

} // namespace

double snr(std::span<const std::int16_t> original, std::span<const std::int16_t> copy) {
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 0; i < std::min(original.size(), copy.size()); ++i) {
        signal += std::pow(original[i], 2);
        noise += std::pow(original[i] - copy[i], 2);
    }
    return 10 * std::log10(signal / noise);
}

double spectral_distance(std::span<const std::int16_t> original, std::span<const std::int16_t> copy, int rate,
                         std::span<const std::size_t> around) {
    // Expected power of one frequency: the window, of mean square 3/8, adds up the power of its samples.
    double power = 0;
    for (const double x : original) power += x * x / static_cast<double>(original.size());
    const double floor = std::max(kRange * power * 0.375 * rate * kWindowMs / 1000, 1.0);

    double sum = 0;
    for (const std::size_t middle : around) {
        const std::vector<double> a = band_powers(original, middle, rate, floor);
        const std::vector<double> b = band_powers(copy, middle, rate, floor);
        double squares = 0;
        for (std::size_t i = 0; i < a.size(); ++i) squares += std::pow(10 * std::log10(a[i] / b[i]), 2);
        sum += std::sqrt(squares / static_cast<double>(a.size()));
    }
    return sum / static_cast<double>(around.size());
}
