#include "target.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <numeric>

namespace vorn::media {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw WriteError("cannot write " + path + ": " + reason);
}

std::string extensionOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return extension.empty() ? extension : extension.substr(1);
}

struct NamePair {
    const char* name;
    const char* value;
};

constexpr NamePair kPictureEncoders[] = {
    {"png", "png"},      {"jpg", "mjpeg"},       {"jpeg", "mjpeg"}, {"tif", "tiff"},
    {"tiff", "tiff"},    {"bmp", "bmp"},         {"ppm", "ppm"},    {"pam", "pam"},
    {"webp", "libwebp"}, {"jp2", "libopenjpeg"}, {"tga", "targa"},
};

// Containers whose own default is not the encoder that serves best.
constexpr NamePair kFilmEncoders[] = {
    {"mp4", "libx264"},
    {"mov", "libx264"},
    {"matroska", "libx264"},
    {"mpegts", "libx264"},
    {"flv", "libx264"},
    {"webm", "libvpx-vp9"},
    {"avi", "mpeg4"},
    {"mpeg", "mpeg2video"},
    // What goes through pipes is to arrive as it was.
    {"nut", "rawvideo"},
    {"rawvideo", "rawvideo"},
    {"yuv4mpegpipe", "wrapped_avframe"},
};

// What holds alpha in the containers that have anything for it.
constexpr NamePair kAlphaEncoders[] = {
    {"mov", "prores_ks"},
    {"matroska", "ffv1"},
    {"webm", "libvpx-vp9"},
    {"avi", "utvideo"},
};

// What players expect of PQ and HLG.
constexpr NamePair kHdrEncoders[] = {
    {"mp4", "libx265"},
    {"mov", "libx265"},
    {"matroska", "libx265"},
    {"mpegts", "libx265"},
};

// Codec names that several encoders answer to.
constexpr NamePair kPreferredEncoders[] = {
    {"h264", "libx264"},  {"hevc", "libx265"},     {"h265", "libx265"},   {"vp8", "libvpx"},
    {"av1", "libsvtav1"}, {"prores", "prores_ks"}, {"vp9", "libvpx-vp9"}, {"x264", "libx264"},
    {"x265", "libx265"},  {"theora", "libtheora"},
};

template <std::size_t N>
const char* lookUp(const NamePair (&table)[N], const std::string& name) {
    for (const NamePair& pair : table)
        if (name == pair.name) return pair.value;
    return nullptr;
}

const AVCodec* videoEncoder(const std::string& name) {
    const char* preferred = lookUp(kPreferredEncoders, name);
    const AVCodec* encoder = avcodec_find_encoder_by_name(preferred ? preferred : name.c_str());
    if (!encoder) {
        if (const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(name.c_str()))
            encoder = avcodec_find_encoder(codec->id);
    }
    return encoder && encoder->type == AVMEDIA_TYPE_VIDEO ? encoder : nullptr;
}

bool canHold(const AVOutputFormat& container, const AVCodec& encoder) {
    const int answer = avformat_query_codec(&container, encoder.id, FF_COMPLIANCE_NORMAL);
    if (answer != AVERROR_PATCHWELCOME) return answer == 1;
    const char* usual = lookUp(kFilmEncoders, container.name);
    return encoder.id == container.video_codec || (usual && std::string(usual) == encoder.name);
}

