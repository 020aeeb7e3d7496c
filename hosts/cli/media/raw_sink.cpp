#include "pixels.h"
#include "sinks.h"
#include "temporary_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vorn::media {

namespace {

/// Headerless rows of straight RGBA, without padding.
class RawSink final : public Sink {
public:
    RawSink(const std::string& path, const Target& target, const WriterOptions& options)
        : size_(options.size),
          format_(options.bitsPerComponent > 8 ? PixelFormat::Rgba16 : PixelFormat::Rgba8) {
        if (target.descriptor >= 0) {
            descriptor_ = target.descriptor;
            const int mode = ::fcntl(descriptor_, F_GETFL);
            if (mode < 0) throw std::runtime_error(std::strerror(errno));
            if ((mode & O_ACCMODE) == O_RDONLY)
                throw std::runtime_error("the descriptor is open for reading only");
            return;
        }
        file_ = std::make_unique<TemporaryFile>(path, options.overwrite);
        descriptor_ = ::open(file_->path().c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) throw std::runtime_error(std::strerror(errno));
    }

    ~RawSink() override {
        if (file_ && descriptor_ >= 0) ::close(descriptor_);
    }

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
        writeAll();
    }

    void finish(Ending) override {
        if (!file_) return;
        const int result = ::close(descriptor_);
        descriptor_ = -1;
        if (result != 0) throw std::runtime_error(std::strerror(errno));
        file_->commit();
    }

    OutputInfo describe() const override {
        OutputInfo info;
        info.container = "raw";
        info.pixelFormat = format_ == PixelFormat::Rgba8 ? "rgba" : "rgba64le";
        info.storedSize = size_;
        info.keepsAlpha = true;
        return info;
    }

private:
    void writeAll() {
        for (std::size_t done = 0; done < packed_.size();) {
            const ssize_t count =
                ::write(descriptor_, packed_.data() + done, packed_.size() - done);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) throw std::runtime_error(std::strerror(errno));
            done += std::size_t(count);
        }
    }

    Size size_;
    PixelFormat format_;
    std::unique_ptr<TemporaryFile> file_;
    int descriptor_ = -1;
    Frame alphaStage_, depthStage_;
    std::vector<std::uint8_t> packed_;
};

} // namespace

std::unique_ptr<Sink> openRaw(const std::string& path, const Target& target,
                              const WriterOptions& options) {
    return std::make_unique<RawSink>(path, target, options);
}

} // namespace vorn::media
