// Statuses of the library and the core, turned into one line of text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

// Short words for a status, such as "unsupported depth, plane size or colour space".
const char* StatusWords(int32_t status);

// Makes the core hand every logged event to kxfx, which keeps the last one for --verbose.
void RecordLibraryEvents();

// Throws ToolError "<action>: status N (words)" for a non-zero status.
void CheckCoreStatus(int32_t status, const std::string& action);

// Runs call inside a handler for the thrown int32_t status of the library. A non-zero status, returned or
// thrown, becomes ToolError "<name> failed with status N (words)", with the last logged event when verbose.
void CallLibrary(const std::string& name, bool verbose, const std::function<int32_t()>& call);
