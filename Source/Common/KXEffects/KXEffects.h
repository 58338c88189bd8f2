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

/* ---- Tiles and masked application ---- */

/* The margin in pixels that effect (an exported effect function, cast) reads around a rectangle at its
   first float setting value: 0 for pointwise effects, -1 for the whole image or an unknown pointer. */
KX_EXPORT int32_t KXEffectsGetOutset(KXEffectProc effect, float value);
/* Mixes an effect image computed from source back over it: weight amount / 2, plus the mask's distance
   from 127/255 at each pixel when a one-plane mask of the destination's depth is given; limited to white. */
KX_EXPORT int32_t KXEffectsApplyEffectWithMask(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                                               const KXRect* rect, float amount);
/* The same mix weighted by the hue of each source pixel (six zones: red, yellow, green, cyan, blue,
   magenta), then a brightness and a midtone change of the luma by hue. RGB only. */
KX_EXPORT int32_t KXEffectsApplyEffectInZones(KXImage* source, KXImage* effect, KXImage* mask, KXImage* destination,
                                              const KXRect* rect, const float* effectZones,
                                              const float* brightnessZones, const float* midtoneZones);

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
KX_EXPORT int32_t KXEffectsApplyCurves(KXImage* source, KXImage* destination, const KXRect* rect, const float* curves);
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
KX_EXPORT int32_t KXEffectsBoxBlurWithOffset(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                             KXPoint offset);
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
KX_EXPORT int32_t KXEffectsGaussianBlurFastWithAmountAndMode(KXImage* source, KXImage* destination, const KXRect* rect,
                                                             float radius, float amount, uint32_t blendMode);
/* Separable convolution with a gaussian of 2 h + 1 taps, h = radius x 2.5 rounded; h of 0 copies. */
KX_EXPORT int32_t KXEffectsGaussianBlurTrue(KXImage* source, KXImage* destination, const KXRect* rect, float radius);
KX_EXPORT int32_t KXEffectsGaussianBlurTrueWithAmount(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      float radius, float amount);
KX_EXPORT int32_t KXEffectsGaussianBlurTrueWithAmountAndMode(KXImage* source, KXImage* destination, const KXRect* rect,
                                                             float radius, float amount, uint32_t blendMode);

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
KX_EXPORT int32_t KXEffectsDustAndScratch(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius,
                                          float threshold);
/* Tent-weighted mean, weights (radius + 1 - |dx|) x (radius + 1 - |dy|); radius 0 gives the source. */
KX_EXPORT int32_t KXEffectsTriangularBlur(KXImage* source, KXImage* destination, const KXRect* rect, int32_t radius);
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

/* ---- Clarity ---- */

/* RGB only: local contrast on the luma, the difference from a gaussian blur of radius pixels times amount
   laid over it in overlay fashion, chroma kept. Not above 0 for either copies. Catches: a failure comes
   back as the status. */
KX_EXPORT int32_t KXEffectsClarity(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                   float radius);

/* ---- Sharpening ---- */

/* Unsharp mask: s + (s - gaussian blur of radius) x amount (1 adds the full difference, more is usual),
   clamped; differences within threshold (0..1 of white) leave s, larger ones lose it first, a soft knee.
   Copies unless amount > 0, radius > 0 and threshold < 1. Source equal to destination is kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsUnsharpMask(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                       float radius, float threshold);
/* The same over a surface blur of radius and surfaceThreshold (0..1), no threshold; copies unless all three
   are above 0. */
KX_EXPORT int32_t KXEffectsUnsharpMaskUsingSurfaceBlur(KXImage* source, KXImage* destination, const KXRect* rect,
                                                       float amount, int32_t radius, float surfaceThreshold);
/* The unsharp mask over a box blur of radius. */
KX_EXPORT int32_t KXEffectsUnsharpMaskUsingBoxBlur(KXImage* source, KXImage* destination, const KXRect* rect,
                                                   float amount, int32_t radius, float threshold);
/* The unsharp mask over a triangular blur of radius. */
KX_EXPORT int32_t KXEffectsUnsharpMaskUsingTriangularBlur(KXImage* source, KXImage* destination, const KXRect* rect,
                                                          float amount, int32_t radius, float threshold);
