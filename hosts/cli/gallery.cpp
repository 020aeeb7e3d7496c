// `vorn gallery`: a page with pictures of every filter.
#include "gallery.h"

#include "commands.h"
#include "gallery_settings.h"
#include "imagejson.h"
#include "media/output_file.h"
#include "media/writer.h"
#include "output.h"
#include "render_interrupt.h"
#include "render_progress.h"
#include "talk.h"
#include "testcard/testcard.h"

#include "vorneffects/CIContext.h"
#include "vorneffects/Platform.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <set>

#include <CLI/CLI.hpp>

namespace vorn::cli {

namespace {

constexpr media::Size kSize{kGalleryWidth, kGalleryHeight};
constexpr size_t kRowBytes = size_t{kGalleryWidth} * 4;
constexpr int kFrames = 16, kFramesPerSecond = 10;
constexpr int kStillFrame = 9; ///< of a film, the frame that stands for it
constexpr int kMostModes = 24, kSliderPictures = 5;
constexpr const char* kMode = "inputMode";
constexpr const char* kMixer = "inputMixer";
constexpr const char* kFade = "inputFadeStatus";

using Pixels = std::vector<uint8_t>; ///< premultiplied RGBA, `kRowBytes` a row, top row first
using Film = std::vector<Pixels>;
using Settings = GallerySettings;

struct GalleryOptions {
    std::string folder;
    std::vector<std::string> filters, moreFilters;
    bool isQuiet = false;
};

CIImage imageOf(Pixels pixels) {
    const auto owner = std::make_shared<const Pixels>(std::move(pixels));
    return CIImage::imageWithBitmap(owner->data(), kGalleryWidth, kGalleryHeight, kRowBytes,
                                    CIFormat::RGBA8, CGColorSpace::SRGB, owner);
}

Pixels testCardAt(const TestCard& card, int frame) {
    Pixels pixels(kRowBytes * kGalleryHeight);
    card.draw(pixels.data(), kRowBytes, double(frame) / kFramesPerSecond, frame, kFramesPerSecond);
    return pixels;
}

/// The second image: an evening sky with its sun over two ranges of hills.
Pixels paintedEvening() {
    Pixels pixels;
    pixels.reserve(kRowBytes * kGalleryHeight);
    for (int y = 0; y < kGalleryHeight; ++y) {
        for (int x = 0; x < kGalleryWidth; ++x) {
            const double u = double(x) / kGalleryWidth, v = double(y) / kGalleryHeight;
            const double sun = std::hypot((u - 0.68) * kGalleryWidth / kGalleryHeight, v - 0.48);
            const double glow = std::exp(-3 * sun);
            double color[] = {0.16 + 0.7 * v + 0.3 * glow, 0.12 + 0.35 * v + 0.35 * glow,
                              0.38 + 0.05 * v + 0.05 * glow};
            const auto paint = [&](double red, double green, double blue, double share) {
                const double paints[] = {red, green, blue}, part = std::clamp(share, 0.0, 1.0);
                for (int c = 0; c < 3; ++c) color[c] += (paints[c] - color[c]) * part;
            };
            const double far = 0.66 + 0.05 * std::sin(9 * u) + 0.03 * std::sin(23 * u + 1);
            const double near = 0.82 + 0.06 * std::sin(6 * u + 2) + 0.02 * std::sin(31 * u);
            paint(1, 0.93, 0.7, (0.13 - sun) * kGalleryHeight);
            paint(0.29, 0.2, 0.4, (v - far) * kGalleryHeight);
            paint(0.09, 0.09, 0.18, (v - near) * kGalleryHeight);
            for (const double c : color)
                pixels.push_back(static_cast<uint8_t>(std::clamp(c, 0.0, 1.0) * 255 + 0.5));
            pixels.push_back(255);
        }
    }
    return pixels;
}

/// Less than a hundredth of the range apart on average.
bool lookAlike(const Pixels& a, const Pixels& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
    return sum < 2.55 * double(a.size());
}

bool isOpaque(const Pixels& pixels) {
    for (size_t i = 3; i < pixels.size(); i += 4) {
        if (pixels[i] != 255) return false;
    }
    return true;
}

/// Over a checkerboard, which shows where a picture is transparent.
media::Frame frameOf(const Pixels& pixels) {
    constexpr int side = 10;
    media::Frame frame(kSize, media::PixelFormat::Rgba8);
    for (int y = 0; y < kGalleryHeight; ++y) {
        const uint8_t* in = pixels.data() + kRowBytes * static_cast<size_t>(y);
        uint8_t* out = frame.row(y);
        for (int x = 0; x < kGalleryWidth; ++x, in += 4, out += 4) {
            const int ground = (x / side + y / side) % 2 ? 200 : 240;
            for (int c = 0; c < 3; ++c) {
                out[c] = static_cast<uint8_t>(
                    std::min(255, in[c] + (ground * (255 - in[3]) + 127) / 255));
            }
            out[3] = 255;
        }
    }
    frame.timeBase = {1, kFramesPerSecond};
    frame.duration = 1;
    return frame;
}

void stopIfAsked() {
    if (InterruptWatch::isRequested())
        throw CommandError(ExitCode::Interrupted, "interrupted; there is no page yet");
}

void write(const std::string& path, const Film& film) {
    stopIfAsked();
    media::WriterOptions options;
    options.size = kSize;
    options.frameRate = {kFramesPerSecond, 1};
    options.threads = 1; // their number shows in the bytes of some encoders
    options.access.stop = &InterruptWatch::request();
    media::Writer writer(path, options);
    for (size_t i = 0; i < film.size(); ++i) {
        media::Frame frame = frameOf(film[i]);
        frame.pts = static_cast<int64_t>(i);
        writer.write(frame);
    }
    writer.finish();
}

/// The names of all kernels and built-in filters of a graph.
void addNames(const Json& json, std::string& names) {
    for (const auto& [key, value] : json.items()) {
        if (value.is_structured())
            addNames(value, names);
        else if (value.is_string() && (key == "function" || key == "name"))
            names += value.get<std::string>() + ' ';
    }
}

std::optional<double> numberOf(const ListedInput& input, const char* attribute) {
    const AttributeValue* value = input.attributes.find(attribute);
    const auto* number = value ? std::get_if<double>(value) : nullptr;
    return number && std::isfinite(*number) ? std::optional(*number) : std::nullopt;
}

struct Slider {
    std::string key, label;
    double from = 0, to = 1;

