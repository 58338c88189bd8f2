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

/* ---- Colour ---- */

/* One colour, three floats in and out (they may be the same): 0 RGB to HSV, 1 HSV to RGB, 2 RGB to HSL,
   3 HSL to RGB, 4 RGB to YCbCr, 5 YCbCr to RGB limited to 0..1. Other conversions are kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsConvertColorMode(const float* input, float* output, int32_t conversion);
/* Conversions 0 to 5 over rect, and 6 RGB to one gray plane of luma, 7 one gray plane to RGB, 8 RGB to gray
   flattened on white (luma x alpha + 1 - alpha). A destination alpha gets the source's alpha, or white. */
KX_EXPORT int32_t KXEffectsConvertImageMode(KXImage* source, KXImage* destination, const KXRect* rect,
                                            int32_t conversion);
/* Splits an RGB colour over its gray min(R, G, B) into six hue components: red, yellow, green, cyan, blue,
   magenta. */
KX_EXPORT int32_t KXEffectsGetColorComponents(const float* rgb, float* components);
/* Lays the luma of each pixel over the pixel in blend mode mode at opacity amount; amount 0 or less copies.
   RGB only. */
KX_EXPORT int32_t KXEffectsDesaturate(KXImage* source, KXImage* destination, const KXRect* rect, uint32_t mode,
                                      float amount);

/* ---- Blending ---- */

/* Blend modes are four-character codes, first character in the top byte ("norm" is 0x6e6f726d). Bit 29
   set is the normal form of a mode word, clear its reversed form. */
KX_EXPORT uint32_t KXEffectsGetReverseBlendMode(uint32_t mode);
KX_EXPORT uint32_t KXEffectsGetNormalBlendMode(uint32_t mode);
/* The centre argument of KXEffectsPhotoFilter, passed by value. */
typedef struct KXEffectsFloatPoint {
    float x, y;
} KXEffectsFloatPoint;
/* Blends colour1 (kind 0), a linear (1, 2) or radial (3, 4) gradient toward it from nothing or colour2,
   into the RGB planes after saturation (0 off) and contrast (0 off, 1 S curve); alpha is kept. Variable part:
   KXEffectsFloatPoint centre, then doubles and pointers: angleOrRadius (degrees or pixels), lengthOrFeather
   (pixels, above 0), const float* colour1, opacity1, const float* colour2, opacity2. */
KX_EXPORT int32_t KXEffectsPhotoFilter(KXImage* source, KXImage* destination, const KXRect* rect, int32_t filterKind,
                                       float saturation, float contrast, uint32_t mode, ...);
/* Lays upper (the source of the mode) over lower (the backdrop) in blend mode mode, with true alpha, each
   layer with an opacity 0..1 and an optional one-plane mask of any depth (an inverted mask reads 1 - v).
   A reversed mode word is unknown; the whole-pixel modes need three colour planes. */
KX_EXPORT int32_t KXEffectsBlendImagesWithOpacitiesAndMasks(KXImage* upper, float upperOpacity, KXImage* upperMask,
                                                            KXImage* lower, float lowerOpacity, KXImage* lowerMask,
                                                            KXImage* destination, const KXRect* rect, uint32_t mode);
/* The same at both opacities 1.0, without masks. */
KX_EXPORT int32_t KXEffectsBlendImages(KXImage* upper, KXImage* lower, KXImage* destination, const KXRect* rect,
                                       uint32_t mode);
/* weight1 x image1 + weight2 x image2 on every plane, alpha included; float is limited to 0..1. */
KX_EXPORT int32_t KXEffectsMixImages(KXImage* image1, KXImage* image2, KXImage* destination, const KXRect* rect,
                                     float weight1, float weight2);
/* Each colour plane i becomes (x - pivots[i]) x factors[i] + pivots[i], limited to 0..1; alpha is kept. */
KX_EXPORT int32_t KXEffectsMultiplyValues(KXImage* source, KXImage* destination, const KXRect* rect,
                                          const float* pivots, const float* factors);