/* The difference from a gaussian blur of radius around mid-gray: s - b + 128 (32768, 0.5), clamped. Source
   equal to destination is kKXErrBadParam. Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsHighPass(KXImage* source, KXImage* destination, const KXRect* rect, float radius);
/* The gaussian blur into lowPass and the high pass of it into highPass; lowPass must differ from both.
   Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsHighPassAndLowPass(KXImage* source, KXImage* highPass, KXImage* lowPass, const KXRect* rect,
                                              float radius);
/* The high pass against a box blur of radius laid over the image in overlay mode, mixed by amount (0..1 and
   beyond); copies unless amount > 0 and radius > 0. Source equal to destination is kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsSharpenHighPass(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                           int32_t radius);
/* The same, the result of a source pixel written at its coordinates minus offset; a copy goes to its
   coordinates plus offset. */
KX_EXPORT int32_t KXEffectsSharpenHighPassWithOffset(KXImage* source, KXImage* destination, const KXRect* rect,
                                                     float amount, int32_t radius, KXPoint offset);
/* Sharpens the luma of RGB (each plane of other images) against gaussian blurs at radius x 0.5, 2 and 4;
   fineReduction 0..1 takes weight from the finest, threshold (0..1 of white) leaves pixels that change
   less. Copies unless amount > 0 and radius > 0. Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsSharpenProgressive(KXImage* source, KXImage* destination, const KXRect* rect, float amount,
                                              float radius, float fineReduction, float threshold);

/* ---- Colour selection ---- */

/* Selections narrow a one-plane mask of any depth over an RGB source: each mask sample of rect is multiplied by
   a weight 0..1 of the source colour, so they chain; start from a mask filled with white. A source that is not
   RGB or a mask of more planes is kKXErrUnsupported. */
/* Colours near color (three floats 0..1): linear in hue and saturation, quadratic in value; range above 0
   widens it. */
KX_EXPORT int32_t KXEffectsSelectColor(KXImage* source, KXImage* mask, const KXRect* rect, const float* color,
                                       float range);
/* Luma from low to high (0..1) with smooth shoulders of 0.075 x feather; low 0 or high 1 leaves that end open. */
KX_EXPORT int32_t KXEffectsSelectLuminosity(KXImage* source, KXImage* mask, const KXRect* rect, float low, float high,
                                            float feather);
/* The same on the saturation (max - min) / max. */
KX_EXPORT int32_t KXEffectsSelectSaturation(KXImage* source, KXImage* mask, const KXRect* rect, float low, float high,
                                            float feather);
/* Luma weight 0 up to rampStart, rising smoothly to 1 at rampFull, 1 up to fallStart, falling to 0 at fallEnd. */
KX_EXPORT int32_t KXEffectsSelectLuminosityRange(KXImage* source, KXImage* mask, const KXRect* rect, float rampStart,
                                                 float rampFull, float fallStart, float fallEnd);
/* The same on the saturation. */
KX_EXPORT int32_t KXEffectsSelectSaturationRange(KXImage* source, KXImage* mask, const KXRect* rect, float rampStart,
                                                 float rampFull, float fallStart, float fallEnd);
/* Presets: 0 to 11 the wheel colours of KXEffectsGetColorForIndex at range; 12 light, 13 mid, 14 dark tones,
   15 low, 16 high saturation, with range as feather. Other codes are kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsSelectColors(KXImage* source, KXImage* mask, const KXRect* rect, int32_t code, float range);
/* The band presets 12 to 16 only, with shoulders range wide (hard edges at range 0); others kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsSelectColorsWithRange(KXImage* source, KXImage* mask, const KXRect* rect, int32_t code,
                                                 float range);
/* Skin tones of flesh table 0 to 5: an ellipsoid in YCbCr, its size scaled by range, its weight by strength;
   exclude keeps everything but them. */
KX_EXPORT int32_t KXEffectsSelectFleshColors(KXImage* source, KXImage* mask, const KXRect* rect, int32_t table,
                                             float range, float strength, bool exclude);
/* Colours within an ellipsoid in YCbCr around color, radii range x 0.35 in luma and range x 0.175 in Cb, Cr. */
KX_EXPORT int32_t KXEffectsColorRange(KXImage* source, KXImage* mask, const KXRect* rect, const float* color,
                                      float range);