    double at(double share) const { return from + share * (to - from); }
};

std::vector<Slider> slidersOf(const std::vector<ListedInput>& inputs) {
    std::vector<Slider> sliders;
    for (const ListedInput& input : inputs) {
        const auto from = numberOf(input, kCIAttributeSliderMin);
        const auto to = numberOf(input, kCIAttributeSliderMax);
        if (!from || !to || input.kind != InputKind::Number) continue;
        const std::string label = attributeText(input.attributes, kCIAttributeDisplayName);
        sliders.push_back({input.key, label == "-" ? input.key : label, *from, *to});
    }
    return sliders;
}

/// Draws with one filter. Everything runs on the same times, so that pictures come out the same
/// each time.
class Studio {
public:
    Studio() {
        const TestCard card(kGalleryWidth, kGalleryHeight);
        for (int i = 0; i < kFrames; ++i) {
            sourcePixels.push_back(testCardAt(card, i));
            sources_.push_back(imageOf(sourcePixels.back()));
        }
        target_ = imageOf(targetPixels);
    }

    /// A filter that lives through `frames` frames from `first` on, and what it makes of them.
    /// `names`, if given, gets the kernels of the last one.
    Film film(const GalleryFilter& filter, const Settings& settings, int first, int frames,
              bool fades = false, std::string* names = nullptr) {
        PrintedLines printed;
        Film film;
        PlatformClock::drive(timeOf(first));
        const CIFilterRef instance = makeFilter(filter.entry);
        instance->setDefaults();
        for (const ListedInput& input : filter.inputs) {
            if (input.kind == InputKind::Image) instance->setValueForKey(target_, input.key);
        }
        for (const auto& [key, value] : settings) instance->setValueForKey(Number(value), key);
        for (int i = first; i < first + frames; ++i) {
            PlatformClock::drive(timeOf(i));
            setSource(filter, *instance, sources_[static_cast<size_t>(fades ? 0 : i)]);
            if (fades) { // there in the first half, and back in the second
                constexpr int half = kFrames / 2;
                instance->setValueForKey(Number(double(half - std::abs(i - half)) / half), kFade);
            }
            const CIImage image = instance->outputImage();
            film.push_back(rendered(image));
            if (names && i + 1 == first + frames && image)
                addNames(ImageJson(image.extent()).imageJson(image), *names);
        }
        for (const std::string& line : printed.take())
            messages.insert(filter.entry.name + ": " + line);
        return film;
    }

