/* KXCore: images, geometry, colour profiles, log, progress, threads and arrays
   for the KXEffects library and its hosts. Plain C interface; C++ classes at the end. */
#ifndef KXCORE_H
#define KXCORE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define KX_EXPORT __declspec(dllexport)
#else
#define KX_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Geometry ---- */

/* Columns x .. x + width - 1, rows y .. y + height - 1; rows grow downward. */
typedef struct KXRect {
    int32_t x, y, width, height;
} KXRect;

typedef struct KXPoint {
    int32_t x, y;
} KXPoint;

/* Maps (x, y) to (a x + c y + tx, b x + d y + ty). */
typedef struct KXAffineTransform {
    float a, b, c, d, tx, ty;
} KXAffineTransform;

KX_EXPORT KXRect KXRectMake(int32_t x, int32_t y, int32_t width, int32_t height);
KX_EXPORT KXPoint KXPointMake(int32_t x, int32_t y);
/* Grows every side by amount; a negative amount shrinks. */
KX_EXPORT KXRect KXRectOutset(const KXRect* rect, int32_t amount);
/* The common part; disjoint rectangles give an empty rectangle. */
KX_EXPORT KXRect KXRectIntersect(const KXRect* a, const KXRect* b);
/* True for a point inside the half-open rectangle. */
KX_EXPORT bool KXPointInRect(KXPoint point, const KXRect* rect);

/* A rotation by angle (radians) about the centre with scaling, then a shift. */
KX_EXPORT KXAffineTransform KXAffineTransformMake(float angle, float scaleX, float scaleY, float centreX, float centreY,
                                                  float translateX, float translateY);
/* Maps sourceRect into destRect. flagA keeps the aspect ratio; flagB fills (cover) rather than fits when
   the aspect is kept; angle is in degrees about the centre; scaleA and scaleB scale the result about the
   centre of destRect; flagC mirrors horizontally. */
KX_EXPORT KXAffineTransform KXAffineTransformMakeResize(const KXRect* sourceRect, const KXRect* destRect, bool flagA,
                                                        bool flagB, int32_t angle, float scaleA, float scaleB,
                                                        bool flagC);
KX_EXPORT KXAffineTransform KXAffineTransformInvert(const KXAffineTransform* transform);
/* The bounding rectangle of the transformed rectangle, grown outward to whole pixels. */
KX_EXPORT KXRect KXAffineTransformTransformRect(const KXRect* rect, const KXAffineTransform* transform);

/* ---- Images ---- */

typedef struct KXImage KXImage;

enum { KXColorSpaceGray = 1, KXColorSpaceRGB = 2 };
enum {
    KXImageTypeNormal = 0,
    KXImageTypeInvertedMask = 6 /* a stored 0 is full coverage */
};
enum {
    /* Pixels move only through KXImageRead2 and KXImageWrite2; never lockable. */
    KXDataSourceUnbuffered = 0,
    KXDataSourceMemory = 1
};

/* Status codes of the core; any non-zero value is a failure. */
enum {
    kKXCoreErrBadArgument = -50,
    kKXCoreErrOutOfMemory = -108,
    kKXCoreErrOutOfBounds = -1005,
    kKXCoreErrColorProfile = -1006
};

KX_EXPORT int32_t KXImageCreateWithParams2(const KXRect* bounds, int32_t depth, int32_t planes, int32_t colorSpaceType,
                                           int32_t transparency, int32_t dataSource, KXImage** outImage);
/* A full copy of image and pixels, with the same data source. */
KX_EXPORT int32_t KXImageCreateCopy(KXImage* image, KXImage** outImage);
KX_EXPORT void KXImageRetain(KXImage* image);
KX_EXPORT void KXImageRelease(KXImage* image);

