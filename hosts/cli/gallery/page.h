// The gallery: what every filter looks like, as pictures and as one page that shows them.
#pragma once

#include "catalogue/catalog.h"

#include <string>
#include <vector>

namespace vorn::hosts::cli {

/// A picture of the page; `file` is its name from the page's folder.
struct GalleryPicture {
    std::string file, caption, description;
};

struct GalleryRow {
    std::string title;
    std::vector<GalleryPicture> pictures;
};

struct GalleryFilter {
    FilterEntry entry;
    std::vector<ListedInput> inputs;
    std::vector<std::string> traits; ///< what was seen of it: "moves", "transition", …
    GalleryPicture lead;
    std::string animation; ///< a file that shows `lead` in motion; empty: it stands still
    bool flashes = false;
    std::vector<GalleryRow> rows;
};

/// A chain that comes with vorn.
struct GalleryPreset {
    std::string id, name, description;
    std::vector<std::string> filters; ///< their titles
    GalleryPicture lead;
    std::string animation;
    bool flashes = false;
};

struct GalleryPage {
    GalleryPicture source, target;
    std::vector<GalleryPreset> presets; ///< may be empty
    std::vector<GalleryFilter> filters;
};

/// What every page has, to be known by.
constexpr const char* kGalleryMark = "<title>VornEffects: gallery</title>";

/// The size of every picture, in pixels.
constexpr int kGalleryWidth = 320, kGalleryHeight = 180;

/// The page as HTML that refers to nothing but the pictures.
std::string galleryHtml(const GalleryPage& page);

} // namespace vorn::hosts::cli