    Film sourcePixels;
    Pixels targetPixels = paintedEvening();
    std::set<std::string> messages; ///< what filters had to say, each line once

private:
    static uint64_t timeOf(int frame) {
        return uint64_t{1'000'000'000} / kFramesPerSecond * static_cast<uint64_t>(frame);
    }
    static void setSource(const GalleryFilter& filter, CIFilter& instance, const CIImage& source) {
        for (const ListedInput& input : filter.inputs) {
            if (input.key == "inputImage") instance.setValueForKey(source, input.key);
        }
    }
    /// Transparent where the filter gives no image.
    Pixels rendered(const CIImage& image) {
        Pixels pixels(kRowBytes * kGalleryHeight);
        const CGRect bounds{0, 0, kGalleryWidth, kGalleryHeight};
        if (image && !context_.render(image, pixels.data(), kRowBytes, bounds, CIFormat::RGBA8)) {
            throw CommandError(ExitCode::Failed, "rendering failed: " + context_.lastError());
        }
        return pixels;
    }

    std::vector<CIImage> sources_;
    CIImage target_;
    CIContext context_{ContextOptions{.device = DeviceKind::CPU}};
};

/// Makes one filter's pictures.
class Portrait {
public:
    Portrait(Studio& studio, const FilterEntry& entry, std::string folder)
        : studio_(studio), folder_(std::move(folder)) {
        filter_.entry = entry;
        filter_.inputs = listInputs(entry);
        sliders_ = slidersOf(filter_.inputs);
        standard_ = raised_ = gallerySettings(entry.name);
        for (const auto& [key, value] : standard_)
            checkInput(entry, key, Number(value), "what it is shown at");
        if (!standard_.empty()) return;
        for (const Slider& slider : sliders_) {
            if (slider.key == kMode) continue;
            raised_.emplace_back(slider.key, slider.at(slider.key == kMixer ? 1 : 0.75));
        }
    }

    GalleryFilter made() {
        const bool hasTarget =
            std::any_of(filter_.inputs.begin(), filter_.inputs.end(), [](const ListedInput& input) {
                return input.kind == InputKind::Image && input.key != "inputImage";
            });
        const bool fades = hasTarget && slider(kFade);
        if (fades) filter_.traits.push_back("transition");
        if (hasTarget && !fades) filter_.traits.push_back("mixes two images");
        addLead(fades);
        addModes();
        addSlider();
        if (isTransparent_) filter_.traits.push_back("makes transparency");
        return std::move(filter_);
    }

private:
    const Slider* slider(const char* key) const {
        const auto place = std::find_if(sliders_.begin(), sliders_.end(),
                                        [&](const Slider& s) { return s.key == key; });
        return place == sliders_.end() ? nullptr : &*place;
    }

    /// Whether what a filter makes of a frame depends on the frames before, or on the time since it
    /// was made.
    bool moves(const Settings& settings) {
        const Pixels lived = studio_.film(filter_, settings, 0, kStillFrame + 1).back();
        return lived != studio_.film(filter_, settings, kStillFrame, 1).back();
    }

    Pixels still(const Settings& settings, std::string* names = nullptr) {
        if (!moves_) return studio_.film(filter_, settings, kStillFrame, 1, false, names).back();
        return studio_.film(filter_, settings, 0, kStillFrame + 1, false, names).back();
    }
    bool looksLikeSource(const Pixels& pixels) const {
        return lookAlike(pixels, studio_.sourcePixels[kStillFrame]);
    }

    std::string picture(const std::string& suffix, const Film& film) {
        const std::string file = "pictures/" + filter_.entry.name + suffix;
        write(folder_ + "/" + file, film);
        isTransparent_ = isTransparent_ || !std::all_of(film.begin(), film.end(), isOpaque);
        return file;
    }

