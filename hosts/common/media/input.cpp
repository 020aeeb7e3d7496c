// Opening of inputs. FFmpeg sees their bytes through streams of our own, so that no name in a file
// opens another one and every wait can be ended.
#include "libav.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/avstring.h>
}

namespace vorn::media {

namespace {

using OpenFunction = decltype(AVFormatContext::io_open);

/// What belongs to an opened input besides FFmpeg's object.
struct InputState {
    FileAccess access;
    OpenFunction usualOpen = nullptr;
    AVIOContext* stream = nullptr; ///< of the file itself
    bool isReadOnce = false;
};

/// An open file as FFmpeg reads it.
struct OpenFile {
    int descriptor = -1;
    bool isRegular = false;
    FileAccess access;

    ~OpenFile() {
        if (descriptor > STDIN_FILENO) ::close(descriptor);
    }
};

int readBytes(void* opaque, std::uint8_t* bytes, int count) {
    const auto& file = *static_cast<OpenFile*>(opaque);
    while (true) {
        if (!file.isRegular && file.access.isStopped()) return AVERROR_EXIT;
        const ssize_t done = ::read(file.descriptor, bytes, std::size_t(count));
        if (done > 0) return int(done);
        if (done == 0) return AVERROR_EOF;
        if (errno == EAGAIN) {
            pollfd waiting{file.descriptor, POLLIN, 0};
            ::poll(&waiting, 1, 100);
        } else if (errno != EINTR) {
            return AVERROR(errno);
        }
    }
}

std::int64_t seekBytes(void* opaque, std::int64_t offset, int whence) {
    const auto& file = *static_cast<OpenFile*>(opaque);
    if (whence & AVSEEK_SIZE) {
        struct stat status = {};
        if (::fstat(file.descriptor, &status) != 0) return AVERROR(errno);
        return S_ISREG(status.st_mode) ? std::int64_t(status.st_size) : AVERROR(EINVAL);
    }
    const std::int64_t place = ::lseek(file.descriptor, offset, whence & ~AVSEEK_FORCE);
    return place < 0 ? AVERROR(errno) : place;
}

void freeStream(AVIOContext* stream) {
    if (!stream) return;
    delete static_cast<OpenFile*>(stream->opaque);
    av_freep(&stream->buffer);
    avio_context_free(&stream);
}

/// Opens "-" or a path; a negative FFmpeg error code on failure.
int openStream(const std::string& path, const FileAccess& access, AVIOContext*& stream) {
    auto file = std::make_unique<OpenFile>();
    file->access = access;
    do {
        // A named pipe waits here for somebody who writes.
        if (access.isStopped()) return AVERROR_EXIT;
        file->descriptor =
            path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    } while (file->descriptor < 0 && errno == EINTR);
    struct stat status = {};
    if (file->descriptor < 0 || ::fstat(file->descriptor, &status) != 0) return AVERROR(errno);
    file->isRegular = S_ISREG(status.st_mode);
    if (access.inputs) access.inputs->add(file->descriptor);

    constexpr int bufferBytes = 32768;
    const bool isSeekable = ::lseek(file->descriptor, 0, SEEK_CUR) >= 0;
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(bufferBytes));
    if (!buffer) throw std::bad_alloc();
    stream = avio_alloc_context(buffer, bufferBytes, 0, file.get(), readBytes, nullptr,
                                isSeekable ? seekBytes : nullptr);
    if (!stream) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    file.release();
    return 0;
}

bool isPlaylist(const AVInputFormat& format) {
    for (const char* name : {"concat", "hls", "dash", "imf", "vobsub", "sdp", "rtsp", "sap", "rtp",
                             "webm_dash_manifest"})
        if (av_match_name(name, format.name)) return true;
    return false;
}

/// FFmpeg's request for a further file.
int openFurther(AVFormatContext* context, AVIOContext** stream, const char* address, int flags,
                AVDictionary** options) {
    const auto& state = *static_cast<InputState*>(context->opaque);
    std::string path = address;
    const bool isNumberedPicture =
        context->iformat && std::string_view(context->iformat->name) == "image2";
    if (!isNumberedPicture && !state.access.allowsPlaylists) {
        av_log(context, AV_LOG_ERROR, "it names another file, %s", address);
        return AVERROR(EACCES);
    }
    if (flags & AVIO_FLAG_WRITE) return AVERROR(EACCES);
    const char* protocol = avio_find_protocol_name(address);
    if (path.starts_with("file:"))
        path.erase(0, 5);
    else if (path == "pipe:0")
        path = "-";
    else if (protocol && std::string_view(protocol) != "file")
        return state.usualOpen(context, stream, address, flags, options);
    try {
        return openStream(path, state.access, *stream);
    } catch (const std::bad_alloc&) {
        return AVERROR(ENOMEM);
    }
}

int closeFurther(AVFormatContext*, AVIOContext* stream) {
    if (!stream || stream->read_packet != readBytes) return avio_close(stream);
    freeStream(stream);
    return 0;
}

int shouldStop(void* opaque) {
    return static_cast<InputState*>(opaque)->access.isStopped() ? 1 : 0;
}

/// The files that a playlist names are inputs as well, before they are opened and after.
void addMembers(const std::string& path, const AVInputFormat& format, InputFiles& inputs) {
    const bool isConcat = av_match_name("concat", format.name);
    if (!isConcat && !av_match_name("hls", format.name)) return;
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const char* rest = line.c_str();
        rest += std::strspn(rest, " \t");
        if (isConcat && !av_strstart(rest, "file", &rest)) continue;
        if (*rest == '#' || *rest == 0) continue;
        char* name = isConcat ? av_get_token(&rest, " \t\r\n") : av_strdup(rest);
        if (!name) throw std::bad_alloc();
        const char* plain = name;
        av_strstart(name, "file:", &plain);
        inputs.add((folder / plain).string());
        av_free(name);
    }
}

} // namespace

