// The ends a frame can come to: a film, picture files, headerless bytes, or nothing at all.
// Internal.
#pragma once

#include "target.h"
#include "writer.h"

namespace vorn::media {

/// Takes upright frames. All functions throw std::runtime_error or WriteError.
class Sink {
public:
    virtual ~Sink() = default;
    virtual void write(const Frame& frame) = 0;
    virtual void finish(Ending ending) = 0;
    virtual OutputInfo describe() const = 0;
};

std::unique_ptr<Sink> openFilm(const std::string& path, const Target& target,
                               const WriterOptions& options, Warnings& warnings);
std::unique_ptr<Sink> openPictures(const std::string& path, const Target& target,
                                   const WriterOptions& options, Warnings& warnings);
std::unique_ptr<Sink> openRaw(const std::string& path, const Target& target,
                              const WriterOptions& options);
/// Takes frames without writing them, for measuring what comes before.
std::unique_ptr<Sink> openNothing(const WriterOptions& options);

} // namespace vorn::media