/* record (six floats): low and high Y, Cb and Cr of flesh table 0 to 5; others are kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsGetFleshColorTable(int32_t table, float* record);
/* color (three floats) = palette entry index, 0 to 31; above, color is 0 and the status kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsGetColorForIndex(uint32_t index, float* color);
/* The box of the non-zero samples of a one-plane mask in image coordinates; all zero when there are none. */
KX_EXPORT int32_t KXEffectsFindMaskBounds(KXImage* mask, KXRect* bounds);

/* ---- Matting ---- */

/* Trimaps are one-plane images: 0 is certain background, the foreground level (255, or 127 with flag 0x100)
   and above certain foreground, anything between unknown. Levels scale with the depth: 255 is white, 127 is
   127/255 of white; a float trimap counts as foreground from half a level below. */
/* Copies trimap into destination and writes, where the one-plane brush (any depth) is not 0, the foreground
   level (flag 0x1), 0 (0x2) or half the foreground level into every colour plane. */
KX_EXPORT int32_t KXEffectsSetTrimap(KXImage* trimap, KXImage* destination, KXImage* brush, const KXRect* rect,
                                     int32_t flags);
/* Unknown pixels of rect take the certainty (0 or white) of the nearest certain pixel of trimap within
   min(width, height) / 64 of the image whose RGB colour lies within 5/255 of theirs (of two at one distance,
   the later scanned ring by ring, row by row); the result goes to destination, the count of pixels that
   turned certain to changed. Trimap and destination: one plane of the image's depth. */
KX_EXPORT int32_t KXEffectsExpandTrimap(KXImage* image, KXImage* trimap, KXImage* destination, const KXRect* rect,
                                        int32_t* changed);
/* Solves the unknown pixels of rect by shared sampling: alpha into matte and the foreground colour into the
   RGB planes of destination (alpha planes from image). trimap and matte: one plane of the image's depth;
   priorAlpha, optional, one plane of any depth. progress (may be null) follows the rows, four passes.
   Flags: 0x1 keeps the larger of the new alpha and the existing one; 0x10 mixes the foreground over what
   destination holds by the existing alpha, else the foreground is written as it is; 0x100 foreground level
   127; 0x1000000 skips the local smoothing, each pixel taking its shared pair's projection.
   The existing alpha is priorAlpha's where given, else what matte holds before the call.
   Choices of this implementation:
   - rays stop at the edge of rect, and every window is cut to rect: the result depends on rect alone;
   - pair energy: (mean over the 3 x 3 neighbourhood of distortion^2 + a^2 var(f) + (1 - a)^2 var(b)
     + 1e-4)^3 x dist(f) x dist(b)^4, var the 5 x 5 local variances, dist the distances to the samples;
   - sharing tests every position of the 15 x 15 window (stride 1);
   - smoothing: foreground and background the gaussian- and confidence-weighted means of the neighbours'
     colours by alpha and 1 - alpha, known pixels certain and counted twice toward the low-frequency alpha;
     the final alpha mixes the projection on them, by its confidence 0.999 exp(-10 distortion) times
     min(1, |F - B| / the neighbours' mean |F - B|), with the low-frequency alpha;
   - known pixels get alpha 0 or 1 and their own colour as foreground;
   - an unknown pixel nearer in colour to one of its gathered samples than to its best pair's line takes
     alpha 0 or 1 by the nearest such sample's kind, smoothed or not;
   - the ray offsets' rows past the first are the first turned by three places a row. */
KX_EXPORT int32_t KXEffectsGenerateMatte(KXImage* image, KXImage* trimap, KXImage* priorAlpha, KXImage* destination,
                                         KXImage* matte, const KXRect* rect, int32_t flags, KXProgress* progress);

/* ---- Black and white ---- */

/* RGB only: gray of the filter hue's weights (turns 0..1, 0 red), then midtone contrast (0 none), an
   overlaid 256 x 256 grain tile (null or grainAmount 0: none) and a toner (null colour: none). */
KX_EXPORT int32_t KXEffectsBlackAndWhite(KXImage* source, KXImage* destination, const KXRect* rect, float filterHue,
                                         float contrast, KXImage* grainTile, float grainAmount, const float* tonerColor,
                                         float tonerAmount);