/* The product of the coverages of a CFArray of one-plane masks of any depth into a one-plane destination;
   an inverted mask, or destination, reads and stores 1 - v. No masks give full coverage. */
KX_EXPORT int32_t KXEffectsMultiplyMasks(CFArrayRef masks, KXImage* destination, const KXRect* rect);
/* Flattens an image with alpha onto white, in place; alpha keeps its value. Without alpha it does nothing. */
KX_EXPORT int32_t KXEffectsMakeCompositeImage(KXImage* image, const KXRect* rect);

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

/* ---- Blurs ---- */

/* The mean of the (2 radius + 1) square around each colour sample; alpha is copied. A radius not above 0
   copies the rectangle. The box blurs return kKXErrNoResource for any failure below them. */
KX_EXPORT int32_t KXEffectsBoxBlur(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius);
/* The same, the result of a source pixel written at its coordinates minus offset; a radius not above 0
   copies the rectangle to its coordinates plus offset. */
KX_EXPORT int32_t KXEffectsBoxBlurWithOffset(KXImage* source, KXImage* destination, const KXRect* rect,
                                             int32_t radius, KXPoint offset);
/* The same mixed with the source by amount (not clamped); an amount not above 0 copies. */
KX_EXPORT int32_t KXEffectsBoxBlurWithOffsetAndAmount(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      int32_t radius, KXPoint offset, float amount);
/* The mean only where it differs from the sample by threshold (0..1 of white) or more. */
KX_EXPORT int32_t KXEffectsBoxBlurWithThreshold(KXImage* source, KXImage* destination, const KXRect* rect,
                                                int32_t radius, float threshold);
/* The mean over the window from left to right and top to bottom around each pixel (ends included, not
   necessarily centred), mixed by amount; 8 and 16-bit sums are 32-bit: keep area x white below 2^32. */
KX_EXPORT int32_t KXEffectsBoxBlurWithAmount(KXImage* source, KXImage* destination, const KXRect* rect, int32_t left,
                                             int32_t right, int32_t top, int32_t bottom, float amount);
/* The free-window mean of KXEffectsBoxBlurWithAmount at amount 1, with 32-bit samples read as unsigned
   integers. */
KX_EXPORT int32_t KXEffectsBoxBlurInt(KXImage* source, KXImage* destination, const KXRect* rect, int32_t left,
                                      int32_t right, int32_t top, int32_t bottom);
/* Gaussian blur of standard deviation radius: the true blur below 10.0, the fast one from 10.0 on. */
KX_EXPORT int32_t KXEffectsGaussianBlur(KXImage* source, KXImage* destination, const KXRect* rect, float radius);
/* The same mixed with the source by amount; an amount not above 0 copies. */
KX_EXPORT int32_t KXEffectsGaussianBlurWithAmount(KXImage* source, KXImage* destination, const KXRect* rect,
                                                  float radius, float amount);
/* The same finished in blendMode, the blurred value laid over the sample (under it for a capitalised,
   reversed code); unknown modes are kKXErrBadParam, and "fdiv" and "FDiv" return it after a full result. */
KX_EXPORT int32_t KXEffectsGaussianBlurWithAmountAndMode(KXImage* source, KXImage* destination, const KXRect* rect,
                                                         float radius, float amount, uint32_t blendMode);
/* Three box passes of standard deviation about radius / 1.1, at a cost independent of the radius. */
KX_EXPORT int32_t KXEffectsGaussianBlurFast(KXImage* source, KXImage* destination, const KXRect* rect, float radius);
KX_EXPORT int32_t KXEffectsGaussianBlurFastWithAmount(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      float radius, float amount);
/* Below radius 1.1 one box at full strength whatever amount and mode. Catches: a failure comes back as the
   status. */
KX_EXPORT int32_t KXEffectsGaussianBlurFastWithAmountAndMode(KXImage* source, KXImage* destination,
                                                             const KXRect* rect, float radius, float amount,
                                                             uint32_t blendMode);
