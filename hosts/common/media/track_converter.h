// Sound and subtitles on their way from one codec to another. Internal.
#pragma once

#include "libav.h"
#include "writer.h"

#include <limits>

namespace vorn::media {

/// Takes the packets of one stream and gives those of another codec.
class TrackConverter {
public:
    virtual ~TrackConverter() = default;

    /// The stream that comes out; packets are in the encoder's time base.
    virtual const AVCodecContext& encoder() const = 0;
    /// Where the output ends, in seconds from its start. What lies before zero is cut off as well.
    virtual void setEnd(double seconds) = 0;
    /// Takes a packet whose times are in the input stream's time base and count from the start of
    /// the output; null at the end. Throws std::runtime_error.
    virtual void send(const AVPacket* packet) = 0;
    /// The next packet, or false if there is none yet or any more.
    virtual bool receive(AVPacket& packet) = 0;
};

/// What a converter is made for.
struct ConversionRequest {
    const AVStream* stream = nullptr; ///< of the input
    const AVCodec* encoder = nullptr;
    std::int64_t bitsPerSecond = 0; ///< of sound; 0: what is hard to tell from the source
    bool needsGlobalHeader = false;
};

/// Keeps layout and rate where the encoder takes them. Throws std::runtime_error with the reason.
std::unique_ptr<TrackConverter> convertSound(const ConversionRequest& request, Warnings& warnings);
/// Between the kinds of subtitles that are text.
std::unique_ptr<TrackConverter> convertSubtitles(const ConversionRequest& request,
                                                 Warnings& warnings);

/// What becomes of one stream of sound or subtitles.
struct TrackPlan {
    enum class Way : std::uint8_t { LeftOut, Copied, Converted };
    Way way = Way::LeftOut;
    std::unique_ptr<TrackConverter> converter;
    std::string reason; ///< why it is left out; empty: it was asked for
};

/// Decides by what the container takes beside the streams that it has already, in which case by
/// trying. Throws std::runtime_error when what the user asks for by name is refused.
TrackPlan planTrack(const AVStream& stream, const AVFormatContext& output, const TrackWish& wish,
                    Warnings& warnings);

} // namespace vorn::media
