#include "resampler.h"

#include <algorithm>
#include <speex/speex_resampler.h>
#include <stdexcept>

Resampler::Resampler(int from, int to, int quality)
    : state_(nullptr, speex_resampler_destroy), from_(from), to_(to) {
    int error = 0;
    state_.reset(speex_resampler_init(1, static_cast<spx_uint32_t>(from), static_cast<spx_uint32_t>(to),
                                      quality, &error));
    if (state_ == nullptr) {
        throw std::runtime_error("cannot convert " + std::to_string(from) + " Hz to " + std::to_string(to) +
                                 " Hz: " + speex_resampler_strerror(error));
    }
}

int Resampler::delay() const { return speex_resampler_get_output_latency(state_.get()); }

void Resampler::line_up() { speex_resampler_skip_zeros(state_.get()); }

void Resampler::run(std::span<const std::int16_t> input, Samples &output) {
    constexpr std::size_t kPiece = 4096;
    while (!input.empty()) {
        auto taken = static_cast<spx_uint32_t>(std::min(input.size(), kPiece));
        // At least as many as the piece can give: its length at the new rate, and one more for the phase.
        auto made = static_cast<spx_uint32_t>(static_cast<std::int64_t>(taken) * to_ / from_ + 1);
        const std::size_t old_size = output.size();
        output.resize(old_size + made);
        speex_resampler_process_int(state_.get(), 0, input.data(), &taken, output.data() + old_size, &made);
        output.resize(old_size + made);
        input = input.subspan(taken);
    }
}
