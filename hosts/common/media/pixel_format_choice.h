// Choice of an encoder's pixel format and of the colour coding in it. Internal.
#pragma once

#include "encoder.h"

namespace vorn::media {

/// Formats to try in order of preference. Throws std::runtime_error when the asked one does not
/// exist in the encoder.
std::vector<AVPixelFormat> candidateFormats(const EncoderRequest& request);

/// Whether the file says with which curve its light is coded.
bool tagsTransfer(const EncoderRequest& request);

/// How the encoder's pictures are coded, and how they are tagged.
struct ColourChoice {
    PictureCoding coding;
    ColourTags tags;
};
ColourChoice chooseColour(const EncoderRequest& request, AVPixelFormat format);

} // namespace vorn::media
