// How a reader opens its file and finds out what is in it.
#include "reader_state.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <unistd.h>

namespace vorn::media {

namespace {

bool isStillDemuxer(const std::string& name) {
    return name == "image2" || (name.ends_with("_pipe") && name != "yuv4mpegpipe");
}

// Text files are taken for terminal art by these; nobody means that.
bool isTextDemuxer(const std::string& name) {
    for (const char* text : {"tty", "bin", "xbin", "adf", "idf"})
        if (name == text) return true;
    return false;
}

} // namespace

bool isPixelFormatName(const std::string& name) {
    return av_get_pix_fmt(name.c_str()) != AV_PIX_FMT_NONE;
}

Reader::State::State(const std::string& file, const ReaderOptions& wanted)
    : path(file), options(wanted), scaler(wanted.threads) {
    beginCatchingMessages();
    checkOptions();
    open();
    openDecoder();
    if (!decode(*next)) fail("holds no picture that can be decoded");
    hasNext = true;
    describeFile();
    beginRange();
}

void Reader::State::fail(const std::string& reason) const {
    if (options.access.isStopped()) throw Interrupted();
    throw ReadError("cannot read " + path + ": " + reason);
}

void Reader::State::checkOptions() const {
    const TimeRange& range = options.range;
    const bool isFinite = std::isfinite(range.startSeconds) &&
                          (!range.endSeconds || std::isfinite(*range.endSeconds));
    if (!isFinite || range.startSeconds < 0) fail("the range is not a time of the file");
    if (range.endSeconds && *range.endSeconds <= range.startSeconds)
        fail("the range ends before it starts");
    if (!options.sequenceRate.isPositive()) fail("the frame rate is not positive");
}

void Reader::State::open() {
    AvOptions openOptions;
    const AVInputFormat* demuxer = nullptr;
    std::error_code ignored;
    std::string address = path;
    info.kind = MediaKind::Video;
    if (path == "-" && ::isatty(STDIN_FILENO))
        fail("standard input is a terminal; send a film into it with | or <");
    if (options.raw) {
        const RawVideo& raw = *options.raw;
        demuxer = av_find_input_format("rawvideo");
        openOptions.set("pixel_format", raw.pixelFormat);
        openOptions.set("video_size",
                        std::to_string(raw.size.width) + "x" + std::to_string(raw.size.height));
        openOptions.set("framerate", std::to_string(raw.frameRate.numerator) + "/" +
                                         std::to_string(raw.frameRate.denominator));
    } else if (path != "-" && !std::filesystem::exists(path, ignored)) {
        const auto pattern = parseSequencePattern(path);
        if (!pattern) fail("no such file");
        demuxer = prepareSequence(*pattern, openOptions, address);
    } else if (std::filesystem::is_directory(path, ignored)) {
        fail("is a folder; name its pictures with a pattern such as %04d.png");
    } else {
        openOptions.set("pattern_type", "none");
    }

    try {
        input = openInput(address, demuxer, openOptions, options.access);
    } catch (const ReadError& error) {
        if (address == path) throw;
        fail(error.what());
    }
    if (isIndexPassed())
        fail("its index stands behind the pictures, and a pipe does not go back to them; name the "
             "file itself, or write it with the index in front (ffmpeg -movflags +faststart)");
    if (isTextDemuxer(input->iformat->name)) fail("is not a film or picture");
    if (const int result = avformat_find_stream_info(input.get(), nullptr); result < 0)
        fail(reasonFor(result));
    if (info.kind == MediaKind::Video && !options.raw && isStillDemuxer(input->iformat->name))
        info.kind = MediaKind::Picture;
}

bool Reader::State::isIndexPassed() const {
    AVIOContext* bytes = input->pb;
    if (!isReadOnce(*input) || !bytes || (bytes->seekable & AVIO_SEEKABLE_NORMAL)) return false;
    std::int64_t first = INT64_MAX;
    for (unsigned i = 0; i < input->nb_streams; ++i)
        if (avformat_index_get_entries_count(input->streams[i]) > 0)
            first = std::min(first, avformat_index_get_entry(input->streams[i], 0)->pos);
    // A short film may still be in memory.
    const std::int64_t kept = avio_tell(bytes) - (bytes->buf_ptr - bytes->buffer);
    return first < kept;
}

const AVInputFormat* Reader::State::prepareSequence(const SequencePattern& pattern,
                                                    AvOptions& openOptions, std::string& address) {
    const std::vector<int> numbers = pattern.existingNumbers();
    if (numbers.empty()) fail("no file matches the pattern");
    const int first = options.sequenceFirstNumber.value_or(numbers.front());
    const auto start = std::find(numbers.begin(), numbers.end(), first);
    if (start == numbers.end()) fail("there is no picture " + pattern.fileName(first));
    auto last = start;
    while (last + 1 != numbers.end() && *(last + 1) == *last + 1) ++last;
    if (last + 1 != numbers.end())
        warnings.add("the sequence " + path + " has a gap after " + pattern.fileName(*last) +
                     ": it ends there");
    if (options.access.inputs)
        for (auto each = start; each <= last; ++each)
            options.access.inputs->add(pattern.path(*each));
    info.kind = MediaKind::Sequence;
    info.firstNumber = first;
    info.frameCount = last - start + 1;

    // The demuxer would take a percent sign in the folder's name for a field.
    address.clear();
    for (const char c : pattern.folder) address += c == '%' ? "%%" : std::string(1, c);
    address += "/" + std::filesystem::path(path).filename().string();
    openOptions.set("pattern_type", "sequence");
    openOptions.set("start_number", std::to_string(first));
    openOptions.set("start_number_range", "1");
    openOptions.set("framerate", std::to_string(options.sequenceRate.numerator) + "/" +
                                     std::to_string(options.sequenceRate.denominator));
    return av_find_input_format("image2");
}

const AVCodec* Reader::State::decoderFor(const AVStream& found) const {
    const AVCodecID id = found.codecpar->codec_id;
    const AVDictionaryEntry* alpha = av_dict_get(found.metadata, "alpha_mode", nullptr, 0);
    const AVCodec* codec = nullptr;
    if (alpha && std::string(alpha->value) == "1") {
        if (id == AV_CODEC_ID_VP8) codec = avcodec_find_decoder_by_name("libvpx");
        if (id == AV_CODEC_ID_VP9) codec = avcodec_find_decoder_by_name("libvpx-vp9");
    }
    return codec ? codec : avcodec_find_decoder(id);
}

void Reader::State::openDecoder() {
    const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) fail("holds no pictures");
    stream = input->streams[index];
    if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC)
        fail("holds no film, only sound with a cover picture");
    for (unsigned i = 0; i < input->nb_streams; ++i)
        if (int(i) != index) input->streams[i]->discard = AVDISCARD_ALL;
    if (options.passesTracks && isReadOnce(*input)) passTracks();

    const AVCodec* codec = decoderFor(*stream);
    const std::string name = avcodec_get_name(stream->codecpar->codec_id);
    if (!codec) fail("there is no decoder for " + name);
    decoder.reset(avcodec_alloc_context3(codec));
    if (!decoder) throw std::bad_alloc();
    int result = avcodec_parameters_to_context(decoder.get(), stream->codecpar);
    decoder->pkt_timebase = stream->time_base;
    decoder->thread_count = options.threads;
    decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (result >= 0) result = avcodec_open2(decoder.get(), codec, nullptr);
    if (result < 0) fail("the " + name + " decoder does not open: " + reasonFor(result));
}

