// Sizes, formats and transparency.
#include "media_support.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace media_test;

std::array<double, 4> premultipliedGlow(double x, double y) {
    const double alpha = x;
    return {alpha * y, alpha * (1 - y), alpha * 0.5, alpha};
}

Frame cropped(const Frame& frame, Size size) {
    Frame part(size, frame.format());
    for (int y = 0; y < size.height; ++y)
        std::copy_n(frame.row(y), size.width * bytesPerPixel(frame.format()), part.row(y));
    return part;
}

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
        // H.264 and HEVC hold 4:2:0 with even sizes only: the last column and row stand twice.
        const bool isEven = std::string(name) == "odd.mp4" || std::string(codec) == "libx265";
        EXPECT_EQ(reader.info().uprightSize, isEven ? (Size{94, 62}) : frame.size());
        if (isEven) {
            EXPECT_EQ(reader.info().pixelFormat, "yuv420p");
        }
        EXPECT_EQ(reader.info().kind, isPicture ? MediaKind::Picture : MediaKind::Video);
        const std::vector<Frame> frames = readAll(reader);
        ASSERT_EQ(frames.size(), isPicture ? 1u : 3u);
        EXPECT_GT(psnr(cropped(frames.back(), frame.size()), frame), leastPsnr);
    }
}

TEST_F(MediaTest, ChoosesACodecThatHoldsAlphaWhereTheContainerHasOne) {
    struct {
        const char* name;
        const char* encoder;
        const char* pixels;
        double leastPsnr;
    } const cases[] = {
        {"glow.mov", "prores_ks", "yuva444p10le", 40}, {"glow.mkv", "ffv1", "bgra", 55},
        {"glow.webm", "libvpx-vp9", "yuva420p", 30},   {"glow.avi", "utvideo", "gbrap", 50},
        {"glow.mp4", "libx264", "yuv420p", 0},
    };
    for (const auto& [name, encoder, pixels, leastPsnr] : cases) {
        SCOPED_TRACE(name);
        Frame frame = makeFrame({64, 48}, premultipliedGlow);
        frame.alpha = Alpha::Premultiplied;
        WriterOptions options = optionsFor({64, 48});
        options.hasAlpha = true;
        Writer writer(path(name), options);
        setTime(frame, 0, {1, 25});
        writer.write(frame);
        writer.finish();
        EXPECT_EQ(writer.output().encoder, encoder);
        EXPECT_EQ(writer.output().pixelFormat, pixels);
        EXPECT_EQ(anyContains(writer.warnings(), "mov, webm or mkv"), leastPsnr == 0);
        Reader reader(path(name));
        EXPECT_EQ(reader.info().hasAlpha, leastPsnr > 0);
        Frame seen;
        ASSERT_TRUE(reader.read(seen));
        if (leastPsnr > 0) {
            EXPECT_GT(psnr(seen, frame), leastPsnr);
        }
    }
}

