// Files made with the writer, read back with the reader, and looked at with FFmpeg directly where a
// mistake in both could cancel out.
#include "media/reader.h"
#include "media/writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>

using namespace vorn;
}

namespace {

using namespace vorn::media;
namespace fs = std::filesystem;

using Matrix = std::array<std::int32_t, 9>;
using Rgb = std::array<int, 3>;

class MediaTest : public testing::Test {
protected:
    MediaTest() {
        std::string name = (fs::temp_directory_path() / "media-test-XXXXXX").string();
        folder_ = ::mkdtemp(name.data());
    }
    ~MediaTest() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::vector<std::string> filesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    fs::path folder_;
};

using MediaTestFolder = std::function<std::string(const std::string&)>;

// --- material -----------------------------------------------------------------------------------

using Colouring = std::function<std::array<double, 4>(double x, double y)>; // all from 0 to 1

void paint(Frame& frame, const Colouring& colour) {
    for (int y = 0; y < frame.height(); ++y) {
        for (int x = 0; x < frame.width(); ++x) {
            const auto value = colour((x + 0.5) / frame.width(), (y + 0.5) / frame.height());
            for (int c = 0; c < 4; ++c) {
                if (frame.format() == PixelFormat::Rgba8)
                    frame.row(y)[4 * x + c] = std::uint8_t(std::lround(value[c] * 255));
                else
                    reinterpret_cast<std::uint16_t*>(frame.row(y))[4 * x + c] =
                        std::uint16_t(std::lround(value[c] * 65535));
            }
        }
    }
}

/// Smooth in all colours and different in every corner.
std::array<double, 4> gradient(double x, double y) {
    return {0.1 + 0.8 * x, 0.15 + 0.7 * y, 0.2 + 0.6 * (1 - x) * (1 - y), 1};
}

std::array<double, 4> whiteTopRight(double x, double y) {
    const double value = x > 0.5 && y < 0.5 ? 1 : 0;
    return {value, value, value, 1};
}

Frame makeFrame(Size size, const Colouring& colour, PixelFormat format = PixelFormat::Rgba8) {
    Frame frame(size, format);
    paint(frame, colour);
    return frame;
}

Frame flatFrame(Size size, double red, double green, double blue) {
    return makeFrame(size, [=](double, double) {
        return std::array<double, 4>{red, green, blue, 1};
    });
}

double component(const Frame& frame, int x, int y, int c) {
    if (frame.format() == PixelFormat::Rgba8) return frame.row(y)[4 * x + c] / 255.0;
    return reinterpret_cast<const std::uint16_t*>(frame.row(y))[4 * x + c] / 65535.0;
}

/// Peak signal-to-noise ratio in decibels over all four components; 200 for equal pictures.
double psnr(const Frame& a, const Frame& b) {
    if (a.size() != b.size()) return 0;
    double sum = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < 4; ++c)
                sum += std::pow(component(a, x, y, c) - component(b, x, y, c), 2);
    const double mean = sum / (4.0 * a.width() * a.height());
    return mean == 0 ? 200 : -10 * std::log10(mean);
}

double largestDifference(const Frame& a, const Frame& b) {
    if (a.size() != b.size()) return 1;
    double largest = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < 4; ++c)
                largest =
                    std::max(largest, std::abs(component(a, x, y, c) - component(b, x, y, c)));
    return largest;
}

WriterOptions optionsFor(Size size, const MediaInfo* source = nullptr) {
    WriterOptions options;
    options.size = size;
    options.source = source;
    options.threads = 2;
    return options;
}

void setTime(Frame& frame, std::int64_t pts, Rational timeBase, std::int64_t duration = 1) {
    frame.pts = pts;
    frame.duration = duration;
    frame.timeBase = timeBase;
}

/// Writes the same picture `count` times at 25 frames per second.
OutputInfo writeStill(const std::string& path, Frame& frame, const WriterOptions& options,
                      int count = 3) {
    Writer writer(path, options);
    for (int i = 0; i < count; ++i) {
        setTime(frame, i, {1, 25});
        writer.write(frame);
    }
    writer.finish();
    return writer.output();
}

/// Frame `i` is a grey that tells its number: 5 i / 255 above black.
void writeCounter(const std::string& path, int count, const std::string& codec = "") {
    WriterOptions options = optionsFor({64, 48});
    options.codec = codec;
    Writer writer(path, options);
    for (int i = 0; i < count; ++i) {
        const double grey = 5 * i / 255.0;
        Frame frame = flatFrame({64, 48}, grey, grey, grey);
        setTime(frame, i, {1, 25});
        writer.write(frame);
    }
    writer.finish();
}

int counterOf(const Frame& frame) {
    return int(std::lround(component(frame, 32, 24, 1) * 255 / 5));
}

std::vector<Frame> readAll(Reader& reader) {
    std::vector<Frame> frames;
    for (Frame frame; reader.read(frame); frame = Frame()) frames.push_back(std::move(frame));
    return frames;
}

Frame readFirst(const std::string& path, const ReaderOptions& options = {}) {
    Reader reader(path, options);
    Frame frame;
    EXPECT_TRUE(reader.read(frame)) << path;
    return frame;
}

std::string fileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

bool anyContains(const std::vector<std::string>& lines, const std::string& part) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.find(part) != std::string::npos;
    });
}

template <typename Error>
std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "";
}

// --- FFmpeg without the code under test ---------------------------------------------------------