KX_EXPORT int32_t KXImageGetDepth(KXImage* image);
KX_EXPORT int32_t KXImageGetPlaneBytes(KXImage* image);
KX_EXPORT int32_t KXImageGetNumPlanes(KXImage* image);
KX_EXPORT int32_t KXImageGetTransparency(KXImage* image);
KX_EXPORT int32_t KXImageGetColorSpaceType(KXImage* image);
KX_EXPORT int32_t KXImageGetType(KXImage* image);
KX_EXPORT int32_t KXImageSetType(KXImage* image, int32_t type);
KX_EXPORT int32_t KXImageGetDataSourceType(KXImage* image);
KX_EXPORT int32_t KXImageGetWidth(KXImage* image);
KX_EXPORT int32_t KXImageGetHeight(KXImage* image);
KX_EXPORT int32_t KXImageGetColBytes(KXImage* image);
KX_EXPORT int32_t KXImageGetRowBytes(KXImage* image);
KX_EXPORT KXRect KXImageGetBounds(KXImage* image);

/* Sets every sample, alpha included, to value in the sample's own scale (255, 65535 or 1.0 is white). */
KX_EXPORT int32_t KXImageFill(KXImage* image, float value);

/* The pixel at the bounds' top-left corner, or null for an image without an addressable buffer.
   Locks nest; pair every successful lock with one unlock. */
KX_EXPORT void* KXImageLockBuffer(KXImage* image);
KX_EXPORT void KXImageUnlockBuffer(KXImage* image);

/* Copies the planes firstPlane..lastPlane (-1: to the last) of rect, which must lie inside the bounds,
   to buffer, interleaved. rowBytes -1 or 0 means tightly packed. flags must be 0. */
KX_EXPORT int32_t KXImageRead2(KXImage* image, const KXRect* rect, int32_t firstPlane, int32_t lastPlane, void* buffer,
                               int32_t rowBytes, int32_t flags);
KX_EXPORT int32_t KXImageWrite2(KXImage* image, const KXRect* rect, int32_t firstPlane, int32_t lastPlane,
                                const void* buffer, int32_t rowBytes, int32_t flags);

/* ---- Colour profiles ---- */

typedef struct KXColorProfile KXColorProfile;

/* Four-character tags of the standard profiles: "prop" ProPhoto RGB (the working space), "srgb" sRGB. */
KX_EXPORT KXColorProfile* KXColorProfileCreateStandard(uint32_t code);
KX_EXPORT int32_t KXColorProfileCreateFromICC(const void* data, size_t size, KXColorProfile** out);
KX_EXPORT void KXColorProfileRetain(KXColorProfile* profile);
KX_EXPORT void KXColorProfileRelease(KXColorProfile* profile);
/* Converts the RGB pixels of rect from sourceProfile to destProfile; the images may be one. Alpha is kept. */
KX_EXPORT int32_t KXColorProfileConvertProfile(KXColorProfile* sourceProfile, KXColorProfile* destProfile,
                                               KXImage* sourceImage, KXImage* destImage, const KXRect* rect,
                                               int32_t flags);

/* ---- Log ---- */

/* Records an error event; never fails. Without a handler events are dropped. */
KX_EXPORT void KXLogEvent(int32_t code, const char* file, int32_t line);
/* Writes one line to the log; without a handler it goes to standard error. */
KX_EXPORT void KXLogUTF8(const char* text);
KX_EXPORT void KXLogSetEventHandler(void (*handler)(int32_t code, const char* file, int32_t line, void* user),
                                    void* user);
KX_EXPORT void KXLogSetTextHandler(void (*handler)(const char* text, void* user), void* user);

/* ---- Progress ---- */

typedef struct KXProgress KXProgress;

typedef struct KXProgressCallbacks {
    void (*begin)(void* user, int32_t first, const char* label, int32_t last);
    void (*update)(void* user, int32_t value);
    void (*end)(void* user);
} KXProgressCallbacks;

/* Any callback may be null. */
KX_EXPORT int32_t KXProgressCreate(const KXProgressCallbacks* callbacks, void* user, KXProgress** out);
KX_EXPORT void KXProgressRelease(KXProgress* progress);
KX_EXPORT void KXProgressDoProgressBeginStage(KXProgress* progress, int32_t first, const char* label, int32_t last);
KX_EXPORT void KXProgressDoProgressUpdateStage(KXProgress* progress, int32_t value);
KX_EXPORT void KXProgressDoProgressEndStage(KXProgress* progress);

/* ---- Synchronisation and processors ---- */

typedef struct KXMutex KXMutex;
typedef struct KXCondition KXCondition;

