// The shipped speech as it passes through the services, frame by frame.
#pragma once

#include "cvsd_qor.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using Samples = std::vector<std::int16_t>;

inline Samples clip(std::int32_t rate) {
    constexpr std::size_t kHeader = 44; // bytes
    const std::string name = CLIPS_DIR "/speech_" + std::to_string(rate / 1000) + "k.wav";
    Samples samples((std::filesystem::file_size(name) - kHeader) / 2);
    std::ifstream(name, std::ios::binary)
        .seekg(kHeader)
        .read(reinterpret_cast<char *>(samples.data()), static_cast<std::streamsize>(2 * samples.size()));
    return samples;
}

// A stream at 64000 Hz, interpolated linearly between narrowband samples, and its bits.
struct CodecStream {
    static constexpr std::size_t kPacket = 60; // bytes, 8 samples each
    CvsdState codec{};
    Samples pcm;
    std::vector<std::uint8_t> bits;
    std::size_t packets;

    explicit CodecStream(const Samples &narrow) {
        for (std::size_t i = 0; i < 8 * narrow.size() - 8; ++i) {
            const int from = narrow[i / 8], to = narrow[i / 8 + 1];
            pcm.push_back(static_cast<std::int16_t>(from + (to - from) * static_cast<int>(i % 8) / 8));
        }
        packets = pcm.size() / (8 * kPacket);
        bits.resize(packets * kPacket);
        CVSD_ENC_Init(&codec);
        for (std::size_t i = 0; i < packets; ++i) encode(i);
        CVSD_DEC_Init(&codec);
    }
    void encode(std::size_t i) {
        std::int32_t samples = 8 * kPacket, bytes = kPacket;
        CVSD_ENC_Process(&codec, &pcm[8 * kPacket * i], &samples, &bits[kPacket * i], &bytes);
    }
    void decode(std::size_t i) {
        std::int32_t samples = 8 * kPacket, bytes = kPacket;
        CVSD_DEC_Process(&codec, &bits[kPacket * i], &bytes, &pcm[8 * kPacket * i], &samples);
    }
};

// Streams of a clip in frames. The given percentage of the frames is lost, in bursts of three on average.
struct Link {
    std::int32_t rate;
    std::size_t frame_len;
    Samples speech;
    std::vector<bool> lost;
    std::vector<PlcBlock> blocks;

    Link(std::int32_t sample_rate, int percent, std::size_t streams)
        : rate(sample_rate), frame_len(rate == 8000 ? 30 : 120), speech(clip(rate)),
          lost(speech.size() / frame_len), blocks(streams) {
        for (PlcBlock &block : blocks) g711plc_construct_v2(&block, rate);
        const double share = percent / 100.0;
        std::minstd_rand random(1);
        bool now = false;
        for (auto &&frame : lost) {
            const double chance = now ? 2.0 / 3 : share / (1 - share) / 3;
            frame = now = static_cast<double>(random()) < chance * static_cast<double>(random.max());
        }
    }
    double seconds() const { return static_cast<double>(frame_len) / rate; } // of a frame
    void pass(std::size_t stream, std::size_t i) {
        std::array<std::int16_t, 120> frame;
        std::copy_n(&speech[i * frame_len], frame_len, frame.data());
        (lost[i] ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&blocks[stream], frame.data());
    }
};
