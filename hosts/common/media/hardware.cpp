#include "hardware.h"

extern "C" {
#include <libavutil/hwcontext.h>
}

namespace vorn::media {

namespace {

void check(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + ": " + reasonFor(result));
}

/// The way of handing frames over that needs memory of the card.
const AVCodecHWConfig* frameConfigOf(const AVCodec& codec) {
    for (int i = 0; const AVCodecHWConfig* config = avcodec_get_hw_config(&codec, i); ++i)
        if (config->methods & AV_CODEC_HW_CONFIG_METHOD_HW_FRAMES_CTX) return config;
    return nullptr;
}

} // namespace

bool HardwareFrames::isNeededBy(const AVCodec& codec) {
    for (const AVPixelFormat* format = codec.pix_fmts; format && *format != AV_PIX_FMT_NONE;
         ++format)
        if (!(av_pix_fmt_desc_get(*format)->flags & AV_PIX_FMT_FLAG_HWACCEL)) return false;
    return codec.pix_fmts && frameConfigOf(codec);
}

AVPixelFormat HardwareFrames::formatInMemory(int bits) {
    return bits > 8 ? AV_PIX_FMT_P010LE : AV_PIX_FMT_NV12;
}

std::string HardwareFrames::needsOf(const AVCodec& codec) {
    const std::string name = codec.name;
    if (name.ends_with("_nvenc")) return "it needs an NVIDIA card with an encoder, and its driver";
    if (name.ends_with("_qsv"))
        return "it needs an Intel GPU with an encoder, and its media driver";
    if (name.ends_with("_vaapi"))
        return "it needs a GPU with an encoder, its VAAPI driver, and leave to open /dev/dri";
    if (name.ends_with("_v4l2m2m")) return "it needs an encoder among the devices /dev/video*";
    return "";
}

HardwareFrames::HardwareFrames(AVCodecContext& context, AVPixelFormat inMemory) {
    const AVCodecHWConfig& config = *frameConfigOf(*context.codec);
    AVBufferRef* made = nullptr;
    check(av_hwdevice_ctx_create(&made, config.device_type, nullptr, nullptr, 0),
          "no device can be opened");
    device_.reset(made);
    frames_.reset(av_hwframe_ctx_alloc(device_.get()));
    if (!frames_) throw std::bad_alloc();
    auto& frames = *reinterpret_cast<AVHWFramesContext*>(frames_->data);
    frames.format = config.pix_fmt;
    frames.sw_format = inMemory;
    frames.width = context.width;
    frames.height = context.height;
    frames.initial_pool_size = 20; // those that an encoder holds back, and some
    check(av_hwframe_ctx_init(frames_.get()), "the device has no memory for such pictures");
    context.pix_fmt = config.pix_fmt;
    context.hw_frames_ctx = av_buffer_ref(frames_.get());
    if (!context.hw_frames_ctx) throw std::bad_alloc();
}

AVFrame& HardwareFrames::bring(const AVFrame& picture) {
    av_frame_unref(current_.get());
    check(av_hwframe_get_buffer(frames_.get(), current_.get(), 0), "the device is full");
    check(av_hwframe_transfer_data(current_.get(), &picture, 0), "a picture does not get over");
    check(av_frame_copy_props(current_.get(), &picture), "a picture does not get over");
    return *current_;
}

} // namespace vorn::media
