// Information dictionary set-up and PDF dates.
#include "pdfcore/CosInfo.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"

std::string CosInfoFormatDate(const std::tm& when, long utcOffsetSeconds) {
    char sign = utcOffsetSeconds > 0 ? '+' : (utcOffsetSeconds < 0 ? '-' : 'Z');
    long hours = (utcOffsetSeconds < 0 ? -utcOffsetSeconds : utcOffsetSeconds) / 3600;
    char buf[64];
    snprintf(buf, sizeof buf, "D:%4d%02d%02d%02d%02d%02d%c%02d'00'", when.tm_year + 1900,
             when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec, sign,
             static_cast<int>(hours));
    return buf;
}

namespace {
bool ReadSourceDateEpoch(time_t* out) {
    const char* s = getenv("SOURCE_DATE_EPOCH");
    if (s == nullptr || *s == '\0') return false;
    errno = 0;
    char* end = nullptr;
    long long v = strtoll(s, &end, 10);
    // A value that is not a plain non-negative number is ignored.
    if (errno != 0 || end == s || *end != '\0' || v < 0 || v > 253402300799LL) return false;
    *out = static_cast<time_t>(v);
    return true;
}
}  // namespace

time_t CosInfoNow(bool* reproducible) {
    time_t t = 0;
    bool fixed = ReadSourceDateEpoch(&t);
    if (reproducible) *reproducible = fixed;
    return fixed ? t : time(nullptr);
}

bool CosInfoReproducible() {
    time_t t;
    return ReadSourceDateEpoch(&t);
}

std::string CosInfoCurrentDate() {
    bool fixed = false;
    time_t now = CosInfoNow(&fixed);
    std::tm utc{};
    gmtime_r(&now, &utc);
    if (fixed) return CosInfoFormatDate(utc, 0);
    std::tm local{};
    localtime_r(&now, &local);
    return CosInfoFormatDate(local, local.tm_gmtoff);
}

CosObj CosDocSetupInfo(CosDoc doc) {
    CosDocValidate(doc);
    CosObj info = CosDocGetInfo(doc);
    if (!CosObjIsNull(info) && CosObjGetType(info) == kCosDict) return info;
    info = CosNewDict(doc, true, 4);
    const std::string date = CosInfoCurrentDate();
    CosDictPut(info, cosnames::CreationDate, CosNewString(doc, false, date));
    CosDictPut(info, cosnames::ModDate, CosNewString(doc, false, date));
    CosDictPut(info, cosnames::Producer, CosNewString(doc, false, std::string_view("Vellum")));
    CosDictPut(info, cosnames::Creator, CosNewString(doc, false, std::string_view("Vellum")));
    CosDictPut(CosDocGetTrailer(doc), cosnames::Info, info);
    return info;
}
