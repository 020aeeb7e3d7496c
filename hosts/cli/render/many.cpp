#include "many.h"

#include "render.h"
#include "terminal/interrupt.h"
#include "terminal/output.h"
#include "terminal/talk.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>

#include <fmt/format.h>

namespace vorn::hosts::cli {

namespace {

namespace fs = std::filesystem;

void makeFolder(const std::string& folder) {
    std::error_code problem;
    fs::create_directories(folder, problem);
    if (problem) {
        throw HostError(ExitCode::OutputNotWritable,
                        fmt::format("cannot make the folder {}: {}", folder, problem.message()));
    }
}

/// Outputs get their names when they are whole, so one that is there and no older than what it was
/// made of needs no second render.
bool isDone(const RenderJob& job) {
    std::error_code problem;
    const auto made = fs::last_write_time(job.output, problem);
    if (problem) return false;
    const auto changed = fs::last_write_time(job.input, problem);
    return problem || changed <= made; // a test card or numbered pictures have no time
}

/// A list of jobs, of which several threads take one after the other.
class Work {
public:
    Work(const RenderArguments& arguments, std::vector<RenderJob> jobs, int atOnce)
        : arguments_(arguments), jobs_(std::move(jobs)), atOnce_(atOnce) {}

    ExitCode run() {
        std::vector<std::thread> others;
        for (int i = 1; i < atOnce_; ++i) {
            others.emplace_back([this] {
                const InterruptWatch::Thread watched;
                takeJobs();
            });
        }
        takeJobs();
        for (std::thread& other : others) other.join();
        if (InterruptWatch::isRequested()) {
            say("interrupted; {} of {} are done", done_, jobs_.size());
            return ExitCode::Interrupted;
        }
        if (failed_ > 0) say("{} of {} failed", failed_, jobs_.size());
        return failure_.value_or(ExitCode::Done);
    }

private:
    void takeJobs() {
        for (size_t i = next_++; i < jobs_.size() && !InterruptWatch::isRequested(); i = next_++)
            carryOut(i);
    }

    void carryOut(size_t number) {
        const RenderJob& job = jobs_[number];
        const std::string who =
            fmt::format("[{}/{}] {} -> {}", number + 1, jobs_.size(), job.input, job.output);
        if (arguments_.many.resumes && isDone(job)) {
            finish(true, who + ": whole already",
                   Json{{"input", job.input}, {"output", job.output}, {"skipped", true}});
            return;
        }
        try {
            RenderArguments arguments = arguments_;
            arguments.input = job.input;
            arguments.output = job.output;
            if (arguments.threads == 0 && atOnce_ > 1) {
                const unsigned cores = std::thread::hardware_concurrency();
                arguments.threads = std::max(1, static_cast<int>(cores) / atOnce_);
            }
            RenderOptions options = readRenderOptions(arguments);
            options.speaksFor = job.input;
            options.keepsUnfinished = false;
            options.isQuiet = options.isQuiet || atOnce_ > 1;
            const RenderOutcome outcome = renderWithExitCodes(options);
            if (outcome.isInterrupted) return;
            const bool isWhole = !options.files.isStrict || outcome.losses == 0;
            finish(isWhole,
                   fmt::format("{}: {}, {:.1f} s{}", who, countText(outcome.frames),
                               outcome.elapsedSeconds,
                               isWhole ? "" : "; --strict makes what is said above a failure"),
                   outcomeJson(options, outcome));
            if (!isWhole) count(ExitCode::Failed);
        } catch (const HostError& error) {
            fail(job, who, error.code(), error.what());
        } catch (const std::exception& error) {
            fail(job, who, ExitCode::Failed, error.what());
        }
    }

    void fail(const RenderJob& job, const std::string& who, ExitCode code, const char* reason) {
        finish(false, fmt::format("{}: {}", who, reason),
               Json{{"input", job.input},
                    {"output", job.output},
                    {"error", reason},
                    {"exit_code", static_cast<int>(code)}});
        count(code);
    }

    void count(ExitCode code) {
        const std::lock_guard lock(mutex_);
        failure_ = failure_.value_or(code) == code ? code : ExitCode::Failed;
    }

    void finish(bool isDone, const std::string& line, const Json& json) {
        const std::lock_guard lock(mutex_);
        ++(isDone ? done_ : failed_);
        if (!isDone || !arguments_.isQuiet) say("{}", line);
        if (arguments_.json) printResult("{}\n", jsonLine(json));
    }

    const RenderArguments& arguments_;
    const std::vector<RenderJob> jobs_;
    const int atOnce_;
    std::atomic<size_t> next_ = 0;
    std::mutex mutex_; ///< of what follows, and of what is said of jobs
    size_t done_ = 0, failed_ = 0;
    std::optional<ExitCode> failure_;
};

/// What is wrong with the options is said once and before anything is made.
void checkOptions(const RenderArguments& arguments) {
    RenderArguments check = arguments;
    check.input = "test:";
    check.output = (fs::path(arguments.many.folder) / "test.png").string();
    static_cast<void>(readRenderOptions(check));
}

/// A render keeps the processor busy while it decodes, computes and encodes many frames; one of a
/// single frame does these one after the other, and two at a time fill the gaps.
int usefulAtOnce(const std::vector<RenderJob>& jobs) {
    const auto isPicture = [](const RenderJob& job) {
        const std::string extension = fs::path(job.output).extension().string();
        for (const char* picture : {".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".webp",
                                    ".ppm", ".pam", ".tga", ".jp2"})
            if (extension == picture) return true;
        return false;
    };
    const bool hasCores = std::thread::hardware_concurrency() > 1;
    return hasCores && std::all_of(jobs.begin(), jobs.end(), isPicture) ? 2 : 1;
}

} // namespace

ExitCode renderMany(const RenderArguments& arguments) {
    checkOptions(arguments);
    std::vector<RenderJob> jobs = planJobs(arguments.many, arguments.paths, arguments.files.format);
    makeFolder(arguments.many.folder);
    const int atOnce = arguments.many.jobs > 0 ? arguments.many.jobs : usefulAtOnce(jobs);
    const InterruptWatch watch;
    return Work(arguments, std::move(jobs), atOnce).run();
}

} // namespace vorn::hosts::cli
