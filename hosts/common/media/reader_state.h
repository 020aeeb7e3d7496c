// What a reader holds while it is at work.
#pragma once

#include "deinterlacer.h"
#include "libav.h"
#include "orientation.h"
#include "passed_tracks.h"
#include "probe.h"
#include "reader.h"
#include "scaler.h"
#include "sequence.h"

#include <cstdint>
#include <string>

namespace vorn::media {

struct Reader::State {
    std::string path;
    ReaderOptions options;
    MediaInfo info;
    Warnings warnings;

    AvInput input;
    AvCodecContext decoder;
    AVStream* stream = nullptr;
    AvPacket packet = makePacket();
    AvFrame current = makeFrame(), next = makeFrame(), scaled = makeFrame();
    AvFrame fields = makeFrame(); ///< on its way into the deinterlacer
    std::unique_ptr<Deinterlacer> deinterlacer;
    bool isDeinterlacerEnded = false;
    FieldOrder storedFieldOrder = FieldOrder::Unknown;
    bool hasNext = false;
    bool isDraining = false;
    int faultsWhileDraining = 0;
    bool hasMoved = false; ///< away from the first picture, by seeking

    // All in ticks of the stream's time base, counted from the start of the file.
    std::int64_t startOffset = 0;
    std::int64_t usualDuration = 1;
    std::int64_t rangeEnd = INT64_MAX;      ///< with the tolerance: frames from here on are out
    std::int64_t exactRangeEnd = INT64_MAX; ///< where the last frame ends at the latest
    std::int64_t lastPts = AV_NOPTS_VALUE;
    std::int64_t lastEnd = 0;
    std::int64_t longestDuration = 0;
    std::int64_t framesRead = 0;
    bool isEndReported = false;

    Orientation orientation;
    PixelFormat format = PixelFormat::Rgba8;
    Size size;
    bool keepsStraightAlpha = false;
    Scaler scaler;
    FramePool pool;
    Frame stored, narrow, unscaled;

    std::shared_ptr<PassedTracks> passed; ///< of a pipe whose sound is wanted

    State(const std::string& file, const ReaderOptions& wanted);
    ~State() {
        if (passed) passed->setReadOn(nullptr);
    }
    [[noreturn]] void fail(const std::string& reason) const;
    void checkOptions() const;
    void open();
    /// Whether a pipe has given the pictures already when it says where they are.
    bool isIndexPassed() const;
    const AVInputFormat* prepareSequence(const SequencePattern& pattern, AvOptions& openOptions,
                                         std::string& address);
    /// FFmpeg's own VP8 and VP9 decoders leave the alpha plane out.
    const AVCodec* decoderFor(const AVStream& found) const;
    void openDecoder();
    /// Has the other tracks of a pipe put aside.
    void passTracks();
    bool readOn();
    void describeFile();
    void noteFields();

    void setOutput(std::optional<PixelFormat> wantedFormat, std::optional<Size> wantedSize);

    void warnDamaged(const std::string& what);
    /// Feeds the decoder one packet, or the end.
    void feed();
    /// The next picture as it is stored, in presentation order; false at the end of the file.
    bool decodeStored(AVFrame& frame);
    /// The same, deinterlaced if that was asked for.
    bool decode(AVFrame& frame);
    void sendToDeinterlacer();
    void resetDeinterlacer();

    /// The time of a decoded picture from the start of the file.
    std::int64_t timeOf(const AVFrame& frame) const;

    void beginRange();
    void advance();
    /// Goes to a key picture at or before `target`, if the file can seek.
    void seekBefore(std::int64_t target);
    /// Back to the first picture, for files that cannot seek there.
    void reopen();

    void convert(const AVFrame& picture, Frame& frame);
    void convertPixels(const AVFrame& picture, const PictureCoding& from, Frame& target);
    void scale(const AVFrame& picture, const PictureCoding& from, Frame& target);
    bool read(Frame& frame);
    /// The duration of a frame that none follows.
    std::int64_t lastDuration(const AVFrame& picture, std::int64_t pts) const;
    /// Says so if the file ends well before the time it promised.
    bool reportEnd();
};

} // namespace vorn::media