std::vector<std::string> encodersFor(const AVOutputFormat& container) {
    std::vector<std::string> names;
    void* iterator = nullptr;
    while (const AVCodec* codec = av_codec_iterate(&iterator)) {
        if (!av_codec_is_encoder(codec) || codec->type != AVMEDIA_TYPE_VIDEO) continue;
        const int excluded =
            AV_CODEC_CAP_HARDWARE | AV_CODEC_CAP_HYBRID | AV_CODEC_CAP_EXPERIMENTAL;
        const bool isOmx = std::string(codec->name).ends_with("_omx"); // needs a device
        if (isOmx || (codec->capabilities & excluded)) continue;
        if (canHold(container, *codec)) names.push_back(codec->name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string join(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// Levenshtein distance: the least number of letters to insert, delete or replace.
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t(0));
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::string suggestion(const std::string& wanted, std::vector<std::string> names) {
    for (const NamePair& pair : kPreferredEncoders)
        if (std::find(names.begin(), names.end(), pair.value) != names.end())
            names.push_back(pair.name);
    const auto nearest = std::min_element(
        names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
            return editDistance(wanted, a) < editDistance(wanted, b);
        });
    if (nearest == names.end() || editDistance(wanted, *nearest) > 3) return "";
    return "; did you mean " + *nearest + "?";
}

// Descriptor number of "-" or "pipe:N"; nothing for other names.
std::optional<int> descriptorOf(const std::string& path) {
    if (path == "-") return 1;
    if (!path.starts_with("pipe:")) return std::nullopt;
    int number = -1;
    const char* end = path.data() + path.size();
    const auto [stop, error] = std::from_chars(path.data() + 5, end, number);
    if (error != std::errc() || stop != end || number < 0)
        fail(path, "a pipe is named by its file descriptor, such as pipe:3");
    return number;
}

void choosePicture(const std::string& path, const std::string& extension, const std::string& codec,
                   const char* usual, Target& target) {
    target.kind = target.pattern ? TargetKind::Sequence : TargetKind::Picture;
    target.encoder = avcodec_find_encoder_by_name(usual);
    if (!target.encoder)
        fail(path, std::string("this FFmpeg was built without the encoder ") + usual);
    if (codec.empty()) return;
    const AVCodec* wanted = videoEncoder(codec);
    if (!wanted || wanted->id != target.encoder->id)
        fail(path,
             "a ." + extension + " picture is written by the encoder " + usual + ", not " + codec);
    target.encoder = wanted;
}

const AVCodec* usualEncoder(const AVOutputFormat& container, const TargetNeeds& needs) {
    const char* name = needs.alpha ? lookUp(kAlphaEncoders, container.name) : nullptr;
    if (!name && needs.highDynamicRange) name = lookUp(kHdrEncoders, container.name);
    if (!name) name = lookUp(kFilmEncoders, container.name);
    const AVCodec* encoder = name ? avcodec_find_encoder_by_name(name) : nullptr;
    return encoder ? encoder : avcodec_find_encoder(container.video_codec);
}

/// By an extension or, where one is asked for, by FFmpeg's name.
const AVOutputFormat* containerOf(const std::string& extension, bool isName) {
    if (extension == "m4v") return av_guess_format("mp4", nullptr, nullptr);
    const AVOutputFormat* found = av_guess_format(nullptr, ("film." + extension).c_str(), nullptr);
    return found || !isName ? found : av_guess_format(extension.c_str(), nullptr, nullptr);
}

void chooseFilm(const std::string& path, const std::string& extension, const TargetNeeds& needs,
                Target& target) {
    const std::string& codec = needs.codec;
    const bool isName = !needs.format.empty();
    target.kind = TargetKind::Film;
    if (extension.empty())
        fail(path, "the name has no extension that says what to write; --format does so as well");
    target.container = containerOf(extension, isName);
    if (!target.container || (target.container->flags & AVFMT_NOFILE))
        fail(path, (isName ? "unknown format " : "unknown extension .") + extension +
                       "; films: mp4 m4v mov mkv webm avi gif apng mpg ts y4m nut, pictures: png "
                       "jpg tif bmp webp ppm pam tga jp2, headerless: rgba raw");
    const AVOutputFormat& container = *target.container;
    // Sound files hold at most a cover picture.
    const bool isSoundFile =
        container.audio_codec != AV_CODEC_ID_NONE &&
        (container.video_codec == AV_CODEC_ID_PNG || container.video_codec == AV_CODEC_ID_MJPEG);
    if (isSoundFile || container.video_codec == AV_CODEC_ID_NONE)
        fail(path, "a ." + extension + " file holds no film");

    if (codec.empty()) {
        target.encoder = usualEncoder(container, needs);
        if (!target.encoder)
            fail(path, std::string("there is no encoder for a ") + container.name + " file");
        return;
    }
    const std::vector<std::string> available = encodersFor(container);
    target.encoder = videoEncoder(codec);
    if (!target.encoder)
        fail(path, "unknown codec " + codec + suggestion(codec, available) + " A ." + extension +
                       " file takes: " + join(available));
    if (!canHold(container, *target.encoder))
        fail(path,
             "a ." + extension + " file cannot hold " + codec + "; it takes: " + join(available));
}

} // namespace

Target chooseTarget(const std::string& path, const TargetNeeds& needs) {
    Target target;
    if (path.empty()) throw WriteError("cannot write: the output has no name");
    const std::optional<int> descriptor = descriptorOf(path);
    target.descriptor = descriptor.value_or(-1);
    std::string extension = needs.format.empty() ? extensionOf(path) : needs.format;
    if (needs.format.empty() && descriptor) extension = "raw";
    if (extension == "null" || (needs.format.empty() && path == "/dev/null")) {
        target.kind = TargetKind::Nothing;
        if (!needs.codec.empty())
            fail(path, "nothing is encoded without a --format, so that " + needs.codec +
                           " would have no place");
        return target;
    }
    const bool isRaw = extension == "rgba" || extension == "raw" || extension == "rawvideo";
    if (isRaw && !needs.codec.empty()) fail(path, "headerless pixels take no codec");
    if (isRaw && !needs.namesPixels) {
        target.kind = TargetKind::Raw;
        return target;
    }
    if (isRaw) extension = "rawvideo";
    const char* picture = lookUp(kPictureEncoders, extension);
    if (!descriptor) target.pattern = parseSequencePattern(path);
    if (picture) {
        choosePicture(path, extension, needs.codec, picture, target);
    } else if (isRaw) {
        target.container = av_guess_format("rawvideo", nullptr, nullptr);
        target.encoder = avcodec_find_encoder(AV_CODEC_ID_RAWVIDEO);
    } else {
        chooseFilm(path, extension, needs, target);
    }
    return target;
}

} // namespace vorn::media