/* RGB only: luma plus six responses (red, yellow, green, cyan, blue, magenta; 0 neutral) by how much of
   each colour a pixel has, after an optional overlaid filterColor (three floats 0..1, null: none). */
KX_EXPORT int32_t KXEffectsBlackAndWhiteColorResponse(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      const float* filterColor, const float* responses);
/* Six responses for the conversion above from the spread of each colour over the whole image, keeping its
   mean luma. */
KX_EXPORT int32_t KXEffectsBlackAndWhiteColorResponseGetAutoMixture(KXImage* image, float* responses);
/* Every colour plane becomes redWeight R + greenWeight G + blueWeight B; nothing clamps. */
KX_EXPORT int32_t KXEffectsColorFilter(KXImage* source, KXImage* destination, const KXRect* rect, float redWeight,
                                       float greenWeight, float blueWeight);
/* The colour filter with the weights of a hue (turns 0..1), not normalised: a secondary hue weighs 2. */
KX_EXPORT int32_t KXEffectsBlackAndWhiteWithColorFilter(KXImage* source, KXImage* destination, const KXRect* rect,
                                                        float filterHue);
/* Every colour plane becomes the luma (mode 0) or the mean of the colour planes (mode 1); other modes
   leave the destination as it was. */
KX_EXPORT int32_t KXEffectsBlackWhite(KXImage* source, KXImage* destination, const KXRect* rect, int32_t mode);

/* ---- White balance ---- */

/* RGB only. Temperature and tint (-1..1, 0 neutral) through a per-channel rational that keeps 0 and 1;
   then saturation (-1..1, the smallest plane never below 0) and vibrance (lifts the duller colours most,
   keeps the sum of the planes, never past white). All settings 0 copies the rectangle. No clamp. */
KX_EXPORT int32_t KXEffectsTemperatureAndTint(KXImage* source, KXImage* destination, const KXRect* rect,
                                              float temperature, float tint);
KX_EXPORT int32_t KXEffectsTemperatureTintAndVibrance(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      float temperature, float tint, float vibrance);
KX_EXPORT int32_t KXEffectsTemperatureTintAndSaturation(KXImage* source, KXImage* destination, const KXRect* rect,
                                                        float temperature, float tint, float saturation);
KX_EXPORT int32_t KXEffectsTemperatureTintSaturationAndVibrance(KXImage* source, KXImage* destination,
                                                                const KXRect* rect, float temperature, float tint,
                                                                float saturation, float vibrance);
KX_EXPORT int32_t KXEffectsVibrance(KXImage* source, KXImage* destination, const KXRect* rect, float vibrance);
/* RGB only: luminosity mapped through tonerColor (three floats 0..1), black and white kept; amount mixes
   with the source. */
KX_EXPORT int32_t KXEffectsAddToner(KXImage* source, KXImage* destination, const KXRect* rect, const float* tonerColor,
                                    float amount);
/* The temperature and tint, in hundredths within the bounds (limited to -1..1), that make grayColor most
   neutral; 0, 0 for a colour that is already neutral. A NaN bound is kKXErrBadParam. */
KX_EXPORT int32_t KXEffectsTemperatureAndTintForGray(const float* grayColor, float* temperature, float* tint);
KX_EXPORT int32_t KXEffectsTemperatureAndTintForGrayWithRanges(const float* grayColor, float* temperature, float* tint,
                                                               float minTemperature, float maxTemperature,
                                                               float minTint, float maxTint);
/* The temperature and tint that take the gray 192/255 nearest to what curves (three channels or more of
   256 entries) make of it. */
KX_EXPORT int32_t KXEffectsTemperatureAndTintForCurves(const float* curves, float* temperature, float* tint);
/* Illuminant presets: 0 and 2 give 0, 0; 1 and 8 leave the values given; 3 to 7 search a colour target
   under that illuminant, in profile's space when one is given; above 8 is kKXErrBadParam. The results may
   reach -4..4. */
KX_EXPORT int32_t KXEffectsWhiteBalanceTemperatureAndTint(KXColorProfile* profile, uint32_t preset, float* temperature,
                                                          float* tint);

/* ---- Automatic analysis ---- */

/* The answer of the auto tone: black and white points 0..1 of each colour plane, then brightness, contrast,
   shadows and highlights, -1..1. */