/// Decodes the first stored picture as it is coded and gives the samples at a position from 0 to 1.
Rgb storedSample(const std::string& path, double x, double y) {
    AVFormatContext* input = nullptr;
    EXPECT_GE(avformat_open_input(&input, path.c_str(), nullptr, nullptr), 0);
    EXPECT_GE(avformat_find_stream_info(input, nullptr), 0);
    const AVStream* stream = input->streams[0];
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContext* decoder = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(decoder, stream->codecpar);
    avcodec_open2(decoder, codec, nullptr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    bool isDone = false;
    while (!isDone) {
        const bool hasPacket = av_read_frame(input, packet) >= 0;
        avcodec_send_packet(decoder, hasPacket ? packet : nullptr);
        av_packet_unref(packet);
        isDone = avcodec_receive_frame(decoder, frame) >= 0 || !hasPacket;
    }
    Rgb samples{};
    for (int plane = 0; plane < 3 && frame->data[plane]; ++plane) {
        const bool isSmall = plane > 0 && frame->linesize[plane] < frame->linesize[0];
        const int column = int(x * (frame->width - 1)) >> isSmall;
        const int row = int(y * (frame->height - 1)) >> isSmall;
        samples[plane] = frame->data[plane][row * frame->linesize[plane] + column];
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&input);
    return samples;
}

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

/// Copies a film as the command line does; stops after `stopAfter` frames if that is positive.
std::vector<std::string> pass(const std::string& from, const std::string& to, TimeRange range = {},
                              int stopAfter = 0) {
    ReaderOptions readerOptions;
    readerOptions.range = range;
    Reader reader(from, readerOptions);
    WriterOptions options = optionsFor(reader.outputSize(), &reader.info());
    options.range = range;
    options.hasAlpha = reader.info().hasAlpha;
    options.bitsPerComponent = reader.info().bitsPerComponent;
    Writer writer(to, options);
    int count = 0;
    for (Frame frame; (stopAfter == 0 || count < stopAfter) && reader.read(frame); ++count)
        writer.write(frame);
    writer.finish(stopAfter ? Ending::Interrupted : Ending::Complete);
    return writer.warnings();
}

// --- colour -------------------------------------------------------------------------------------

struct ColourCase {
    const char* name;
    ColourTags tags;
    Rgb red; ///< Y, Cb, Cr of (255, 0, 0) by the equations of BT.601 and BT.709
};

TEST_F(MediaTest, CodesAndTagsTheMatrixAndRangeOfTheSource) {
    const ColourCase cases[] = {
        {"BT.601 limited", {6, 6, 6, ColourRange::Limited, 1}, {81, 90, 240}},
        {"BT.601 full", {5, 5, 6, ColourRange::Full, 1}, {76, 85, 255}},
        {"BT.709 limited", {1, 1, 1, ColourRange::Limited, 1}, {63, 102, 240}},
        {"BT.709 full", {1, 1, 1, ColourRange::Full, 2}, {54, 99, 255}},
        {"BT.2020 limited", {9, 9, 16, ColourRange::Limited, 3}, {74, 97, 240}},
        {"untagged, small", {2, 2, 2, ColourRange::Unspecified, 1}, {81, 90, 240}},
    };
    for (const ColourCase& expected : cases) {
        SCOPED_TRACE(expected.name);
        MediaInfo source;
        source.storedSize = source.uprightSize = {64, 48};
        source.pixelFormat = "yuv420p";
        source.chromaShiftX = source.chromaShiftY = 1;
        source.frameRate = {25, 1};
        source.timeBase = {1, 25};
        source.colour = expected.tags;
        WriterOptions options = optionsFor({64, 48}, &source);
        options.crf = 0;

        Frame red = flatFrame({64, 48}, 1, 0, 0);
        writeStill(path("red.mp4"), red, options);
        const Rgb stored = storedSample(path("red.mp4"), 0.5, 0.5);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(stored[c], expected.red[c], 1) << "component " << c;
        Reader reader(path("red.mp4"));
        EXPECT_EQ(reader.info().colour, expected.tags);
        Frame seen;
        ASSERT_TRUE(reader.read(seen));
        // Rounding to limited 8-bit YCbCr costs two levels of RGB at most.
        EXPECT_LE(largestDifference(seen, red), 3 / 255.0);

        Frame smooth = makeFrame({64, 48}, gradient);
        writeStill(path("smooth.mp4"), smooth, options);
        EXPECT_GT(psnr(readFirst(path("smooth.mp4")), smooth), 44);
    }
}

TEST_F(MediaTest, ReadsUntaggedYCbCrByTheSizeOfThePicture) {
    struct {
        Size size;
        unsigned char red[3];
    } const cases[] = {
        {{720, 576}, {81, 90, 240}},
        {{1280, 16}, {63, 102, 240}},
        {{16, 578}, {63, 102, 240}},
    };
    for (const auto& [size, red] : cases) {
        std::string bytes;
        for (const unsigned char sample : red)
            bytes.append(std::size_t(size.width) * std::size_t(size.height), char(sample));
        writeBytes(path("red.yuv"), bytes);
        ReaderOptions options;
        options.raw = RawVideo{size, {25, 1}, "yuv444p"};
        const Frame frame = readFirst(path("red.yuv"), options);
        EXPECT_LE(largestDifference(frame, flatFrame(size, 1, 0, 0)), 2 / 255.0)
            << size.width << "x" << size.height;
    }
}

TEST_F(MediaTest, KeepsMoreThanEightBits) {
    // 512 columns that differ by a fraction of an 8-bit level.
    const auto ramp = [](double x, double) {
        const double value = 0.4 + 0.1 * x;
        return std::array<double, 4>{value, value, value, 1};
    };
    const auto levels = [](const Frame& frame) {
        std::vector<double> values;
        for (int x = 0; x < frame.width(); ++x) values.push_back(component(frame, x, 4, 1));
        std::sort(values.begin(), values.end());
        return std::unique(values.begin(), values.end()) - values.begin();
    };
    Frame frame = makeFrame({512, 16}, ramp, PixelFormat::Rgba16);
    WriterOptions options = optionsFor(frame.size());
    options.bitsPerComponent = 10;
    options.crf = 0;
    options.encoderOptions = {{"qp", "0"}};
    EXPECT_EQ(writeStill(path("deep.mp4"), frame, options).pixelFormat, "yuv420p10le");
    Reader reader(path("deep.mp4"));
    EXPECT_EQ(reader.info().bitsPerComponent, 10);
    EXPECT_EQ(reader.outputFormat(), PixelFormat::Rgba16);
    Frame seen;
    ASSERT_TRUE(reader.read(seen));
    EXPECT_GT(levels(seen), 80); // 0.1 of the 876 levels of limited 10-bit luma; 22 in 8 bits
    EXPECT_LE(largestDifference(seen, frame), 1.5 / 876);

    options = optionsFor(frame.size());
    options.bitsPerComponent = 16;
    for (const char* name : {"deep.png", "deep.tif", "deep.ppm"}) {
        writeStill(path(name), frame, options, 1);
        EXPECT_EQ(largestDifference(readFirst(path(name)), frame), 0) << name;
    }
}

// --- rotation -----------------------------------------------------------------------------------

TEST_F(MediaTest, TurnsUprightAndBackForEveryOrientation) {
    constexpr std::int32_t kOne = 1 << 16;
    struct {
        const char* name;
        Matrix matrix;
        bool isTransposed;
        double storedX, storedY; ///< where the upright picture's top right corner is stored
    } const cases[] = {
        {"none", {kOne, 0, 0, 0, kOne, 0, 0, 0, 1 << 30}, false, 1, 0},
        {"mirrored", {-kOne, 0, 0, 0, kOne, 0, 0, 0, 1 << 30}, false, 0, 0},
        {"upside down", {kOne, 0, 0, 0, -kOne, 0, 0, 0, 1 << 30}, false, 1, 1},
        {"180", {-kOne, 0, 0, 0, -kOne, 0, 0, 0, 1 << 30}, false, 0, 1},
        {"90 clockwise", {0, kOne, 0, -kOne, 0, 0, 0, 0, 1 << 30}, true, 0, 0},
        {"90 anticlockwise", {0, -kOne, 0, kOne, 0, 0, 0, 0, 1 << 30}, true, 1, 1},
        {"transposed", {0, kOne, 0, kOne, 0, 0, 0, 0, 1 << 30}, true, 0, 1},
        {"transversed", {0, -kOne, 0, -kOne, 0, 0, 0, 0, 1 << 30}, true, 1, 0},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        MediaInfo source;
        source.uprightSize = {96, 64};
        source.storedSize = expected.isTransposed ? Size{64, 96} : Size{96, 64};
        source.pixelFormat = "yuv420p";
        source.chromaShiftX = source.chromaShiftY = 1;
        source.displayMatrix = expected.matrix;
        Frame corner = makeFrame({96, 64}, whiteTopRight);
        const OutputInfo output =
            writeStill(path("turned.mp4"), corner, optionsFor({96, 64}, &source));
        EXPECT_EQ(output.storedSize, source.storedSize);
        const auto luma = [&](double x, double y) {
            return storedSample(path("turned.mp4"), 0.1 + 0.8 * x, 0.1 + 0.8 * y)[0];
        };
        EXPECT_GT(luma(expected.storedX, expected.storedY), 200);
        EXPECT_LT(luma(1 - expected.storedX, expected.storedY), 50);
        EXPECT_LT(luma(expected.storedX, 1 - expected.storedY), 50);

        Frame smooth = makeFrame({96, 64}, gradient);
        writeStill(path("smooth.mp4"), smooth, optionsFor({96, 64}, &source));
        Reader reader(path("smooth.mp4"));
        EXPECT_EQ(reader.info().uprightSize, (Size{96, 64}));
        if (std::string(expected.name) != "none") {
            EXPECT_EQ(reader.info().displayMatrix, expected.matrix);
        }
        Frame seen;
        ASSERT_TRUE(reader.read(seen));
        EXPECT_GT(psnr(seen, smooth), 40);

        // Matroska has no place for the matrix, so the pictures are stored upright.
        EXPECT_EQ(writeStill(path("turned.mkv"), smooth, optionsFor({96, 64}, &source)).storedSize,
                  (Size{96, 64}));
        EXPECT_GT(psnr(readFirst(path("turned.mkv")), smooth), 40);
    }
}

TEST_F(MediaTest, NamesTheTurnThatMakesThePictureUpright) {
    for (const int degrees : {0, 90, 180, 270}) {
        for (const bool isMirrored : {false, true}) {
            MediaInfo source;
            source.storedSize = source.uprightSize = {64, 64};
            source.pixelFormat = "yuv420p";
            Matrix matrix;
            // FFmpeg counts anticlockwise in 5.1's header; its matrix turns the picture by -angle.
            av_display_rotation_set(matrix.data(), degrees);
            if (isMirrored) av_display_matrix_flip(matrix.data(), 1, 0);
            source.displayMatrix = matrix;
            Frame frame = makeFrame({64, 64}, gradient);
            writeStill(path("turned.mov"), frame, optionsFor({64, 64}, &source));
            const Reader reader(path("turned.mov"));
            EXPECT_EQ(reader.info().isMirrored, isMirrored) << degrees;
            const double turn = av_display_rotation_get(matrix.data());
            if (!isMirrored) {
                EXPECT_EQ(reader.info().rotationDegrees, (int(std::lround(-turn)) + 360) % 360);
            }
        }
    }
}

TEST_F(MediaTest, LeavesOtherAnglesAloneWithAWarning) {
    MediaInfo source;
    source.storedSize = source.uprightSize = {64, 48};
    source.pixelFormat = "yuv420p";
    Matrix matrix;
    av_display_rotation_set(matrix.data(), 30);
    source.displayMatrix = matrix;
    Frame frame = makeFrame({64, 48}, gradient);
    // The writer leaves an angle it cannot undo out, so the tag is put in by hand.
    Matrix upsideDown{1 << 16, 0, 0, 0, -(1 << 16), 0, 0, 0, 1 << 30};
    source.displayMatrix = upsideDown;
    writeStill(path("turned.mov"), frame, optionsFor({64, 48}, &source));
    std::string bytes = fileBytes(path("turned.mov"));
    const auto bigEndian = [](const Matrix& m) {
        std::string text;
        for (const std::int32_t value : m)
            for (int shift = 24; shift >= 0; shift -= 8)
                text += char(std::uint32_t(value) >> shift & 255);
        return text;
    };
    const std::size_t place = bytes.find(bigEndian(upsideDown));
    ASSERT_NE(place, std::string::npos);
    bytes.replace(place, 36, bigEndian(matrix));
    writeBytes(path("turned.mov"), bytes);

    const Reader reader(path("turned.mov"));
    EXPECT_EQ(reader.info().uprightSize, (Size{64, 48}));
    EXPECT_TRUE(anyContains(reader.warnings(), "90 degrees"));
}

// --- times --------------------------------------------------------------------------------------

TEST_F(MediaTest, KeepsVariableFrameTimesExactly) {
    const std::vector<std::int64_t> times = {0,   40,  80,  123, 140, 141, 300, 340,
                                             500, 501, 520, 900, 940, 980, 1500};
    constexpr std::int64_t kLastDuration = 77;
    for (const char* name : {"times.mp4", "times.mov", "times.mkv", "times.webm"}) {
        SCOPED_TRACE(name);
        MediaInfo source;
        source.storedSize = source.uprightSize = {64, 48};
        source.pixelFormat = "yuv420p";
        source.chromaShiftX = source.chromaShiftY = 1;
        source.timeBase = {1, 1000};
        source.frameRate = {10, 1};
        source.hasVariableFrameRate = true;
        Writer writer(path(name), optionsFor({64, 48}, &source));
        for (std::size_t i = 0; i < times.size(); ++i) {
            const double grey = 0.05 * double(i);
            Frame frame = flatFrame({64, 48}, grey, grey, grey);
            const auto end = i + 1 < times.size() ? times[i + 1] : times[i] + kLastDuration;
            setTime(frame, times[i], {1, 1000}, end - times[i]);
            writer.write(frame);
        }
        writer.finish();

        Reader reader(path(name));
        EXPECT_TRUE(reader.info().hasVariableFrameRate);
        const std::vector<Frame> frames = readAll(reader);
        ASSERT_EQ(frames.size(), times.size());
        for (std::size_t i = 0; i < times.size(); ++i) {
            EXPECT_EQ(frames[i].timeNanoseconds(), times[i] * 1000000) << "frame " << i;
            const auto end = i + 1 < times.size() ? times[i + 1] : times[i] + kLastDuration;
            EXPECT_EQ(frames[i].durationNanoseconds(), (end - times[i]) * 1000000) << "frame " << i;
        }
    }
}

TEST_F(MediaTest, ReadsExactlyTheFramesOfARange) {
    writeCounter(path("counter.mp4"), 50);
    writeCounter(path("counter.mkv"), 50);
    writeCounter(path("counter.webm"), 50, "libvpx");
    writeCounter(path("counter.ts"), 50);
    struct {
        TimeRange range;
        int first, count;
    } const cases[] = {
        {{0, std::nullopt}, 0, 50}, {{0.5, 1.2}, 13, 17}, {{0.52, 1.2}, 13, 17},
        {{0.521, 1.2}, 14, 16},     {{1.96, 9.0}, 49, 1}, {{0.04, 0.08}, 1, 1},
        {{3.0, 4.0}, 0, 0},
    };
    for (const char* name : {"counter.mp4", "counter.mkv", "counter.webm", "counter.ts"}) {
        for (const auto& [range, first, count] : cases) {
            SCOPED_TRACE(std::string(name) + " from " + std::to_string(range.startSeconds));
            ReaderOptions options;
            options.range = range;
            Reader reader(path(name), options);
            const std::vector<Frame> frames = readAll(reader);
            // 0.521 s is later than the frame at 0.52 s by more than the tolerance.
            ASSERT_EQ(int(frames.size()), count);
            for (int i = 0; i < count; ++i) {
                EXPECT_EQ(counterOf(frames[std::size_t(i)]), first + i);
                EXPECT_EQ(frames[std::size_t(i)].timeNanoseconds(), (first + i) * 40000000LL);
            }
            EXPECT_EQ(anyContains(reader.warnings(), "no picture lies in the range"), count == 0);
        }
    }
}

// --- sizes, formats, alpha ----------------------------------------------------------------------

TEST_F(MediaTest, WritesOddSizesInEveryFormat) {
    struct {
        const char* name;
        const char* codec;
        double leastPsnr;
    } const cases[] = {
        {"odd.mp4", "", 38},        {"odd.mkv", "libx265", 38}, {"odd.webm", "", 34},
        {"odd.webm", "libvpx", 34}, {"odd.avi", "", 34},        {"odd.mov", "prores_ks", 38},
        {"odd.mov", "qtrle", 199},  {"odd.mkv", "ffv1", 199},   {"odd.apng", "", 199},
        {"odd.gif", "", 26},        {"odd.png", "", 199},       {"odd.jpg", "", 36},
        {"odd.tif", "", 199},       {"odd.bmp", "", 199},       {"odd.ppm", "", 199},
        {"odd.webp", "", 34},       {"odd.pam", "", 199},       {"odd.tga", "", 199},
        {"odd.jp2", "", 38},
    };
    for (const auto& [name, codec, leastPsnr] : cases) {
        SCOPED_TRACE(std::string(name) + " " + codec);
        Frame frame = makeFrame({93, 61}, gradient);
        WriterOptions options = optionsFor(frame.size());
        options.codec = codec;
        const bool isPicture = Writer(path(name), options).output().isSinglePicture;
        writeStill(path(name), frame, options, isPicture ? 1 : 3);
        Reader reader(path(name));
        EXPECT_EQ(reader.info().uprightSize, frame.size());
        EXPECT_EQ(reader.info().kind, isPicture ? MediaKind::Picture : MediaKind::Video);
        const std::vector<Frame> frames = readAll(reader);
        ASSERT_EQ(frames.size(), isPicture ? 1u : 3u);
        EXPECT_GT(psnr(frames.back(), frame), leastPsnr);
    }
}

TEST_F(MediaTest, ScalesToTheSizeThatIsAskedFor) {
    Frame frame = makeFrame({64, 48}, gradient);
    writeStill(path("film.mp4"), frame, optionsFor({64, 48}));
    ReaderOptions options;
    options.outputSize = Size{31, 97};
    EXPECT_GT(psnr(readFirst(path("film.mp4"), options), makeFrame({31, 97}, gradient)), 36);
}

std::array<double, 4> premultipliedGlow(double x, double y) {
    const double alpha = x;
    return {alpha * y, alpha * (1 - y), alpha * 0.5, alpha};
}

TEST_F(MediaTest, KeepsAlphaWhereTheFormatCan) {
    struct {
        const char* name;
        const char* codec;
        int bits;
        double leastPsnr;
    } const cases[] = {
        {"glow.png", "", 8, 55},  {"glow.png", "", 16, 95},          {"glow.tif", "", 8, 55},
        {"glow.webp", "", 8, 34}, {"glow.mov", "prores_ks", 10, 40}, {"glow.mov", "qtrle", 8, 55},
        {"glow.webm", "", 8, 30}, {"glow.apng", "", 8, 55},          {"glow.mkv", "ffv1", 8, 55},
    };
    for (const auto& [name, codec, bits, leastPsnr] : cases) {
        SCOPED_TRACE(std::string(name) + " " + codec);
        const PixelFormat format = bits > 8 ? PixelFormat::Rgba16 : PixelFormat::Rgba8;
        Frame frame = makeFrame({64, 48}, premultipliedGlow, format);
        frame.alpha = Alpha::Premultiplied;
        WriterOptions options = optionsFor({64, 48});
        options.codec = codec;
        options.hasAlpha = true;
        options.bitsPerComponent = bits;
        EXPECT_TRUE(writeStill(path(name), frame, options, 1).keepsAlpha);
        Reader reader(path(name));
        EXPECT_TRUE(reader.info().hasAlpha);
        Frame seen;
        ASSERT_TRUE(reader.read(seen));
        EXPECT_EQ(seen.alpha, Alpha::Premultiplied);
        EXPECT_GT(psnr(seen, frame), leastPsnr);
    }
}

TEST_F(MediaTest, StoresStraightColours) {
    // A quarter of full red at half alpha: 128 / 255 after division.
    Frame frame = makeFrame({2, 1}, [](double, double) {
        return std::array<double, 4>{64 / 255.0, 0, 0, 128 / 255.0};
    });
    frame.alpha = Alpha::Premultiplied;
    WriterOptions options = optionsFor(frame.size());
    options.hasAlpha = true;
    writeStill(path("straight.rgba"), frame, options, 1);
    const std::string bytes = fileBytes(path("straight.rgba"));
    ASSERT_EQ(bytes.size(), 8u);
    EXPECT_EQ(int(std::uint8_t(bytes[0])), 128); // 64 * 255 / 128 = 127.5
    EXPECT_EQ(int(std::uint8_t(bytes[3])), 128);
}

TEST_F(MediaTest, ComposesOverBlackWhereAlphaIsLost) {
    Frame frame = makeFrame({64, 48}, premultipliedGlow);
    frame.alpha = Alpha::Premultiplied;
    WriterOptions options = optionsFor({64, 48});
    options.hasAlpha = true;
    Writer writer(path("glow.jpg"), options);
    writer.write(frame);
    writer.finish();
    EXPECT_TRUE(anyContains(writer.warnings(), "over black"));
    const Frame black = makeFrame({64, 48}, [](double x, double y) {
        auto value = premultipliedGlow(x, y);
        value[3] = 1;
        return value;
    });
    EXPECT_GT(psnr(readFirst(path("glow.jpg")), black), 36);
}

TEST_F(MediaTest, WritesAndReadsASequence) {
    WriterOptions options = optionsFor({33, 21});
    options.sequenceFirstNumber = 98;
    Writer writer(path("shot%%_%03d.png"), options);
    std::vector<Frame> written;
    for (int i = 0; i < 5; ++i) {
        written.push_back(makeFrame({33, 21}, [i](double x, double y) {
            return std::array<double, 4>{x, y, 0.2 * i, 1};
        }));
        setTime(written.back(), i, {1, 30});
        writer.write(written.back());
    }
    writer.finish();
    EXPECT_EQ(filesInFolder(),
              (std::vector<std::string>{"shot%_098.png", "shot%_099.png", "shot%_100.png",
                                        "shot%_101.png", "shot%_102.png"}));
    ReaderOptions readerOptions;
    readerOptions.sequenceRate = {30, 1};
    Reader reader(path("shot%%_%03d.png"), readerOptions);
    EXPECT_EQ(reader.info().kind, MediaKind::Sequence);
    EXPECT_EQ(reader.info().firstNumber, 98);
    EXPECT_EQ(reader.info().frameCount, 5);
    const std::vector<Frame> frames = readAll(reader);
    ASSERT_EQ(frames.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(largestDifference(frames[i], written[i]), 0);
        EXPECT_EQ(frames[i].timeNanoseconds(), std::llround(double(i) * 1e9 / 30));
    }

    fs::remove(path("shot%_100.png"));
    Reader gap(path("shot%%_%03d.png"));
    EXPECT_EQ(readAll(gap).size(), 2u);
    EXPECT_TRUE(anyContains(gap.warnings(), "gap after shot%_099.png"));
}

TEST_F(MediaTest, WritesHeaderlessPixelsToADescriptor) {
    const int descriptor = ::open(path("pixels").c_str(), O_CREAT | O_WRONLY, 0600);
    Frame frame = makeFrame({33, 21}, gradient);
    writeStill("pipe:" + std::to_string(descriptor), frame, optionsFor(frame.size()), 3);
    ::close(descriptor);
    EXPECT_EQ(fs::file_size(path("pixels")), 3u * 33 * 21 * 4);
    ReaderOptions options;
    options.raw = RawVideo{{33, 21}, {25, 1}, "rgba"};
    Reader reader(path("pixels"), options);
    const std::vector<Frame> frames = readAll(reader);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(largestDifference(frames[2], frame), 0);
}

// --- sound --------------------------------------------------------------------------------------

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

TEST_F(MediaTest, WarnsWhenTheContainerCannotHoldTheSound) {
    writeCounter(path("counter.mp4"), 10);
    addSound(path("counter.mp4"), path("sound.mov"), 0.4);
    for (const char* name : {"quiet.mp4", "quiet.webm", "quiet.gif", "quiet.mpg"}) {
        const std::vector<std::string> warnings = pass(path("sound.mov"), path(name));
        EXPECT_TRUE(anyContains(warnings, "pcm_s16le")) << name;
        Reader reader(path(name));
        EXPECT_EQ(readAll(reader).size(), 10u) << name;
        EXPECT_TRUE(reader.info().companions.empty()) << name;
    }
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

// --- faults -------------------------------------------------------------------------------------

TEST_F(MediaTest, SaysWhyAFileCannotBeRead) {
    writeBytes(path("empty.mp4"), "");
    writeBytes(path("notes.txt"), "Nothing to see here.\n");
    writeBytes(path("noise.png"), std::string(1000, '\x5a'));
    writeCounter(path("counter.mp4"), 10);
    writeBytes(path("cut.mp4"), fileBytes(path("counter.mp4")).substr(0, 800));
    struct {
        std::string name, reason;
    } const cases[] = {
        {"missing.mp4", "no such file"},
        {"empty.mp4", ""},
        {"notes.txt", ""},
        {"noise.png", ""},
        {"cut.mp4", "moov"},
        {".", "is a folder"},
        {"none%04d.png", "no file matches"},
    };
    for (const auto& [name, reason] : cases) {
        const std::string target = path(name);
        const std::string message = messageOf<ReadError>([&] { Reader reader(target); });
        EXPECT_NE(message.find(name), std::string::npos) << name << ": " << message;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
    }
    ReaderOptions backwards;
    backwards.range = {2, 1};
    EXPECT_THROW(Reader(path("counter.mp4"), backwards), ReadError);
    ReaderOptions flat;
    flat.outputSize = Size{0, 10};
    EXPECT_THROW(Reader(path("counter.mp4"), flat), ReadError);
}

TEST_F(MediaTest, ReadsWhatIsLeftOfADamagedFilm) {
    writeCounter(path("counter.mkv"), 50);
    const std::string bytes = fileBytes(path("counter.mkv"));
    writeBytes(path("cut.mkv"), bytes.substr(0, bytes.size() * 6 / 10));
    Reader cut(path("cut.mkv"));
    const std::size_t left = readAll(cut).size();
    EXPECT_GT(left, 5u);
    EXPECT_LT(left, 50u);
    EXPECT_TRUE(anyContains(cut.warnings(), "ends early"));

    // Every offset of the damage must be survived; what is seen does not matter.
    for (std::size_t place = 600; place + 60 < bytes.size(); place += bytes.size() / 12) {
        std::string damaged = bytes;
        damaged.replace(place, 60, std::string(60, '\xa5'));
        writeBytes(path("damaged.mkv"), damaged);
        try {
            Reader reader(path("damaged.mkv"));
            EXPECT_LE(readAll(reader).size(), 50u);
        } catch (const ReadError&) {
        }
    }
}

TEST_F(MediaTest, ChecksEverythingBeforeTheFirstFrame) {
    writeBytes(path("there.mp4"), "keep me");
    struct {
        std::string name, codec, preset, option, reason;
    } const cases[] = {
        {"film.foo", "", "", "", "unknown extension"},
        {"film", "", "", "", "no extension"},
        {"no/film.mp4", "", "", "", "no folder"},
        {"no/film.png", "", "", "", "no folder"},
        {"no/%03d.png", "", "", "", "no folder"},
        {"film.mp4", "libx246", "", "", "did you mean libx264"},
        {"film.webm", "libx264", "", "", "cannot hold libx264; it takes: "},
        {"film.mp4", "", "fats", "", "fats"},
        {"film.mp4", "", "", "flavour", "has no option flavour"},
        {"film.png", "gif", "", "", "not gif"},
        {"film.mp3", "", "", "", "holds no film"},
        {"there.mp4", "", "", "", "exists already"},
        {"pipe:x", "", "", "", "file descriptor"},
    };
    for (const auto& [name, codec, preset, option, reason] : cases) {
        WriterOptions options = optionsFor({64, 48});
        options.codec = codec;
        options.preset = preset;
        if (!option.empty()) options.encoderOptions = {{option, "1"}};
        options.overwrite = false;
        const std::string target = name.starts_with("pipe:") ? name : path(name);
        const std::string message = messageOf<WriteError>([&] { Writer writer(target, options); });
        const std::string start = name.substr(0, name.find('%'));
        EXPECT_NE(message.find(start), std::string::npos) << name << ": " << message;
        EXPECT_NE(message.find(reason), std::string::npos) << message;
    }
    WriterOptions options = optionsFor({0, 48});
    EXPECT_THROW(Writer(path("film.mp4"), options), WriteError);
    EXPECT_EQ(filesInFolder(), std::vector<std::string>{"there.mp4"});
    EXPECT_EQ(fileBytes(path("there.mp4")), "keep me");
}

TEST_F(MediaTest, LeavesTheOldFileUntilTheNewOneIsWhole) {
    for (const char* name : {"old.mp4", "old.png", "old.rgba"}) {
        writeBytes(path(name), "keep me");
        Frame frame = makeFrame({64, 48}, gradient);
        {
            Writer abandoned(path(name), optionsFor({64, 48}));
            if (std::string(name) != "old.png") abandoned.write(frame);
            EXPECT_EQ(fileBytes(path(name)), "keep me");
        }
        Writer empty(path(name), optionsFor({64, 48}));
        EXPECT_THROW(empty.finish(), WriteError);
        EXPECT_EQ(filesInFolder(), std::vector<std::string>{name});
        EXPECT_EQ(fileBytes(path(name)), "keep me");

        Writer writer(path(name), optionsFor({64, 48}));
        writer.write(frame);
        writer.finish();
        EXPECT_THROW(writer.write(frame), WriteError);
        EXPECT_THROW(writer.finish(), WriteError);
        EXPECT_NE(fileBytes(path(name)), "keep me");
        fs::remove(path(name));
        EXPECT_TRUE(filesInFolder().empty());
    }
}

mode_t permissionsOf(const std::string& path) {
    struct stat file = {};
    return ::stat(path.c_str(), &file) == 0 ? file.st_mode & 0777 : 0;
}

TEST_F(MediaTest, KeepsThePermissionsOfTheFileThatItReplaces) {
    const mode_t old = ::umask(0);
    for (const char* name : {"old.mp4", "old.png", "old.rgba"}) {
        for (const mode_t mode : {0600, 0640, 0666}) {
            writeBytes(path(name), "keep me private");
            fs::permissions(path(name), fs::perms(mode));
            Writer writer(path(name), optionsFor({64, 48}));
            for (const std::string& each : filesInFolder())
                EXPECT_EQ(permissionsOf(path(each)), mode) << each;
            writer.write(makeFrame({64, 48}, gradient));
            writer.finish();
            EXPECT_EQ(permissionsOf(path(name)), mode) << name;
            fs::remove(path(name));
        }
    }
    ::umask(027);
    Frame frame = makeFrame({64, 48}, gradient);
    writeStill(path("new.png"), frame, optionsFor({64, 48}), 1);
    EXPECT_EQ(permissionsOf(path("new.png")), 0640U);
    ::umask(old);
}

TEST_F(MediaTest, WritesIntoNoFileThatIsPutInItsWay) {
    Frame frame = makeFrame({64, 48}, gradient);
    writeBytes(path("victim"), "keep me");
    for (const char* name : {"out.mp4", "out.png", "out.rgba"}) {
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(name), optionsFor({64, 48}));
            for (const std::string& each : filesInFolder()) {
                if (!each.ends_with(".part")) continue;
                fs::remove(path(each));
                fs::create_symlink("victim", path(each));
            }
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("took the unfinished file away"), std::string::npos) << message;
        EXPECT_EQ(fileBytes(path("victim")), "keep me") << name;
        EXPECT_EQ(filesInFolder(), std::vector<std::string>{"victim"});
    }
    if (::geteuid() != 0) GTEST_SKIP() << "only root can make links of another user";
    fs::create_symlink("victim", path("out.png"));
    ASSERT_EQ(::lchown(path("out.png").c_str(), 12345, 12345), 0);
    EXPECT_THROW(Writer(path("out.png"), optionsFor({64, 48})), WriteError);
}