    void addLead(bool fades) {
        Settings settings = standard_;
        const bool movesAtDefaults = moves(settings);
        moves_ = movesAtDefaults || moves(raised_);
        Film film = fades    ? studio_.film(filter_, settings, 0, kFrames, true)
                    : moves_ ? studio_.film(filter_, settings, 0, kFrames)
                             : Film{still(settings)};
        const bool isDull = std::all_of(film.begin(), film.end(),
                                        [&](const Pixels& p) { return looksLikeSource(p); });
        std::string note = settings.empty() ? "at its defaults" : "with " + settingsText(settings);
        if (!fades && raised_ != standard_ && (isDull || movesAtDefaults != moves_)) {
            settings = raised_;
            film = moves_ ? studio_.film(filter_, settings, 0, kFrames) : Film{still(settings)};
            note = "with its sliders at three quarters";
        }
        if (fades) note = "from the first picture to the second and back";
        if (moves_) filter_.traits.insert(filter_.traits.begin(), "moves");
        if (film.size() > 1) filter_.animation = picture(".gif", film);
        const size_t shown = film.size() == 1 ? 0 : fades ? kFrames / 4 - 1 : kStillFrame;
        filter_.lead = {picture(".png", {film[shown]}), filter_.entry.name + " " + note,
                        "The test card through " + filter_.entry.name + ", " + note};
    }

    /// Draws a row twice where its filter does nothing at the defaults of the other inputs.
    template <class Draw>
    std::vector<Pixels> drawn(Draw draw, const char*& note) {
        std::vector<Pixels> pictures = draw(standard_);
        note = standard_.empty() ? "" : ", otherwise as above";
        const bool isDull = std::all_of(pictures.begin(), pictures.end(), [&](const Pixels& p) {
            return looksLikeSource(p) || p == pictures[0];
        });
        if (isDull && raised_ != standard_ && raised_.size() > 1) {
            pictures = draw(raised_);
            note = ", the others at three quarters";
        }
        return pictures;
    }

    void addModes() {
        const Slider* mode = slider(kMode);
        if (!mode) return;
        std::vector<int> modes;
        const auto draw = [&](Settings settings) {
            std::vector<Pixels> pictures;
            std::set<std::pair<std::string, Pixels>> seen;
            modes.clear();
            const int last =
                std::max(modesPastSlider(filter_.entry.name),
                         static_cast<int>(std::clamp(mode->to, 0.0, double(kMostModes - 1))));
            for (int i = 0; i <= last; ++i) {
                settings.emplace_back(kMode, i);
                std::string names;
                const Pixels pixels = still(settings, &names);
                settings.pop_back();
                if (!seen.emplace(names, pixels).second) continue;
                modes.push_back(i);
                pictures.push_back(pixels);
            }
            return pictures;
        };
        const char* note = "";
        const std::vector<Pixels> pictures = drawn(draw, note);
        if (pictures.size() < 2) return;
        GalleryRow row{fmt::format("Modes{}", note), {}};
        for (size_t i = 0; i < pictures.size(); ++i) {
            const std::string name = fmt::format("mode {}", modes[i]);
            row.pictures.push_back({picture(fmt::format("-mode-{}.png", modes[i]), {pictures[i]}),
                                    name, filter_.entry.name + ", " + name});
        }
        filter_.traits.push_back(fmt::format("{} modes", pictures.size()));
        filter_.rows.push_back(std::move(row));
    }

    /// The first slider that is neither the mode nor the mixer; the mixer where there is no other.
    void addSlider() {
        const auto place = std::find_if(sliders_.begin(), sliders_.end(), [](const Slider& s) {
            return s.key != kMode && s.key != kMixer;
        });
        const Slider* main = place == sliders_.end() ? slider(kMixer) : &*place;
        if (!main) return;
        const auto share = [](int i) { return double(i) / (kSliderPictures - 1); };
        const auto draw = [&](Settings settings) {
            std::vector<Pixels> pictures;
            for (int i = 0; i < kSliderPictures; ++i) {
                settings.emplace_back(main->key, main->at(share(i)));
                pictures.push_back(still(settings));
                settings.pop_back();
            }
            return pictures;
        };
        const char* note = "";
        const std::vector<Pixels> pictures = drawn(draw, note);
        GalleryRow row{fmt::format("Slider \"{}\"{}", main->label, note), {}};
        for (int i = 0; i < kSliderPictures; ++i) {
            const std::string value = fmt::format("{} = {:.4g}", main->label, main->at(share(i)));
            row.pictures.push_back(
                {picture(fmt::format("-slider-{}.png", i), {pictures[size_t(i)]}), value,
                 filter_.entry.name + ", " + value});
        }
        filter_.rows.push_back(std::move(row));
    }

