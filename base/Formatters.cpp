// Text formatters for sizes, durations, dates and bytes.
#include "base/Formatters.h"

#include <locale.h>

#include <cstdio>

namespace {

// The "C" locale, made once; formatting through it keeps '.' as the decimal
// point and English day and month names whatever locale the process runs in.
locale_t CLocale() {
    static locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return loc;
}

// Switches the calling thread to the "C" locale for the scope's lifetime.
class CLocaleScope {
public:
    CLocaleScope() : m_prev(CLocale() ? uselocale(CLocale()) : static_cast<locale_t>(0)) {}
    ~CLocaleScope() {
        if (m_prev) uselocale(m_prev);
    }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    locale_t m_prev;
};

// "%ld" with a "," between every group of three digits from the right.
std::string GroupedDecimal(long value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%ld", value);
    std::string in(digits);
    std::string sign;
    if (!in.empty() && in[0] == '-') {
        sign = "-";
        in.erase(0, 1);
    }
    std::string out;
    const size_t n = in.size();
    for (size_t i = 0; i < n; ++i) {
        if (i > 0 && (n - i) % 3 == 0) out += ',';
        out += in[i];
    }
    return sign + out;
}

}  // namespace

void ClockNow(long& seconds, int& milliseconds) {
    struct timespec ts {};
    timespec_get(&ts, TIME_UTC);
    seconds = static_cast<long>(ts.tv_sec);
    milliseconds = static_cast<int>(ts.tv_nsec / 1000000);
}

std::string SizeText(int32_t bytes) {
    CLocaleScope c;
    char buf[64];
    std::string text;
    if (bytes >= 1024 && bytes < 1048576) {
        std::snprintf(buf, sizeof buf, "%.1f KB", bytes / 1024.0);
        text = buf;
        text += ' ';
    } else if (bytes >= 1048576) {
        std::snprintf(buf, sizeof buf, "%.2f MB", bytes / 1048576.0);
        text = buf;
        text += ' ';
    }
    text += "(" + GroupedDecimal(bytes) + " Bytes)";
    return text;
}

std::string DurationText(const JobTimer& timer) {
    const long ds = timer.endSec - timer.startSec;
    const long dms = static_cast<long>(timer.endMs) - timer.startMs;
    if (ds == 0 && dms == 0) return "< 1 second";

    CLocaleScope c;
    const double t = static_cast<double>(ds * 1000 + dms) * 0.001;
    const long h = static_cast<long>(t) / 3600;
    const long m = static_cast<long>((t - static_cast<double>(h * 3600)) * (1.0 / 60));
    const long s = static_cast<long>(t - static_cast<double>(h * 3600 + m * 60));
    char buf[96];
    if (h > 0)
        std::snprintf(buf, sizeof buf, "%d hours %d minutes %d seconds", static_cast<int>(h),
                      static_cast<int>(m), static_cast<int>(s));
    else if (m > 0)
        std::snprintf(buf, sizeof buf, "%d minutes %d seconds", static_cast<int>(m), static_cast<int>(s));
    else
        std::snprintf(buf, sizeof buf, "%.2f seconds", t);
    return buf;
}

std::string PdfDateText(const struct tm& when) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "D:%4d%02d%02d%02d%02d%02d-00'00'", when.tm_year + 1900, when.tm_mon + 1,
                  when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    return buf;
}

std::string LogStampText(const struct tm& when) {
    char buf[128];
    size_t n = CLocale() ? strftime_l(buf, sizeof buf, "%A, %B %d, %Y  %I:%M:%S %p", &when, CLocale())
                         : strftime(buf, sizeof buf, "%A, %B %d, %Y  %I:%M:%S %p", &when);
    return std::string(buf, n);
}

std::string HexText(const void* data, size_t length) {
    static const char kDigits[] = "0123456789ABCDEF";
    const auto* p = static_cast<const unsigned char*>(data);
    std::string out;
    out.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        out += kDigits[p[i] >> 4];
        out += kDigits[p[i] & 0xF];
    }
    return out;
}