TEST_F(MediaTest, ReplacesNothingThatComesToBeMeanwhile) {
    Frame frame = makeFrame({64, 48}, gradient);
    WriterOptions options = optionsFor({64, 48});
    options.overwrite = false;
    for (const char* name : {"late.mp4", "late.png", "late.rgba"}) {
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(name), options);
            writeBytes(path(name), "keep me");
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("exists already"), std::string::npos) << name << ": " << message;
        EXPECT_EQ(fileBytes(path(name)), "keep me");
        EXPECT_EQ(filesInFolder(), std::vector<std::string>{name});
        fs::remove(path(name));
    }
}

// --- playlists ----------------------------------------------------------------------------------

/// Two playlists of the film a.mkv or a.ts under the names of films.
void writePlaylists(const MediaTestFolder& path) {
    writeCounter(path("a.mkv"), 5);
    writeCounter(path("a.ts"), 5);
    writeBytes(path("concat.mp4"), "ffconcat version 1.0\nfile 'a.mkv'\n");
    writeBytes(path("hls.mp4"), "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n"
                                "#EXTINF:0.2,\na.ts\n#EXT-X-ENDLIST\n");
}

TEST_F(MediaTest, ReadsNoFileThatAnotherOneNames) {
    writePlaylists([this](const std::string& name) { return path(name); });
    for (const char* name : {"concat.mp4", "hls.mp4"}) {
        const std::string message = messageOf<ReadError>([&] { Reader reader(path(name)); });
        EXPECT_NE(message.find("--allow-playlists"), std::string::npos) << name << ": " << message;

        ReaderOptions options;
        options.access.allowsPlaylists = true;
        Reader reader(path(name), options);
        EXPECT_EQ(readAll(reader).size(), 5u) << name;
    }
}

