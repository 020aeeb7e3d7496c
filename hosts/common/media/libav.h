// FFmpeg's objects as owning pointers, its messages caught, and small conversions. Internal.
#pragma once

#include "access.h"
#include "types.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace vorn::media {

template <auto Free>
struct FreeByAddress {
    template <typename T>
    void operator()(T* object) const {
        Free(&object);
    }
};
template <auto Free>
struct FreeByValue {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

using AvFrame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using AvPacket = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using AvCodecContext = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
struct CloseInput {
    void operator()(AVFormatContext* context) const;
};
using AvInput = std::unique_ptr<AVFormatContext, CloseInput>;
using AvScaler = std::unique_ptr<SwsContext, FreeByValue<sws_freeContext>>;

AvFrame makeFrame();
AvPacket makePacket();

/// FFmpeg's key and value options.
class AvOptions {
public:
    AvOptions() = default;
    ~AvOptions() { av_dict_free(&dictionary_); }
    AvOptions(const AvOptions&) = delete;
    AvOptions& operator=(const AvOptions&) = delete;

    void set(const std::string& key, const std::string& value) {
        av_dict_set(&dictionary_, key.c_str(), value.c_str(), 0);
    }
    void setDefault(const std::string& key, const std::string& value) {
        av_dict_set(&dictionary_, key.c_str(), value.c_str(), AV_DICT_DONT_OVERWRITE);
    }
    /// The value of a key, empty if it is not set.
    std::string get(const std::string& key) const {
        const AVDictionaryEntry* entry = av_dict_get(dictionary_, key.c_str(), nullptr, 0);
        return entry ? entry->value : "";
    }
    /// The first key that nobody took, empty if none is left.
    std::string firstLeft() const {
        const AVDictionaryEntry* entry =
            av_dict_get(dictionary_, "", nullptr, AV_DICT_IGNORE_SUFFIX);
        return entry ? entry->key : "";
    }
    AVDictionary** address() { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

/// Keeps FFmpeg's log lines off the terminal, once for the process; the last error (or warning, if
/// no error came) is remembered to explain failures. Forgets what was remembered before.
void beginCatchingMessages();

/// The reason for a failed call: FFmpeg's last message and the text of the error code.
std::string reasonFor(int errorCode);

/// The "file:" or "pipe:" address of a path, so that no part of the name is taken for a protocol.
std::string fileAddress(const std::string& path);

inline AVRational toAv(Rational value) {
    return {value.numerator, value.denominator};
}
inline Rational fromAv(AVRational value) {
    return {value.num, value.den};
}

/// Opens an input for reading: a local file, "-" for standard input or, for numbered pictures,
/// their address. Other files that it names are read only where `access` allows playlists. Throws
/// ReadError and Interrupted.
AvInput openInput(const std::string& path, const AVInputFormat* format, AvOptions& options,
                  const FileAccess& access);

/// A pipe cannot be opened a second time.
bool isReadOnce(const AVFormatContext& input);

/// Time of the earliest sound or picture stream, or zero if that is negative (sound that starts
/// early to prime its decoder): the value and its unit.
std::pair<std::int64_t, AVRational> earliestStart(const AVFormatContext& input);

/// Counted messages: a fault that comes back thousands of times is one line.
class Warnings {
public:
    void add(const std::string& text);
    std::vector<std::string> lines() const;

    /// What is worth knowing and no fault, each line once.
    void note(const std::string& text);
    const std::vector<std::string>& notes() const { return notes_; }

private:
    std::vector<std::string> notes_;
    std::vector<std::pair<std::string, int>> counted_;
};

} // namespace vorn::media
