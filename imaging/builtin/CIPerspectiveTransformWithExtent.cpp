// Perspective: the part of the image inside a rectangle, drawn into a quadrilateral, the
// rectangle's corners exactly on those of the quadrilateral; read with bilinear interpolation. The
// extent is the box around the quadrilateral.
//
// The projective map is that of P. Heckbert, "Fundamentals of Texture Mapping and Image Warping",
// 1989, section 2.2.3. A quadrilateral that is a parallelogram makes it affine, and then the filter
// is one more transform in a chain of them.
#include "imaging/builtin/Builtin.h"

#include <array>

namespace {

using Row = std::array<double, 3>;
using Matrix = std::array<Row, 3>; // by rows, for column vectors (x, y, 1)

/// The unit square onto a quadrilateral: (0, 0), (1, 0), (1, 1), (0, 1) in order.
Matrix quadrilateral(const std::array<CGPoint, 4>& p) {
    const double sx = p[0].x - p[1].x + p[2].x - p[3].x, sy = p[0].y - p[1].y + p[2].y - p[3].y;
    const double dx1 = p[1].x - p[2].x, dx2 = p[3].x - p[2].x;
    const double dy1 = p[1].y - p[2].y, dy2 = p[3].y - p[2].y;
    const double determinant = dx1 * dy2 - dx2 * dy1;
    const double g = (sx * dy2 - dx2 * sy) / determinant;
    const double h = (dx1 * sy - sx * dy1) / determinant;
    return {{{p[1].x - p[0].x + g * p[1].x, p[3].x - p[0].x + h * p[3].x, p[0].x},
             {p[1].y - p[0].y + g * p[1].y, p[3].y - p[0].y + h * p[3].y, p[0].y},
             {g, h, 1}}};
}

/// The inverse up to a factor.
Matrix adjugate(const Matrix& m) {
    Matrix r;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j) {
            const size_t a = (i + 1) % 3, b = (i + 2) % 3, c = (j + 1) % 3, d = (j + 2) % 3;
            r[j][i] = m[a][c] * m[b][d] - m[a][d] * m[b][c];
        }
    return r;
}

} // namespace

class CIPerspectiveTransformWithExtent : public CIFilter {
public:
    static Attributes customAttributes() {
        return {withDefault("inputExtent", "extent", CIVector(0, 0, 300, 300)),
                position("inputTopLeft", "top left", CIVector(0, 300)),
                position("inputTopRight", "top right", CIVector(300, 300)),
                position("inputBottomRight", "bottom right", CIVector(300, 0)),
                position("inputBottomLeft", "bottom left", CIVector(0, 0))};
    }

    static FilterGuide guide() {
        return {
            .title = "Perspective",
            .sentence = "Draws a rectangle of the picture into any quadrilateral.",
            .tags = {"transform", "perspective"},
        };
    }

    CIImage outputImage() override {
        if (!inputImage) return {};
        const CGRect part{inputExtent.X(), inputExtent.Y(), inputExtent.Z(), inputExtent.W()};
        if (!part.isFinite() || part.isEmpty())
            return refuse(*this, "the extent is empty or not finite");
        std::array<CGPoint, 4> corners;
        size_t count = 0;
        for (const CIVector& corner :
             {inputBottomLeft, inputBottomRight, inputTopRight, inputTopLeft}) {
            if (!isFinite(corner)) return refuse(*this, "a corner is not finite");
            corners[count++] = {corner.X(), corner.Y()};
        }
        if (inputImage.extent().isEmpty()) return inputImage;

        // Around the middle of the corners, where single precision has digits to spare.
        CGPoint center;
        for (const CGPoint& p : corners) center.x += p.x / 4, center.y += p.y / 4;
        for (CGPoint& p : corners) p.x -= center.x, p.y -= center.y;
        const Matrix map = quadrilateral(corners);
        const double g = map[2][0], h = map[2][1];
        const double area = (corners[2].x - corners[0].x) * (corners[3].y - corners[1].y) -
                            (corners[3].x - corners[1].x) * (corners[2].y - corners[0].y);
        // Written so that not-a-number, of three corners in a line, fails too.
        if (!(std::fabs(area) > 1e-9 && 1 + g > 0 && 1 + h > 0 && 1 + g + h > 0))
            return refuse(*this, "the corners are not those of a convex quadrilateral");
        const CIImage image =
            inputImage.extent() == part ? inputImage : inputImage.imageByCroppingToRect(part);
        return g == 0 && h == 0 ? affine(image, part, map, center)
                                : projective(image, part, map, center, corners);
    }

    CIImage inputImage;
    CIVector inputExtent{0, 0, 300, 300}; ///< x, y, width, height of the part that is shown
    CIVector inputTopLeft{0, 300}, inputTopRight{300, 300}, inputBottomRight{300, 0},
        inputBottomLeft{0, 0};
    VORN_FILTER(CIPerspectiveTransformWithExtent, inputImage, inputExtent, inputTopLeft,
                inputTopRight, inputBottomRight, inputBottomLeft)

private:
    CIImage affine(const CIImage& image, CGRect part, const Matrix& map, CGPoint center) {
        const double w = 1 / part.width, h = 1 / part.height;
        CGAffineTransform transform{
            map[0][0] * w, map[1][0] * w, map[0][1] * h, map[1][1] * h, 0, 0};
        const CGPoint origin = transform.apply({part.x, part.y});
        transform.tx = map[0][2] + center.x - origin.x;
        transform.ty = map[1][2] + center.y - origin.y;
        const CIImage moved = image.imageByApplyingTransform(transform);
        if (!moved) return refuse(*this, "the corners are too close together");
        return moved == image ? moved : outputOf(*this, makeInPool<Node>(*moved.node()));
    }

    CIImage projective(const CIImage& image, CGRect part, const Matrix& map, CGPoint center,
                       const std::array<CGPoint, 4>& corners) {
        // From the quadrilateral to the rectangle, measured from the rectangle's centre.
        Matrix inverse = adjugate(map);
        for (size_t i = 0; i < 3; ++i) {
            inverse[0][i] = (inverse[0][i] - 0.5 * inverse[2][i]) * part.width;
            inverse[1][i] = (inverse[1][i] - 0.5 * inverse[2][i]) * part.height;
        }
        // The divisor is 1 at the lower left corner, and so above 0 in all of the quadrilateral.
        const double divisor =
            inverse[2][0] * corners[0].x + inverse[2][1] * corners[0].y + inverse[2][2];
        CGRect extent{corners[0].x, corners[0].y, 0, 0};
        for (const CGPoint& p : corners) {
            extent.width = std::max(extent.maxX(), p.x),
            extent.height = std::max(extent.maxY(), p.y);
            extent.x = std::min(extent.x, p.x), extent.y = std::min(extent.y, p.y);
            extent.width -= extent.x, extent.height -= extent.y;
        }
        extent.x += center.x, extent.y += center.y;
        const auto row = [&](size_t i) {
            return CIVector(inverse[i][0] / divisor, inverse[i][1] / divisor,
                            inverse[i][2] / divisor);
        };
        const auto kernel = frameworkKernel("CI_perspective", "CIResampleKernel");
        if (!kernel) return {};
        return outputOf(
            *this, makeKernelNode(kernel, extent, RegionOfInterest::whole(image), image,
                                  {row(0), row(1), row(2), CIVector(center.x, center.y),
                                   CIVector(part.x + part.width / 2, part.y + part.height / 2)}));
    }
};
VORN_BUILTIN(CIPerspectiveTransformWithExtent)
