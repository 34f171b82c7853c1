// Size, duration, date, stamp and hexadecimal texts.
#include <gtest/gtest.h>

#include <string>

#include "base/Formatters.h"

namespace {

// A broken-down time; the weekday only matters to the log stamp.
struct tm Tm(int year, int mon, int mday, int hour, int min, int sec, int wday = 0) {
    struct tm t {};
    t.tm_year = year - 1900;
    t.tm_mon = mon - 1;
    t.tm_mday = mday;
    t.tm_hour = hour;
    t.tm_min = min;
    t.tm_sec = sec;
    t.tm_wday = wday;
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
    EXPECT_EQ(DurationText(JobTimer{100, 250, 100, 250}), "< 1 second");
    EXPECT_EQ(DurationText(JobTimer{100, 0, 100, 400}), "0.40 seconds");
    // Milliseconds that borrow from the seconds.
    EXPECT_EQ(DurationText(JobTimer{100, 900, 101, 300}), "0.40 seconds");
    EXPECT_EQ(DurationText(JobTimer{0, 0, 59, 990}), "59.99 seconds");
    EXPECT_EQ(DurationText(JobTimer{0, 0, 60, 0}), "1 minutes 0 seconds");
    EXPECT_EQ(DurationText(JobTimer{1000, 0, 1061, 500}), "1 minutes 1 seconds");
    EXPECT_EQ(DurationText(JobTimer{0, 0, 3725, 0}), "1 hours 2 minutes 5 seconds");
    EXPECT_EQ(DurationText(JobTimer{0, 0, 3600, 0}), "1 hours 0 minutes 0 seconds");
}

TEST(DateTextTest, PdfDateAndLogStamp) {
    const struct tm april16 = Tm(2004, 4, 16, 9, 30, 5, 5), late = Tm(2025, 12, 31, 23, 59, 58);
    EXPECT_EQ(PdfDateText(april16), "D:20040416093005-00'00'");
    EXPECT_EQ(PdfDateText(late), "D:20251231235958-00'00'");
    EXPECT_EQ(LogStampText(april16), "Friday, April 16, 2004  09:30:05 AM");
    EXPECT_EQ(LogStampText(late).substr(LogStampText(late).size() - 11), "11:59:58 PM");
}

TEST(HexTextTest, UpperCasePairs) {
    const unsigned char bytes[] = {0x00, 0x0F, 0xA5, 0xFF, 0x10};
    EXPECT_EQ(HexText(bytes, sizeof bytes), "000FA5FF10");
    EXPECT_EQ(HexText(bytes, 0), "");
}
