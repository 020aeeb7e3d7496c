#include "colour.h"

#include "scaler.h"

#include <algorithm>
#include <cmath>

namespace vorn::media {

namespace {

TransferCurve curveOf(int transfer, bool isYCbCr) {
    switch (transfer) {
    case AVCOL_TRC_UNSPECIFIED:
        return isYCbCr ? TransferCurve::BT709 : TransferCurve::SRGB;
    case AVCOL_TRC_BT709:
    case AVCOL_TRC_SMPTE170M:
    case AVCOL_TRC_BT2020_10:
    case AVCOL_TRC_BT2020_12:
    case AVCOL_TRC_IEC61966_2_4:
        return TransferCurve::BT709;
    case AVCOL_TRC_GAMMA22:
        return TransferCurve::Gamma22;
    case AVCOL_TRC_GAMMA28:
        return TransferCurve::Gamma28;
    case AVCOL_TRC_SMPTE240M:
        return TransferCurve::SMPTE240M;
    case AVCOL_TRC_LINEAR:
        return TransferCurve::Linear;
    case AVCOL_TRC_IEC61966_2_1:
        return TransferCurve::SRGB;
    case AVCOL_TRC_SMPTE2084:
        return TransferCurve::PQ;
    case AVCOL_TRC_SMPTE428:
        return TransferCurve::Gamma26;
    case AVCOL_TRC_ARIB_STD_B67:
        return TransferCurve::HLG;
    default:
        return TransferCurve::Unknown;
    }
}

std::string nameOr(const char* name, const std::string& otherwise) {
    return name ? name : otherwise;
}

std::string systemOf(const MediaInfo& info) {
    const ColourTags& tags = info.colour;
    if (!info.isYCbCr) return isHighDynamicRange(tags) ? "HDR pictures" : "RGB";
    const bool isWide = tags.primaries == AVCOL_PRI_BT2020 || tags.matrix == AVCOL_SPC_BT2020_NCL ||
                        tags.matrix == AVCOL_SPC_BT2020_CL;
    if (tags.transfer == AVCOL_TRC_SMPTE2084) {
        const bool hasMastering =
            std::any_of(info.sideData.begin(), info.sideData.end(), [](const auto& side) {
                return side.type == AV_PKT_DATA_MASTERING_DISPLAY_METADATA;
            });
        return hasMastering ? "HDR10" : "HDR with PQ";
    }
    if (tags.transfer == AVCOL_TRC_ARIB_STD_B67) return "HDR with HLG";
    if (isWide) return "UHD";
    const auto matrix = AVColorSpace(tags.matrix);
    return (isKnownMatrix(matrix) ? matrix : usualMatrix(info.storedSize)) == AVCOL_SPC_BT709
               ? "HD"
               : "SD";
}

namespace pq { // SMPTE ST 2084
constexpr double m1 = 2610.0 / 16384, m2 = 2523.0 / 32;
constexpr double c1 = 3424.0 / 4096, c2 = 2413.0 / 128, c3 = 2392.0 / 128;

double toLight(double value) {
    const double root = std::pow(value, 1 / m2);
    return std::pow(std::max(root - c1, 0.0) / (c2 - c3 * root), 1 / m1);
}
double fromLight(double light) {
    const double power = std::pow(light, m1);
    return std::pow((c1 + c2 * power) / (1 + c3 * power), m2);
}
} // namespace pq

namespace hlg { // ARIB STD-B67
constexpr double a = 0.17883277, b = 1 - 4 * a;
const double c = 0.5 - a * std::log(4 * a);

double toLight(double value) {
    return value <= 0.5 ? value * value / 3 : (std::exp((value - c) / a) + b) / 12;
}
double fromLight(double light) {
    return light <= 1.0 / 12 ? std::sqrt(3 * light) : a * std::log(12 * light - b) + c;
}
} // namespace hlg

/// A power with a straight foot: value = slope * light, or (1 + offset) * light^power - offset.
struct FootedPower {
    double foot, slope, power, offset; ///< the foot ends at that light

    double toLight(double value) const {
        return value < foot * slope ? value / slope
                                    : std::pow((value + offset) / (1 + offset), 1 / power);
    }
    double fromLight(double light) const {
        return light < foot ? light * slope : (1 + offset) * std::pow(light, power) - offset;
    }
};

constexpr FootedPower kSRGB{0.0031308, 12.92, 1 / 2.4, 0.055};
constexpr FootedPower kBT709{0.018053968510807, 4.5, 0.45, 0.09929682680944};
constexpr FootedPower kSMPTE240M{0.022821585529445, 4, 0.45, 0.111572195921731};

double gammaOf(TransferCurve curve) {
    switch (curve) {
    case TransferCurve::Gamma22:
        return 2.2;
    case TransferCurve::Gamma26:
        return 2.6;
    case TransferCurve::Gamma28:
        return 2.8;
    default:
        return 1;
    }
}

const FootedPower* footedPower(TransferCurve curve) {
    if (curve == TransferCurve::SRGB) return &kSRGB;
    if (curve == TransferCurve::BT709) return &kBT709;
    return curve == TransferCurve::SMPTE240M ? &kSMPTE240M : nullptr;
}

} // namespace

bool isHighDynamicRange(const ColourTags& tags) {
    return tags.transfer == AVCOL_TRC_SMPTE2084 || tags.transfer == AVCOL_TRC_ARIB_STD_B67;
}

ColourMeaning meaningOf(const MediaInfo& info) {
    const ColourTags& tags = info.colour;
    ColourMeaning meaning;
    meaning.system = systemOf(info);
    meaning.curve = curveOf(tags.transfer, info.isYCbCr);
    meaning.isHighDynamicRange = isHighDynamicRange(tags);
    const std::string usual = "not tagged, as usual for " + meaning.system;
    const auto tagged = [&](int code, const char* name) {
        return code == 2 ? usual : nameOr(name, "unknown (" + std::to_string(code) + ")");
    };
    meaning.primaries =
        tagged(tags.primaries, av_color_primaries_name(AVColorPrimaries(tags.primaries)));
    meaning.transfer =
        tagged(tags.transfer, av_color_transfer_name(AVColorTransferCharacteristic(tags.transfer)));
    meaning.matrix =
        info.isYCbCr ? tagged(tags.matrix, av_color_space_name(AVColorSpace(tags.matrix))) : "rgb";
    const bool isFull =
        !info.isYCbCr ||
        decideCoding(info.storedSize, av_get_pix_fmt(info.pixelFormat.c_str()), tags).isFullRange;
    meaning.range = isFull ? "full" : "limited";
    return meaning;
}

double toLight(TransferCurve curve, double value) {
    if (curve == TransferCurve::PQ) return pq::toLight(value);
    if (curve == TransferCurve::HLG) return hlg::toLight(value);
    if (const FootedPower* power = footedPower(curve)) return power->toLight(value);
    return std::pow(value, gammaOf(curve));
}

double fromLight(TransferCurve curve, double light) {
    if (curve == TransferCurve::PQ) return pq::fromLight(light);
    if (curve == TransferCurve::HLG) return hlg::fromLight(light);
    if (const FootedPower* power = footedPower(curve)) return power->fromLight(light);
    return std::pow(light, 1 / gammaOf(curve));
}

} // namespace vorn::media
