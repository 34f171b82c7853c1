// The exact bytes of written objects, numbers, strings, tables and dates.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "pdfcore/CosInfo.h"
#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "tests/pdfcore/test_support.h"
#include "pdfcore/CosWriter.h"

namespace {

std::string Fixed(double v, int p) {
    std::string out;
    CosWriteFixed(out, v, p);
    return out;
}

class WriterTest : public CosDocTest {
protected:
    void TearDown() override {
        for (CosObj o : owned) CosObjDestroy(o);
        CosDocTest::TearDown();
    }
    // Top-level direct objects have no container to free them.
    CosObj Own(CosObj o) {
        owned.push_back(o);
        return o;
    }
    std::string Body(CosObj obj, bool compact = false) {
        CosObjWriter w(compact);
        std::string out;
        w.WriteBody(out, obj);
        return out;
    }
    std::vector<CosObj> owned;
};

const ASAtom kA = ASAtomFromString("A");

TEST(WriterNumbers, FixedPointExamplesAndRounding) {
    // The sign is taken before rounding: -0.000001 at 5 places is "-0".
    const std::tuple<double, int, const char*> cases[] = {
        {1.5, 5, "1.5"},   {2.5, 5, "2.5"},     {0.1234567, 5, "0.12346"}, {-1.25, 5, "-1.25"},
        {0.0, 5, "0"},     {2.5, 0, "3"},       {0.05, 1, "0.1"},          {0.000001, 9, "0.000001"},
        {612.0, 3, "612"}, {5000000000.25, 2, "5000000000.25"},           {-0.000001, 5, "-0"},
        {-0.0, 5, "0"}};
    for (auto [value, places, text] : cases) EXPECT_EQ(Fixed(value, places), text) << value << " " << places;
}

TEST(WriterNumbers, DefaultPrecisionKeepsFileRealsAndPrecisionIsCutAtNine) {
    // Rounding these to fewer decimals moves an appearance's matrix far
    // enough to change how readers render it.
    CosDoc doc = CosDocCreate();
    auto write = [&](CosObjWriter& w, double v) {
        std::string out;
        CosObj num = CosNewFixed(doc, false, v);
        w.WriteBody(out, num);
        CosObjDestroy(num);
        return out;
    };
    CosObjWriter w;
    w.SetPrecision(CosDocGetPrecision(doc));
    for (const char* text : {"0.833333", "0.00004578", "-7911.83", "4000000000.1"})
        EXPECT_EQ(write(w, std::strtod(text, nullptr)), text);
    EXPECT_EQ(write(w, 0.000244140625), "0.000244141");
    // The formatter refuses more than nine decimals; the writer cuts to nine.
    EXPECT_EQ(ErrorOf([] { Fixed(1.5, 10); }), kErrBadParm);
    EXPECT_EQ(ErrorOf([] { Fixed(1.5, -1); }), kErrBadParm);
    w.SetPrecision(12);
    EXPECT_EQ(w.Precision(), 9);
    EXPECT_EQ(write(w, 0.123456789012), "0.123456789");
    CosDocClose(doc);
}

TEST_F(WriterTest, NumbersThroughTheObjectModel) {
    EXPECT_EQ(Body(Own(CosNewNumber(doc, false, 1.5))), "1.5");
    EXPECT_EQ(Body(Own(CosNewNumber(doc, false, 100.0))), "100");
    EXPECT_EQ(Body(Own(CosNewNumber(doc, false, -7))), "-7");
    EXPECT_EQ(Body(Own(CosNewNumber(doc, false, 4294967296.0))), "4294967296");
}

TEST_F(WriterTest, EmptyAndFilledDictionariesInBothModes) {
    CosObj empty = Own(CosNewDict(doc, false));
    EXPECT_EQ(Body(empty), "<< >>");
    EXPECT_EQ(Body(empty, true), "<<>>");

    CosObj target = CosNewDict(doc, true);  // some indirect object
    const Maker m{doc};
    CosObj d = Own(m.Dict({{"Type", m.Name("Page")},
                           {"Count", m.Int(3)},
                           {"Parent", target},
                           {"Kids", m.Array({m.Int(1), m.Int(2), m.Name("A"), m.Str("x"),
                                             CosNewBoolean(doc, false, true), target})},
                           {"B", m.Dict({})}}));
    const std::string ref = std::to_string(CosObjGetID(target)) + " 0 R";
    EXPECT_EQ(Body(d), "<<\r/Type /Page\r/Count 3\r/Parent " + ref + "\r/Kids [1 2 /A (x) true " + ref +
                           "]\r/B << >>\r>>");
    // Compact: a blank only where the value would join the key or number.
    EXPECT_EQ(Body(d, true), "<</Type/Page/Count 3/Parent " + ref + "/Kids[1 2/A(x)true " + ref + "]/B<<>>>>");
}

TEST_F(WriterTest, IndirectObjectFraming) {
    CosObj d = Own(CosNewDict(doc, false));
    CosDictPut(d, kA, CosNewNull());
    CosObjWriter w;
    std::string out;
    w.WriteIndirect(out, 12, 0, d);
    EXPECT_EQ(out, "12 0 obj\r<<\r/A null\r>>\rendobj\r");
    EXPECT_EQ(ErrorOf([&] { w.WriteIndirect(out, 1, 0, nullptr); }), kErrBadParm);
}

TEST_F(WriterTest, StreamBodiesSetLengthAndSeparateDataOnlyWhenNeeded) {
    CosObj dict = CosNewDict(doc, false);
    CosDictPut(dict, cosnames::Length, CosNewInteger(doc, false, 999));
    CosObj s = CosNewStream(doc, dict, Span("abc"));
    EXPECT_EQ(Body(s), "<<\r/Length 3\r>>\rstream\nabc\rendstream");
    EXPECT_EQ(CosDictGetInt(s, cosnames::Length, 0), 3);

    CosObj empty = CosNewStream(doc, CosNewNull(), {});
    EXPECT_EQ(Body(empty, true), "<</Length 0>>\rstream\nendstream");
    CosObj endsLF = CosNewStream(doc, CosNewNull(), Span("q\n"));
    EXPECT_EQ(Body(endsLF, true), "<</Length 2>>\rstream\nq\nendstream");
    CosObj endsCR = CosNewStream(doc, CosNewNull(), Span("Q\r"));
    EXPECT_EQ(Body(endsCR, true), "<</Length 2>>\rstream\nQ\rendstream");

    // An indirect Length is replaced by the number, even when it is right.
    CosObj lenObj = CosNewInteger(doc, true, 3);
    CosObj refDict = CosNewDict(doc, false);
    CosDictPut(refDict, cosnames::Length, lenObj);
    CosObj withRef = CosNewStream(doc, refDict, Span("abc"));
    EXPECT_EQ(Body(withRef, true), "<</Length 3>>\rstream\nabc\rendstream");

    // A stream met inside a container is a reference, never inlined.
    CosObj holder = Own(CosNewArray(doc, false));
    CosArrayAppend(holder, s);
    EXPECT_EQ(Body(holder), "[" + std::to_string(CosObjGetID(s)) + " 0 R]");
}

TEST_F(WriterTest, LiteralStringEscapes) {
    std::string out;
    CosWriteLiteralString(out, Span(std::string_view("a\\b(c)\n\r\t\b\f\x01z", 13)), false);
    EXPECT_EQ(out, std::string("(a\\\\b\\(c\\)\\n\\r\\t\\b\\f\x01z)"));
    out.clear();
    CosWriteLiteralString(out, Span("\xE9\x80\xFF"), false);
    EXPECT_EQ(out, "(\\351\\200\\377)");
    out.clear();
    CosWriteLiteralString(out, Span("\xE9\x80("), true);
    EXPECT_EQ(out, "(\xE9\x80\\()");
    out.clear();
    CosWriteHexString(out, Span("\x0A\xFF"));
    EXPECT_EQ(out, "<0AFF>");
}

TEST_F(WriterTest, StringsAreEncryptedPerObjectAndThenEscapedWithoutOctal) {
    AddCrypt crypt(0x80);  // bytes above 127 show the escaping
    CosObj arr = Own(CosNewArray(doc, false));
    CosArrayAppend(arr, CosNewString(doc, false, std::string_view("AB")));
    CosObj hex = CosNewString(doc, false, std::string_view("\x01"));
    CosStringSetHex(hex, true);
    CosArrayAppend(arr, hex);
    CosObjWriter w;
    w.SetCrypt(&crypt, 3, 0);
    std::string out;
    w.WriteBody(out, arr);
    // 'A'+0x83 = 0xC4, 'B'+0x83 = 0xC5, 0x01+0x83 = 0x84
    EXPECT_EQ(out, "[(\xC4\xC5) <84>]");
    // The stored bytes are not touched.
    EXPECT_EQ(CosStringBytes(CosArrayGet(arr, 0)), "AB");

    CosObj s = CosNewStream(doc, CosNewNull(), Span("xy"));
    out.clear();
    w.SetCrypt(&crypt, 1, 0);
    w.WriteBody(out, s);
    EXPECT_EQ(out, "<<\r/Length 2\r>>\rstream\n\xF9\xFA\rendstream");
    EXPECT_EQ(CosStreamEncodedData(s)[0], 'x');
}

TEST_F(WriterTest, NamesEscapeDelimitersWhiteSpaceAndHash) {
    std::string out;
    CosWriteName(out, "A B#C/(D)\xE9");
    EXPECT_EQ(out, "/A#20B#23C#2F#28D#29#E9");
    EXPECT_EQ(Body(Own(CosNewName(doc, false, ASAtomFromString("Type")))), "/Type");
}

TEST_F(WriterTest, ReferencesFollowTheRenumberingAndMissingOnesBecomeNull) {
    CosObj a = CosNewDict(doc, true);
    CosObj b = CosNewDict(doc, true);
    CosObj arr = Own(CosNewArray(doc, false));
    CosArrayAppend(arr, a);
    CosArrayAppend(arr, b);
    CosArrayAppend(arr, CosNewRef(doc, 500, 0));  // no such object
    CosArrayAppend(arr, CosNewRef(doc, CosObjGetID(a), 0));
    EXPECT_EQ(Body(arr), "[" + std::to_string(CosObjGetID(a)) + " 0 R " + std::to_string(CosObjGetID(b)) +
                             " 0 R null " + std::to_string(CosObjGetID(a)) + " 0 R]");
    std::vector<ASInt32> map(600, 0);
    map[size_t(CosObjGetID(a))] = 7;  // b is not written
    CosObjWriter w;
    w.SetRenumbering(&map);
    std::string out;
    w.WriteBody(out, arr);
    EXPECT_EQ(out, "[7 0 R null null 7 0 R]");
}

TEST_F(WriterTest, VersionNeedsAreNoticedFromNames) {
    CosObj d = Own(CosNewDict(doc, false));
    CosDictPutName(d, cosnames::Filter, false, ASAtomFromString("JBIG2Decode"));
    CosObjWriter w;
    std::string out;
    w.WriteBody(out, d);
    EXPECT_EQ(w.RequiredMinorVersion(), 4);
    CosDictPutName(d, cosnames::Filter, false, ASAtomFromString("JPXDecode"));
    w.WriteBody(out, d);
    EXPECT_EQ(w.RequiredMinorVersion(), 5);
    CosObjWriter plain;
    CosDictPutName(d, cosnames::Filter, false, cosnames::FlateDecode);
    CosDictPutName(d, ASAtomFromString("SMask"), false, ASAtomFromString("None"));
    plain.WriteBody(out, d);
    EXPECT_EQ(plain.RequiredMinorVersion(), 0);
}

TEST(WriterXref, SubsectionsMergeAndTheFirstRunStartsAtZero) {
    CosXrefTable t;
    t.AddSubsection(7, 2);
    t.AddSubsection(1, 3);
    std::string out;
    t.Write(out, true, [](ASInt32 n) { return CosXrefTable::Entry{n * 100, 0}; });
    EXPECT_EQ(out,
              "xref\r0 4 \r0000000000 65535 f\r\n"
              "0000000100 00000 n\r\n0000000200 00000 n\r\n0000000300 00000 n\r\n"
              "7 2 \r0000000700 00000 n\r\n0000000800 00000 n\r\n");

    CosXrefTable adj;
    adj.AddSubsection(1, 3);
    adj.AddSubsection(4, 2);
    adj.AddSubsection(5, 3);  // begins before the end of 1..5: merged, counts added
    ASSERT_EQ(adj.Runs().size(), 1u);
    EXPECT_EQ(adj.Runs()[0], (std::pair<ASInt32, ASInt32>{1, 8}));
    out.clear();
    adj.Write(out, false, [](ASInt32) { return CosXrefTable::Entry{17, 2}; });
    EXPECT_EQ(out.substr(0, 10), "xref\r1 8 \r");
    EXPECT_EQ(out.size(), 10u + 8 * 20);
    EXPECT_EQ(out.substr(10, 20), "0000000017 00002 n\r\n");

    CosXrefTable dup;
    dup.AddSubsection(4, 1);
    EXPECT_EQ(ErrorOf([&] { dup.AddSubsection(4, 2); }), kErrBadParm);
}

TEST(WriterFileParts, TrailerAndEndMarker) {
    std::string out;
    CosWriteTrailer(out, "<</Size 3>>");
    CosWriteEnd(out, 1234);
    EXPECT_EQ(out, "trailer\r<</Size 3>>\rstartxref\r1234\r%%EOF\r");
    out.clear();
    CosWriteEnd(out, -1);
    EXPECT_EQ(out, "\r%%EOF\r");
}

TEST(WriterSaveModes, FlagsMapToModes) {
    bool lin = true;
    EXPECT_EQ(CosSaveModeFromFlags(0x0, &lin), 0u);
    EXPECT_FALSE(lin);
    EXPECT_EQ(CosSaveModeFromFlags(0x1, nullptr), 2u);
    EXPECT_EQ(CosSaveModeFromFlags(0x3, nullptr), 3u);
    EXPECT_EQ(CosSaveModeFromFlags(0x9, nullptr), 2u | kCosSaveModeForceFull);
    EXPECT_EQ(CosSaveModeFromFlags(0x8, nullptr), 0u);
    EXPECT_EQ(CosSaveModeFromFlags(0x1003, nullptr), 3u | kCosSaveModeCompact);
    // Object streams bring the compact style with them.
    EXPECT_EQ(CosSaveModeFromFlags(0x2003, nullptr), 3u | kCosSaveModeObjectStreams | kCosSaveModeCompact);
    CosSaveModeFromFlags(0x5, &lin);
    EXPECT_TRUE(lin);
}

TEST(WriterInfo, DatesCarryTheOffsetSign) {
    std::tm t{};
    t.tm_year = 2004 - 1900;
    t.tm_mon = 3;
    t.tm_mday = 16;
    t.tm_hour = 13;
    t.tm_min = 5;
    t.tm_sec = 9;
    EXPECT_EQ(CosInfoFormatDate(t, 3600), "D:20040416130509+01'00'");
    EXPECT_EQ(CosInfoFormatDate(t, 0), "D:20040416130509Z00'00'");
    EXPECT_EQ(CosInfoFormatDate(t, -5 * 3600), "D:20040416130509-05'00'");
    EXPECT_EQ(CosInfoFormatDate(t, 19800), "D:20040416130509+05'00'");
}

TEST(WriterInfo, SourceDateEpochFixesTheDateAndSetupFillsFourKeys) {
    setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    EXPECT_TRUE(CosInfoReproducible());
    EXPECT_EQ(CosInfoCurrentDate(), "D:20231114221320Z00'00'");
    CosDoc doc = CosDocCreate();
    CosObj info = CosDocSetupInfo(doc);
    EXPECT_TRUE(CosObjIsIndirect(info));
    EXPECT_EQ(CosDocGetInfo(doc), info);
    EXPECT_EQ(CosStringBytes(CosDictGet(info, cosnames::CreationDate)), "D:20231114221320Z00'00'");
    EXPECT_EQ(CosStringBytes(CosDictGet(info, cosnames::ModDate)), "D:20231114221320Z00'00'");
    EXPECT_EQ(CosStringBytes(CosDictGet(info, cosnames::Producer)), "Vellum");
    EXPECT_EQ(CosStringBytes(CosDictGet(info, cosnames::Creator)), "Vellum");
    // An existing dictionary is left alone.
    CosDictRemove(info, cosnames::Creator);
    EXPECT_EQ(CosDocSetupInfo(doc), info);
    EXPECT_FALSE(CosDictKnown(info, cosnames::Creator));
    CosDocClose(doc);
    setenv("SOURCE_DATE_EPOCH", "soon", 1);
    EXPECT_FALSE(CosInfoReproducible());
    unsetenv("SOURCE_DATE_EPOCH");
}

}  // namespace
