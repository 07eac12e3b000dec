// A stand-in for the product's scheduler library: a report with bytes that a text conversion would change.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(_WIN32)
#define FAKE_EXPORT extern "C" __declspec(dllexport)
#else
#define FAKE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

struct ReportBuffer {
    char* data;
    std::uint32_t reserved;
    std::uint32_t length;
};

static const char kReport[] = "Task 1\r\n\0binary\xFF\n";

FAKE_EXPORT void ScheduleCreateLocalReport(ReportBuffer* buffer) {
    buffer->length = sizeof kReport - 1;
    buffer->data = static_cast<char*>(std::malloc(buffer->length));
    std::memcpy(buffer->data, kReport, buffer->length);
}

FAKE_EXPORT void ScheduleFreeMemory(void* data) { std::free(data); }
