// Error texts, the lookup buffer rules and raising.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/ASError.h"
#include "base/ASMem.h"

namespace {

struct Captured {
    std::string text;
    static void Proc(const char* t, void* client) { static_cast<Captured*>(client)->text += t; }
};

}  // namespace

TEST(ErrorTextTest, TableEndsAndOutsideRange) {
    EXPECT_STREQ(ASGetErrorString(0x1001), "an internal error occurred");
    EXPECT_STREQ(ASGetErrorString(0x10E8), "routine not yet implemented");
    EXPECT_STREQ(ASGetErrorString(0x10F0), "an application-defined filter failed to decode");
    EXPECT_STREQ(ASGetErrorString(0x1000), "unknown error");
    EXPECT_STREQ(ASGetErrorString(0x10F1), "unknown error");
    EXPECT_STREQ(ASGetErrorString(0), "unknown error");
    EXPECT_STREQ(ASGetErrorString(0xFFFF), "unknown error");
}

TEST(ErrorTextTest, OnlyTheNumberSelectsTheText) {
    for (ASInt32 sev : {0, 2, 4, 0x7F, 0xFF})
        for (ASInt32 sys : {0, 1, 10, 12, 0xFF})
            EXPECT_STREQ(ASGetErrorString(ErrBuildCode(sev, sys, 0x1058)), "bad parameter") << sev << "/" << sys;
    // Several numbers share one text.
    EXPECT_STREQ(ASGetErrorString(0x105B), ASGetErrorString(0x1001));
    EXPECT_STREQ(ASGetErrorString(0x1097), "wrong operand type");
    EXPECT_STREQ(ASGetErrorString(0x1098), "wrong operand type");
    EXPECT_STREQ(ASGetErrorString(0x101F), "no error");
    // Group boundaries: the last page-contents row, the first document-layer row.
    EXPECT_STREQ(ASGetErrorString(0x1099), "could not find the XObject");
    EXPECT_STREQ(ASGetErrorString(0x109A), "creation of the notes file was cancelled");
    EXPECT_STREQ(ASGetErrorString(0x10E7), "assertion failed");
}

TEST(ErrorTextTest, BufferRules) {
    char buf[16];
    memset(buf, 'x', sizeof buf);
    // Cut to size - 1 and terminated; bytes past `size` untouched.
    EXPECT_EQ(ASGetErrorText(ErrBuildCode(4, 0, 0x1058), buf, 5), buf);
    EXPECT_STREQ(buf, "bad ");
    EXPECT_EQ(buf[5], 'x');

    // The buffer is cleared first: a short text leaves zeros behind it.
    memset(buf, 'x', sizeof buf);
    ASGetErrorText(0x1007, buf, sizeof buf);
    EXPECT_STREQ(buf, "syntax error");
    for (size_t i = strlen("syntax error"); i < sizeof buf; ++i) EXPECT_EQ(buf[i], '\0') << i;

    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(ASGetErrorText(0x1058, buf, 1), buf);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'x');

    EXPECT_EQ(ASGetErrorText(0x1058, nullptr, 10), nullptr);
    EXPECT_EQ(ASGetErrorText(0x1058, buf, 0), nullptr);
    EXPECT_EQ(ASGetErrorText(0x1058, buf, -3), nullptr);
    EXPECT_EQ(buf[0], '\0');  // untouched since the size-1 call
    EXPECT_EQ(buf[1], 'x');
}

TEST(RaiseTest, ThrowsTheCodeAndReportsOnlyWhenStarted) {
    const ASErrorCode code = ErrBuildCode(4, 0, 0x1058);
    try {
        ASRaise(code);
        FAIL() << "ASRaise returned";
    } catch (const CVellumError& e) {
        EXPECT_EQ(e.GetErrorCode(), code);
        EXPECT_STREQ(e.what(), "bad parameter");
    }

    Captured cap;
    VellumDataRec rec;
    rec.statusProc = &Captured::Proc;
    rec.statusClientData = &cap;
    VellumInit(&rec);
    EXPECT_THROW(ASRaise(code), CVellumError);
    EXPECT_THROW(ASRaise(0x02021037, "Parse.cpp", 42), CVellumError);
    // Codes print as signed 32-bit decimals.
    EXPECT_THROW(ASRaiseErr(ErrSysGeneral, kErrNotImplemented), CVellumError);
    EXPECT_THROW(ASRaise(ErrBuildCode(0x80, 0, 0x1058)), CVellumError);
    VellumTerm();
    EXPECT_EQ(cap.text,
              "ASRaise called with error #67113048 [bad parameter]\n"
              "ASRaise called with error #33689655 [file does not begin with '%PDF-'] from file Parse.cpp, line 42\n"
              "ASRaise called with error #67113192 [routine not yet implemented]\n"
              "ASRaise called with error #-2147479464 [bad parameter]\n");

    cap.text.clear();
    EXPECT_THROW(ASRaiseParse(0x1037), CVellumError);
    EXPECT_EQ(cap.text, "");
}
