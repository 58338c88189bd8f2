// Arrays and constant strings in the CoreFoundation manner, and the callbacks for arrays of images.
#include "KXCore.h"
#include "KXCorePrivate.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

enum class CFKind : int32_t { kArray, kString };

// Every object that CFRetain and CFRelease meet starts with this header.
struct CFObjectHeader {
    explicit CFObjectHeader(CFKind objectKind) : kind(objectKind) {}
    const CFKind kind;
    std::atomic<int32_t> references{1};
};

} // namespace

struct __CFArray : CFObjectHeader {
    __CFArray(CFAllocatorRef arrayAllocator, const CFArrayCallBacks& arrayCallbacks)
        : CFObjectHeader(CFKind::kArray), allocator(arrayAllocator), callbacks(arrayCallbacks)
    {
    }
    ~__CFArray()
    {
        for (const void* value : values)
            ReleaseValue(value);
    }
    void ReleaseValue(const void* value) const
    {
        if (callbacks.release)
            callbacks.release(allocator, value);
    }

    CFAllocatorRef allocator;
    CFArrayCallBacks callbacks;
    std::vector<const void*> values;
};

// Constant strings are never freed: CFRetain and CFRelease leave them alone.
struct __CFString : CFObjectHeader {
    explicit __CFString(std::string stringText) : CFObjectHeader(CFKind::kString), text(std::move(stringText)) {}
    const std::string text;
};

namespace {

const void* RetainImage(CFAllocatorRef, const void* value)
{
    KXImageRetain(static_cast<KXImage*>(const_cast<void*>(value)));
    return value;
}

void ReleaseImage(CFAllocatorRef, const void* value)
{
    KXImageRelease(static_cast<KXImage*>(const_cast<void*>(value)));
}

const CFArrayCallBacks kImageArrayCallbacks = {0, RetainImage, ReleaseImage, nullptr, nullptr};

// The array behind a CF object; null for null and for a constant string, which is immortal.
__CFArray* ArrayOf(CFTypeRef object)
{
    auto* header = static_cast<CFObjectHeader*>(const_cast<void*>(object));
    return header && header->kind == CFKind::kArray ? static_cast<__CFArray*>(header) : nullptr;
}

} // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity, const CFArrayCallBacks* callbacks)
{
    auto* array = new (std::nothrow) __CFArray(allocator, callbacks ? *callbacks : CFArrayCallBacks{});
    if (array && capacity > 0)
        array->values.reserve(size_t(capacity));
    return array;
}

void CFArrayAppendValue(CFMutableArrayRef array, const void* value)
{
    if (!array)
        return;
    array->values.push_back(array->callbacks.retain ? array->callbacks.retain(array->allocator, value) : value);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index)
{
    if (!array || index < 0 || size_t(index) >= array->values.size())
        return;
    const void* value = array->values[size_t(index)];
    array->values.erase(array->values.begin() + index);
    array->ReleaseValue(value);
}

CFIndex CFArrayGetCount(CFArrayRef array)
{
    return array ? CFIndex(array->values.size()) : 0;
}

const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index)
{
    if (!array || index < 0 || size_t(index) >= array->values.size())
        return nullptr;
    return array->values[size_t(index)];
}

CFTypeRef CFRetain(CFTypeRef object)
{
    kxcore::RetainReference(ArrayOf(object));
    return object;
}

void CFRelease(CFTypeRef object)
{
    kxcore::ReleaseReference(ArrayOf(object));
}

CFStringRef __CFStringMakeConstantString(const char* text)
{
    if (!text)
        return nullptr;
    // Leaked on purpose: the strings must outlive every static destructor that might still use them.
    static auto* mutex = new std::mutex;
    static auto* strings = new std::unordered_map<std::string, std::unique_ptr<__CFString>>;
    const std::lock_guard lock(*mutex);
    std::unique_ptr<__CFString>& entry = (*strings)[text];
    if (!entry)
        entry = std::make_unique<__CFString>(text);
    return entry.get();
}

const char* CFStringGetCStringPtr(CFStringRef string, uint32_t)
{
    return string ? string->text.c_str() : nullptr;
}

const CFArrayCallBacks* KXUtilsGetArrayCallbacks(void)
{
    return &kImageArrayCallbacks;
}