TEST_F(MediaTest, ReplacesNoFileThatIsRead) {
    writePlaylists([this](const std::string& name) { return path(name); });
    Frame frame = makeFrame({64, 48}, gradient);
    writeStill(path("shot%02d.png"), frame, optionsFor({64, 48}), 3);
    fs::create_directory(path("sub"));
    fs::create_directory_symlink("..", path("sub/up"));
    fs::create_hard_link(path("a.mkv"), path("other.mkv"));
    struct {
        const char *input, *output;
    } const cases[] = {
        {"a.mkv", "a.mkv"},
        {"a.mkv", "other.mkv"},
        {"a.mkv", "sub/up/a.mkv"},
        {"shot%02d.png", "sub/up/shot02.png"},
        {"concat.mp4", "a.mkv"},
        {"hls.mp4", "sub/up/a.ts"},
        {"shot%02d.png", "shot%02d.png"},
    };
    for (const auto& [input, output] : cases) {
        ReaderOptions readerOptions;
        readerOptions.access = {.allowsPlaylists = true, .inputs = std::make_shared<InputFiles>()};
        Reader reader(path(input), readerOptions);
        WriterOptions options = optionsFor({64, 48});
        options.access = readerOptions.access;
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(output), options);
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("is read"), std::string::npos) << output << ": " << message;
    }

    // What takes the place of the output while it is written is looked at again.
    ReaderOptions readerOptions;
    readerOptions.access.inputs = std::make_shared<InputFiles>();
    Reader reader(path("a.mkv"), readerOptions);
    WriterOptions options = optionsFor({64, 48});
    options.access = readerOptions.access;
    Writer writer(path("late.mkv"), options);
    writer.write(frame);
    fs::rename(path("other.mkv"), path("late.mkv"));
    EXPECT_THROW(writer.finish(), WriteError);
}

