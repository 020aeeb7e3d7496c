#include "output_file.h"
#include "pixels.h"
#include "sinks.h"

#include <cstring>

namespace vorn::media {

namespace {

/// Headerless rows of straight RGBA, without padding.
class RawSink final : public Sink {
public:
    RawSink(const std::string& path, const Target& target, const WriterOptions& options)
        : size_(options.size),
          format_(options.bitsPerComponent > 8 ? PixelFormat::Rgba16 : PixelFormat::Rgba8),
          file_(OutputFile::open(path, target.descriptor, options.overwrite, options.access)) {}

    void write(const Frame& frame) override {
        const Frame* stage = &frame;
        if (stage->alpha == Alpha::Premultiplied) {
            alphaStage_.reshape(stage->size(), stage->format());
            unpremultiply(*stage, alphaStage_);
            stage = &alphaStage_;
        }
        if (stage->format() != format_) {
            depthStage_.reshape(stage->size(), format_);
            changeDepth(*stage, depthStage_);
            stage = &depthStage_;
        }
        const std::size_t row = std::size_t(stage->width()) * std::size_t(bytesPerPixel(format_));
        packed_.resize(row * std::size_t(stage->height()));
        for (int y = 0; y < stage->height(); ++y)
            std::memcpy(packed_.data() + row * std::size_t(y), stage->row(y), row);
        file_.write(packed_.data(), packed_.size());
    }

    void finish(Ending) override { file_.commit(); }

    OutputInfo describe() const override {
        OutputInfo info;
        info.container = "raw";
        info.pixelFormat = format_ == PixelFormat::Rgba8 ? "rgba" : "rgba64le";
        info.storedSize = size_;
        info.keepsAlpha = true;
        return info;
    }

private:
    Size size_;
    PixelFormat format_;
    OutputFile file_;
    Frame alphaStage_, depthStage_;
    std::vector<std::uint8_t> packed_;
};

class NullSink final : public Sink {
public:
    explicit NullSink(Size size) : size_(size) {}
    void write(const Frame&) override {}
    void finish(Ending) override {}
    OutputInfo describe() const override {
        OutputInfo info;
        info.container = "null";
        info.storedSize = size_;
        info.keepsAlpha = true;
        return info;
    }

private:
    Size size_;
};

} // namespace

std::unique_ptr<Sink> openRaw(const std::string& path, const Target& target,
                              const WriterOptions& options) {
    return std::make_unique<RawSink>(path, target, options);
}

std::unique_ptr<Sink> openNothing(const WriterOptions& options) {
    return std::make_unique<NullSink>(options.size);
}

} // namespace vorn::media
