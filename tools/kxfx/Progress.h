// A text progress bar, driven by effects through the core's progress object.
#pragma once

#include "KXCore.h"

#include <cstdio>
#include <string>

class ProgressBar {
public:
    // A disabled bar still hands out a progress object, one that draws nothing.
    ProgressBar(std::FILE* stream, bool enabled);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    KXProgress* Progress() const { return m_progress; }

private:
    static void Begin(void* user, int32_t first, const char* label, int32_t last);
    static void Update(void* user, int32_t value);
    static void End(void* user);
    void Draw(int32_t percent);

    std::FILE* m_stream;
    KXProgress* m_progress = nullptr;
    std::string m_label;
    int32_t m_first = 0;
    int32_t m_last = 0;
    int32_t m_drawnPercent = -1;
};