typedef struct ToneSettings {
    float black[3];
    float white[3];
    float brightness;
    float contrast;
    float shadows;
    float highlights;
} ToneSettings;
/* Means and standard deviations 0..1 of the planes over rect, cut to the image: red, green, blue and luma of
   an RGB image (four entries each), the plane of a gray one. RGBA pixels of alpha 0 are left out; with none
   counted both arrays stay as they were. */
KX_EXPORT int32_t KXEffectsAnalyzeImage(KXImage* image, const KXRect* rect, float* means, float* deviations);
/* Three channels of curves that take the near-gray pixels of an RGB image toward gray: per-channel black,
   white and gamma. Under 16 x 16 pixels is kKXErrBadParam, the curves untouched. */
KX_EXPORT int32_t KXEffectsAutoColorMakeCurves(KXImage* image, float* curves);
/* The temperature and tint that come nearest to what the auto colour's curves do to a light gray. */
KX_EXPORT int32_t KXEffectsAutoColorTemperatureAndTint(KXImage* image, float* temperature, float* tint);
/* Auto tone of an RGB image from its luma: black[3] and white[3] clip 0.1% and 0.01% of the pixels; brightness,
   contrast, shadows and highlights (-1..1) come from the tone model. Every output starts neutral. */
KX_EXPORT int32_t KXEffectsAutoTone(KXImage* image, float* black, float* white, float* brightness, float* contrast,
                                    float* shadows, float* highlights);
/* Black and white points 0..1 of each colour plane, or of the mean of the planes when combined, clipping the
   fractions shadowClip and highlightClip of the pixels (alpha 0 left out); 8 and 16-bit. Fewer than 1000
   pixels or crossed points: kKXErrBadInput, with black 0 and white 1. */
KX_EXPORT int32_t KXEffectsBlackAndWhitePointsGetPoints(KXImage* image, float* black, float* white, float shadowClip,
                                                        float highlightClip, bool combined);
/* Curves that stretch black[c]..white[c] of each channel to 0..1; equal points make a step just above them. */
KX_EXPORT int32_t KXEffectsBlackAndWhitePointsMakeCurves(int32_t numChannels, float* curves, const float* black,
                                                         const float* white);
/* The same stretch on the colour planes of an 8 or 16-bit image, limited to 0..white; alpha is copied. */
KX_EXPORT int32_t KXEffectsBlackAndWhitePointsApply(KXImage* source, KXImage* destination, const KXRect* rect,
                                                    const float* black, const float* white);
/* Histogram equalization of the whole image, all colour planes in one histogram; alpha is copied. Depths 8,
   16 and 32, else kKXErrBadImageFormat. */
KX_EXPORT int32_t KXEffectsEqualize(KXImage* source, KXImage* destination);
/* Equalizes the luma of an RGB image, each pixel's planes multiplied by one gain so hues stay, limited to
   0..white; a gray image takes KXEffectsEqualize, other colour spaces are kKXErrBadImageFormat. */
KX_EXPORT int32_t KXEffectsEqualizeLuminosity(KXImage* source, KXImage* destination);
/* The equalization of KXEffectsEqualize as a curve table, one channel per colour plane. */
KX_EXPORT int32_t KXEffectsEqualizeMakeCurves(KXImage* image, float* curves);

/* ---- Hue and colour ranges ---- */

/* RGB only. hue in turns (1 is the identity), saturation and brightness (or lightness) as offsets from 0;
   all 0 copies the rectangle. */
KX_EXPORT int32_t KXEffectsHueSaturationBrightness(KXImage* source, KXImage* destination, const KXRect* rect, float hue,
                                                   float saturation, float brightness);
KX_EXPORT int32_t KXEffectsHueSaturationLightness(KXImage* source, KXImage* destination, const KXRect* rect, float hue,
                                                  float saturation, float lightness);
/* The eight-hue colour tuner: entries 0 to 7 of each table move one anchor hue (hue -1..1 reaches the
   neighbouring anchor; saturation and brightness are offsets), entry 8 is the master. Temperature and tint
   as KXEffectsTemperatureAndTint run first. RGB only. */
KX_EXPORT int32_t KXEffectsTuneColors(KXImage* source, KXImage* destination, const KXRect* rect, float temperature,
                                      float tint, const float* hues, const float* saturations,
                                      const float* brightnesses);
