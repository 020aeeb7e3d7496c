#include "pipeline.h"

#include "chain/film_clock.h"
#include "commands/commands.h"
#include "pixels.h"
#include "queue.h"
#include "settings/device.h"
#include "terminal/interrupt.h"
#include "terminal/output.h"
#include "terminal/progress.h"
#include "terminal/talk.h"

#include <atomic>
#include <deque>
#include <exception>
#include <limits>
#include <thread>

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

/// Frames that may wait between two stages: one is worked on at each end meanwhile.
constexpr size_t queueLength = 2;

struct DecodedFrame {
    SourceFrame frame;
    std::vector<CIImage> secondImages;
};

/// A thread that signals can interrupt. Joins when it goes.
class Worker {
public:
    Worker() = default;
    template <class Work>
    explicit Worker(Work work)
        : thread_([work] {
              const InterruptWatch::Thread watched;
              work();
          }) {}
    ~Worker() { join(); }
    Worker(Worker&&) = default;
    Worker& operator=(Worker&&) = default;
    void join() {
        if (thread_.joinable()) thread_.join();
    }

private:
    std::thread thread_;
};

class Pipeline {
public:
    explicit Pipeline(const RenderOptions& options)
        : options_(options), source_(openSource(options.source)),
          progress_(expectedFrames(), options.isQuiet), session_(makeSession(options.context)),
          context_(options.context) {
        requireDevice(context_);
        for (const SecondPicture& picture : options.chain.pictures())
            secondImages_.emplace_back(picture, source_, options.source);
        noteSource();
    }

    RenderOutcome run() {
        const std::exception_ptr failure = process();
        outcome_.elapsedSeconds = progress_.elapsedSeconds();
        collectWarnings();
        progress_.clear();
        if (failure) {
            if (outcome_.frames > 0 && isFinished_) {
                say("{} holds the {} frames before it failed", options_.output, outcome_.frames);
            }
            std::rethrow_exception(failure);
        }
        return std::move(outcome_);
    }

private:
    std::optional<std::int64_t> expectedFrames() const {
        const std::optional<std::int64_t> most = options_.source.frames;
        if (!source_.expectedFrames) return most;
        return most ? std::min(*most, *source_.expectedFrames) : source_.expectedFrames;
    }

    // --- the stages -----------------------------------------------------------------------------

    void decode() {
        try {
            const std::int64_t most =
                options_.source.frames.value_or(std::numeric_limits<std::int64_t>::max());
            std::int64_t count = 0;
            for (; count < most; ++count) {
                if (InterruptWatch::isRequested()) {
                    isInterrupted_ = true;
                    break;
                }
                DecodedFrame decoded;
                if (!source_.frames->read(decoded.frame)) break;
                const std::int64_t time = decoded.frame.timeNanoseconds();
                for (SecondImage& image : secondImages_) {
                    decoded.secondImages.push_back(image.at(time));
                }
                if (!decoded_.push(std::move(decoded))) return;
            }
            isCutShort_ = count == most || isInterrupted_;
            decoded_.finish();
        } catch (const media::Interrupted&) {
            isInterrupted_ = isCutShort_ = true;
            decoded_.finish();
        } catch (...) {
            decoded_.finish(std::current_exception());
        }
    }

    /// A picture that is being rendered.
    struct UnderWay {
        RenderTarget target;
        double seconds;
        std::int64_t number;
    };

    /// The main thread's work: every frame that is decoded goes through the effects. A GPU works on
    /// a few frames while the next ones are prepared and the last ones handed on.
    void applyEffects() {
        const size_t mostUnderWay = context_.device() == DeviceKind::Vulkan ? 2 : 0;
        std::deque<UnderWay> underWay;
        const auto handOnAllBut = [&](size_t count) {
            while (underWay.size() > count) {
                if (!handOn(underWay.front())) return false;
                underWay.pop_front();
            }
            return true;
        };
        try {
            while (std::optional<DecodedFrame> decoded = decoded_.pop()) {
                underWay.push_back(start(*decoded));
                decoded.reset();
                // The first frame decides how the others are written.
                if (!handOnAllBut(writer_ ? mostUnderWay : 0)) return;
                if (writer_->output().isSinglePicture) {
                    isCutShort_ = true;
                    return;
                }
            }
        } catch (...) {
            const std::exception_ptr failure = std::current_exception();
            handOnAllBut(0); // what was started before is kept
            std::rethrow_exception(failure);
        }
        handOnAllBut(0);
    }

