// Points, rectangles and affine transforms. The origin is at the bottom left, y points up,
// the unit is the pixel, and pixel centres lie at halves.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include <algorithm>
#include <cmath>
#include <limits>

struct CGPoint {
    double x = 0, y = 0;
};

struct CGSize {
    double width = 0, height = 0;
};

/// A rectangle with its lower-left corner at (x, y). A rectangle whose width or height is not
/// positive (or not a number) is empty. The infinite rectangle is `CGRect::infinite()`.
struct CGRect {
    double x = 0, y = 0, width = 0, height = 0;

    static constexpr CGRect infinite() {
        constexpr double inf = std::numeric_limits<double>::infinity();
        return {-inf, -inf, inf, inf};
    }

    double maxX() const { return std::isinf(width) ? width : x + width; }
    double maxY() const { return std::isinf(height) ? height : y + height; }
    bool isEmpty() const { return !(width > 0 && height > 0); }
    bool isInfinite() const { return std::isinf(width) || std::isinf(height); }
    bool isFinite() const {
        return std::isfinite(x) && std::isfinite(y) && std::isfinite(width) &&
               std::isfinite(height);
    }

    /// The rectangle grown (positive) or shrunk (negative) by a margin on every side.
    CGRect grownBy(double margin) const {
        if (isInfinite()) return *this;
        return {x - margin, y - margin, width + 2 * margin, height + 2 * margin};
    }

    /// The part that both rectangles share; the zero rectangle when there is none.
    CGRect intersection(const CGRect& other) const {
        // Not-a-number fails a comparison; min and max would pass over it.
        if (!(other.maxX() > other.x && other.maxY() > other.y)) return {};
        const double left = std::max(x, other.x), bottom = std::max(y, other.y);
        const double right = std::min(maxX(), other.maxX()), top = std::min(maxY(), other.maxY());
        if (!(right > left && top > bottom)) return {};
        return {left, bottom, std::isinf(right) ? right : right - left,
                std::isinf(top) ? top : top - bottom};
    }

    /// The smallest rectangle that holds both; an empty one does not count.
    CGRect unionWith(const CGRect& other) const {
        if (isEmpty()) return other;
        if (other.isEmpty()) return *this;
        const double left = std::min(x, other.x), bottom = std::min(y, other.y);
        const double right = std::max(maxX(), other.maxX()), top = std::max(maxY(), other.maxY());
        return {left, bottom, std::isinf(right) ? right : right - left,
                std::isinf(top) ? top : top - bottom};
    }

    /// The smallest rectangle with whole-numbered edges that holds this one.
    CGRect integral() const {
        if (isEmpty()) return {};
        if (!isFinite()) return *this;
        const double left = std::floor(x), bottom = std::floor(y);
        return {left, bottom, std::ceil(x + width) - left, std::ceil(y + height) - bottom};
    }

    bool contains(const CGRect& other) const {
        return other.isEmpty() ||
               (x <= other.x && y <= other.y && maxX() >= other.maxX() && maxY() >= other.maxY());
    }

    bool operator==(const CGRect&) const = default;
};

/// x' = a x + c y + tx, y' = b x + d y + ty.
struct CGAffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    bool operator==(const CGAffineTransform&) const = default;
    bool isIdentity() const { return *this == CGAffineTransform{}; }
    bool isFinite() const {
        return std::isfinite(a) && std::isfinite(b) && std::isfinite(c) && std::isfinite(d) &&
               std::isfinite(tx) && std::isfinite(ty);
    }
    double determinant() const { return a * d - b * c; }

    CGPoint apply(CGPoint p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }

    /// The box around the image of a rectangle. An infinite rectangle stays infinite.
    CGRect boundsOf(const CGRect& rect) const {
        if (rect.isEmpty()) return {};
        if (!rect.isFinite()) return CGRect::infinite();
        const CGPoint corners[] = {apply({rect.x, rect.y}), apply({rect.maxX(), rect.y}),
                                   apply({rect.x, rect.maxY()}), apply({rect.maxX(), rect.maxY()})};
        double left = corners[0].x, right = left, bottom = corners[0].y, top = bottom;
        for (const CGPoint& p : corners) {
            left = std::min(left, p.x), right = std::max(right, p.x);
            bottom = std::min(bottom, p.y), top = std::max(top, p.y);
        }
        return {left, bottom, right - left, top - bottom};
    }

    /// This transform first, then `next`.
    CGAffineTransform then(const CGAffineTransform& next) const {
        const CGPoint origin = next.apply({tx, ty});
        return {next.a * a + next.c * b,
                next.b * a + next.d * b,
                next.a * c + next.c * d,
                next.b * c + next.d * d,
                origin.x,
                origin.y};
    }

    /// The inverse; the determinant must not be zero.
    CGAffineTransform inverted() const {
        const double k = 1 / determinant();
        return {d * k, -b * k, -c * k, a * k, (c * ty - d * tx) * k, (b * tx - a * ty) * k};
    }
};

#endif // VORN_HAS_LANGUAGE
