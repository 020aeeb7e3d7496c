// What the guides of all transitions say alike.
#pragma once

#include "core/FilterSupport.h"

namespace vorn::filters {

inline std::vector<InputGuide> transitionGuides(std::vector<InputGuide> others = {}) {
    others.push_back({.key = "inputImage", .label = "from", .purpose = "the outgoing picture"});
    others.push_back({.key = "inputTargetImage", .label = "to", .purpose = "the incoming picture"});
    others.push_back({.key = "inputFadeStatus",
                      .purpose = "how far the transition has come, from 0 to 1",
                      .feed = InputFeed::Time});
    return others;
}

/// What a transition's kernel reads: the own pixels, also of an incoming picture that covers the
/// frame. Of another one it reads the border too.
inline RegionOfInterest transitionReads(const CIImage& incoming, CGRect frame) {
    const RegionOfInterest rule = RegionOfInterest::identity();
    return incoming.extent().intersection(frame) == frame ? rule.exact() : rule;
}

/// The incoming picture of a transition that moves pictures. One without end cannot be held in
/// memory, so only what the frame has of it is moved.
inline CIImage movable(const CIImage& incoming, CGRect frame) {
    return incoming.extent().isFinite() ? incoming : incoming.imageByCroppingToRect(frame);
}

/// A transition that moves whole pictures, as far as the state says.
inline CIImage movedBetween(const CIKernel& kernel, const CIImage& outgoing,
                            const CIImage& incoming, const Number& state) {
    const CISampler source(outgoing), target(movable(incoming, source.extent()));
    return kernel.applyWithExtent(source.extent(), RegionOfInterest::identity(),
                                  {source, target, state});
}

} // namespace vorn::filters
