// What people need to know of a filter: its names, what it does, what its inputs and modes mean and
// what a host has to feed it with. A filter class tells it in `static FilterGuide guide()`; hosts
// read it, completed, by `FilterClassInfo::guide`.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "Values.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vorn {

/// What a host gives an input.
enum class InputFeed : uint8_t {
    Setting,   ///< a value that somebody chooses
    Picture,   ///< the frame or a further picture
    Time,      ///< a number that runs with the time, such as how far a transition has come
    Data,      ///< bytes or a text
    Tracking,  ///< numbers that a tracker finds in the frame
    MediaTime, ///< the time of the frame, in nanoseconds, for as long as nobody chooses another
};
/// "setting", "picture", ...
VORN_EXPORT const char* inputFeedName(InputFeed feed);

/// One input. A filter tells what its attributes leave out; what it leaves out itself comes from
/// them: the label from the display name or else from the key, the range from the slider, the start
/// from the default. The range of the input that chooses the mode is that of the modes.
struct InputGuide {
    std::string key{};
    std::string label{};
    std::string purpose{}; ///< what it does, a phrase without a full stop; may be empty
    std::optional<double> from{}, to{};
    /// What to begin with; unset for pictures and for data, which have no such thing.
    std::variant<std::monostate, double, std::string, CIVector, CIColor> start{};
    std::string unit{}; ///< "pixels", "seconds"; empty for a bare number
    InputFeed feed = InputFeed::Setting;
    bool isDead = false; ///< advertised, but never read
};

/// A mode: its name in plain words and the value of the input that chooses it.
struct ModeGuide {
    ModeGuide(const char* modeName) : name(modeName) {}
    ModeGuide(const char* modeName, double modeValue) : name(modeName), value(modeValue) {}

    std::string name;
    double value = std::nan(""); ///< a filter that leaves it out means the place in its list
};

/// A number for an input.
using Setting = std::pair<std::string, double>;

struct FilterGuide {
    std::string title{};    ///< "Soft circle"
    std::string sentence{}; ///< what somebody sees, with a full stop
    std::vector<std::string> tags{};
    std::string frameKey = "inputImage"; ///< the input that takes the frame
    /// Told by a filter: those with something to add. Read by a host: all, in the order of the
    /// class, and behind them those that are only advertised.
    std::vector<InputGuide> inputs{};
    std::string modeKey = "inputMode"; ///< the input that chooses among `modes`
    std::vector<ModeGuide> modes{};    ///< in the order of their values; empty: there are none
    bool movesByItself = false;        ///< the picture changes though no input does
    bool keepsState = false;  ///< what comes out depends on what was there before this frame
    int framesRemembered = 0; ///< how many earlier pictures it holds
    bool canFlash = false;    ///< whole pictures may flash, quicker than is safe for everybody
    bool needsTransparency = false; ///< nothing to see in a frame that is opaque everywhere
    /// Settings that show what it does; there wherever the defaults change nothing.
    std::vector<Setting> beginWith{};

    // Not told by filters: known from how and where the class is written.
    std::string family{};        ///< the folder of its source: "color"
    std::string familyTitle{};   ///< the same in plain words
    bool takesFrameTime = false; ///< it goes by the time that a host pushes
};

struct FilterClassInfo;

/// What is wrong with how a class is declared, one line each: attributes and guide that do not fit
/// its inputs, and what the guide leaves out. Empty when nothing is and, with a line, where memory
/// runs out.
VORN_EXPORT std::vector<std::string> guideProblems(const FilterClassInfo& info);

namespace detail {

/// A folder's name, cut out of a path at compile time, so that no binary holds the path.
struct FolderName {
    char text[32] = {};
};
consteval FolderName folderOf(const char* path) {
    const char *name = path, *end = path;
    for (const char* c = path; *c; ++c)
        if (*c == '/') {
            if (end != path) name = end + 1;
            end = c;
        }
    FolderName folder;
    for (int i = 0; name + i < end && i < 31; ++i) folder.text[i] = name[i];
    return folder;
}

/// A guide as hosts read it. Throws where memory runs out, to `guideOf`.
VORN_EXPORT FilterGuide completed(FilterGuide told, const FilterClassInfo& info);

} // namespace detail

} // namespace vorn

#endif // VORN_HAS_LANGUAGE
