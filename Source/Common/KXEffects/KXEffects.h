/* KXEffects: photo effects over KXCore images.
   Every effect takes source, destination, the rectangle to work on, then its settings, and returns a
   status: kKXNoErr or one of the kKXErr codes below, or a non-zero status of the core passed on as it came.
   Source and destination have the same size, planes and depth and may be the same image. Samples are
   8-bit (white 255), 16-bit (white 65535) or 32-bit float (white 1.0, not clamped unless stated).
   Unless an entry point is documented as catching, failures below it leave the library as a thrown
   int32_t status: call the effects inside a handler for int32_t. */
#ifndef KXEFFECTS_H
#define KXEFFECTS_H

#include "KXCore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status codes ---- */
enum {
    kKXNoErr = 0,
    kKXErrOutOfMemory = -108,
    kKXErrUnexpected = 1001,
    kKXErrNoResource = 1002,
    kKXErrBadInput = 1003,
    kKXErrBadImageFormat = 1004,
    kKXErrBadParam = 1005,
    kKXErrNoOpenCL = 1018,
    kKXErrUnsupported = 1020
};

/* An entry point as a plain pointer, for KXEffectsGetOutset. */
typedef void (*KXEffectProc)(void);

/* ---- Frame ---- */

/* Returns 0; lets a host check that the library loads. */
KX_EXPORT int32_t KXEffectsTest(void);
/* Colour planes become white minus the sample (float is not clamped); alpha is copied. */
KX_EXPORT int32_t KXEffectsInvert(KXImage* source, KXImage* destination, const KXRect* rect);
/* Copies every plane of rect, alpha included. */
KX_EXPORT int32_t KXEffectsCopyImage(KXImage* source, KXImage* destination, const KXRect* rect);
/* A new image of the depth, planes, colour space and transparency of source, in memory, with the bounds
   rect or, for a null rect, those of source. */
KX_EXPORT int32_t KXEffectsCreateImageLike(KXImage* source, KXImage** outImage, const KXRect* rect);
/* A zero-filled block of about four times count bytes, 16-byte aligned (32 with wide vectors), with room
   for padded vector reads past the end; null on failure. */
KX_EXPORT void* KXEffectsAlignedAlloc(size_t count);
KX_EXPORT void KXEffectsAlignedFree(void* block);
/* Dot product of two 16-byte-aligned float arrays zero-padded to a multiple of 4. */
KX_EXPORT float KXEffectsDotProduct(const float* a, const float* b, int32_t n);
/* The same with one scalar accumulator; reads no further than n. */
KX_EXPORT float KXEffectsDotProductScalar(const float* a, const float* b, int32_t n);
/* Dot products of a with rows[0..3] into out[0..3]. */
KX_EXPORT void KXEffectsDotProduct4(const float* a, const float* const* rows, float* out, int32_t n);
/* Process-wide: 32-byte blocks and the scalar dot product when true. Stays false. */
KX_EXPORT extern bool gWideVectors;

/* ---- Curves ---- */

/* Curve tables: float, channel-major, 256 entries a channel (entry i of channel c at c * 256 + i), 0..1. */
/* Fills numChannels channels with the identity i / 255; fewer than 1 channel writes nothing. */
KX_EXPORT int32_t KXEffectsInitCurves(int32_t numChannels, float* curves);
/* result = second after first, channel by channel, interpolated; result may be first but not second. */
KX_EXPORT int32_t KXEffectsConcatCurves(int32_t numChannels, const float* first, const float* second, float* result);
/* Resamples one channel of oldCount entries to newCount entries; the last entry is kept exactly. */
KX_EXPORT int32_t KXEffectsResizeCurve(int32_t oldCount, const float* oldCurve, int32_t newCount, float* newCurve);
/* Maps each colour plane through its channel of curves (one channel per colour plane); alpha is copied.
   16-bit and float interpolate between entries; float extrapolates above 1. Integer results wrap. */
KX_EXPORT int32_t KXEffectsApplyCurves(KXImage* source, KXImage* destination, const KXRect* rect,
                                       const float* curves);
/* The same mixed with the input by amount 0..1: 0 or less copies the rectangle, 1 or more is full curves. */
KX_EXPORT int32_t KXEffectsApplyCurvesWithAmount(KXImage* source, KXImage* destination, const KXRect* rect,
                                                 const float* curves, float amount);

/* ---- Fills ---- */

/* Sets every plane of rect, alpha included, to color: one value per plane, 0..1 at every depth (integer
   samples wrap above 1). */
KX_EXPORT int32_t KXEffectsFillColor(KXImage* image, const KXRect* rect, const float* color);
/* Colour samples above the middle of the range become white minus the sample; alpha is copied.
   A depth other than 8, 16 or 32 is kKXErrBadImageFormat. */
KX_EXPORT int32_t KXEffectsSolarize(KXImage* source, KXImage* destination, const KXRect* rect);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KXEFFECTS_H */