KX_EXPORT KXMutex* KXMutexCreate(void);
KX_EXPORT void KXMutexLock(KXMutex* mutex);
KX_EXPORT void KXMutexUnlock(KXMutex* mutex);
KX_EXPORT void KXMutexRelease(KXMutex* mutex);
KX_EXPORT KXCondition* KXConditionCreate(void);
KX_EXPORT void KXConditionSignal(KXCondition* condition);
KX_EXPORT void KXConditionBroadcast(KXCondition* condition);
/* Releases mutex while waiting and holds it again on return; test the predicate in a loop. */
KX_EXPORT void KXConditionWait(KXCondition* condition, KXMutex* mutex);
KX_EXPORT void KXConditionRelease(KXCondition* condition);
KX_EXPORT int32_t KXProcessGetNumProcessors(void);

/* ---- Arrays and strings in the CoreFoundation manner ---- */

typedef const void* CFTypeRef;
typedef long CFIndex;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;
typedef const struct __CFString* CFStringRef;

typedef struct CFArrayCallBacks {
    CFIndex version;
    const void* (*retain)(CFAllocatorRef allocator, const void* value);
    void (*release)(CFAllocatorRef allocator, const void* value);
    CFStringRef (*copyDescription)(const void* value);
    bool (*equal)(const void* value1, const void* value2);
} CFArrayCallBacks;

KX_EXPORT extern const CFAllocatorRef kCFAllocatorDefault;

/* callbacks may be null: values are then held without retain or release. */
KX_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callbacks);
KX_EXPORT void CFArrayAppendValue(CFMutableArrayRef array, const void* value);
KX_EXPORT void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);
KX_EXPORT CFIndex CFArrayGetCount(CFArrayRef array);
KX_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
KX_EXPORT CFTypeRef CFRetain(CFTypeRef object);
KX_EXPORT void CFRelease(CFTypeRef object);
/* A constant string that lives for the whole process; the same text gives the same object. */
KX_EXPORT CFStringRef __CFStringMakeConstantString(const char* text);
KX_EXPORT const char* CFStringGetCStringPtr(CFStringRef string, uint32_t encoding);
/* Callbacks for arrays of KXImage: appending retains, removal and the array's end release. */
KX_EXPORT const CFArrayCallBacks* KXUtilsGetArrayCallbacks(void);

#ifdef __cplusplus
} /* extern "C" */

/* ---- Reference-counted classes and the task queue ---- */

#include <atomic>

/* A new object has one reference; Release destroys it at zero. */
class KX_EXPORT CBaseCore {
public:
    CBaseCore();
    virtual ~CBaseCore();
    virtual int32_t AddRef();
    virtual int32_t Release();

    CBaseCore(const CBaseCore&) = delete;
    CBaseCore& operator=(const CBaseCore&) = delete;

private:
    std::atomic<int32_t> m_references;
};

/* A unit of work for a CBaseTaskQueue. */
class KX_EXPORT CBaseTask : public CBaseCore {
public:
    CBaseTask();
    ~CBaseTask() override;
    virtual void Run() = 0;
    virtual void SetStop(bool stop);
    /* Runs on the worker after Run. */
    virtual void Finish();
    /* Negative when this task should run before other; equal tasks run in the order pushed. */
    virtual int32_t Compare(CBaseTask* other);

    bool IsStopRequested() const { return m_stop.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> m_stop;
};

struct CBaseTaskQueueState;

/* A pool of worker threads that takes tasks in Compare order. The destructor lets the queue run dry
   and joins the workers. */
class KX_EXPORT CBaseTaskQueue : public CBaseCore {
public:
    CBaseTaskQueue();
    ~CBaseTaskQueue() override;
    int32_t Initialize(const char* name, int32_t minThreads, int32_t maxThreads);
    /* The queue takes its own reference: the caller releases its one after pushing. */
    int32_t Push(CBaseTask* task);
    /* Blocks until every pushed task has finished. */
    void WaitUntilIdle();
    virtual void PreprocessTask(CBaseTask* task);
    virtual void PostprocessTask(CBaseTask* task);

protected:
    /* Places the task in the pending order; returns 0. */
    virtual int32_t ScheduleTask(CBaseTask* task);

private:
    void WorkerLoop();
    CBaseTaskQueueState* m_state;
};

#endif /* __cplusplus */

#endif /* KXCORE_H */
