// Sessions: players in one process do not show in each other's pictures, every line reaches the
// sink of its session, and filters keep the session that they were made in.
#include "starts.h"
#include "support.h"

#include "core/FilterSupport.h"
#include "imaging/SessionState.h"

#include <atomic>
#include <barrier>
#include <thread>

namespace {

using vorn::Session;
using vorn::SessionOptions;
using vorn::Severity;

using Lines = std::vector<std::string>;
using Frames = std::vector<Bitmap>;

constexpr CGRect kFrame{0, 0, 40, 24};

void registerAll() {
    filtered("VEDummy", CIImage(), {});
}

// ---- Players ------------------------------------------------------------------------------------

/// What one player shows and says in ten frames: noise that strobes and leaves trails, which
/// freezes in the end, and a filter that complains at each frame.
struct Player {
    SessionOptions options;
    uint64_t frameNanoseconds;

    std::pair<Frames, Lines> play() const {
        Frames shown;
        Lines said;
        SessionOptions own = options;
        own.messages = [&](Severity, std::string_view line) { said.emplace_back(line); };
        const auto session = Session::make(own);
        session->driveClock(frameNanoseconds);
        CIContext context(session);
        std::vector<CIFilterRef> chain;
        for (const char* name :
             {"VE_NoiseGenerator", "VE_Strobe_2", "VEDecay", "VEFreeze", "CIHueAdjust"}) {
            chain.push_back(session->filterWithName(name));
            chain.back()->setDefaults();
        }
        for (const char* key : {"inputScale", "inputXpos", "inputYpos"})
            chain[2]->setValueForKey(Number(127 / 255.0), key); // at rest
        chain[2]->setValueForKey(Number(0.2), "inputAmount");
        const Bitmap blank(40, 24);
        for (uint64_t i = 0; i < 10; ++i) {
            session->driveClock((2 + i) * frameNanoseconds);
            chain[3]->setValueForKey(Number(i < 7 ? 0.0 : 1.0), "inputFreeze");
            CIImage image = blank.image();
            for (size_t f = 0; f < 4; ++f) {
                chain[f]->setValueForKey(image, "inputImage");
                image = chain[f]->outputImage();
            }
            shown.push_back(render(context, image, kFrame));
            chain[4]->setValueForKey(image, "inputImage");
            chain[4]->setValueForKey(Number(std::nan("")), "inputAngle");
            EXPECT_FALSE(chain[4]->outputImage());
        }
        return {shown, said};
    }
};

TEST(Sessions, OfTwoPlayersGiveTheBytesThatEachGivesAlone) {
    registerAll();
    const Player players[] = {
        {{.device = DeviceKind::CPU, .threads = 2}, 40'000'000},
        {{.device = DeviceKind::Reference, .randomSeed = 5}, 17'000'000},
        {{.device = DeviceKind::CPU, .threads = 1, .instructionSet = "x86-64-v2"}, 40'000'000}};
    std::vector<std::pair<Frames, Lines>> alone;
    for (const Player& player : players) alone.push_back(player.play());
    EXPECT_EQ(alone[0].second.size(), 10u) << "each frame has its line";
    EXPECT_FALSE(alone[0].first == alone[1].first) << "they run on clocks of their own";
    EXPECT_FALSE(alone[0].first[6] == alone[0].first[0]) << "and these move";
    EXPECT_TRUE(alone[0].first[9] == alone[0].first[8]) << "until the freeze";

    std::vector<std::pair<Frames, Lines>> together(std::size(players));
    std::vector<std::thread> threads;
    for (size_t p = 0; p < std::size(players); ++p)
        threads.emplace_back([&, p] { together[p] = players[p].play(); });
    for (std::thread& thread : threads) thread.join();
    for (size_t p = 0; p < std::size(players); ++p) {
        EXPECT_TRUE(together[p].first == alone[p].first) << "player " << p;
        EXPECT_EQ(together[p].second, alone[p].second) << "player " << p;
    }
}

TEST(Sessions, LendTheirDeviceToFiltersThatKeepFrames) {
    const auto reference = Session::make({.device = DeviceKind::Reference});
    const auto narrow =
        Session::make({.device = DeviceKind::CPU, .threads = 3, .instructionSet = "x86-64-v2"});
    // What another session has rendered with on this thread does not count.
    render(*cpuContexts().front(), CIImage::imageWithColor(CIColor(1, 0, 0)), {0, 0, 2, 2});
    {
        const Session::Scope scope(reference);
        EXPECT_EQ(vorn::imaging::BorrowedContext()->device(), DeviceKind::Reference);
    }
    const Session::Scope scope(narrow);
    const CIContext* first;
    {
        const vorn::imaging::BorrowedContext context;
        first = &*context;
        EXPECT_EQ(context->device(), DeviceKind::CPU);
        EXPECT_EQ(context->threads(), 3);
        EXPECT_STREQ(context->instructionSet(), "x86-64-v2");
        EXPECT_NE(&*vorn::imaging::BorrowedContext(), first) << "two at a time";
    }
    EXPECT_EQ(CIContext().threads(), 3) << "as do contexts that ask for nothing else";
    EXPECT_EQ(CIContext({.threads = 2}).threads(), 2);
    EXPECT_EQ(CIContext(reference).device(), DeviceKind::Reference);
}

// ---- Lines --------------------------------------------------------------------------------------

TEST(Sessions, GetEveryLineWithItsSeverity) {
    registerAll();
    std::vector<std::pair<Severity, std::string>> said;
    const auto session = Session::make({.messages = [&](Severity severity, std::string_view line) {
        said.emplace_back(severity, line);
        if (said.size() == 1) throw std::runtime_error("a sink that fails");
        // A line that a sink causes does not come back to it.
        VornEffectsFilterConstructor().filterWithName("another");
    }});
    const std::string longName(5000, 'x');
    testing::internal::CaptureStdout();
    {
        const Session::Scope scope(session);
        VornEffectsRegistrar::registerAllFilters();
        VornEffectsFilterConstructor().filterWithName(longName);
        VornEffectsLoadKernel(classFromString("VEDummy"), "NoSuchLibrary", "none");
        const Session::Scope inner(nullptr);
        VornEffectsFilterConstructor().filterWithName("of the standard session");
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "VornEffects: unknown filter request 'of the standard session'\n");
    EXPECT_EQ(said,
              (std::vector<std::pair<Severity, std::string>>{
                  {Severity::Notice, "VornEffects: registerAllFilters"},
                  {Severity::Warning, "VornEffects: unknown filter request '" + longName + "'"},
                  {Severity::Error, "ERROR: missing ci.metallib resource 'NoSuchLibrary' for "
                                    "class 'VEDummy'"}}));

    // A sink that takes another one's place, and gives it back.
    said.clear();
    vorn::MessageSink former = session->setMessages([](Severity, std::string_view) {});
    session->filterWithName("CIHueAdjust")->outputImage();
    session->setMessages(std::move(former));
    const Session::Scope scope(session);
    VornEffectsFilterConstructor().filterWithName("");
    EXPECT_EQ(said.size(), 1u);
}

// ---- Filters ------------------------------------------------------------------------------------

/// What the filter below has seen when it was last asked.
struct Seen {
    uint64_t time = 0;
    const Session* session = nullptr;
    const Session* goneIn = nullptr;
} seen;
std::atomic<int> throwing = 0; ///< 1: memory that runs out, 2: an error, 3: something else

void throwWhatIsWanted() {
    if (throwing == 1) throw std::bad_alloc();
    if (throwing == 2) throw std::runtime_error("the film has torn");
    if (throwing == 3) throw 3;
}

class SessionProbe : public CIFilter {
public:
    SessionProbe() { throwWhatIsWanted(); }
    ~SessionProbe() override { seen.goneIn = Session::current().get(); }
    CIImage outputImage() override {
        throwWhatIsWanted();
        seen = {PlatformClock::ticks(), Session::current().get(), nullptr};
        return CIImage::imageWithColor(CIColor(lots.unit(), lots.unit(), lots.unit()));
    }
    void clear() override { throwWhatIsWanted(); }
    void setVornFrameTime(uint64_t) override { throwWhatIsWanted(); }
    CIImage inputImage;
    VORN_FILTER(SessionProbe, inputImage)

private:
    RandomNumbers lots;
};
VORN_REGISTER(SessionProbe)

class ProbeConstructor final : public CIFilterConstructor {
public:
    CIFilterRef filterWithName(std::string_view name) override {
        if (name != "SessionProbe") throw std::runtime_error("no such probe");
        return SessionProbe::theClass()->filter->create();
    }
};

void registerProbe() {
    for (const char* name : {"SessionProbe", "NoProbe"})
        CIFilter::registerFilterName(name, std::make_shared<ProbeConstructor>(), {});
}

TEST(Sessions, AreKeptByFiltersWhateverThreadAsks) {
    registerProbe();
    const auto session = Session::make({.device = DeviceKind::Reference});
    const Session* const own = session.get();
    session->driveClock(77);
    CIFilterRef filter = session->filterWithName("SessionProbe");
    const auto other = Session::make();
    std::thread([&] {
        const Session::Scope scope(other);
        PlatformClock::drive(5);
        EXPECT_TRUE(filter->outputImage());
        EXPECT_EQ(seen.session, own);
        EXPECT_EQ(seen.time, 77u);
        EXPECT_EQ(VornEffectsGetUptimeInNanoseconds(), 5u) << "the thread has its own again";
        EXPECT_EQ(filter->session().get(), own);
        filter.reset();
        EXPECT_EQ(seen.goneIn, own);
    }).join();
    EXPECT_FALSE(PlatformClock::isDriven()) << "the standard session's clock";
    EXPECT_EQ(Session::current(), Session::standard());
}

TEST(Sessions, AreKeptAliveByWhatWasMadeInThem) {
    registerProbe();
    std::weak_ptr<Session> session;
    {
        CIFilterRef filter;
        {
            const auto made = Session::make();
            session = made;
            filter = made->filterWithName("SessionProbe");
        }
        EXPECT_FALSE(session.expired());
        const CIContext context(session.lock());
        filter.reset();
        EXPECT_FALSE(session.expired());
    }
    EXPECT_TRUE(session.expired());
}

TEST(Sessions, TellWhatAFilterThrows) {
    registerProbe();
    Lines said;
    const auto session = Session::make(
        {.messages = [&](Severity, std::string_view line) { said.emplace_back(line); }});
    const CIFilterRef filter = session->filterWithName("SessionProbe");
    EXPECT_EQ(session->filterWithName("NoProbe"), nullptr);
    EXPECT_EQ(std::exchange(said, {}), Lines{"### NoProbe: no such probe"});
    const char* const expected[] = {"### SessionProbe: out of memory",
                                    "### SessionProbe: the film has torn",
                                    "### SessionProbe: an exception of an unknown kind"};
    for (throwing = 1; throwing <= 3; ++throwing) {
        EXPECT_FALSE(filter->outputImage());
        filter->clear();
        filter->setVornFrameTime(1);
        EXPECT_EQ(session->filterWithName("SessionProbe"), nullptr);
        EXPECT_EQ(std::exchange(said, {}), Lines(4, expected[throwing - 1]));
    }
    throwing = 0;
    EXPECT_TRUE(filter->outputImage()) << "the next frame is made";
}

TEST(Sessions, DrawTheSameLotsFromTheSameSeed) {
    registerProbe();
    const auto colors = [](uint64_t seed) {
        const auto session = Session::make({.device = DeviceKind::Reference, .randomSeed = seed});
        CIContext context(session);
        std::vector<Pixel> drawn;
        for (int filters = 0; filters < 2; ++filters) {
            const CIFilterRef filter = session->filterWithName("SessionProbe");
            for (int i = 0; i < 3; ++i)
                drawn.push_back(
                    render(context, filter->outputImage(), {0, 0, 1, 1}, CIFormat::RGBAf)
                        .pixel(0, 0));
        }
        return drawn;
    };
    const std::vector<Pixel> first = colors(1);
    EXPECT_EQ(colors(1), first);
    EXPECT_NE(colors(2), first);
    for (size_t i = 1; i < first.size(); ++i) EXPECT_NE(first[i], first[i - 1]);

    RandomNumbers numbers;
    double sum = 0, squares = 0, least = 1, most = 0;
    constexpr int count = 100'000;
    for (int i = 0; i < count; ++i) {
        const double number = numbers.unit();
        sum += number, squares += number * number;
        least = std::min(least, number), most = std::max(most, number);
    }
    EXPECT_NEAR(sum / count, 0.5, 0.005);
    EXPECT_NEAR(squares / count, 1 / 3.0, 0.005);
    EXPECT_TRUE(least >= 0 && least < 0.001 && most < 1 && most > 0.999) << least << " " << most;
}

// ---- Threads ------------------------------------------------------------------------------------

/// Each filter's second frame of a picture, by name, with the defaults; all on one clock.
std::map<std::string, Bitmap> picturesOf(const std::vector<std::string>& names, size_t startAt,
                                         const Bitmap& source, const Bitmap& target) {
    std::map<std::string, Bitmap> pictures;
    CIContext context({.device = DeviceKind::CPU, .threads = 1});
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string& name = names[(i + startAt) % names.size()];
        const auto own = sessionForChance(name);
        const CIFilterRef filter = own ? own->filterWithName(name) : CIFilter::filterWithName(name);
        if (!filter) continue;
        filter->setDefaults();
        for (const InputInfo& input : filter->filterClass().inputs())
            if (input.kind == InputKind::Image)
                filter->setValueForKey(input.key == std::string_view("inputImage") ? source.image()
                                                                                   : target.image(),
                                       input.key);
        filter->outputImage();
        if (const CIImage image = filter->outputImage())
            pictures.emplace(name, render(context, image, kFrame));
    }
    return pictures;
}

