#include "Progress.h"

#include "ToolCommon.h"

#include <algorithm>

namespace {

constexpr int32_t kBarWidth = 40;

} // namespace

ProgressBar::ProgressBar(std::FILE* stream, bool enabled) : m_stream(stream)
{
    const KXProgressCallbacks drawing = {Begin, Update, End};
    const KXProgressCallbacks silent = {nullptr, nullptr, nullptr};
    if (KXProgressCreate(enabled ? &drawing : &silent, this, &m_progress) != 0)
        throw ToolError("cannot make a progress object");
}

ProgressBar::~ProgressBar()
{
    KXProgressRelease(m_progress);
}

void ProgressBar::Begin(void* user, int32_t first, const char* label, int32_t last)
{
    ProgressBar& bar = *static_cast<ProgressBar*>(user);
    bar.m_label = label ? label : "";
    bar.m_first = first;
    bar.m_last = last;
    bar.m_drawnPercent = -1;
    bar.Draw(0);
}

void ProgressBar::Update(void* user, int32_t value)
{
    ProgressBar& bar = *static_cast<ProgressBar*>(user);
    const int64_t span = std::max<int64_t>(int64_t(bar.m_last) - bar.m_first, 1);
    const int64_t percent = (int64_t(value) - bar.m_first) * 100 / span;
    bar.Draw(int32_t(std::clamp<int64_t>(percent, 0, 100)));
}

void ProgressBar::End(void* user)
{
    ProgressBar& bar = *static_cast<ProgressBar*>(user);
    bar.Draw(100);
    std::fputc('\n', bar.m_stream);
    std::fflush(bar.m_stream);
}

// Redraws the line in place, only when the percentage changes.
void ProgressBar::Draw(int32_t percent)
{
    if (percent == m_drawnPercent)
        return;
    m_drawnPercent = percent;
    const int32_t filled = percent * kBarWidth / 100;
    const std::string bar = std::string(size_t(filled), '#') + std::string(size_t(kBarWidth - filled), '-');
    std::fprintf(m_stream, "\r%s%s[%s] %3d%%", m_label.c_str(), m_label.empty() ? "" : " ", bar.c_str(), int(percent));
    std::fflush(m_stream);
}
