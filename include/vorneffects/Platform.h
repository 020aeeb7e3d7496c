// What the operating system gives to effects: a clock that a host may drive, resource bundles,
// property lists, pixel buffers and surfaces, and bitmap drawing with text.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "Geometry.h"
#include "Values.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vorn {

// ---- Messages ---------------------------------------------------------------------------------

/// `Notice`: nothing is wrong. `Warning`: a value was refused, or a frame is missing. `Error`: a
/// part of the installation cannot be used.
enum class Severity : uint8_t { Notice, Warning, Error };

/// Takes a line of the library's, without a newline; the text lives as long as the call. Called
/// from any thread that makes filters or renders, one call at a time in a session. What it throws
/// is swallowed, and lines that it causes itself are dropped.
using MessageSink = std::function<void(Severity, std::string_view line)>;

// ---- Clock ------------------------------------------------------------------------------------

/// The monotonic clock, in nanoseconds, of the session that is current on the calling thread: the
/// process's unless a host makes sessions. It runs on the system's clock until a host takes it over
/// with `drive`; from then on it stands still between calls, so that everything that reads it runs
/// on the host's media time. Safe from any thread.
struct VORN_EXPORT PlatformClock {
    /// Ticks of the clock (`mach_absolute_time`).
    static uint64_t ticks();
    /// Nanoseconds = ticks * numerator / denominator.
    struct Timebase {
        uint32_t numerator = 1, denominator = 1;
    };
    static Timebase timebase();
    /// Takes the clock over and sets it to a time in nanoseconds (it may be set back).
    static void drive(uint64_t nanoseconds);
    /// Gives the clock back to the system.
    static void release();
    static bool isDriven();
};

// ---- Classes and bundles ----------------------------------------------------------------------

struct FilterClassInfo;

/// A class known by name. `address` is any address inside the binary that holds the class: its
/// bundle lies beside that binary. `filter` is null for classes that are not filters.
struct ClassInfo {
    const char* name;
    const void* address;
    const FilterClassInfo* filter = nullptr;
};

} // namespace vorn

using Class = const vorn::ClassInfo*;

namespace vorn {

/// Makes a class known by name; a second class of the same name replaces the first.
VORN_EXPORT void registerClass(Class info);
/// The class of that name, or null.
VORN_EXPORT Class classFromString(std::string_view name);

/// The folder of resources that belongs to a binary: the folder "VornEffects" beside it, both in
/// the build tree and when installed.
class VORN_EXPORT Bundle {
public:
    /// The bundle of the binary that a class lies in (null class: an empty bundle). Where that is
    /// was found when the binary registered its first class.
    static Bundle forClass(Class owner);
    explicit Bundle(std::string folder) : folder_(std::move(folder)) {}

    /// Path of the resource "name.extension", or nothing when there is no such regular file.
    std::optional<std::string> pathForResource(std::string_view name,
                                               std::string_view extension) const;
    const std::string& folder() const { return folder_; }

private:
    std::string folder_;
};

/// The whole file, or null when it cannot be read; `errno` tells why.
VORN_EXPORT Data dataWithContentsOfFile(const std::string& path);

// ---- Property lists ---------------------------------------------------------------------------

/// A property-list value (XML or binary property lists, read with libplist).
struct PropertyList;
using PropertyListArray = std::vector<PropertyList>;
using PropertyListDictionary = std::map<std::string, PropertyList, std::less<>>;
struct PropertyList {
    std::variant<std::monostate, bool, int64_t, double, std::string, Data, PropertyListArray,
                 PropertyListDictionary>
        value;

    const std::string* string() const { return std::get_if<std::string>(&value); }
    const PropertyListArray* array() const { return std::get_if<PropertyListArray>(&value); }
    const PropertyListDictionary* dictionary() const {
        return std::get_if<PropertyListDictionary>(&value);
    }
};

/// Reads a property-list file whose root is a dictionary; nothing when it cannot be read, is no
/// property list, or has another root.
VORN_EXPORT std::optional<PropertyListDictionary>
dictionaryWithContentsOfFile(const std::string& path);

// ---- Pixel buffers and surfaces ---------------------------------------------------------------

} // namespace vorn

