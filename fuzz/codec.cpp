// Codec: any samples, and so any bits; any record; calls of any lengths.
#include "cvsd_qor.h"
#include "fuzz/hostile.h"

#include <algorithm>
#include <cstring>

namespace {

using Bytes = std::vector<std::uint8_t>;

bool same(const CvsdState &a, const CvsdState &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Passes the whole input through calls whose two lengths come from the fuzzer. The last call takes the rest.
template <class Out, class In, class Process>
std::vector<Out> pieces(Process process, CvsdState &state, std::vector<In> input, const Bytes &cuts) {
    FuzzedDataProvider lengths(cuts.data(), cuts.size());
    std::vector<Out> written;
    for (bool last = false; !last;) {
        last = lengths.remaining_bytes() == 0;
        const auto all = static_cast<std::int32_t>(input.size());
        std::int32_t in_len =
            last ? all : std::min<std::int32_t>(lengths.ConsumeIntegral<std::int8_t>(), all);
        std::int32_t out_len = last ? 8 * all : lengths.ConsumeIntegral<std::int8_t>();
        const std::vector<In> exact(input.begin(), input.begin() + std::max(in_len, 0));
        std::vector<Out> out(static_cast<std::size_t>(std::max(out_len, 0)));

        const std::int32_t available = in_len;
        process(&state, exact.data(), &in_len, out.data(), &out_len);
        const auto used = static_cast<std::size_t>(available - in_len);
        const auto made = static_cast<std::size_t>(out_len);
        check(made <= out.size() && used <= input.size() &&
              (sizeof(In) == 1 ? 8 * used == made : used == 8 * made));
        written.insert(written.end(), out.begin(), out.begin() + out_len);
        input.erase(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(used));
    }
    return written;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    CvsdState start;
    CVSD_ENC_Init(&start);
    if (in.ConsumeBool()) in.ConsumeData(&start, sizeof start);
    const Samples samples = hostile(in, 8 * in.ConsumeIntegralInRange<std::size_t>(1, 64));
    const auto cuts = in.ConsumeRemainingBytes<std::uint8_t>();

    CvsdState whole = start, cut = start;
    const auto bits = pieces<std::uint8_t>(CVSD_ENC_Process, whole, samples, {});
    check(pieces<std::uint8_t>(CVSD_ENC_Process, cut, samples, cuts) == bits && same(cut, whole));
    check(std::abs(whole.accumulator) <= 2097151 && whole.step >= 10240 && whole.step <= 1310720);

    // The decoder's record equals the encoder's.
    CvsdState decoder = start;
    cut = start;
    const auto pcm = pieces<std::int16_t>(CVSD_DEC_Process, decoder, bits, {});
    check(pcm.size() == samples.size() && same(decoder, whole));
    check(pieces<std::int16_t>(CVSD_DEC_Process, cut, bits, cuts) == pcm && same(cut, whole));
    return 0;
}