void Reader::State::passTracks() {
    passed = std::make_shared<PassedTracks>(*input, options.range.startSeconds);
    passed->setReadOn([this] { return readOn(); });
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVMediaType type = input->streams[i]->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_SUBTITLE)
            input->streams[i]->discard = AVDISCARD_DEFAULT;
    }
}

bool Reader::State::readOn() {
    // Tracks lie side by side; what is that far behind is not of the pictures that were read.
    constexpr double kFarSeconds = 5;
    if (options.access.isStopped()) return false;
    av_packet_unref(packet.get());
    if (av_read_frame(input.get(), packet.get()) < 0) return false;
    const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    const AVRational unit = input->streams[packet->stream_index]->time_base;
    const double end = double(startOffset + lastEnd) * av_q2d(stream->time_base) + kFarSeconds;
    const bool isFar = time != AV_NOPTS_VALUE && double(time) * av_q2d(unit) > end;
    if (packet->stream_index != stream->index) passed->pass(*packet);
    return !isFar;
}

void Reader::State::describeFile() {
    const MediaKind kind = info.kind;
    const int firstNumber = info.firstNumber;
    const auto sequenceCount = info.frameCount;
    info = describe(*input, *stream, *next);
    info.path = path;
    info.isReadOnce = isReadOnce(*input);
    info.passed = passed;
    info.kind = kind;
    info.firstNumber = firstNumber;
    if (kind == MediaKind::Sequence) info.frameCount = sequenceCount;
    if (kind == MediaKind::Picture) info.frameCount = 1;
    if (kind != MediaKind::Video) info.isFrameCountExact = true;

    if (info.displayMatrix) {
        if (const auto found = orientationOf(*info.displayMatrix))
            orientation = *found;
        else
            warnings.add("the picture is turned by an angle that is no multiple of 90 degrees: "
                         "it is left as it is stored");
    }
    if (info.isYCbCr && info.colour.matrix != AVCOL_SPC_UNSPECIFIED &&
        info.colour.matrix != AVCOL_SPC_RGB && !isKnownMatrix(AVColorSpace(info.colour.matrix)))
        warnings.add(std::string("the colour matrix ") +
                     av_color_space_name(AVColorSpace(info.colour.matrix)) +
                     " is not supported: the usual one for the size is taken");

    startOffset = av_rescale_q(info.startTime, toAv(info.startTimeBase), stream->time_base);
    if (info.frameRate.isPositive())
        usualDuration = std::max<std::int64_t>(
            1, av_rescale_q(1, toAv(info.frameRate.inverse()), stream->time_base));
    noteFields();
    setOutput(options.pixelFormat, options.outputSize);
}

void Reader::State::noteFields() {
    const bool isInterlaced =
        info.fieldOrder == FieldOrder::TopFirst || info.fieldOrder == FieldOrder::BottomFirst;
    if (options.deinterlacing == Deinterlacing::None) {
        if (isInterlaced)
            warnings.note(path + " is interlaced, " +
                          (info.fieldOrder == FieldOrder::TopFirst ? "top" : "bottom") +
                          " field first: each frame holds two moments; --deinterlace makes whole "
                          "pictures");
        return;
    }
    info.fieldOrder = FieldOrder::Progressive;
    if (options.deinterlacing == Deinterlacing::Tagged &&
        storedFieldOrder == FieldOrder::Progressive)
        warnings.note(path +
                      " begins with a picture that is not tagged as interlaced: "
                      "--deinterlace leaves such pictures alone, --deinterlace=all does not");
}

} // namespace vorn::media