/// Pixel formats of bitmaps, buffers and render targets. Names give the order of bytes in memory;
/// the colour is premultiplied by the alpha. `RGBAh` has 16-bit and `RGBAf` 32-bit floats.
enum class CIFormat : uint8_t { RGBA8, BGRA8, ARGB8, RGBAh, RGBAf };
inline constexpr CIFormat kCIFormatRGBA8 = CIFormat::RGBA8, kCIFormatBGRA8 = CIFormat::BGRA8,
                          kCIFormatARGB8 = CIFormat::ARGB8, kCIFormatRGBAh = CIFormat::RGBAh,
                          kCIFormatRGBAf = CIFormat::RGBAf;

namespace vorn {

constexpr size_t bytesPerPixel(CIFormat format) {
    return format == CIFormat::RGBAf ? 16 : format == CIFormat::RGBAh ? 8 : 4;
}
VORN_EXPORT const char* formatName(CIFormat format); // "RGBA8", "BGRA8", "ARGB8", "RGBAh", "RGBAf"

/// Status codes of pixel-buffer and surface creation.
inline constexpr int32_t kStatusSuccess = 0;
inline constexpr int32_t kStatusAllocationFailed = -6662;
inline constexpr int32_t kStatusInvalidSize = -6661;
inline constexpr int32_t kStatusInvalidPixelFormat = -6680;
inline constexpr int32_t kStatusLocked = -6672;

/// The most pixels that a picture may have which the library makes memory for: surfaces, pixel
/// buffers, accumulators, and files that are decoded. 2^28 until a host sets it. Safe from any
/// thread.
VORN_EXPORT uint64_t pixelLimit();
VORN_EXPORT void setPixelLimit(uint64_t pixels);

/// Pixels that a device keeps in memory of its own.
class VORN_EXPORT DevicePixels {
public:
    virtual ~DevicePixels() = default;
    /// The pixels in the host's memory, fetched when that is first asked for; null when they cannot
    /// be had.
    virtual const uint8_t* hostBytes() = 0;
};

/// Memory for pixels, top row first, owned and shared by reference counting. Rows start at
/// multiples of 64 bytes unless a stride is asked for. The memory may be touched only between
/// `lock` and `unlock` (locks nest and count; a read-only lock must be unlocked as such).
class VORN_EXPORT PixelMemory : public DevicePixels {
public:
    PixelMemory(const PixelMemory&) = delete;
    PixelMemory& operator=(const PixelMemory&) = delete;
    ~PixelMemory() override;

    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    size_t bytesPerRow() const { return bytesPerRow_; }
    CIFormat format() const { return format_; }

    enum class Access { ReadOnly, ReadWrite };
    /// kStatusSuccess, kStatusLocked when a read-write lock is asked for while read-only ones are
    /// held, or kStatusAllocationFailed when a GPU has the pixels and there is no memory for them.
    int32_t lock(Access access = Access::ReadWrite);
    /// kStatusSuccess, or kStatusLocked when there is no such lock to release.
    int32_t unlock(Access access = Access::ReadWrite);
    /// The first byte of the top row while locked, null otherwise.
    void* baseAddress() const;
    bool isLocked() const;

    /// The memory for the image framework itself, which follows the render order and not locks.
    const uint8_t* bytes() const;
    uint8_t* mutableBytes();
    const uint8_t* hostBytes() override { return bytes(); }