TEST_F(MediaTest, RefusesFramesThatDoNotFit) {
    Frame frame = makeFrame({64, 48}, gradient);
    Writer film(path("film.mp4"), optionsFor({32, 48}));
    EXPECT_NE(messageOf<WriteError>([&] { film.write(frame); }).find("64x48, not 32x48"),
              std::string::npos);
    Writer picture(path("one.png"), optionsFor({64, 48}));
    picture.write(frame);
    EXPECT_NE(messageOf<WriteError>([&] { picture.write(frame); }).find("pattern"),
              std::string::npos);
}

TEST_F(MediaTest, ReportsAFullDisk) {
    Frame frame = makeFrame({64, 48}, gradient);
    for (const char* name : {"full.rgba", "full.mp4", "full.png"}) {
        fs::create_symlink("/dev/full", path(name));
        const std::string message = messageOf<WriteError>([&] {
            Writer writer(path(name), optionsFor({64, 48}));
            writer.write(frame);
            writer.finish();
        });
        EXPECT_NE(message.find("No space left"), std::string::npos) << name << ": " << message;
        EXPECT_TRUE(fs::is_symlink(path(name)));
    }
}

TEST_F(MediaTest, WritesTheSameBytesTwice) {
    for (const char* name :
         {"twice.mp4", "twice.mkv", "twice.webm", "twice.gif", "twice.avi", "twice.mov"}) {
        writeCounter(path(name), 12);
        const std::string first = fileBytes(path(name));
        writeCounter(path(name), 12);
        EXPECT_TRUE(first == fileBytes(path(name))) << name;
    }
}

