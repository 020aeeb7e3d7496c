// Encoders on a graphics card that take pictures from its own memory only. Internal.
#pragma once

#include "libav.h"

#include <stdexcept>

namespace vorn::media {

/// The card and the memory in it that an encoder reads from.
class HardwareFrames {
public:
    /// Whether the encoder takes no picture from the main memory, as those of VAAPI.
    static bool isNeededBy(const AVCodec& codec);
    /// What the pictures have to be before they are brought over, for that depth.
    static AVPixelFormat formatInMemory(int bits);
    /// What an encoder on a card needs, for the line that says that it does not open; empty for
    /// other encoders.
    static std::string needsOf(const AVCodec& codec);

    /// Opens the card and gives an encoder's context its memory. Throws std::runtime_error.
    HardwareFrames(AVCodecContext& context, AVPixelFormat inMemory);

    /// The same picture in the card's memory, with its time. Throws std::runtime_error.
    AVFrame& bring(const AVFrame& picture);

private:
    std::unique_ptr<AVBufferRef, FreeByAddress<av_buffer_unref>> device_, frames_;
    AvFrame current_ = makeFrame();
};

} // namespace vorn::media