void CloseInput::operator()(AVFormatContext* context) const {
    auto* state = static_cast<InputState*>(context->opaque);
    avformat_close_input(&context);
    freeStream(state->stream);
    delete state;
}

AvInput openInput(const std::string& path, const AVInputFormat* format, AvOptions& options,
                  const FileAccess& access) {
    auto state = std::make_unique<InputState>();
    state->access = access;
    const auto fail = [&](const std::string& reason) {
        freeStream(state->stream);
        if (access.isStopped()) throw Interrupted();
        throw ReadError("cannot read " + path + ": " + reason);
    };
    const std::string address = fileAddress(path);
    // Pictures without a signature are known by their names alone.
    AVProbeData name = {address.c_str(), nullptr, 0, nullptr};
    int score = AVPROBE_SCORE_RETRY;
    if (!format) format = av_probe_input_format2(&name, 0, &score);
    int result = 0;
    if (!format || !(format->flags & AVFMT_NOFILE)) {
        result = openStream(path, access, state->stream);
        if (result >= 0 && !format)
            result = av_probe_input_buffer2(state->stream, &format, address.c_str(), nullptr, 0, 0);
        if (result == AVERROR_INVALIDDATA)
            fail("nothing in it tells what it is; headerless pixels need --input-format, such as "
                 "rgba:1280x720@25");
        if (result < 0) fail(reasonFor(result));
        struct stat status = {};
        const int descriptor = static_cast<OpenFile*>(state->stream->opaque)->descriptor;
        state->isReadOnce = path == "-" || ::fstat(descriptor, &status) != 0 ||
                            S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
    }
    if (isPlaylist(*format)) {
        if (!access.allowsPlaylists)
            fail("it is a playlist; the files that it names are read with --allow-playlists only");
        if (access.inputs && !state->isReadOnce) addMembers(path, *format, *access.inputs);
        if (av_match_name("concat", format->name)) options.set("safe", "0");
    }
    options.set("protocol_whitelist", access.allowsPlaylists ? "file,crypto,data" : "none");

    AVFormatContext* context = avformat_alloc_context();
    if (!context) fail("there is no memory left");
    state->usualOpen = context->io_open;
    context->opaque = state.get();
    context->io_open = openFurther;
    context->io_close2 = closeFurther;
    context->interrupt_callback = {shouldStop, state.get()};
    context->pb = state->stream;
    if (context->pb) context->flags |= AVFMT_FLAG_CUSTOM_IO;
    result = avformat_open_input(&context, address.c_str(), format, options.address());
    if (result < 0) fail(reasonFor(result));
    state.release();
    return AvInput(context);
}

bool isReadOnce(const AVFormatContext& input) {
    return static_cast<const InputState*>(input.opaque)->isReadOnce;
}

} // namespace vorn::media
