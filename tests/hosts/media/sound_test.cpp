// Sound goes along with the pictures, packet by packet.
#include "media_support.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace {

using namespace media_test;

struct SoundPackets {
    std::string bytes;
    double startSeconds = 0, endSeconds = 0;
    int count = 0;
};

SoundPackets soundOf(const std::string& path) {
    AVFormatContext* input = nullptr;
    EXPECT_GE(avformat_open_input(&input, path.c_str(), nullptr, nullptr), 0);
    avformat_find_stream_info(input, nullptr);
    const int index = av_find_best_stream(input, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    SoundPackets sound;
    AVPacket* packet = av_packet_alloc();
    while (index >= 0 && av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == index) {
            const double unit = av_q2d(input->streams[index]->time_base);
            if (sound.count++ == 0) sound.startSeconds = double(packet->pts) * unit;
            sound.endSeconds = double(packet->pts + packet->duration) * unit;
            sound.bytes.append(reinterpret_cast<const char*>(packet->data),
                               std::size_t(packet->size));
        }
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&input);
    return sound;
}

/// Copies the pictures of `film` and adds 16-bit sound (a running number per sample) of the same
/// length, in packets of 1000 samples at 48 kHz.
void addSound(const std::string& film, const std::string& target, double seconds) {
    constexpr int kRate = 48000, kPacketSamples = 1000;
    AVFormatContext* input = nullptr;
    ASSERT_GE(avformat_open_input(&input, film.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(input, nullptr), 0);
    AVFormatContext* output = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&output, nullptr, nullptr, target.c_str()), 0);
    AVStream* pictures = avformat_new_stream(output, nullptr);
    avcodec_parameters_copy(pictures->codecpar, input->streams[0]->codecpar);
    pictures->codecpar->codec_tag = 0;
    pictures->time_base = input->streams[0]->time_base;
    AVStream* sound = avformat_new_stream(output, nullptr);
    sound->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
    sound->codecpar->codec_id = AV_CODEC_ID_PCM_S16LE;
    sound->codecpar->format = AV_SAMPLE_FMT_S16;
    sound->codecpar->sample_rate = kRate;
    sound->codecpar->bits_per_coded_sample = 16;
    sound->codecpar->block_align = 2;
    av_channel_layout_default(&sound->codecpar->ch_layout, 1);
    sound->time_base = {1, kRate};
    ASSERT_GE(avio_open(&output->pb, target.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(output, nullptr), 0);

    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0) {
        av_packet_rescale_ts(packet, input->streams[0]->time_base, pictures->time_base);
        av_interleaved_write_frame(output, packet);
    }
    for (int first = 0; first < int(seconds * kRate); first += kPacketSamples) {
        av_new_packet(packet, kPacketSamples * 2);
        for (int i = 0; i < kPacketSamples; ++i) {
            const auto number = std::uint16_t(first + i);
            std::memcpy(packet->data + 2 * i, &number, 2);
        }
        packet->stream_index = sound->index;
        packet->pts = packet->dts = first;
        packet->duration = kPacketSamples;
        packet->flags |= AV_PKT_FLAG_KEY;
        av_packet_rescale_ts(packet, {1, kRate}, sound->time_base);
        av_interleaved_write_frame(output, packet);
    }
    av_packet_free(&packet);
    av_write_trailer(output);
    avio_closep(&output->pb);
    avformat_free_context(output);
    avformat_close_input(&input);
}

TEST_F(MediaTest, CopiesSoundAndCutsItToTheRange) {
    writeCounter(path("counter.mp4"), 50);
    addSound(path("counter.mp4"), path("sound.mov"), 2);
    const SoundPackets original = soundOf(path("sound.mov"));
    ASSERT_EQ(original.bytes.size(), 2u * 96000);

    EXPECT_TRUE(pass(path("sound.mov"), path("whole.mov")).empty());
    EXPECT_EQ(soundOf(path("whole.mov")).bytes, original.bytes);
    EXPECT_TRUE(pass(path("sound.mov"), path("whole.mkv")).empty());
    EXPECT_EQ(soundOf(path("whole.mkv")).bytes, original.bytes);

    // The frame at 0.52 s becomes time zero, and so does the sound that is heard with it.
    EXPECT_TRUE(pass(path("sound.mov"), path("part.mov"), {0.5, 1.2}).empty());
    const SoundPackets part = soundOf(path("part.mov"));
    ASSERT_GE(part.bytes.size(), 2u);
    std::uint16_t firstSample = 0;
    std::memcpy(&firstSample, part.bytes.data(), 2);
    EXPECT_NEAR(part.startSeconds, firstSample / 48000.0 - 0.52, 0.0001);
    EXPECT_GE(part.startSeconds, 0);
    EXPECT_LT(part.startSeconds, 0.03);
    EXPECT_NEAR(part.endSeconds, 1.2 - 0.52, 0.03);
}

TEST_F(MediaTest, CutsSoundWhereAnInterruptedFilmEnds) {
    writeCounter(path("counter.mp4"), 50);
    addSound(path("counter.mp4"), path("sound.mov"), 2);
    pass(path("sound.mov"), path("short.mov"), {}, 20);
    Reader reader(path("short.mov"));
    EXPECT_EQ(readAll(reader).size(), 20u);
    EXPECT_NEAR(soundOf(path("short.mov")).endSeconds, 0.8, 0.03);
}

std::string sharedFilm() {
    const char* folder = std::getenv("VORN_SHARED_MEDIA_DIR");
#ifdef VORN_SHARED_MEDIA_DIR
    if (!folder) folder = VORN_SHARED_MEDIA_DIR;
#endif
    return folder ? (fs::path(folder) / "film-854x480.mp4").string() : "";
}

TEST_F(MediaTest, PassesARealFilmThrough) {
    if (sharedFilm().empty() || !fs::exists(sharedFilm())) GTEST_SKIP() << "no film at hand";
    const TimeRange range{2.0, 3.0};
    EXPECT_TRUE(pass(sharedFilm(), path("film.mp4"), range).empty());
    ReaderOptions options;
    options.range = range;
    Reader original(sharedFilm(), options), copy(path("film.mp4"));
    EXPECT_EQ(copy.info().colour, original.info().colour);
    EXPECT_EQ(copy.info().frameRate, original.info().frameRate);
    EXPECT_EQ(copy.info().sampleAspectRatio, original.info().sampleAspectRatio);
    ASSERT_EQ(copy.info().companions.size(), 1u);
    EXPECT_EQ(copy.info().companions[0].codec, "aac");
    const std::vector<Frame> before = readAll(original), after = readAll(copy);
    ASSERT_EQ(before.size(), 24u);
    ASSERT_EQ(after.size(), 24u);
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_GT(psnr(before[i], after[i]), 40) << "frame " << i;
        EXPECT_EQ(after[i].pts, before[i].pts - before[0].pts);
        EXPECT_EQ(after[i].duration, before[i].duration);
    }
    // Every packet of the copy is one of the original's.
    const std::string sound = soundOf(path("film.mp4")).bytes;
    EXPECT_GT(sound.size(), 10000u);
    EXPECT_NE(soundOf(sharedFilm()).bytes.find(sound), std::string::npos);
}

} // namespace