TEST(Threads, EightMakeAndRenderEveryFilterAtOnce) {
    Random random(91);
    const Bitmap source = randomBitmap(random, 40, 24, CIFormat::RGBA8);
    const Bitmap target = randomBitmap(random, 40, 24, CIFormat::BGRA8);
    VornEffectsRegistrar::registerAllFilters();
    PlatformClock::drive(1'000'000'000);
    constexpr size_t count = 8;
    std::vector<std::string> names = CIFilter::filterNames();
    std::erase_if(names, [](const std::string& name) { // those that other tests have registered
        return CIFilter::registeredFilter(name)->classAttributes.empty();
    });
    std::vector<std::map<std::string, Bitmap>> together(count);
    std::barrier start(count + 1);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < count; ++t)
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            // Neighbours begin with the same filters: nobody has made one before.
            together[t] = picturesOf(names, t / 2 * names.size() / 4, source, target);
        });
    start.arrive_and_wait();
    // Meanwhile hosts register and ask.
    for (int i = 0; i < 200; ++i) {
        const std::string name = "ThreadsTest" + std::to_string(i % 7);
        CIFilter::registerFilterName(name, nullptr, {});
        EXPECT_NE(CIFilter::registeredFilter(name), nullptr);
        EXPECT_GE(CIFilter::filterNames().size(), names.size());
    }
    for (std::thread& thread : threads) thread.join();
    const std::map<std::string, Bitmap> alone = picturesOf(names, 0, source, target);
    EXPECT_GT(alone.size(), names.size() / 2);
    for (size_t t = 0; t < count; ++t)
        for (const auto& [name, picture] : alone)
            EXPECT_TRUE(together[t].contains(name) && together[t].at(name) == picture)
                << name << " on thread " << t;
    PlatformClock::release();
}

} // namespace
