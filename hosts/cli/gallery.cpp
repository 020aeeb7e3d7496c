// `vorn gallery`: a page with pictures of every filter.
#include "gallery.h"

#include "commands.h"
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
#include <fstream>
#include <optional>
#include <regex>
#include <set>

#include <CLI/CLI.hpp>

namespace vorn::cli {

namespace {

constexpr media::Size kSize{kGalleryWidth, kGalleryHeight};
constexpr size_t kRowBytes = size_t{kGalleryWidth} * 4;
constexpr int kFrames = 16, kFramesPerSecond = 10;
constexpr int kStillFrame = 9; ///< of a film, the frame that stands for it
constexpr int kSliderPictures = 5;
constexpr const char* kMixer = "inputMixer";

using Pixels = std::vector<uint8_t>; ///< premultiplied RGBA, `kRowBytes` a row, top row first
using Film = std::vector<Pixels>;
using Settings = std::vector<Setting>;

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

/// Whether the picture as a whole turns darker and lighter more than three times a second, by a
/// tenth of the range or more.
bool flashes(const Film& film) {
    int turns = 0, direction = 0;
    double extreme = 0;
    for (size_t i = 0; i < film.size(); ++i) {
        double light = 0; // BT.709 luma of the picture over black, mean
        for (size_t k = 0; k < film[i].size(); k += 4)
            light += 0.2126 * film[i][k] + 0.7152 * film[i][k + 1] + 0.0722 * film[i][k + 2];
        light /= 255.0 * double(film[i].size() / 4);
        const int way = light > extreme ? 1 : -1;
        if (i == 0 || way == direction) {
            extreme = light;
        } else if (std::fabs(light - extreme) >= 0.1) {
            turns += direction != 0;
            direction = way;
            extreme = light;
        }
    }
    return turns * kFramesPerSecond > 2 * 3 * static_cast<int>(film.size());
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
        sliders.push_back({input.key, input.guide.label, *from, *to});
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

    /// What a filter lives through: so many frames from `first` on.
    struct Take {
        int first, frames;
        std::string fade = {};     ///< this input, if given, runs from 0 to 1 and back
        bool isSourceHeld = false; ///< the test card stands still
    };
    /// What it makes of them.
    Film film(const GalleryFilter& filter, const Settings& settings, const Take& take) {
        PrintedLines printed;
        Film film;
        PlatformClock::drive(timeOf(take.first));
        const CIFilterRef instance = makeFilter(filter.entry);
        setStarts(*instance, filter.entry);
        for (const ListedInput& input : filter.inputs) {
            if (input.kind == InputKind::Image) instance->setValueForKey(target_, input.key);
        }
        for (const auto& [key, value] : settings) instance->setValueForKey(Number(value), key);
        const bool isSourceHeld = take.isSourceHeld || !take.fade.empty();
        for (int i = take.first; i < take.first + take.frames; ++i) {
            PlatformClock::drive(timeOf(i));
            instance->setVornFrameTime(timeOf(i));
            instance->setValueForKey(sources_[static_cast<size_t>(isSourceHeld ? 0 : i)],
                                     filter.entry.guide().frameKey);
            if (!take.fade.empty()) { // there in the first half, and back in the second
                constexpr int half = kFrames / 2;
                instance->setValueForKey(Number(double(half - std::abs(i - half)) / half),
                                         take.fade);
            }
            film.push_back(rendered(instance->outputImage()));
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
        standard_ = raised_ = guide().beginWith;
        if (!standard_.empty()) return;
        for (const Slider& slider : sliders_) {
            if (slider.key == modeKey()) continue;
            raised_.emplace_back(slider.key, slider.at(slider.key == kMixer ? 1 : 0.75));
        }
    }

    GalleryFilter made() {
        bool hasTarget = false;
        std::string fade;
        for (const InputGuide& input : guide().inputs) {
            if (input.feed == InputFeed::Time) fade = input.key;
            hasTarget =
                hasTarget || (input.feed == InputFeed::Picture && input.key != guide().frameKey);
        }
        if (!hasTarget) fade.clear();
        if (!fade.empty()) filter_.traits.push_back("transition");
        if (hasTarget && fade.empty()) filter_.traits.push_back("mixes two images");
        addLead(fade);
        addModes();
        addSlider();
        if (isTransparent_) filter_.traits.push_back("makes transparency");
        return std::move(filter_);
    }

private:
    const FilterGuide& guide() const { return filter_.entry.guide(); }
    /// Nothing where there are no modes.
    std::string modeKey() const { return guide().modes.empty() ? "" : guide().modeKey; }
    const Slider* slider(const std::string& key) const {
        const auto place = std::find_if(sliders_.begin(), sliders_.end(),
                                        [&](const Slider& s) { return s.key == key; });
        return place == sliders_.end() ? nullptr : &*place;
    }

    /// Whether what a filter makes of a frame depends on the frames before, on the time since it
    /// was made, or on the frame time.
    bool moves(const Settings& settings) {
        const Pixels lived = studio_.film(filter_, settings, {0, kStillFrame + 1}).back();
        if (lived != studio_.film(filter_, settings, {kStillFrame, 1}).back()) return true;
        if (!guide().takesFrameTime) return false;
        const Film held = studio_.film(filter_, settings, {0, kFrames, {}, true});
        return std::any_of(held.begin(), held.end(),
                           [&](const Pixels& pixels) { return pixels != held[0]; });
    }

    Pixels still(const Settings& settings) {
        if (!moves_) return studio_.film(filter_, settings, {kStillFrame, 1}).back();
        return studio_.film(filter_, settings, {0, kStillFrame + 1}).back();
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

    /// Settings in words, the mode by its name.
    std::string noteOn(Settings settings) const {
        std::string name;
        std::erase_if(settings, [&](const Setting& setting) {
            for (const ModeGuide& mode : guide().modes)
                if (setting.first == modeKey() && setting.second == mode.value) name = mode.name;
            return setting.first == modeKey() && !name.empty();
        });
        std::string note = name.empty() ? "" : '"' + name + '"';
        if (settings.empty()) return note;
        return note + (note.empty() ? "with " : " with ") + settingsText(settings, ", ");
    }

    void addLead(const std::string& fade) {
        const bool fades = !fade.empty();
        Settings settings = standard_;
        const bool movesAtDefaults = moves(settings);
        moves_ = movesAtDefaults || moves(raised_);
        Film film = fades    ? studio_.film(filter_, settings, {0, kFrames, fade})
                    : moves_ ? studio_.film(filter_, settings, {0, kFrames})
                             : Film{still(settings)};
        const bool isDull = std::all_of(film.begin(), film.end(),
                                        [&](const Pixels& p) { return looksLikeSource(p); });
        std::string note = settings.empty() ? "at its defaults" : noteOn(settings);
        if (!fades && raised_ != standard_ && (isDull || movesAtDefaults != moves_)) {
            settings = raised_;
            film = moves_ ? studio_.film(filter_, settings, {0, kFrames}) : Film{still(settings)};
            note = "with its sliders at three quarters";
        }
        if (fades) note = "from the first picture to the second and back";
        if (moves_) filter_.traits.insert(filter_.traits.begin(), "moves");
        if (film.size() > 1) filter_.animation = picture(".gif", film);
        const size_t shown = film.size() == 1 ? 0 : fades ? kFrames / 4 - 1 : kStillFrame;
        filter_.flashes = guide().canFlash || flashes(film);
        filter_.lead = {picture(".png", {film[shown]}), guide().title + " " + note,
                        "The test card through " + guide().title + ", " + note};
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
        const std::vector<ModeGuide>& modes = guide().modes;
        if (modes.empty()) return;
        const auto draw = [&](Settings settings) {
            std::vector<Pixels> pictures;
            for (const ModeGuide& mode : modes) {
                settings.emplace_back(guide().modeKey, mode.value);
                pictures.push_back(still(settings));
                settings.pop_back();
            }
            return pictures;
        };
        const char* note = "";
        const std::vector<Pixels> pictures = drawn(draw, note);
        GalleryRow row{fmt::format("Modes{}", note), {}};
        for (size_t i = 0; i < pictures.size(); ++i) {
            row.pictures.push_back(
                {picture(fmt::format("-mode-{}.png", modes[i].value), {pictures[i]}), modes[i].name,
                 guide().title + ", " + modes[i].name});
        }
        filter_.traits.push_back(fmt::format("{} modes", pictures.size()));
        filter_.rows.push_back(std::move(row));
    }

    /// The first slider that is neither the mode nor the mixer; the mixer where there is no other.
    void addSlider() {
        const auto place = std::find_if(sliders_.begin(), sliders_.end(), [&](const Slider& s) {
            return s.key != modeKey() && s.key != kMixer;
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
                 guide().title + ", " + value});
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

/// The pictures that a page of this kind shows, by their names in the folder `pictures`.
std::set<std::string> picturesOf(const std::string& page) {
    std::ifstream file(page);
    std::string html;
    std::getline(file, html, '\0');
    std::set<std::string> names;
    if (html.find(kGalleryMark) == std::string::npos) return names;
    const std::regex picture("\"pictures/([\\w-]+\\.(png|gif))\"");
    for (std::sregex_iterator match(html.begin(), html.end(), picture), end; match != end; ++match)
        names.insert((*match)[1]);
    return names;
}

/// Removes what an earlier page showed and the new one does not; nothing else that lies there.
void removeStale(const std::string& folder, const std::set<std::string>& before,
                 const std::set<std::string>& now) {
    for (const std::string& name : before) {
        std::error_code ignored;
        if (!now.contains(name))
            std::filesystem::remove(std::filesystem::path(folder) / "pictures" / name, ignored);
    }
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
        const std::set<std::string> before = picturesOf(path);
        writePage(path, galleryHtml(page));
        removeStale(options.folder, before, picturesOf(path));
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
        "Writes DIR/index.html and its pictures, DIR/pictures, and removes those that only an\n"
        "earlier page there showed. The page needs no network and no script. Everything on it\n"
        "stands still until it is asked to move, with a warning where pictures flash.\n\n"
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
