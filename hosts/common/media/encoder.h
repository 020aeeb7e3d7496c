// One FFmpeg video encoder and the way of a frame into it. Internal.
#pragma once

#include "hardware.h"
#include "libav.h"
#include "orientation.h"
#include "scaler.h"
#include "writer.h"

namespace vorn::media {

/// What an encoder is opened for.
struct EncoderRequest {
    const AVCodec* codec = nullptr;
    const AVOutputFormat* container = nullptr; ///< null for pictures
    Size storedSize;
    Orientation toStored; ///< from upright frames to the stored orientation
    AVRational timeBase{1, 25};
    AVRational frameRate{25, 1};
    const WriterOptions* options = nullptr;
};

class Encoder {
public:
    /// Chooses a pixel format and opens. Throws std::runtime_error with the reason only.
    Encoder(const EncoderRequest& request, Warnings& warnings);

    const AVCodecContext& context() const { return *context_; }
    const AVCodec& codec() const { return *context_->codec; }
    bool keepsAlpha() const { return keepsAlpha_; }
    AVPixelFormat pixelFormat() const { return format_; }

    /// Encodes an upright frame. `pts` and `duration` are in the request's time base. Throws
    /// std::runtime_error.
    void send(const Frame& frame, std::int64_t pts, std::int64_t duration);
    /// No more frames come.
    void sendEnd();
    /// The next packet, or false if there is none yet or any more.
    bool receive(AVPacket& packet);

private:
    bool open(const EncoderRequest& request, AVPixelFormat format, Size size, std::string& reason);
    void openAny(const EncoderRequest& request, Warnings& warnings);
    void describePictures(const EncoderRequest& request, AVPixelFormat format, Size size);
    void setOptions(const EncoderRequest& request, AvOptions& target);
    void setQuality(const EncoderRequest& request, AvOptions& target);
    static void remarkOnQuality(const EncoderRequest& request, Warnings& warnings);
    AVFrame& idlePicture();
    void fill(const Frame& frame, AVFrame& picture);

    AvCodecContext context_;
    std::unique_ptr<HardwareFrames> hardware_; ///< null: pictures come from the main memory
    AVPixelFormat format_ = AV_PIX_FMT_NONE;   ///< of the pictures in the main memory
    PictureCoding coding_;
    Orientation toStored_;
    bool keepsAlpha_ = false;
    FieldOrder fieldOrder_ = FieldOrder::Progressive;
    std::vector<std::uint8_t> iccProfile_;
    Scaler scaler_;
    AvFrame shell_ = makeFrame();
    std::vector<AvFrame> pictures_; ///< reused as soon as the encoder lets go of them
    Frame alphaStage_, depthStage_, storedStage_, paddedStage_;
};

} // namespace vorn::media