TEST_F(MediaTest, KeepsQuietOnTheTerminal) {
    writeBytes(path("noise.mp4"), std::string(5000, '\x5a'));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_THROW(Reader(path("noise.mp4")), ReadError);
    for (const char* codec : {"libx264", "libx265", "libsvtav1"}) {
        WriterOptions options = optionsFor({64, 64});
        options.codec = codec;
        Frame frame = makeFrame({64, 64}, gradient);
        writeStill(path("film.mkv"), frame, options);
        readFirst(path("film.mkv"));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(MediaTest, ReusesBuffers) {
    writeCounter(path("counter.mp4"), 20);
    Reader reader(path("counter.mp4"));
    Frame frame;
    ASSERT_TRUE(reader.read(frame));
    const std::uint8_t* pixels = frame.pixels();
    while (reader.read(frame)) EXPECT_EQ(frame.pixels(), pixels);

    Frame survivor;
    FramePool pool;
    for (int round = 0; round < 10; ++round) {
        Frame a = pool.acquire({64, 48}, PixelFormat::Rgba8);
        Frame b = pool.acquire({64, 48}, PixelFormat::Rgba8);
        survivor = std::move(b);
    }
    EXPECT_LE(pool.allocations(), 3u);
    EXPECT_THROW(pool.acquire({0, 1}, PixelFormat::Rgba8), std::invalid_argument);
    EXPECT_THROW(pool.acquire({1 << 20, 1 << 20}, PixelFormat::Rgba16), std::invalid_argument);
}

} // namespace
