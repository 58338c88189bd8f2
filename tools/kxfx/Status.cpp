#include "Status.h"

#include "KXEffects.h"
#include "ToolCommon.h"

#include <mutex>

namespace {

struct LoggedEvent {
    int32_t code = 0;
    std::string file;
    int32_t line = 0;
};

// The core may log from worker threads.
std::mutex gEventMutex;
LoggedEvent gLastEvent;

void KeepEvent(int32_t code, const char* file, int32_t line, void*)
{
    const std::lock_guard<std::mutex> lock(gEventMutex);
    gLastEvent = {code, file ? file : "", line};
}

std::string LastEventText()
{
    const std::lock_guard<std::mutex> lock(gEventMutex);
    if (gLastEvent.code == 0)
        return "no event logged";
    return "last event " + std::to_string(gLastEvent.code) + " at " + gLastEvent.file + ":" +
           std::to_string(gLastEvent.line);
}

std::string StatusText(int32_t status)
{
    return "status " + std::to_string(status) + " (" + StatusWords(status) + ")";
}

} // namespace

const char* StatusWords(int32_t status)
{
    switch (status) {
    case kKXNoErr:
        return "no error";
    case kKXErrOutOfMemory:
        return "out of memory";
    case kKXErrUnexpected:
        return "unexpected error";
    case kKXErrNoResource:
        return "a work image or table could not be made";
    case kKXErrBadInput:
        return "the input does not allow the operation";
    case kKXErrBadImageFormat:
        return "unknown colour space or depth";
    case kKXErrBadParam:
        return "bad parameter";
    case kKXErrNoOpenCL:
        return "OpenCL unavailable";
    case kKXErrUnsupported:
        return "unsupported depth, plane size or colour space";
    case kKXCoreErrBadArgument:
        return "bad argument to the core";
    case kKXCoreErrOutOfBounds:
        return "out of the image bounds";
    case kKXCoreErrColorProfile:
        return "colour profile error";
    default:
        return "unknown status";
    }
}

void RecordLibraryEvents()
{
    KXLogSetEventHandler(KeepEvent, nullptr);
}

void CheckCoreStatus(int32_t status, const std::string& action)
{
    if (status != 0)
        throw ToolError(action + ": " + StatusText(status));
}

void CallLibrary(const std::string& name, bool verbose, const std::function<int32_t()>& call)
{
    int32_t status = 0;
    try {
        status = call();
    } catch (int32_t thrown) {
        status = thrown;
    }
    if (status == 0)
        return;
    std::string message = name + " failed with " + StatusText(status);
    if (verbose)
        message += "; " + LastEventText();
    throw ToolError(message);
}
