// Size, duration, date, stamp and hexadecimal texts.
#include <gtest/gtest.h>

#include <string>

#include "base/Formatters.h"

namespace {

JobTimer Span(long startSec, int startMs, long endSec, int endMs) {
    JobTimer t;
    t.startSec = startSec;
    t.startMs = startMs;
    t.endSec = endSec;
    t.endMs = endMs;
    return t;
}

struct tm April16() {
    struct tm t {};
    t.tm_year = 104;
    t.tm_mon = 3;
    t.tm_mday = 16;
    t.tm_hour = 9;
    t.tm_min = 30;
    t.tm_sec = 5;
    t.tm_wday = 5;  // a Friday
    return t;
}

}  // namespace

TEST(SizeTextTest, UnitsAndGrouping) {
    EXPECT_EQ(SizeText(0), "(0 Bytes)");
    EXPECT_EQ(SizeText(512), "(512 Bytes)");
    EXPECT_EQ(SizeText(1023), "(1,023 Bytes)");
    EXPECT_EQ(SizeText(1024), "1.0 KB (1,024 Bytes)");
    EXPECT_EQ(SizeText(2048), "2.0 KB (2,048 Bytes)");
    EXPECT_EQ(SizeText(1048575), "1024.0 KB (1,048,575 Bytes)");
    EXPECT_EQ(SizeText(1048576), "1.00 MB (1,048,576 Bytes)");
    EXPECT_EQ(SizeText(3145728), "3.00 MB (3,145,728 Bytes)");
    EXPECT_EQ(SizeText(2147483647), "2048.00 MB (2,147,483,647 Bytes)");
    EXPECT_EQ(SizeText(-1234), "(-1,234 Bytes)");
    EXPECT_EQ(SizeText(-123), "(-123 Bytes)");
}

TEST(DurationTextTest, Ranges) {
    EXPECT_EQ(DurationText(Span(100, 250, 100, 250)), "< 1 second");
    EXPECT_EQ(DurationText(Span(100, 0, 100, 400)), "0.40 seconds");
    // Milliseconds that borrow from the seconds.
    EXPECT_EQ(DurationText(Span(100, 900, 101, 300)), "0.40 seconds");
    EXPECT_EQ(DurationText(Span(0, 0, 59, 990)), "59.99 seconds");
    EXPECT_EQ(DurationText(Span(0, 0, 60, 0)), "1 minutes 0 seconds");
    EXPECT_EQ(DurationText(Span(1000, 0, 1061, 500)), "1 minutes 1 seconds");
    EXPECT_EQ(DurationText(Span(0, 0, 3725, 0)), "1 hours 2 minutes 5 seconds");
    EXPECT_EQ(DurationText(Span(0, 0, 3600, 0)), "1 hours 0 minutes 0 seconds");
}

TEST(DateTextTest, PdfDateAndLogStamp) {
    EXPECT_EQ(PdfDateText(April16()), "D:20040416093005-00'00'");
    struct tm late = April16();
    late.tm_year = 125;
    late.tm_mon = 11;
    late.tm_mday = 31;
    late.tm_hour = 23;
    late.tm_min = 59;
    late.tm_sec = 58;
    EXPECT_EQ(PdfDateText(late), "D:20251231235958-00'00'");

    EXPECT_EQ(LogStampText(April16()), "Friday, April 16, 2004  09:30:05 AM");
    EXPECT_EQ(LogStampText(late).substr(LogStampText(late).size() - 11), "11:59:58 PM");
}

TEST(HexTextTest, UpperCasePairs) {
    const unsigned char bytes[] = {0x00, 0x0F, 0xA5, 0xFF, 0x10};
    EXPECT_EQ(HexText(bytes, sizeof bytes), "000FA5FF10");
    EXPECT_EQ(HexText(bytes, 0), "");
}
