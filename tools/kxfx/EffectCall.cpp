#include "EffectCall.h"

#include "Status.h"

bool IsImageInput(const ArgSpec& arg)
{
    switch (arg.kind) {
    case ArgKind::Source:
    case ArgKind::InPlace:
    case ArgKind::Image:
    case ArgKind::Mask:
    case ArgKind::Masks:
        return true;
    default:
        return false;
    }
}

bool IsValueSetting(const ArgSpec& arg)
{
    switch (arg.kind) {
    case ArgKind::Float:
    case ArgKind::Integer:
    case ArgKind::Bool:
    case ArgKind::Mode:
    case ArgKind::Colour:
    case ArgKind::Floats:
    case ArgKind::Curves:
    case ArgKind::Point:
    case ArgKind::FloatPoint:
        return true;
    default:
        return false;
    }
}

EffectCall::EffectCall(const EffectEntry& entry) : m_entry(entry), m_values(entry) {}

EffectCall::~EffectCall()
{
    if (m_masks)
        CFRelease(m_masks);
    if (m_made)
        KXImageRelease(m_made);
}

void EffectCall::SetInput(size_t index, ImageHandle image)
{
    if (!m_first)
        m_first = image;
    m_values.Set(index, image.get());
    m_inputs.push_back(std::move(image));
}

void EffectCall::SetMasks(size_t index, std::vector<ImageHandle> masks)
{
    if (!m_first && !masks.empty())
        m_first = masks.front();
    m_masks = CFArrayCreateMutable(kCFAllocatorDefault, 0, KXUtilsGetArrayCallbacks());
    for (ImageHandle& mask : masks) {
        CFArrayAppendValue(m_masks, mask.get());
        m_inputs.push_back(std::move(mask));
    }
    m_values.Set(index, CFArrayRef(m_masks));
}

int32_t EffectCall::ColourPlanes() const
{
    return KXImageGetNumPlanes(m_first.get()) - KXImageGetTransparency(m_first.get());
}

ImageHandle EffectCall::CopyOfFirst() const
{
    KXImage* copy = nullptr;
    CheckCoreStatus(KXImageCreateCopy(m_first.get(), &copy), "cannot copy the input");
    return AdoptImage(copy);
}

// Selections multiply the mask they are given; white leaves the whole selection.
ImageHandle EffectCall::WhiteMask() const
{
    const KXRect bounds = KXImageGetBounds(m_first.get());
    KXImage* mask = nullptr;
    CheckCoreStatus(KXImageCreateWithParams2(&bounds, KXImageGetDepth(m_first.get()), 1, KXColorSpaceGray, 0,
                                             KXDataSourceMemory, &mask),
                    "cannot make a mask image");
    ImageHandle handle = AdoptImage(mask);
    KXImageFill(mask, WhiteSample(KXImageGetDepth(m_first.get())));
    return handle;
}

void EffectCall::Prepare(const KXRect& rect)
{
    m_rect = rect;
    for (size_t index = 0; index < m_entry.argCount; ++index) {
        switch (m_entry.args[index].kind) {
        case ArgKind::Destination:
        case ArgKind::InPlace:
            m_result = CopyOfFirst();
            m_values.Set(index, m_result.get());
            break;
        case ArgKind::MaskDestination:
            m_result = WhiteMask();
            m_values.Set(index, m_result.get());
            break;
        case ArgKind::ExtraDestination:
            m_extra = CopyOfFirst();
            m_values.Set(index, m_extra.get());
            break;
        case ArgKind::Rect:
            m_values.Set(index, static_cast<const KXRect*>(&m_rect));
            break;
        case ArgKind::Out:
            m_values.AddOutput(index);
            break;
        case ArgKind::OutRect:
            m_values.Set(index, m_values.OutputRect());
            break;
        case ArgKind::OutImage:
            m_values.Set(index, &m_made);
            break;
        default:
            break;
        }
    }
}

int32_t EffectCall::Invoke()
{
    int32_t status = kKXNoErr;
    try {
        status = m_values.Invoke();
    } catch (int32_t thrown) {
        status = thrown;
    }
    if (m_made) {
        m_result = AdoptImage(m_made);
        m_made = nullptr;
    }
    return status;
}