    Studio& studio_;
    std::string folder_;
    GalleryFilter filter_;
    std::vector<Slider> sliders_;
    Settings standard_; ///< what it is shown at besides the defaults
    Settings raised_;   ///< what else is tried where it does nothing with those
    bool moves_ = false, isTransparent_ = false;
};

std::vector<FilterEntry> chosenFilters(const std::vector<std::string>& names) {
    if (names.empty()) return listFilters(false);
    std::vector<FilterEntry> entries;
    std::set<std::string> seen;
    for (const std::string& name : names) {
        FilterEntry entry = findFilter(name);
        if (seen.insert(entry.name).second) entries.push_back(std::move(entry));
    }
    return entries;
}

/// The folder's whole name, in which the media layer sees neither a pipe nor a protocol.
std::string makeFolders(const std::string& folder) {
    if (folder.empty()) throw CommandError(ExitCode::Usage, "DIR: the folder has no name");
    std::error_code problem;
    std::filesystem::create_directories(std::filesystem::path(folder) / "pictures", problem);
    if (!problem) return std::filesystem::absolute(folder).string();
    throw CommandError(ExitCode::OutputNotWritable,
                       fmt::format("cannot make the folder {}: {}", folder, problem.message()));
}

void writePage(const std::string& path, const std::string& html) {
    media::OutputFile file(path, true, {});
    file.write(reinterpret_cast<const uint8_t*>(html.data()), html.size());
    file.commit();
}

GalleryPage makePictures(const GalleryOptions& options) {
    const std::vector<FilterEntry> entries = chosenFilters(options.filters);
    const std::string folder = makeFolders(options.folder);
    Progress progress(static_cast<int64_t>(entries.size()), options.isQuiet, "filters");
    Studio studio;
    GalleryPage page;
    page.source = {"pictures/source.png", "first picture", "The test card, the first picture"};
    page.target = {"pictures/target.png", "second picture",
                   "A painted evening sky over hills, the second picture"};
    write(folder + "/" + page.source.file, {studio.sourcePixels[kStillFrame]});
    write(folder + "/" + page.target.file, {studio.targetPixels});
    for (const FilterEntry& entry : entries) {
        page.filters.push_back(Portrait(studio, entry, folder).made());
        progress.update(static_cast<int64_t>(page.filters.size()));
    }
    progress.clear();
    for (const std::string& message : studio.messages) say("{}", message);
    return page;
}

ExitCode gallery(const GalleryOptions& options) {
    registerFilters();
    const InterruptWatch watch;
    try {
        const GalleryPage page = makePictures(options);
        const std::string path = options.folder + "/index.html";
        writePage(path, galleryHtml(page));
        if (!options.isQuiet) {
            say("{}: {} {}", path, page.filters.size(),
                page.filters.size() == 1 ? "filter" : "filters");
        }
    } catch (const media::WriteError& error) {
        throw CommandError(ExitCode::OutputNotWritable, error.what());
    } catch (const media::Interrupted&) {
        stopIfAsked();
    }
    return ExitCode::Done;
}

} // namespace

void addGalleryCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<GalleryOptions>();
    CLI::App* command = app.add_subcommand("gallery", "Make a page with pictures of the filters");
    command->add_option("DIR", options->folder, "The folder of the page; made where there is none")
        ->required()
        ->type_name("");
    // Further names fall to the positionals, so that DIR may stand on either side of them.
    command->add_option("--filter", options->filters, "Only these; one name or more")
        ->allow_extra_args(false)
        ->type_name("NAME");
    command->add_option("NAME", options->moreFilters, "More of them, after --filter")
        ->type_name("");
    command->add_flag("--quiet", options->isQuiet, "No progress and no summary");
    command->footer(
        "Writes DIR/index.html and its pictures, DIR/pictures. The page needs no network and\n"
        "no script. Animations stand still where the system asks for little motion.\n\n"
        "Examples:\n"
        "  vorn gallery gallery\n"
        "  vorn gallery keys --filter VEChromaKeyRGB VELumaKey");
    command->callback([options, &action] {
        options->filters.insert(options->filters.end(), options->moreFilters.begin(),
                                options->moreFilters.end());
        action = [options] { return gallery(*options); };
    });
}

} // namespace vorn::cli