/* The tuner's working tables, in anchor order, from the caller's nine-entry settings; returns the eight
   anchor hues, or null when a pointer is null. */
KX_EXPORT const float* KXEffectsTuneColorsGetHueTables(const float* hues, const float* saturations,
                                                       const float* brightnesses, float* hueShifts,
                                                       float* saturationGains, float* brightnessGains,
                                                       float* reciprocalGaps);
/* Every pixel takes hue (turns 0..1) and saturation (0..1); lightness -1..1 darkens or lightens. RGB only;
   other images are logged and refused. */
KX_EXPORT int32_t KXEffectsColorize(KXImage* source, KXImage* destination, const KXRect* rect, float hue,
                                    float saturation, float lightness);
/* Plane 0 from redRed R + redGreen G + redBlue B, plane 1 from the green row, each product limited to
   -1..1 and the sum to 0..1; the third plane comes out white. Needs three colour planes. */
KX_EXPORT int32_t KXEffectsChannelMixer(KXImage* source, KXImage* destination, const KXRect* rect, float redRed,
                                        float redGreen, float redBlue, float greenRed, float greenGreen,
                                        float greenBlue);
/* Bleaches colour out of bands of luma of width shadows and highlights (0..1) at the dark and light ends;
   both 0 copies. RGB only. */
KX_EXPORT int32_t KXEffectsPurity(KXImage* source, KXImage* destination, const KXRect* rect, float shadows,
                                  float highlights);
/* Lays adjusted over reference into result, except in the bands of luma below shadows and above
   1 - highlights and, when skin is above 0, in the skin tones of flesh table skinTable, where the
   reference is kept. All three not above 0 copies adjusted. Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsProtectColors(KXImage* reference, KXImage* adjusted, KXImage* result, const KXRect* rect,
                                         float shadows, float highlights, float skin, int32_t skinTable);

/* ---- Grain and noise ---- */

/* Adds uniform noise of up to amount x white to each colour plane, clamped to the range (float 0..1);
   amount 0 or less copies. noiseType 0: a value per sample, 1: one per pixel (both from a generator
   reseeded by every call), 2: one per pixel from a fixed 256 x 256 tile at the absolute position. Other
   types are kKXErrUnsupported. Alpha is kept. */
KX_EXPORT int32_t KXEffectsAddNoise(KXImage* source, KXImage* destination, const KXRect* rect, int32_t noiseType,
                                    float amount);
/* Overlays grain at opacity amount 0..1: each grain row is read one byte a column (g = byte / 255, 0.5
   leaves the picture), the grain placed by its bounds. A null source renders the grain on mid-gray with
   full alpha. Four-byte destinations are addressed as bytes. A grain smaller than the destination is
   kKXErrUnsupported; amount 0 or less copies (or fills mid-gray). */
KX_EXPORT int32_t KXEffectsApplyFilmGrain(KXImage* source, KXImage* destination, const KXRect* rect, KXImage* grain,
                                          float amount);
/* The same with a power-of-two grain tile of any depth repeated over the image at its absolute position,
   magnified by scale (destination pixels per tile pixel, above 0) with bilinear sampling; float images
   stay float. A null tile behaves as amount 0. */
KX_EXPORT int32_t KXEffectsApplyFilmGrainTile(KXImage* source, KXImage* destination, const KXRect* rect,
                                              KXImage* grainTile, float amount, float scale);

/* ---- Shadows and local tone ---- */

/* RGB only: in dark neighbourhoods (the gaussian-blurred luma at radius) shadows (0..1) lifts each channel
   onto a power curve, in bright ones highlights (0..1) holds it back; both 0 copies. */
KX_EXPORT int32_t KXEffectsShadowsAndHilites(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                             float shadows, float highlights);
/* RGB only: outside a protected band of luma (lowBand..highBand, soft by the feathers) the overlay of the
   inverted blurred luma is mixed in at darkAmount below the band and lightAmount above; both not above 0
   copies. */
KX_EXPORT int32_t KXEffectsApplyContrastMask(KXImage* source, KXImage* destination, const KXRect* rect, float radius,
                                             float darkAmount, float lowBand, float lowFeather, float lightAmount,
                                             float highBand, float highFeather);
