#include <windows.h>

#include "platform/system_time.h"

namespace fatvol {
namespace {

// The record of the native calendar calls, which no header of the ordinary interface declares.
struct NativeTimeFields {
    SHORT year, month, day, hour, minute, second, milliseconds, weekday;
};
static_assert(sizeof(NativeTimeFields) == 16);

using ToTimeProc = BOOLEAN(NTAPI*)(NativeTimeFields*, LARGE_INTEGER*);
using ToFieldsProc = VOID(NTAPI*)(LARGE_INTEGER*, NativeTimeFields*);

// Every process has this module loaded from its start to its end.
template <typename Proc>
Proc NativeProc(const char* name) {
    const HMODULE module = GetModuleHandleW(L"ntdll.dll");
    return reinterpret_cast<Proc>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

bool ToNative(const TimeFields& fields, NativeTimeFields* native) {
    const int values[] = {fields.year,   fields.month,  fields.day,         fields.hour,
                          fields.minute, fields.second, fields.milliseconds};
    for (const int value : values) {
        if (value < 0 || value > LastSystemYear) {  // would not survive the 16-bit fields
            return false;
        }
    }
    *native = {static_cast<SHORT>(fields.year),         static_cast<SHORT>(fields.month),
               static_cast<SHORT>(fields.day),          static_cast<SHORT>(fields.hour),
               static_cast<SHORT>(fields.minute),       static_cast<SHORT>(fields.second),
               static_cast<SHORT>(fields.milliseconds), 0};
    return true;
}

}  // namespace

bool TimeFieldsToSystemTime(const TimeFields& fields, std::int64_t* systemTime) {
    static const auto toTime = NativeProc<ToTimeProc>("RtlTimeFieldsToTime");
    NativeTimeFields native;
    LARGE_INTEGER time;
    if (toTime == nullptr || !ToNative(fields, &native) || !toTime(&native, &time)) {
        return false;
    }
    // Not every implementation refuses the 29 February of a common year: it may become 1 March.
    TimeFields back;
    SystemTimeToTimeFields(time.QuadPart, &back);
    if (back.month != fields.month || back.day != fields.day) {
        return false;
    }
    *systemTime = time.QuadPart;
    return true;
}

void SystemTimeToTimeFields(std::int64_t systemTime, TimeFields* fields) {
    static const auto toFields = NativeProc<ToFieldsProc>("RtlTimeToTimeFields");
    LARGE_INTEGER time;
    time.QuadPart = systemTime;
    NativeTimeFields native{};  // stays in the year 0, which every caller refuses
    if (toFields != nullptr) {
        toFields(&time, &native);
    }
    *fields = {native.year,   native.month,  native.day,         native.hour,
               native.minute, native.second, native.milliseconds};
}

}  // namespace fatvol
