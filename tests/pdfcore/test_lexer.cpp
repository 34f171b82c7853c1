// Tokens and objects of PDF syntax: strings, names, numbers, references,
// streams and the limits that keep hostile input bounded.
#include <gtest/gtest.h>

#include "pdfcore/CosLexer.h"
#include "pdfcore/CosParser.h"
#include "tests/pdfcore/test_support.h"

namespace {

CosToken OneToken(const std::string& text) {
    CosLexer lex(Span(text));
    return lex.Next();
}

TEST(CosLexer, LiteralStringEscapesNestingAndContinuation) {
    CosToken t = OneToken("(a\\n\\r\\t\\b\\f\\(\\)\\\\ (nested (twice)) \\101\\7\\0053x\\\nmore\\q)");
    ASSERT_EQ(t.type, CosTokType::String);
    EXPECT_EQ(t.text, std::string("a\n\r\t\b\f()\\ (nested (twice)) A\x07\x05" "3xmoreq"));
    // An end of line inside a string reads as LF.
    EXPECT_EQ(OneToken("(a\r\nb\rc)").text, "a\nb\nc");
    // Octal escapes keep the high bit; three digits past 377 wrap to a byte.
    EXPECT_EQ(OneToken("(\\351\\400)").text, std::string("\xE9\x00", 2));
    EXPECT_EQ(ErrorOf([] { OneToken("(never closed"); }), kErrUnterminatedString);
    EXPECT_EQ(ErrorOf([] { OneToken("(ends in an escape\\"); }), kErrUnterminatedString);
}

TEST(CosLexer, HexStringsOddDigitWhitespaceAndBadCharacters) {
    CosToken t = OneToken("<48 65\n6C6c 6F7>");
    ASSERT_EQ(t.type, CosTokType::HexString);
    EXPECT_EQ(t.text, "Hello\x70");
    EXPECT_EQ(ErrorOf([] { OneToken("<12G4>"); }), kErrNonHexChar);
    EXPECT_EQ(ErrorOf([] { OneToken("<1234"); }), kErrUnterminatedString);
}

TEST(CosLexer, NamesWithHexEscapesStopAtDelimiters) {
    std::string text = "/A#20B/C#2f(x)/#";
    CosLexer lex(Span(text));
    CosToken a = lex.Next(), c = lex.Next(), s = lex.Next(), e = lex.Next();
    EXPECT_EQ(a.text, "A B");
    EXPECT_EQ(c.text, "C/");
    EXPECT_EQ(s.type, CosTokType::String);
    EXPECT_EQ(e.type, CosTokType::Name);
    EXPECT_EQ(e.text, "#");
}

TEST(CosLexer, NumbersAreReadLeniently) {
    struct Case {
        const char* text;
        CosTokType type;
        double value;
    } cases[] = {{"42", CosTokType::Integer, 42},   {"-17", CosTokType::Integer, -17},
                 {"+5", CosTokType::Integer, 5},    {".5", CosTokType::Real, 0.5},
                 {"-.25", CosTokType::Real, -0.25}, {"--5", CosTokType::Integer, -5},
                 {"1.2.3", CosTokType::Real, 1.2},  {"4.", CosTokType::Real, 4},
                 {"99999999999999999999999", CosTokType::Real, 1e23}};
    for (const Case& c : cases) {
        CosToken t = OneToken(c.text);
        EXPECT_EQ(t.type, c.type) << c.text;
        EXPECT_DOUBLE_EQ(t.rval, c.value) << c.text;
    }
    EXPECT_EQ(OneToken("12abc").type, CosTokType::Keyword);
}

TEST(CosLexer, CommentsWhitespaceAndLines) {
    std::string text("% comment\n\0\t\f  true%x\r\nfalse", 28);
    CosLexer lex(Span(text));
    EXPECT_TRUE(lex.Next().IsKeyword("true"));
    EXPECT_TRUE(lex.Next().IsKeyword("false"));
    EXPECT_EQ(lex.Next().type, CosTokType::Eof);
    std::string text2 = "one\r\ntwo\rthree\nfour";
    CosLexer lines(Span(text2));
    std::string l;
    std::vector<std::string> got;
    while (lines.ReadLine(l)) got.push_back(l);
    EXPECT_EQ(got, (std::vector<std::string>{"one", "two", "three", "four"}));
}

TEST(CosLexer, TokenSizeIsCapped) {
    std::string big = "/" + std::string(CosLexer::kMaxToken + 10, 'a');
    EXPECT_EQ(ErrorOf([&] { OneToken(big); }), kErrTokenTooLong);
}

class ParseTest : public ::testing::Test {
protected:
    void SetUp() override { doc = CosDocCreate(); }
    void TearDown() override {
        for (CosObj o : parsed) CosObjDestroy(o);
        CosDocClose(doc);
    }
    CosObj Parse(const std::string& s) {
        CosObj o = CosParseObjectFromBuffer(doc, s.data(), s.size());
        parsed.push_back(o);
        return o;
    }
    CosDoc doc = nullptr;
    std::vector<CosObj> parsed;
};

TEST_F(ParseTest, ArraysDictionariesAndReferences) {
    CosObj d = Parse("<< /A [1 2.5 (s) <41> /N true null 7 0 R 8 9] /B << /C -3 >> /Z null >>");
    ASSERT_EQ(CosObjGetType(d), kCosDict);
    EXPECT_FALSE(CosDictKnown(d, ASAtomFromString("Z")));  // a null value is an absent key
    CosObj a = CosDictGet(d, ASAtomFromString("A"));
    ASSERT_EQ(CosArrayLength(a), 10);
    EXPECT_EQ(CosObjGetType(CosArrayGet(a, 6)), kCosNull);
    EXPECT_EQ(CosObjGetType(CosArrayGet(a, 1)), kCosFixed);
    EXPECT_EQ(CosStringBytes(CosArrayGet(a, 3)), "A");
    EXPECT_TRUE(CosStringIsHex(CosArrayGet(a, 3)));
    EXPECT_EQ(CosRawType(CosArrayGetRaw(a, 7)), kCosIndirect);
    EXPECT_EQ(CosRefGetID(CosArrayGetRaw(a, 7)), 7);
    // "8 9" without R stays two integers.
    EXPECT_EQ(CosIntegerValue(CosArrayGet(a, 8)), 8);
    EXPECT_EQ(CosIntegerValue(CosArrayGet(a, 9)), 9);
    EXPECT_EQ(CosIntegerValue(CosDictGet(CosDictGet(d, ASAtomFromString("B")), ASAtomFromString("C"))), -3);
}

TEST_F(ParseTest, BrokenContainersRaiseAndLeakNothing) {
    EXPECT_EQ(ErrorOf([&] { Parse("[1 2 (x)"); }), kErrEndOfArray);
    EXPECT_EQ(ErrorOf([&] { Parse("<< /A 1 /B [2"); }), kErrEndOfArray);
    EXPECT_EQ(ErrorOf([&] { Parse("<< /A 1 endobj"); }), kErrEndOfDict);
    EXPECT_EQ(ErrorOf([&] { Parse(""); }), kErrReadObject);
    // Junk keys and keywords inside containers are skipped as viewers do.
    CosObj d = Parse("<< 12 /A 1 junk /B 2 >>");
    EXPECT_EQ(CosDictCount(d), 2);
}

TEST_F(ParseTest, DeepNestingIsCappedNotOverflowingTheStack) {
    std::string ok(CosParser::kMaxDepth - 1, '[');
    ok += std::string(CosParser::kMaxDepth - 1, ']');
    EXPECT_EQ(CosObjGetType(Parse(ok)), kCosArray);
    std::string deep(100000, '[');
    EXPECT_EQ(ErrorOf([&] { Parse(deep); }), kErrTooComplex);
    std::string dicts;
    for (int i = 0; i < 5000; ++i) dicts += "<</A ";
    EXPECT_EQ(ErrorOf([&] { Parse(dicts); }), kErrTooComplex);
}

TEST(CosStreamExtent, LengthTrustedOnlyWhenEndstreamFollows) {
    std::string file = "stream\r\nABCDEFGH\nendstream";
    size_t len = 0;
    CosParser::FindStreamExtent(Span(file), 8, 8, len);
    EXPECT_EQ(len, 8u);
    CosParser::FindStreamExtent(Span(file), 8, 5, len);  // too short: search
    EXPECT_EQ(len, 8u);
    CosParser::FindStreamExtent(Span(file), 8, -1, len);  // missing
    EXPECT_EQ(len, 8u);
    std::string cut = "stream\nABCDEFGH";
    EXPECT_EQ(ErrorOf([&] { CosParser::FindStreamExtent(Span(cut), 7, 100, len); }), kErrStreamTooShort);
    EXPECT_EQ(ErrorOf([&] { CosParser::FindStreamExtent(Span(cut), 7, -1, len); }), kErrMissingEndstream);
    CosParser::FindStreamExtent(Span(cut), 7, 4, len);  // a cut file keeps the Length
    EXPECT_EQ(len, 4u);
}

}  // namespace
