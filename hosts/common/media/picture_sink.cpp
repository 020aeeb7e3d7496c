#include "encoder.h"
#include "output_file.h"
#include "sinks.h"

namespace vorn::media {

namespace {

EncoderRequest pictureRequest(const Target& target, const WriterOptions& options) {
    EncoderRequest request;
    request.codec = target.encoder;
    request.storedSize = options.size;
    request.options = &options;
    return request;
}

/// One file per frame; each is whole before it takes its name.
class PictureSink final : public Sink {
public:
    PictureSink(const std::string& path, const Target& target, const WriterOptions& options,
                Warnings& warnings)
        : encoder_(pictureRequest(target, options), warnings), pattern_(target.pattern),
          descriptor_(target.descriptor), overwrite_(options.overwrite), access_(options.access) {
        const MediaInfo* source = options.source;
        const bool isFromSequence = source && source->kind == MediaKind::Sequence;
        number_ = options.sequenceFirstNumber.value_or(isFromSequence ? source->firstNumber : 1);
        // Creating the first file now shows whether the folder can be written to.
        begin(pattern_ ? pattern_->path(number_) : path);
    }

    void write(const Frame& frame) override {
        if (!pattern_ && framesSent_ > 0)
            throw std::runtime_error("a picture file holds one frame; number the pictures with a "
                                     "pattern such as name-%04d.png");
        encoder_.send(frame, framesSent_, 1);
        ++framesSent_;
        store();
    }

    void finish(Ending) override {
        encoder_.sendEnd();
        store();
    }

    OutputInfo describe() const override {
        OutputInfo info;
        info.container = pattern_ ? "sequence" : "picture";
        info.isSinglePicture = !pattern_;
        info.encoder = encoder_.codec().name;
        info.pixelFormat = av_get_pix_fmt_name(encoder_.pixelFormat());
        info.storedSize = {encoder_.context().width, encoder_.context().height};
        info.keepsAlpha = encoder_.keepsAlpha();
        return info;
    }

private:
    void begin(const std::string& path) {
        if (descriptor_ >= 0)
            file_.emplace(descriptor_, access_);
        else
            file_.emplace(path, overwrite_, access_);
    }

    void store() {
        while (encoder_.receive(*packet_)) {
            if (!file_) begin(pattern_->path(number_));
            file_->write(packet_->data, std::size_t(packet_->size));
            file_->commit();
            file_.reset();
            ++number_;
            av_packet_unref(packet_.get());
        }
    }

    Encoder encoder_;
    std::optional<SequencePattern> pattern_;
    int descriptor_;
    bool overwrite_;
    FileAccess access_;
    int number_ = 1;
    std::int64_t framesSent_ = 0;
    std::optional<OutputFile> file_;
    AvPacket packet_ = makePacket();
};

} // namespace

std::unique_ptr<Sink> openPictures(const std::string& path, const Target& target,
                                   const WriterOptions& options, Warnings& warnings) {
    return std::make_unique<PictureSink>(path, target, options, warnings);
}

} // namespace vorn::media
