// What encoders are told, in their own words.
#include "encoder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavutil/mastering_display_metadata.h>
}

namespace vorn::media {

namespace {

// How an encoder is told the quality, and the quality that is hard to tell from the source.
struct Quality {
    const char* encoder;
    const char* option; ///< "qscale": the fixed quantiser, otherwise an option of the encoder
    double standard;    ///< 0: the encoder's own default
};

constexpr Quality kQualities[] = {
    {"libx264", "crf", 18},
    {"libx264rgb", "crf", 18},
    {"libx265", "crf", 20},
    {"libvpx-vp9", "crf", 24},
    {"libvpx", "crf", 8},
    {"libsvtav1", "crf", 26},
    {"libaom-av1", "crf", 22},
    {"librav1e", "qp", 70},
    {"mpeg4", "qscale", 2},
    {"mpeg2video", "qscale", 2},
    {"mpeg1video", "qscale", 2},
    {"mjpeg", "qscale", 2},
    {"msmpeg4", "qscale", 2},
    {"msmpeg4v2", "qscale", 2},
    {"wmv1", "qscale", 2},
    {"wmv2", "qscale", 2},
    {"flv", "qscale", 2},
    {"h263p", "qscale", 2},
    {"libxvid", "qscale", 2},
    {"libtheora", "qscale", 9},
    {"libwebp", "quality", 92},
    {"libwebp_anim", "quality", 92},
    {"prores_ks", "qscale", 0},
    // On cards; not tried, for want of one.
    {"h264_nvenc", "cq", 19},
    {"hevc_nvenc", "cq", 21},
    {"h264_vaapi", "qp", 20},
    {"hevc_vaapi", "qp", 22},
    {"h264_qsv", "global_quality", 20},
    {"hevc_qsv", "global_quality", 22},
};

// What takes no bit rate: each picture is kept whole, or has its own.
constexpr const char* kWithoutBitRate[] = {"ffv1", "ffvhuff", "huffyuv", "utvideo",  "png",
                                           "apng", "qtrle",   "gif",     "prores_ks"};

struct EncoderOption {
    const char* encoder;
    const char* key;
    const char* value;
};

constexpr EncoderOption kStandardOptions[] = {
    {"libx264", "preset", "medium"},    {"libx265", "preset", "medium"},
    {"libvpx-vp9", "deadline", "good"}, {"libvpx-vp9", "cpu-used", "4"},
    {"libvpx-vp9", "row-mt", "1"},      {"libvpx", "deadline", "good"},
    {"libvpx", "cpu-used", "2"},        {"libaom-av1", "cpu-used", "6"},
    {"libaom-av1", "row-mt", "1"},      {"libsvtav1", "preset", "8"},
    {"prores_ks", "vendor", "apl0"},    {"ffv1", "level", "3"},
};

const Quality* qualityOf(const AVCodec& codec) {
    const auto found =
        std::find_if(std::begin(kQualities), std::end(kQualities),
                     [&](const Quality& q) { return std::string(q.encoder) == codec.name; });
    return found == std::end(kQualities) ? nullptr : found;
}

std::string numberText(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// x264 and x265 complain about unknown names on the terminal, past FFmpeg's messages.
void checkName(const char* what, const std::string& name,
               std::initializer_list<const char*> known) {
    std::string names;
    for (const char* each : known) {
        if (name.empty() || name == each) return;
        names += std::string(names.empty() ? "" : ", ") + each;
    }
    throw std::runtime_error(std::string("unknown ") + what + " " + name + "; there are: " + names);
}

void checkNames(const std::string& encoder, const AvOptions& options) {
    if (!encoder.starts_with("libx26")) return;
    checkName("preset", options.get("preset"),
              {"ultrafast", "superfast", "veryfast", "faster", "fast", "medium", "slow", "slower",
               "veryslow", "placebo"});
    if (encoder == "libx265")
        checkName("tune", options.get("tune"),
                  {"psnr", "ssim", "grain", "zerolatency", "fastdecode", "animation"});
    else
        checkName("tune", options.get("tune"),
                  {"film", "animation", "grain", "stillimage", "psnr", "ssim", "fastdecode",
                   "zerolatency"});
}

/// How bright the display was that the film was made on, and how bright the film gets: for x265,
/// which writes it into the pictures.
std::string lightLevels(const MediaInfo& source) {
    std::string text;
    const auto in = [](AVRational value, int unit) {
        return std::to_string(std::llround(av_q2d(value) * unit));
    };
    for (const StreamSideData& side : source.sideData) {
        if (side.type == AV_PKT_DATA_MASTERING_DISPLAY_METADATA &&
            side.bytes.size() >= sizeof(AVMasteringDisplayMetadata)) {
            AVMasteringDisplayMetadata display;
            std::memcpy(&display, side.bytes.data(), sizeof display);
            if (!display.has_primaries || !display.has_luminance) continue;
            const auto point = [&](const AVRational(&xy)[2]) {
                return "(" + in(xy[0], 50000) + "," + in(xy[1], 50000) + ")";
            };
            const auto& [red, green, blue] = display.display_primaries;
            text += ":master-display=G" + point(green) + "B" + point(blue) + "R" + point(red) +
                    "WP" + point(display.white_point) + "L(" + in(display.max_luminance, 10000) +
                    "," + in(display.min_luminance, 10000) + ")";
        }
        if (side.type == AV_PKT_DATA_CONTENT_LIGHT_LEVEL &&
            side.bytes.size() >= sizeof(AVContentLightMetadata)) {
            AVContentLightMetadata light;
            std::memcpy(&light, side.bytes.data(), sizeof light);
            text +=
                ":max-cll=" + std::to_string(light.MaxCLL) + "," + std::to_string(light.MaxFALL);
        }
    }
    return text;
}

} // namespace

void Encoder::setOptions(const EncoderRequest& request, AvOptions& target) {
    const WriterOptions& options = *request.options;
    const std::string name = request.codec->name;
    for (const auto& [key, value] : options.encoderOptions) target.set(key, value);
    if (!options.preset.empty()) target.set("preset", options.preset);
    if (!options.tune.empty()) target.set("tune", options.tune);
    for (const EncoderOption& standard : kStandardOptions)
        if (name == standard.encoder) target.setDefault(standard.key, standard.value);
    if (name == "libx265") {
        const std::string own = target.get("x265-params");
        std::string all = "log-level=none" + (options.source ? lightLevels(*options.source) : "");
        target.set("x265-params", own.empty() ? all : all + ":" + own);
    }

    checkNames(name, target);
    const bool isVpx = name == "libvpx" || name == "libvpx-vp9";
    if (isVpx && media::hasAlpha(format_)) target.setDefault("auto-alt-ref", "0");
    // SVT-AV1 writes to the terminal by itself; its variable is the only way to quiet it.
    if (name == "libsvtav1") ::setenv("SVT_LOG", "0", 0);
    if (options.bitsPerSecond > 0)
        context_->bit_rate = options.bitsPerSecond;
    else
        setQuality(request, target);
}

void Encoder::setQuality(const EncoderRequest& request, AvOptions& target) {
    const WriterOptions& options = *request.options;
    // VP8 takes the bit rate as the ceiling of constant quality; VP9 has none at zero.
    if (std::string(request.codec->name) == "libvpx") context_->bit_rate = 50'000'000;
    // A rate or quality among the options by FFmpeg's names is meant instead.
    if (!options.crf && (!target.get("b").empty() || !target.get("qp").empty())) return;
    const Quality* quality = qualityOf(*request.codec);
    if (!quality) return;
    const double value = options.crf.value_or(quality->standard);
    if (value == 0 && !options.crf) return;
    if (std::string(quality->option) == "qscale") {
        context_->flags |= AV_CODEC_FLAG_QSCALE;
        context_->global_quality = int(std::lround(value * FF_QP2LAMBDA));
    } else {
        target.setDefault(quality->option, numberText(value));
    }
}

void Encoder::remarkOnQuality(const EncoderRequest& request, Warnings& warnings) {
    const WriterOptions& options = *request.options;
    const std::string name = request.codec->name;
    if (options.crf && !qualityOf(*request.codec))
        warnings.add("the encoder " + name + " has no quality setting");
    for (const char* each : kWithoutBitRate)
        if (options.bitsPerSecond > 0 && name == each)
            warnings.add("the encoder " + name + " has no bit rate");
}

} // namespace vorn::media
