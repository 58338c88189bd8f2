// Rectangles, points and affine transforms.
#include "KXCore.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// The transform that applies first, then second.
KXAffineTransform Concatenate(const KXAffineTransform& first, const KXAffineTransform& second)
{
    return {second.a * first.a + second.c * first.b,
            second.b * first.a + second.d * first.b,
            second.a * first.c + second.c * first.d,
            second.b * first.c + second.d * first.d,
            second.a * first.tx + second.c * first.ty + second.tx,
            second.b * first.tx + second.d * first.ty + second.ty};
}

KXAffineTransform Translation(float x, float y)
{
    return {1.0f, 0.0f, 0.0f, 1.0f, x, y};
}

KXAffineTransform Scaling(float x, float y)
{
    return {x, 0.0f, 0.0f, y, 0.0f, 0.0f};
}

KXAffineTransform Rotation(float angle)
{
    const float cosine = std::cos(angle);
    const float sine = std::sin(angle);
    return {cosine, sine, -sine, cosine, 0.0f, 0.0f};
}

// The factor that brings size to target; a degenerate size keeps its scale.
float FitFactor(float target, float size)
{
    return size > 0.0f ? target / size : 1.0f;
}

// Float noise of a rotation (cos 90 degrees is not quite 0) must not add a pixel to the bounds.
constexpr double kPixelEpsilon = 1e-4;

} // namespace

KXRect KXRectMake(int32_t x, int32_t y, int32_t width, int32_t height)
{
    return {x, y, width, height};
}

KXPoint KXPointMake(int32_t x, int32_t y)
{
    return {x, y};
}

KXRect KXRectOutset(const KXRect* rect, int32_t amount)
{
    // In 64 bits: an origin stops at the end of the 32-bit range, and a size at what keeps origin + size in it.
    const auto clamp = [](int64_t value, int64_t high) { return int32_t(std::clamp<int64_t>(value, INT32_MIN, high)); };
    const int32_t x = clamp(int64_t(rect->x) - amount, INT32_MAX);
    const int32_t y = clamp(int64_t(rect->y) - amount, INT32_MAX);
    return {x, y, clamp(int64_t(rect->width) + 2 * int64_t(amount), int64_t(INT32_MAX) - x),
            clamp(int64_t(rect->height) + 2 * int64_t(amount), int64_t(INT32_MAX) - y)};
}

KXRect KXRectIntersect(const KXRect* a, const KXRect* b)
{
    const int64_t left = std::max(a->x, b->x);
    const int64_t top = std::max(a->y, b->y);
    const int64_t right = std::min(int64_t(a->x) + a->width, int64_t(b->x) + b->width);
    const int64_t bottom = std::min(int64_t(a->y) + a->height, int64_t(b->y) + b->height);
    if (right <= left || bottom <= top)
        return {0, 0, 0, 0};
    return {int32_t(left), int32_t(top), int32_t(right - left), int32_t(bottom - top)};
}

bool KXPointInRect(KXPoint point, const KXRect* rect)
{
    return point.x >= rect->x && point.y >= rect->y && int64_t(point.x) < int64_t(rect->x) + rect->width &&
           int64_t(point.y) < int64_t(rect->y) + rect->height;
}

KXAffineTransform KXAffineTransformMake(float angle, float scaleX, float scaleY, float centreX, float centreY,
                                        float translateX, float translateY)
{
    KXAffineTransform transform = Translation(-centreX, -centreY);
    transform = Concatenate(transform, Scaling(scaleX, scaleY));
    transform = Concatenate(transform, Rotation(angle));
    return Concatenate(transform, Translation(centreX + translateX, centreY + translateY));
}

KXAffineTransform KXAffineTransformMakeResize(const KXRect* sourceRect, const KXRect* destRect, bool flagA, bool flagB,
                                              int32_t angle, float scaleA, float scaleB, bool flagC)
{
    const float radians = float(angle % 360) * std::numbers::pi_v<float> / 180.0f;
    const float cosine = std::fabs(std::cos(radians));
    const float sine = std::fabs(std::sin(radians));
    // The turned source's bounding box is what must fit the destination.
    const float turnedWidth = cosine * float(sourceRect->width) + sine * float(sourceRect->height);
    const float turnedHeight = sine * float(sourceRect->width) + cosine * float(sourceRect->height);
    float scaleX = FitFactor(float(destRect->width), turnedWidth);
    float scaleY = FitFactor(float(destRect->height), turnedHeight);
    if (flagA)
        scaleX = scaleY = flagB ? std::max(scaleX, scaleY) : std::min(scaleX, scaleY);

    KXAffineTransform transform = Translation(-(float(sourceRect->x) + 0.5f * float(sourceRect->width)),
                                              -(float(sourceRect->y) + 0.5f * float(sourceRect->height)));
    if (flagC)
        transform = Concatenate(transform, Scaling(-1.0f, 1.0f));
    transform = Concatenate(transform, Rotation(radians));
    transform = Concatenate(transform, Scaling(scaleX * scaleA, scaleY * scaleB));
    return Concatenate(transform, Translation(float(destRect->x) + 0.5f * float(destRect->width),
                                              float(destRect->y) + 0.5f * float(destRect->height)));
}

KXAffineTransform KXAffineTransformInvert(const KXAffineTransform* transform)
{
    // Double keeps a round trip through the inverse close to the identity.
    const double determinant = double(transform->a) * transform->d - double(transform->b) * transform->c;
    if (determinant == 0.0)
        return {1.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f};
    const double a = transform->d / determinant;
    const double b = -transform->b / determinant;
    const double c = -transform->c / determinant;
    const double d = transform->a / determinant;
    return {float(a),
            float(b),
            float(c),
            float(d),
            float(-(a * transform->tx + c * transform->ty)),
            float(-(b * transform->tx + d * transform->ty))};
}

KXRect KXAffineTransformTransformRect(const KXRect* rect, const KXAffineTransform* transform)
{
    if (rect->width <= 0 || rect->height <= 0)
        return {0, 0, 0, 0};
    double left = INFINITY, top = INFINITY, right = -INFINITY, bottom = -INFINITY;
    for (const double x : {double(rect->x), double(rect->x) + rect->width}) {
        for (const double y : {double(rect->y), double(rect->y) + rect->height}) {
            const double mappedX = transform->a * x + transform->c * y + transform->tx;
            const double mappedY = transform->b * x + transform->d * y + transform->ty;
            left = std::min(left, mappedX);
            right = std::max(right, mappedX);
            top = std::min(top, mappedY);
            bottom = std::max(bottom, mappedY);
        }
    }
    const double x = std::floor(left + kPixelEpsilon);
    const double y = std::floor(top + kPixelEpsilon);
    return {int32_t(x), int32_t(y), int32_t(std::ceil(right - kPixelEpsilon) - x),
            int32_t(std::ceil(bottom - kPixelEpsilon) - y)};
}