TEST_F(MediaTest, HandsEncodersTheirOptions) {
    Frame frame = makeFrame({64, 48}, [](double x, double y) {
        const double noise = std::abs(std::sin(x * 7919 + y * 104729));
        return std::array<double, 4>{noise, noise, noise, 1};
    });
    const auto sizeWith = [&](const std::function<void(WriterOptions&)>& change) {
        WriterOptions options = optionsFor({64, 48});
        change(options);
        writeStill(path("film.mp4"), frame, options, 25);
        return fs::file_size(path("film.mp4"));
    };
    const auto rate = [](std::int64_t bits) {
        return [bits](WriterOptions& options) { options.bitsPerSecond = bits; };
    };
    EXPECT_LT(sizeWith(rate(8'000)) * 2, sizeWith(rate(800'000)));
    // Each picture by itself takes more room.
    EXPECT_GT(sizeWith([](WriterOptions& options) {
                  options.encoderOptions = {{"g", "1"}};
              }),
              sizeWith([](WriterOptions& options) { options.tune = "film"; }) * 2);
    sizeWith([](WriterOptions& options) { options.pixelFormat = "yuv422p10le"; });
    EXPECT_EQ(Reader(path("film.mp4")).info().pixelFormat, "yuv422p10le");

    const auto refusal = [&](const std::function<void(WriterOptions&)>& change) {
        return messageOf<WriteError>([&] { sizeWith(change); });
    };
    const std::string tune = refusal([](WriterOptions& options) { options.tune = "fil"; });
    EXPECT_NE(tune.find("there are: film, animation"), std::string::npos) << tune;
    const std::string key = refusal([](WriterOptions& options) {
        options.encoderOptions = {{"zork", "1"}};
    });
    EXPECT_NE(key.find("no option zork"), std::string::npos) << key;
    const std::string value = refusal([](WriterOptions& options) {
        options.encoderOptions = {{"g", "zork"}};
    });
    EXPECT_NE(value.find("option g to value zork"), std::string::npos) << value;
    const std::string pixels =
        refusal([](WriterOptions& options) { options.pixelFormat = "zork"; });
    EXPECT_NE(pixels.find("it takes: yuv420p"), std::string::npos) << pixels;
}

TEST_F(MediaTest, SaysWhatEncodersOnCardsAreMissing) {
    for (const auto& [codec, need] :
         {std::pair("h264_nvenc", "needs an NVIDIA card"), std::pair("hevc_nvenc", "NVIDIA"),
          std::pair("h264_vaapi", "VAAPI driver"), std::pair("hevc_vaapi", "VAAPI driver"),
          std::pair("h264_qsv", "needs an Intel GPU")}) {
        Frame frame = makeFrame({256, 128}, gradient);
        WriterOptions options = optionsFor(frame.size());
        options.codec = codec;
        std::string refusal;
        try {
            writeStill(path("card.mp4"), frame, options);
        } catch (const WriteError& error) {
            refusal = error.what();
        }
        if (refusal.empty()) { // there is such a card
            EXPECT_GT(psnr(readFirst(path("card.mp4")), frame), 30) << codec;
            continue;
        }
        EXPECT_NE(refusal.find(std::string("the encoder ") + codec), std::string::npos) << refusal;
        EXPECT_NE(refusal.find(need), std::string::npos) << refusal;
        EXPECT_TRUE(filesInFolder().empty());
    }
}

TEST_F(MediaTest, ScalesToTheSizeThatIsAskedFor) {
    Frame frame = makeFrame({64, 48}, gradient);
    writeStill(path("film.mp4"), frame, optionsFor({64, 48}));
    ReaderOptions options;
    options.outputSize = Size{31, 97};
    EXPECT_GT(psnr(readFirst(path("film.mp4"), options), makeFrame({31, 97}, gradient)), 36);
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

TEST_F(MediaTest, KeepsWhatIsTransparentOutOfScaledEdges) {
    Frame frame = makeFrame({32, 32}, [](double x, double) {
        return x < 0.5 ? std::array<double, 4>{1, 0, 0, 1} : std::array<double, 4>{0, 1, 0, 0};
    });
    frame.alpha = Alpha::Straight;
    WriterOptions options = optionsFor(frame.size());
    options.hasAlpha = true;
    writeStill(path("edge.png"), frame, options, 1);
    for (const Size size : {Size{13, 13}, Size{77, 32}}) {
        ReaderOptions readerOptions;
        readerOptions.outputSize = size;
        const Frame scaled = readFirst(path("edge.png"), readerOptions);
        for (int x = 0; x < size.width; ++x) {
            EXPECT_LE(component(scaled, x, 8, 1), 2 / 255.0) << x;
            EXPECT_NEAR(component(scaled, x, 8, 0), component(scaled, x, 8, 3), 2 / 255.0) << x;
        }
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

} // namespace
