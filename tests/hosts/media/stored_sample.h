// What a file holds, decoded by FFmpeg without the code under test.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace media_test {

using Rgb = std::array<int, 3>;

/// Decodes the first stored picture as it is coded and gives the samples at a position from 0 to 1.
inline Rgb storedSample(const std::string& path, double x, double y) {
    AVFormatContext* input = nullptr;
    EXPECT_GE(avformat_open_input(&input, path.c_str(), nullptr, nullptr), 0);
    EXPECT_GE(avformat_find_stream_info(input, nullptr), 0);
    const AVStream* stream = input->streams[0];
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContext* decoder = avcodec_alloc_context3(codec);
    avcodec_parameters_to_context(decoder, stream->codecpar);
    avcodec_open2(decoder, codec, nullptr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    bool isDone = false;
    while (!isDone) {
        const bool hasPacket = av_read_frame(input, packet) >= 0;
        avcodec_send_packet(decoder, hasPacket ? packet : nullptr);
        av_packet_unref(packet);
        isDone = avcodec_receive_frame(decoder, frame) >= 0 || !hasPacket;
    }
    Rgb samples{};
    for (int plane = 0; plane < 3 && frame->data[plane]; ++plane) {
        const bool isSmall = plane > 0 && frame->linesize[plane] < frame->linesize[0];
        const int column = int(x * (frame->width - 1)) >> isSmall;
        const int row = int(y * (frame->height - 1)) >> isSmall;
        samples[plane] = frame->data[plane][row * frame->linesize[plane] + column];
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    avformat_close_input(&input);
    return samples;
}

} // namespace media_test
