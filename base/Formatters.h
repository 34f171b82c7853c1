// Texts for byte counts, durations, dates and bytes, as the summary, the
// report, the log and PDF metadata print them.  All numbers use the "C"
// locale's decimal point whatever the user's locale is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

// A start and an end time from the millisecond clock, each held as whole
// seconds plus milliseconds.
struct JobTimer {
    long startSec = 0;
    int startMs = 0;
    long endSec = 0;
    int endMs = 0;
};

// The millisecond clock: the current time as seconds and milliseconds.
void ClockNow(long& seconds, int& milliseconds);
inline void TimerStart(JobTimer& t) { ClockNow(t.startSec, t.startMs); }
inline void TimerStop(JobTimer& t) { ClockNow(t.endSec, t.endMs); }

// "(512 Bytes)", "2.0 KB (2,048 Bytes)", "3.00 MB (3,145,728 Bytes)".
std::string SizeText(int32_t bytes);
// "< 1 second", "0.40 seconds", "1 minutes 1 seconds", "1 hours 2 minutes 5 seconds".
std::string DurationText(const JobTimer& timer);
// "D:20040416093005-00'00'" (the zone part is always -00'00').
std::string PdfDateText(const struct tm& when);
// The stamp that prefixes log lines: "Friday, April 16, 2004  09:30:05 AM".
std::string LogStampText(const struct tm& when);
// Two upper-case hexadecimal digits per byte.
std::string HexText(const void* data, size_t length);