/* Below threshold (0..1) each colour sample follows a cubic of slope 1 + strength at black (1 / (1 - s) for
   negative strength) that meets the line at threshold; above it nothing moves. 0 strength copies. */
KX_EXPORT int32_t KXEffectsAdjustShadows(KXImage* source, KXImage* destination, const KXRect* rect, float strength,
                                         float threshold);
/* Black and white points (a value per colour plane), brightness and midtone contrast, then the optional
   curve tables, joined into one table and applied once. Catches: a failure comes back as the status. */
KX_EXPORT int32_t KXEffectsAdjustTone(KXImage* source, KXImage* destination, const KXRect* rect, const float* black,
                                      const float* white, float brightness, float midtoneContrast,
                                      const float* firstCurves, const float* secondCurves);

/* ---- Tone controls ---- */

/* Brightness and contrast (-1..1, 0 neutral) on each colour plane; the table forms write the same response
   into a curve table of numChannels channels. With a one-plane mask (any depth, null: none) the settings
   scale by the mask at each pixel. */
KX_EXPORT int32_t KXEffectsBrightnessContrast(KXImage* source, KXImage* destination, const KXRect* rect,
                                              float brightness, float contrast);
KX_EXPORT int32_t KXEffectsBrightnessContrastWithMask(KXImage* source, KXImage* destination, KXImage* mask,
                                                      const KXRect* rect, float brightness, float contrast);
KX_EXPORT int32_t KXEffectsBrightnessContrastMakeCurves(int32_t numChannels, float* curves, float brightness,
                                                        float contrast);
/* The same with the S-shaped midtone contrast in place of contrast. */
KX_EXPORT int32_t KXEffectsBrightnessMidtoneContrast(KXImage* source, KXImage* destination, const KXRect* rect,
                                                     float brightness, float midtoneContrast);
KX_EXPORT int32_t KXEffectsBrightnessMidtoneContrastWithMask(KXImage* source, KXImage* destination, KXImage* mask,
                                                             const KXRect* rect, float brightness,
                                                             float midtoneContrast);
KX_EXPORT int32_t KXEffectsBrightnessMidtoneContrastMakeCurves(int32_t numChannels, float* curves, float brightness,
                                                               float midtoneContrast);
/* Brightness with a signed mask: mask values below mid-gray darken by an offset, above it lighten by a
   gain; a null mask gives plain brightness, and with brightness 0 copies. Clamped to 0..1. */
KX_EXPORT int32_t KXEffectsBrightnessWithMask(KXImage* source, KXImage* destination, const KXRect* rect,
                                              float brightness, KXImage* mask);
KX_EXPORT int32_t KXEffectsBrightnessAltMakeCurves(int32_t numChannels, float* curves, float brightness);
/* The exposure multiplier of a brightness slider: 2b + 1 from 0 up, 1 / (1 - b) below. */
KX_EXPORT int32_t KXEffectsBrightnessAltToExposure(float brightness, float* exposure);
KX_EXPORT int32_t KXEffectsMidtoneContrast(KXImage* source, KXImage* destination, const KXRect* rect, float strength);
KX_EXPORT int32_t KXEffectsMidtoneContrastMakeCurves(int32_t numChannels, float* curves, float strength);
/* Midtone contrast whose slider reaches past +-1 into plain contrast, with a signed mask added to the
   setting at each pixel; a null mask and strength 0 copies. */
KX_EXPORT int32_t KXEffectsMidtoneContrastAltWithMask(KXImage* source, KXImage* destination, const KXRect* rect,
                                                      float strength, KXImage* mask);
KX_EXPORT int32_t KXEffectsMidtoneContrastAltMakeCurves(int32_t numChannels, float* curves, float strength);
/* A soft-shouldered exposure multiplier (1 copies) that keeps the hue of every pixel. */
KX_EXPORT int32_t KXEffectsExposure(KXImage* source, KXImage* destination, const KXRect* rect, float exposure);
/* RGB only: brightness and saturation (-1..1), then haze (0..1) lifts black toward gray, white staying. */
KX_EXPORT int32_t KXEffectsBrightnessHazeSaturation(KXImage* source, KXImage* destination, const KXRect* rect,
                                                    float brightness, float haze, float saturation);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* KXEFFECTS_H */