/* Separable convolution with a gaussian of 2 h + 1 taps, h = radius x 2.5 rounded; h of 0 copies. */
KX_EXPORT int32_t KXEffectsGaussianBlurTrue(KXImage* source, KXImage* destination, const KXRect* rect, float radius);
KX_EXPORT int32_t KXEffectsGaussianBlurTrueWithAmount(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      float radius, float amount);
KX_EXPORT int32_t KXEffectsGaussianBlurTrueWithAmountAndMode(KXImage* source, KXImage* destination,
                                                             const KXRect* rect, float radius, float amount,
                                                             uint32_t blendMode);

/* ---- Filters ---- */

/* Edge-preserving smoothing over the (2 radius + 1) square: each sample moves toward the mean of the window
   samples within about 2.5 x threshold (0..1) of it; amount 0..1 mixes with the source. A radius, threshold
   or amount not above 0 copies the rectangle. */
KX_EXPORT int32_t KXEffectsSurfaceBlur(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                       float threshold, float amount);
/* The same, the result of a source pixel written at its coordinates minus offset. */
KX_EXPORT int32_t KXEffectsSurfaceBlurWithOffset(KXImage* source, KXImage* destination, const KXRect* rect,
                                                 int32_t radius, float threshold, float amount, KXPoint offset);
/* RGB only: the surface blur of an 8-bit luma image, given back to each pixel as its luma with chroma and
   hue kept. Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsSurfaceBlurLuminosity(KXImage* source, KXImage* destination, const KXRect* rect,
                                                 int32_t radius, float threshold, float amount);
/* A new one-plane image over rect holding 0.299 R + 0.587 G + 0.114 B of an RGB source, with planeBytes
   1, 2 or 4 (0: those of the source). The caller releases *outImage. */
KX_EXPORT int32_t KXEffectsCreateLuminosityImage(KXImage* source, KXImage** outImage, const KXRect* rect,
                                                 int32_t planeBytes);
/* The median of the (2 radius + 1) square of each colour sample; 8 and 16-bit only. */
KX_EXPORT int32_t KXEffectsMedian(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius);
/* Replaces a sample by its median where they differ by threshold (0..1) or more; 1 or more copies. At
   16 bits the median is taken on the high byte (m x 257). 8 and 16-bit only. */
KX_EXPORT int32_t KXEffectsDustAndScratch(KXImage* source, KXImage* destination, const KXRect* rect,
                                          int32_t radius, float threshold);
/* Tent-weighted mean, weights (radius + 1 - |dx|) x (radius + 1 - |dy|); radius 0 gives the source. */
KX_EXPORT int32_t KXEffectsTriangularBlur(KXImage* source, KXImage* destination, const KXRect* rect,
                                          int32_t radius);
/* The local standard deviation over the (2 radius + 1) square, from box means of the samples and of their
   squares. Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsVariance(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius);
/* 3 x 3: (8 c - e) / 4, c the centre, e the sum of the four edge neighbours; clamped. */
KX_EXPORT int32_t KXEffectsSharpen(KXImage* source, KXImage* destination, const KXRect* rect);
/* 3 x 3: (12 c - e - k) / 4, k the sum of the four corners; clamped. */
KX_EXPORT int32_t KXEffectsSharpenMore(KXImage* source, KXImage* destination, const KXRect* rect);
/* 3 x 3: (4 c + e) / 8. */
KX_EXPORT int32_t KXEffectsBlur(KXImage* source, KXImage* destination, const KXRect* rect);
/* 3 x 3: (2 c + 2 e + k) / 14. */
KX_EXPORT int32_t KXEffectsBlurMore(KXImage* source, KXImage* destination, const KXRect* rect);
/* White minus the Sobel gradient magnitude, clamped: edges dark on white. */
KX_EXPORT int32_t KXEffectsFindEdges(KXImage* source, KXImage* destination, const KXRect* rect);
/* Relief about mid-gray: (the bilinear sample at height / 2 pixels along angle, in degrees, minus the one
   opposite) x amount; clamped. */
KX_EXPORT int32_t KXEffectsEmboss(KXImage* source, KXImage* destination, const KXRect* rect, float angle,
                                  int32_t height, float amount);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KXEFFECTS_H */
