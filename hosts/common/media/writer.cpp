#include "writer.h"

#include "colour.h"
#include "libav.h"
#include "passed_tracks.h"
#include "sinks.h"

namespace vorn::media {

struct Writer::State {
    std::string path;
    Size size;
    Warnings warnings;
    std::unique_ptr<Sink> sink;
    OutputInfo output;
    std::int64_t framesWritten = 0;

    State(const std::string& name, const WriterOptions& options) : path(name), size(options.size) {
        beginCatchingMessages();
        const bool isHdr = options.source && isHighDynamicRange(options.source->colour);
        const Target target = chooseTarget(path, {.codec = options.codec,
                                                  .format = options.format,
                                                  .namesPixels = !options.pixelFormat.empty(),
                                                  .alpha = options.hasAlpha,
                                                  .highDynamicRange = isHdr});
        guarded([&] {
            if (size.width <= 0 || size.height <= 0)
                throw std::runtime_error("the size of the frames is not positive");
            if (!options.frameRate.isPositive())
                throw std::runtime_error("the frame rate is not positive");
            sink = open(target, options);
        });
        output = sink->describe();
        if (options.source && options.source->passed && !options.source->passed->isTaken())
            options.source->passed->take({});
    }

    std::unique_ptr<Sink> open(const Target& target, const WriterOptions& options) {
        switch (target.kind) {
        case TargetKind::Raw:
            return openRaw(path, target, options);
        case TargetKind::Nothing:
            return openNothing(options);
        case TargetKind::Film:
            return openFilm(path, target, options, warnings);
        case TargetKind::Picture:
        case TargetKind::Sequence:
            return openPictures(path, target, options, warnings);
        }
        throw std::logic_error("unknown kind of output");
    }

    /// Gives every fault the file's name; errors that have it already pass.
    template <typename Action>
    void guarded(Action action) {
        try {
            action();
        } catch (const WriteError&) {
            throw;
        } catch (const std::runtime_error& error) {
            throw WriteError("cannot write " + path + ": " + error.what());
        }
    }

    void requireOpen() const {
        if (!sink) throw WriteError("cannot write " + path + ": the file is finished already");
    }
};

Writer::Writer(const std::string& path, const WriterOptions& options)
    : state_(std::make_unique<State>(path, options)) {}
Writer::~Writer() = default;
Writer::Writer(Writer&&) noexcept = default;
Writer& Writer::operator=(Writer&&) noexcept = default;

const OutputInfo& Writer::output() const {
    return state_->output;
}

void Writer::write(const Frame& frame) {
    state_->requireOpen();
    state_->guarded([&] {
        if (frame.isEmpty() || frame.size() != state_->size)
            throw std::runtime_error("a frame is " + std::to_string(frame.width()) + "x" +
                                     std::to_string(frame.height()) + ", not " +
                                     std::to_string(state_->size.width) + "x" +
                                     std::to_string(state_->size.height));
        state_->sink->write(frame);
    });
    ++state_->framesWritten;
}

void Writer::finish(Ending ending) {
    state_->requireOpen();
    // Whatever happens below, the file is closed then, and gone unless it was finished.
    const std::unique_ptr<Sink> sink = std::move(state_->sink);
    state_->guarded([&] {
        if (state_->framesWritten == 0) throw std::runtime_error("there is no frame to write");
        sink->finish(ending);
    });
}

void Writer::abort() noexcept {
    state_->sink.reset();
}

std::vector<std::string> Writer::warnings() const {
    return state_->warnings.lines();
}

std::vector<std::string> Writer::notes() const {
    return state_->warnings.notes();
}

} // namespace vorn::media
