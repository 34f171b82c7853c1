// The pieces of the compact form: which objects may be packed, where object
// streams break, the byte form of an object stream, and the encoding of the
// cross-reference stream (field widths, Index, predictor).
#include <gtest/gtest.h>

#include <string>

#include "filters/Filters.h"
#include "pdfcore/CosCompact.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "tests/pdfcore/test_support.h"

namespace {

// The rows a reader gets back: Flate with Predictor 12 undone by the
// filter layer the parser uses.
std::vector<uint8_t> ReadBack(const CosXrefStreamData& d) {
    filters::Bytes packed = filters::FlateEncode(d.predicted, 9);
    filters::FilterParams params;
    params.values["Predictor"] = 12;
    params.values["Columns"] = d.widths[0] + d.widths[1] + d.widths[2];
    filters::DecodeResult r = filters::DecodeChain(packed, {{"FlateDecode", params}});
    EXPECT_EQ(r.status, filters::DecodeStatus::Ok);
    return r.data;
}

TEST(CompactXrefStream, FieldWidthsAreTheFewestBytesThatHoldTheValue) {
    const std::pair<uint64_t, int> widths[] = {{0, 0},       {1, 1},           {255, 1},         {256, 2},
                                               {65535, 2},   {65536, 3},       {0x7FFFFFFFu, 4}, {0x80000000u, 4},
                                               {0x100000000ull, 5}, {UINT64_MAX, 8}};
    for (auto [value, width] : widths) EXPECT_EQ(CosFieldWidth(value), width) << value;
}

TEST(CompactXrefStream, RowsWidthsAndPredictorOfATypicalTable) {
    // Given out of order: the encoder sorts.
    std::vector<CosXrefStreamRow> rows = {
        {5, 1, 70000, 0},  // the stream itself, far into the file
        {3, 2, 4, 0},      // packed in object stream 4
        {0, 0, 0, 65535},  // the free head
        {1, 1, 15, 0},
        {4, 1, 300, 0},
        {2, 2, 4, 1},
    };
    CosXrefStreamData d = CosEncodeXrefStream(rows);
    EXPECT_EQ(d.widths[0], 1);
    EXPECT_EQ(d.widths[1], 3);  // 70000 needs three bytes
    EXPECT_EQ(d.widths[2], 1);  // indexes up to 1; object 0's 65535 does not widen it
    EXPECT_EQ(d.size, 6);
    EXPECT_TRUE(d.indexIsDefault);
    ASSERT_EQ(d.index.size(), 1u);
    EXPECT_EQ(d.index[0], std::make_pair(0, 6));
    EXPECT_EQ(ToHex(d.rows),
              "00000000ff"    // 0: free, generation cut to 255
              "0100000f00"    // 1: offset 15
              "0200000401"    // 2: stream 4, index 1
              "0200000400"    // 3: stream 4, index 0
              "0100012c00"    // 4: offset 300
              "0101117000");  // 5: offset 70000
    // Up predictor: each row tagged 2 and minus the row above.
    ASSERT_EQ(d.predicted.size(), 6u * 6);
    EXPECT_EQ(ToHex(std::span(d.predicted).first(12)), "0200000000ff" "020100000f01");
    EXPECT_EQ(ReadBack(d), d.rows);
    std::string dict = CosXrefStreamDictText(d, 42, "/Root 1 0 R");
    EXPECT_EQ(dict, "<</Type/XRef/Size 6/W[1 3 1]/Filter/FlateDecode/DecodeParms<</Columns 5/Predictor 12>>"
                    "/Root 1 0 R/Length 42>>");
}

TEST(CompactXrefStream, IndexSubsectionsOmittedTypesAndWideOffsets) {
    // Objects 1-3 and 7-8, all in the file, the last beyond 4 GB.
    std::vector<CosXrefStreamRow> rows = {
        {8, 1, 0x123456789ull, 0}, {1, 1, 10, 0}, {2, 1, 20, 0}, {3, 1, 30, 0}, {7, 1, 0x80000000ull, 0}};
    CosXrefStreamData d = CosEncodeXrefStream(rows);
    EXPECT_EQ(d.widths[0], 0);  // every row is type 1: the field is left out
    EXPECT_EQ(d.widths[1], 5);
    EXPECT_EQ(d.widths[2], 0);
    EXPECT_FALSE(d.indexIsDefault);
    ASSERT_EQ(d.index.size(), 2u);
    EXPECT_EQ(d.index[0], std::make_pair(1, 3));
    EXPECT_EQ(d.index[1], std::make_pair(7, 2));
    EXPECT_EQ(d.size, 9);
    EXPECT_EQ(ToHex(d.rows), "000000000a" "0000000014" "000000001e" "0080000000" "0123456789");
    EXPECT_EQ(ReadBack(d), d.rows);
    EXPECT_NE(CosXrefStreamDictText(d, 1, "").find("/Size 9/Index[1 3 7 2]/W[0 5 0]"), std::string::npos);

    // Only the free head: nothing needs a byte, yet each row keeps one.
    CosXrefStreamData head = CosEncodeXrefStream({{0, 0, 0, 65535}});
    EXPECT_EQ(head.widths[0] + head.widths[1] + head.widths[2], 1);
    EXPECT_EQ(ToHex(head.rows), "00");
}

TEST(CompactXrefStream, RefusesRowsNoReaderCouldUse) {
    EXPECT_EQ(ErrorOf([] { CosEncodeXrefStream({{1, 1, 5, 0}, {1, 1, 9, 0}}); }), kErrBadParm);
    EXPECT_EQ(ErrorOf([] { CosEncodeXrefStream({{1, 3, 5, 0}}); }), kErrBadParm);
    EXPECT_EQ(ErrorOf([] { CosEncodeXrefStream({{0, 1, 5, 0}}); }), kErrBadParm);
    EXPECT_EQ(ErrorOf([] { CosEncodeXrefStream({{-2, 1, 5, 0}}); }), kErrBadParm);
}

TEST(CompactPacking, WhichObjectsMayGoInAnObjectStream) {
    CosDoc doc = CosDocCreate();
    CosObj dict = CosNewDict(doc, true);
    CosObj array = CosNewArray(doc, true);
    CosObj number = CosNewInteger(doc, true, 7);
    CosObj stream = CosNewStream(doc, CosNewNull(), Span("data"));
    EXPECT_TRUE(CosMayPackInObjStm(dict, 0, false, false, false));
    EXPECT_TRUE(CosMayPackInObjStm(array, 0, false, false, false));
    EXPECT_TRUE(CosMayPackInObjStm(number, 0, false, false, false));
    EXPECT_FALSE(CosMayPackInObjStm(stream, 0, false, false, false));
    EXPECT_FALSE(CosMayPackInObjStm(dict, 1, false, false, false));  // generation above 0
    EXPECT_FALSE(CosMayPackInObjStm(dict, 0, true, false, false));   // the encryption dictionary
    EXPECT_TRUE(CosMayPackInObjStm(dict, 0, false, true, false));    // the catalog...
    EXPECT_FALSE(CosMayPackInObjStm(dict, 0, false, true, true));    // ...unless linearising
    EXPECT_TRUE(CosMayPackInObjStm(dict, 0, false, false, true));
    CosDocClose(doc);
}

// The breaks as a string: "|" before an object that starts a stream.
std::string Breaks(const std::vector<size_t>& groups, size_t maxObjects) {
    std::string s;
    for (bool b : CosPlanObjStmBreaks(groups, maxObjects)) s += b ? "|o" : "o";
    return s;
}

TEST(CompactPacking, GroupsStayTogetherWhenTheyFit) {
    // A group that does not fit in what is left starts a new stream.
    EXPECT_EQ(Breaks({3, 2}, 4), "|ooo|oo");
    // One that fits exactly joins.
    EXPECT_EQ(Breaks({2, 2, 1}, 4), "|oooo|o");
    // A group larger than a stream continues the current one and fills more.
    EXPECT_EQ(Breaks({2, 7}, 4), "|oooo|oooo|o");
    // Empty groups (pages with nothing packable) change nothing.
    EXPECT_EQ(Breaks({0, 1, 0, 1}, 4), "|oo");
    EXPECT_EQ(Breaks({}, 4), "");
    EXPECT_EQ(Breaks({1, 1, 1}, 1), "|o|o|o");
    EXPECT_EQ(ErrorOf([] { CosPlanObjStmBreaks({1}, 0); }), kErrBadParm);
}

TEST(CompactPacking, ObjectStreamHeaderAndSeparators) {
    CosObjStmBuilder b;
    b.Add(11, "<<>>");
    b.Add(12, "5");
    b.Add(13, "6");      // two numbers would merge: a blank between them
    b.Add(14, "/N");     // a name after a number needs none
    b.Add(15, "true");   // a keyword after a name does
    b.Add(16, "[1 2]");
    EXPECT_EQ(b.Count(), 6u);
    size_t first = 0;
    std::string data = b.Build(&first);
    EXPECT_EQ(data, "11 0 12 4 13 6 14 7 15 10 16 14<<>>5 6/N true[1 2]");
    EXPECT_EQ(first, 31u);
    EXPECT_EQ(data.substr(first + 10, 4), "true");
    EXPECT_EQ(b.BodyBytes(), data.size() - first);

    // A first body that begins with a regular character is kept apart from
    // the header.
    b.Clear();
    b.Add(3, "null");
    data = b.Build(&first);
    EXPECT_EQ(data, "3 0 null");
    EXPECT_EQ(first, 4u);
    EXPECT_EQ(ErrorOf([&] { b.Add(0, "1"); }), kErrBadParm);
    EXPECT_EQ(ErrorOf([&] { b.Add(4, ""); }), kErrBadParm);
}

}  // namespace
