// Filters as people find them: with every number set, advertised or not.
#pragma once

#include "vorneffects/VornEffects.h"

using namespace vorn;

/// Sets what is advertised to its defaults, and other numbers as the guide begins.
inline void setStarts(CIFilter& filter) {
    filter.setDefaults();
    const FilterGuide& guide = filter.filterClass().guide();
    const Attributes advertised = filter.filterClass().customAttributes();
    const auto set = [&](const std::string& key, double value) {
        for (const InputAttributes& input : advertised)
            if (input.key == key) return;
        filter.setValueForKey(Number(value), key);
    };
    for (const InputGuide& input : guide.inputs)
        if (const double* start = std::get_if<double>(&input.start)) set(input.key, *start);
    for (const auto& [key, value] : guide.beginWith) set(key, value);
}

/// The frame, and another picture for each input that takes one.
inline void setPictures(CIFilter& filter, const CIImage& frame, const CIImage& other) {
    const std::string& frameKey = filter.filterClass().guide().frameKey;
    for (const InputInfo& input : filter.filterClass().inputs())
        if (input.kind == InputKind::Image)
            filter.setValueForKey(input.key == frameKey ? frame : other, input.key);
}
/// A filter that draws lots gives another picture each time that it is made. It needs a session of
/// its own, whose numbers begin anew, to be compared; the others need none.
inline std::shared_ptr<Session> sessionForChance(std::string_view filter) {
    if (filter != "VE_CRT") return nullptr;
    const auto session = Session::make({.device = DeviceKind::CPU});
    session->driveClock(Session::standard()->clock());
    return session;
}