    /// Waits for a picture and gives it to the encoder; false when that has failed.
    bool handOn(UnderWay& done) {
        withFrameInErrors(done, [&] { done.target.wait(context_); });
        if (!writer_) {
            media::Frame first = done.target.takeFrame();
            openWriter(first);
            write(first);
            encoder_ = Worker([this] { encode(); });
        } else if (!rendered_.push(std::move(done.target))) {
            return false;
        }
        progress_.update(++framesRendered_);
        return true;
    }

    UnderWay start(const DecodedFrame& decoded) {
        const std::int64_t time = decoded.frame.timeNanoseconds();
        const auto mediaTime = static_cast<uint64_t>(std::max<std::int64_t>(0, time));
        clock_.driveTo(mediaTime, static_cast<uint64_t>(framesStarted_));
        if (!chain_) {
            firstTime_ = source_.range.startSeconds > 0 ? time : 0;
            chain_.emplace(options_.chain);
        }
        UnderWay started{RenderTarget(source_.size, source_.format, pools_, source_.light.get(),
                                      source_.isStraight),
                         static_cast<double>(time - firstTime_) / 1e9, framesStarted_++};
        started.target.pts = decoded.frame.pts;
        started.target.duration = decoded.frame.duration;
        started.target.timeBase = decoded.frame.timeBase;
        if (decoded.frame.stored) {
            started.target.take(*decoded.frame.stored);
            return started;
        }
        withFrameInErrors(started, [&] {
            started.target.start(context_, chain_->apply(decoded.frame.image, decoded.secondImages,
                                                         mediaTime, started.seconds));
        });
        for (const std::string& message : chain_->takeMessages()) warn(message);
        return started;
    }

    template <class Work>
    static void withFrameInErrors(const UnderWay& frame, Work work) {
        try {
            work();
        } catch (const HostError& error) {
            throw HostError(error.code(), fmt::format("frame {} at {:.3f} s: {}", frame.number,
                                                      frame.seconds, error.what()));
        }
    }

    void encode() {
        try {
            while (std::optional<RenderTarget> target = rendered_.pop()) write(target->takeFrame());
        } catch (...) {
            encodingFailure_ = std::current_exception();
            rendered_.abandon();
        }
    }

    // --- the output -----------------------------------------------------------------------------

    void openWriter(const media::Frame& first) {
        media::WriterOptions wanted;
        wanted.size = source_.size;
        wanted.bitsPerComponent = source_.bitsPerComponent;
        isAlphaWanted_ =
            source_.hasAlpha || options_.keepsAlpha || first.alpha != media::Alpha::Opaque;
        wanted.hasAlpha = isAlphaWanted_;
        wanted.frameRate = source_.rate;
        wanted.source = source_.info ? &*source_.info : nullptr;
        wanted.codec = options_.codec;
        wanted.crf = options_.crf;
        wanted.preset = options_.preset;
        wanted.range = source_.range;
        wanted.overwrite = !options_.keepsExisting;
        wanted.access = options_.source.access;
        options_.files.addTo(wanted);
        const std::string path = options_.writesToStandardOutput()
                                     ? fmt::format("pipe:{}", fileno(results()))
                                     : options_.output;
        writer_.emplace(path, wanted);
        for (const std::string& line : writer_->notes()) note(line);
    }

    void write(const media::Frame& frame) {
        isAlphaLost_ = isAlphaLost_ || (frame.alpha != media::Alpha::Opaque && !isAlphaWanted_);
        writer_->write(frame);
        outcome_.mediaSeconds += static_cast<double>(frame.duration) * frame.timeBase.value();
        ++outcome_.frames;
    }

