#include "libav.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <new>

namespace vorn::media {

namespace {

// FFmpeg has one log callback for the process, so what it says is kept in one place as well.
struct CaughtMessages {
    std::mutex mutex;
    std::string error;
    std::string warning;
};

CaughtMessages& caughtMessages() {
    static CaughtMessages messages;
    return messages;
}

void catchMessage(void*, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    char line[512];
    std::vsnprintf(line, sizeof line, format, arguments);
    std::string text = line;
    while (!text.empty() && (text.back() == '\n' || text.back() == '.')) text.pop_back();
    if (text.empty()) return;
    CaughtMessages& messages = caughtMessages();
    std::lock_guard lock(messages.mutex);
    (level <= AV_LOG_ERROR ? messages.error : messages.warning) = std::move(text);
}

} // namespace

AvFrame makeFrame() {
    AvFrame frame(av_frame_alloc());
    if (!frame) throw std::bad_alloc();
    return frame;
}

AvPacket makePacket() {
    AvPacket packet(av_packet_alloc());
    if (!packet) throw std::bad_alloc();
    return packet;
}

void beginCatchingMessages() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(catchMessage); });
    CaughtMessages& messages = caughtMessages();
    std::lock_guard lock(messages.mutex);
    messages.error.clear();
    messages.warning.clear();
}

std::string reasonFor(int errorCode) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(errorCode, text, sizeof text);
    CaughtMessages& messages = caughtMessages();
    std::lock_guard lock(messages.mutex);
    const std::string& detail = messages.error.empty() ? messages.warning : messages.error;
    return detail.empty() ? text : detail + " (" + text + ")";
}

std::string fileAddress(const std::string& path) {
    return path == "-" ? "pipe:0" : "file:" + path;
}

std::pair<std::int64_t, AVRational> earliestStart(const AVFormatContext& input) {
    std::pair<std::int64_t, AVRational> earliest{AV_NOPTS_VALUE, {1, 1}};
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const AVStream& stream = *input.streams[i];
        const AVMediaType type = stream.codecpar->codec_type;
        if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) continue;
        if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) continue;
        if (stream.start_time == AV_NOPTS_VALUE) continue;
        if (earliest.first == AV_NOPTS_VALUE ||
            av_compare_ts(stream.start_time, stream.time_base, earliest.first, earliest.second) < 0)
            earliest = {stream.start_time, stream.time_base};
    }
    if (earliest.first == AV_NOPTS_VALUE || earliest.first < 0) return {0, {1, 1}};
    return earliest;
}

void Warnings::add(const std::string& text) {
    const auto found = std::find_if(counted_.begin(), counted_.end(),
                                    [&](const auto& entry) { return entry.first == text; });
    if (found == counted_.end())
        counted_.emplace_back(text, 1);
    else
        ++found->second;
}

void Warnings::note(const std::string& text) {
    if (std::find(notes_.begin(), notes_.end(), text) == notes_.end()) notes_.push_back(text);
}

std::vector<std::string> Warnings::lines() const {
    std::vector<std::string> lines;
    for (const auto& [text, times] : counted_)
        lines.push_back(times == 1 ? text : text + " (" + std::to_string(times) + " times)");
    return lines;
}

} // namespace vorn::media
