// The log: error events and text lines, forwarded to handlers that the host installs.
#include "KXCore.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace {

using EventHandler = void (*)(int32_t code, const char* file, int32_t line, void* user);
using TextHandler = void (*)(const char* text, void* user);

// A handler and its user pointer, swapped and read as one under a lock; the call itself runs unlocked.
template <class Handler> class HandlerSlot {
public:
    void Set(Handler handler, void* user)
    {
        const std::lock_guard lock(m_mutex);
        m_handler = handler;
        m_user = user;
    }
    std::pair<Handler, void*> Get()
    {
        const std::lock_guard lock(m_mutex);
        return {m_handler, m_user};
    }

private:
    std::mutex m_mutex;
    Handler m_handler = nullptr;
    void* m_user = nullptr;
};

HandlerSlot<EventHandler> eventSlot;
HandlerSlot<TextHandler> textSlot;

} // namespace

void KXLogEvent(int32_t code, const char* file, int32_t line)
{
    const auto [handler, user] = eventSlot.Get();
    if (handler)
        handler(code, file ? file : "", line, user);
}

void KXLogUTF8(const char* text)
{
    if (!text)
        return;
    const auto [handler, user] = textSlot.Get();
    if (handler)
        handler(text, user);
    else
        std::fprintf(stderr, "%s\n", text);
}

void KXLogSetEventHandler(EventHandler handler, void* user)
{
    eventSlot.Set(handler, user);
}

void KXLogSetTextHandler(TextHandler handler, void* user)
{
    textSlot.Set(handler, user);
}