    /// What the memory holds is on a device from now on, rows without padding, until somebody
    /// writes to it. It is fetched when somebody reads it here.
    void keepOnDevice(std::shared_ptr<DevicePixels> pixels);
    /// Those pixels; null when the memory has been written to since.
    std::shared_ptr<DevicePixels> onDevice() const;

protected:
    PixelMemory(uint32_t width, uint32_t height, CIFormat format, size_t bytesPerRow,
                uint8_t* bytes);

private:
    uint32_t width_, height_;
    CIFormat format_;
    size_t bytesPerRow_;
    uint8_t* bytes_;
    void fetch() const;
    struct State;
    std::unique_ptr<State> state_;
};

/// A pixel buffer (`CVPixelBuffer`), filled with zeros when made.
class VORN_EXPORT PixelBuffer final : public PixelMemory {
public:
    /// Null with a status when the size is zero, above `pixelLimit` or too large to allocate, or
    /// the format is none.
    static std::shared_ptr<PixelBuffer> create(uint32_t width, uint32_t height, CIFormat format,
                                               int32_t* status = nullptr);

private:
    using PixelMemory::PixelMemory;
};

/// Properties of a surface, as the effects state them.
struct SurfaceProperties {
    uint32_t width = 0, height = 0;
    uint32_t bytesPerElement = 4;
    size_t bytesPerRow = 0;            ///< 0: chosen by the platform
    size_t allocSize = 0;              ///< 0: chosen by the platform
    uint32_t pixelFormat = 0x42475241; ///< four-character code; 'BGRA'
};

/// A surface (`IOSurface`) that rendering fills and images show, filled with zeros when made.
class VORN_EXPORT Surface final : public PixelMemory {
public:
    /// Null when a property makes no sense (zero size, stride below the row, unknown format, more
    /// pixels than `pixelLimit` or more memory than there is).
    static std::shared_ptr<Surface> create(const SurfaceProperties& properties);

private:
    using PixelMemory::PixelMemory;
};

// ---- Bitmap drawing ---------------------------------------------------------------------------

enum class CGBlendMode { Normal, Copy };

/// A decoded picture, premultiplied RGBA, 8 bits each, top row first.
struct CGImage {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> pixels; ///< width * 4 bytes a row
};

/// Decodes a PNG file's bytes; nothing when they are no PNG, one of more pixels than `pixelLimit`,
/// or more than there is memory for.
VORN_EXPORT std::optional<CGImage> decodePNG(const Data& data);

/// The text a C string's bytes give when they are read as Mac Roman, as UTF-8. Bytes 0 to 127 are
/// ASCII; the upper half follows Apple's published table (ROMAN.TXT).
VORN_EXPORT std::string stringFromMacRoman(std::string_view bytes);

/// The name of the system's user-interface font.
VORN_EXPORT std::string systemFontName();

/// A drawing context on caller-supplied memory (8 bits each, premultiplied, any of the three 8-bit
/// formats). The origin is at the bottom left and y points up. Drawn with Cairo, text with Pango.
/// A font that is missing is replaced by a similar one: a monospaced one for "Menlo" and "Monaco",
/// a sans-serif one otherwise.
class VORN_EXPORT BitmapContext {
public:
    /// Null when the format is not an 8-bit one, the size is zero or above 32767, or the stride is
    /// below the row or beyond any memory.
    static std::shared_ptr<BitmapContext> create(void* bytes, uint32_t width, uint32_t height,
                                                 size_t bytesPerRow, CIFormat format,
                                                 CGColorSpace colorSpace);
    virtual ~BitmapContext() = default;

    virtual uint32_t width() const = 0;
    virtual uint32_t height() const = 0;
    virtual void setBlendMode(CGBlendMode mode) = 0;
    /// Straight components, 0 to 1.
    virtual void setFillColor(double red, double green, double blue, double alpha) = 0;
    virtual void fillRect(CGRect rect) = 0;
    /// Makes a rectangle transparent.
    virtual void clearRect(CGRect rect) = 0;
    virtual void drawImage(CGRect rect, const CGImage& image) = 0;
    /// Draws one line of UTF-8 text in the fill colour, its baseline starting at `position`; the
    /// size is in pixels per em. Returns the line's advance width in pixels.
    virtual double drawText(CGPoint position, std::string_view utf8, std::string_view fontName,
                            double size) = 0;
    /// The advance width that `drawText` would return, without drawing.
    virtual double textWidth(std::string_view utf8, std::string_view fontName, double size) = 0;
    /// Writes what was drawn to the memory; nothing is certain to be there before.
    virtual void flush() = 0;
};

} // namespace vorn

using CVPixelBufferRef = std::shared_ptr<vorn::PixelBuffer>;
using IOSurfaceRef = std::shared_ptr<vorn::Surface>;
using CGContextRef = std::shared_ptr<vorn::BitmapContext>;

#endif // VORN_HAS_LANGUAGE