    /// Runs all stages to their end; what failed, if anything did.
    std::exception_ptr process() {
        std::exception_ptr failure;
        {
            const Worker decoder([this] { decode(); });
            try {
                applyEffects();
            } catch (...) {
                failure = std::current_exception();
            }
            decoded_.abandon();
        }
        rendered_.finish();
        encoder_.join();
        if (encodingFailure_) failure = encodingFailure_;
        const bool endsWaiting = isInterruption(failure);
        outcome_.isCutOff = endsWaiting && writer_;
        outcome_.isInterrupted = isInterrupted_ || endsWaiting;
        outcome_.size = source_.size;
        if (endsWaiting) return nullptr;
        if (encodingFailure_) return failure;
        if (outcome_.frames == 0) {
            return failure || isInterrupted_ ? failure : std::make_exception_ptr(noFrames());
        }
        if (!options_.keepsUnfinished && (failure || isInterrupted_)) return failure;
        try {
            outcome_.encoder = writer_->output().encoder;
            writer_->finish(failure || isCutShort_ ? media::Ending::Interrupted
                                                   : media::Ending::Complete);
            isFinished_ = true;
        } catch (const media::Interrupted&) {
            outcome_.isInterrupted = outcome_.isCutOff = true;
        } catch (...) {
            if (!failure) failure = std::current_exception();
        }
        return failure;
    }

    static bool isInterruption(const std::exception_ptr& failure) {
        try {
            if (failure) std::rethrow_exception(failure);
        } catch (const media::Interrupted&) {
            return true;
        } catch (...) {
        }
        return false;
    }

    HostError noFrames() const {
        return {ExitCode::Usage,
                fmt::format("{} has no frame from {:.3f} s on{}", options_.source.name,
                            source_.range.startSeconds,
                            source_.info && source_.info->durationSeconds
                                ? fmt::format("; it lasts {:.3f} s", *source_.info->durationSeconds)
                                : "")};
    }

    // --- warnings -------------------------------------------------------------------------------

    void warn(const std::string& line) {
        progress_.clear();
        say("{}{}{}", options_.speaksFor, options_.speaksFor.empty() ? "" : ": ", line);
        outcome_.warnings.push_back(line);
    }

    void note(const std::string& line) {
        progress_.clear();
        if (!options_.isQuiet)
            say("{}{}{}", options_.speaksFor, options_.speaksFor.empty() ? "" : ": ", line);
        outcome_.notes.push_back(line);
    }

    void noteSource() {
        for (const std::string& line : source_.frames->notes()) note(line);
        if (!source_.info) return;
        outcome_.colour = media::meaningOf(*source_.info);
        if (outcome_.colour->isHighDynamicRange && !options_.source.isUntouched && !source_.light) {
            note(fmt::format("{} is coded for HDR ({}): filters take its values for ordinary ones; "
                             "--working-space linear gives them light",
                             options_.source.name, outcome_.colour->transfer));
        }
    }

    /// Something that could not be kept or read.
    void lose(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) warn(line);
        outcome_.losses += static_cast<int>(lines.size());
    }

    void collectWarnings() {
        if (chain_) {
            for (const std::string& line : chain_->remarks()) warn(line);
            lose(chain_->errorPictures());
        }
        lose(source_.frames->warnings());
        for (const SecondImage& image : secondImages_) lose(image.warnings());
        if (writer_) lose(writer_->warnings());
        if (isAlphaLost_) {
            lose({"the result becomes transparent after its first frame, which is shown over "
                  "black; --alpha keeps it where the codec can"});
        }
    }

    const RenderOptions& options_;
    OpenedSource source_;
    std::vector<SecondImage> secondImages_;
    Progress progress_;
    RenderOutcome outcome_;

    TargetPools pools_;
    BoundedQueue<DecodedFrame> decoded_{queueLength};
    BoundedQueue<RenderTarget> rendered_{queueLength};
    const Session::Scope session_;
    CIContext context_;
    FilmClock clock_;
    std::optional<Chain> chain_;
    std::optional<media::Writer> writer_;
    std::exception_ptr encodingFailure_;
    std::int64_t firstTime_ = 0; ///< in nanoseconds: where the output begins
    std::int64_t framesStarted_ = 0, framesRendered_ = 0;
    // Of the decoding and the encoding thread until they end.
    std::atomic<bool> isInterrupted_ = false, isCutShort_ = false;
    bool isAlphaWanted_ = false, isAlphaLost_ = false, isFinished_ = false;
    Worker encoder_;
};

} // namespace

RenderOutcome runRender(const RenderOptions& options) {
    try {
        return Pipeline(options).run();
    } catch (const media::Interrupted&) { // while the inputs were opened
        RenderOutcome outcome;
        outcome.isInterrupted = true;
        return outcome;
    }
}

} // namespace vorn::hosts::cli
