// Finding the header, the end marker and startxref; classic sections,
// cross-reference streams, object streams, incremental updates and the
// linearization test.
#include <gtest/gtest.h>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosXref.h"
#include "tests/pdfcore/test_support.h"

namespace {

using namespace fixture;

std::string Junk(size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s.push_back(static_cast<char>('a' + i % 26));
    return s;
}

TEST(CosOpenHeader, JunkBeforeHeaderUpTo1023Bytes) {
    Built ok = MakePdf(PageTree(1), "/Root 1 0 R", Junk(1023));
    OpenDoc pd(ok.bytes);
    EXPECT_EQ(pd.info().headerOffset, 1023);
    EXPECT_FALSE(pd.info().repaired);  // offsets are relative to the header
    EXPECT_EQ(pd.pages(), 1);
    Built bad = MakePdf(PageTree(1), "/Root 1 0 R", Junk(1024));
    EXPECT_EQ(ErrorOf([&] { PageCount(bad.bytes); }), kErrBadHeader);
}

TEST(CosOpenHeader, VersionAndCustomHeader) {
    std::string s = "%PDF-1.7\n";
    ASInt16 major = 0, minor = 0;
    CosReadVersion(Span(s), 5, major, minor);
    EXPECT_EQ(major, 1);
    EXPECT_EQ(minor, 7);
    EXPECT_EQ(CosFindHeader(Span("xx%FOO-2.0"), "%FOO-"), 2u);
    EXPECT_EQ(ErrorOf([] { CosFindHeader(Span("%PD"), "%PDF-"); }), kErrBadHeader);
}

TEST(CosOpenEOF, QuickTestThenBlockSearch) {
    std::string base = "%PDF-1.4\nstartxref\n9\n%%EOF";
    EXPECT_EQ(CosFindEOFMarker(Span(base)), base.size() - 5);
    EXPECT_EQ(CosFindEOFMarker(Span(base + "\r\n\n")), base.size() - 5);  // quick test at L-8
    std::string tail = base + std::string(500, ' ');                     // block search
    EXPECT_EQ(CosFindEOFMarker(Span(tail)), base.size() - 5);
    std::string zero = base + "\n" + std::string(1, '\0') + "%%EO" + std::string(20, '\0');
    EXPECT_EQ(CosFindEOFMarker(Span(zero)), base.size() - 5);
    std::string far = base + std::string(1100, ' ');
    EXPECT_EQ(ErrorOf([&] { CosFindEOFMarker(Span(far)); }), kErrMissingEOF);
    // The last marker wins (an incremental update).
    std::string two = base + "\n%%EOF" + std::string(30, ' ');
    EXPECT_EQ(CosFindEOFMarker(Span(two)), base.size() + 1);
}

TEST(CosOpenStartxref, ValueParsing) {
    auto value = [](const std::string& s) { return CosReadStartxref(Span(s), s.size() - 5); };
    EXPECT_EQ(value("startxref 1234 %%EOF"), 1234);
    EXPECT_EQ(value("startxref\r\n1234\r\n%%EOF"), 1234);
    EXPECT_EQ(ErrorOf([&] { value("startxref\n12 34 x %%EOF"); }), kErrStartxrefNotInt);
    EXPECT_EQ(ErrorOf([&] { value("startxref 12a4 %%EOF"); }), kErrStartxrefNotInt);
    EXPECT_EQ(ErrorOf([&] { value("startxref  %%EOF"); }), kErrNoStartxref);
    EXPECT_EQ(ErrorOf([&] { value("nothing here at all %%EOF"); }), kErrNoStartxref);
}

TEST(CosOpenXref, TwoLineSubsectionHeaderAndChainErrors) {
    Built b = MakePdf(PageTree(2));
    std::string two = b.bytes;
    size_t h = two.find("xref\n0 5\n");
    ASSERT_NE(h, std::string::npos);
    two.replace(h, 9, "xref\n0\n5\n");
    // The file grew by nothing: same length, offsets still hold.
    CosObjTable table;
    CosDoc doc = CosDocCreate();
    CosXrefChain chain = CosReadXrefChain(doc, Span(two), 0, static_cast<int64_t>(b.xrefPos), table);
    EXPECT_EQ(table.size(), 5u);
    EXPECT_EQ(table[3].kind, CosXrefEntry::kInFile);
    EXPECT_EQ(table[3].offset, b.offsets[3]);
    CosObjDestroy(chain.trailer);

    std::string badHeader = b.bytes;
    badHeader.replace(h, 9, "xref\nab c\n");
    EXPECT_EQ(ErrorOf([&] { CosReadXrefChain(doc, Span(badHeader), 0, b.xrefPos, table); }), kErrXrefHeader);
    std::string badEntry = b.bytes;
    badEntry.replace(badEntry.find(" n\r\n"), 4, " x\r\n");
    EXPECT_EQ(ErrorOf([&] { CosReadXrefChain(doc, Span(badEntry), 0, b.xrefPos, table); }), kErrXrefEntry);
    std::string noTrailerDict = b.bytes;
    noTrailerDict.replace(noTrailerDict.find("<< /Size"), 2, "[ ");
    EXPECT_NE(ErrorOf([&] { CosReadXrefChain(doc, Span(noTrailerDict), 0, b.xrefPos, table); }), 0);
    CosDocClose(doc);
    // Opening still works: repair takes over from the broken table.
    EXPECT_EQ(PageCount(badEntry), 2);
}

// A three-page file and an update that replaces object 2 with a one-page
// tree.  `offsets` keeps only the update's objects.
Built WithUpdate() {
    Built b = MakePdf(PageTree(3));
    const size_t prev = b.xrefPos;
    b.offsets.clear();
    AddObjects(b, {"<< /Type /Pages /Kids [3 0 R] /Count 1 >>"}, 2);
    AddClassicXref(b, "/Root 1 0 R /Prev " + std::to_string(prev), 0, 2, 2);
    return b;
}

TEST(CosOpenXref, IncrementalUpdateNewestWinsAndPrevLoopEnds) {
    EXPECT_EQ(PageCount(MakePdf(PageTree(3)).bytes), 3);
    Built upd = WithUpdate();
    OpenDoc pd(upd.bytes);
    EXPECT_EQ(pd.pages(), 1);
    EXPECT_EQ(pd.info().xrefSections, 2);
    EXPECT_FALSE(pd.info().repaired);
    // A Prev that points back at the newest section ends the chain.
    std::string loop = upd.bytes;
    size_t p = loop.rfind("/Prev ");
    size_t e = loop.find(' ', p + 6);
    std::string newest = std::to_string(upd.xrefPos);
    loop.replace(p + 6, e - p - 6, newest + std::string(e - p - 6 - std::min(e - p - 6, newest.size()), ' '));
    EXPECT_EQ(ErrorOf([&] { PageCount(loop); }), 0);
}

TEST(CosOpenLinearized, TwoSectionsOrderAndLength) {
    std::string lin = "%PDF-1.4 /Linearized 1 /L 28";
    ASSERT_EQ(lin.size(), 28u);
    EXPECT_TRUE(CosIsLinearized(Span(lin), {10, 500}));
    EXPECT_FALSE(CosIsLinearized(Span(lin), {10, 500, 900}));   // appended to later
    EXPECT_FALSE(CosIsLinearized(Span(lin), {10}));
    EXPECT_FALSE(CosIsLinearized(Span(lin), {500, 10}));        // newest must come first in the file
    EXPECT_FALSE(CosIsLinearized(Span(lin), {1024, 2000}));     // and within the first 1024 bytes
    std::string wrongL = "%PDF-1.4 /Linearized 1 /L 29";
    EXPECT_FALSE(CosIsLinearized(Span(wrongL), {10, 500}));
    std::string withZero = std::string("%PDF-1.4\0/Linearized 1\0/L 28", 28);
    EXPECT_TRUE(CosIsLinearized(Span(withZero), {10, 500}));
    EXPECT_FALSE(CosIsLinearized(Span("%PDF-1.4"), {10, 500}));
    // An ordinary update is two sections in the wrong order: not linearized.
    OpenDoc pd(WithUpdate().bytes);
    EXPECT_FALSE(pd.info().linearized);
}

// A file whose objects 1..2 are plain, whose page objects sit in object
// streams, indexed by an uncompressed xref stream with W [1 2 1].
std::string XrefStreamFile(bool selfContaining, bool extends) {
    Built b;
    b.bytes = "%PDF-1.5\n";
    AddObjects(b, {"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [10 0 R 11 0 R] /Count 2 >>"});
    const std::string page = "<< /Type /Page /Parent 2 0 R >>";
    // Stream 5 holds object 11; stream 6 holds object 10 and extends 5.
    std::string h5 = "11 0 ", h6 = "10 0 ";
    std::string d5 = h5 + page, d6 = h6 + page;
    b.offsets[5] = b.bytes.size();
    b.bytes += "5 0 obj\n<< /Type /ObjStm /N 1 /First " + std::to_string(h5.size()) + " /Length " +
               std::to_string(d5.size()) + " >>\nstream\n" + d5 + "\nendstream\nendobj\n";
    b.offsets[6] = b.bytes.size();
    b.bytes += "6 0 obj\n<< /Type /ObjStm /N 1 /First " + std::to_string(h6.size()) + " /Length " +
               std::to_string(d6.size()) + (extends ? " /Extends 5 0 R" : "") + " >>\nstream\n" + d6 +
               "\nendstream\nendobj\n";
    // Rows: 0..2 then 5, 6 in file, 10 in stream 6 (or 10 in stream 10 itself), 11 in stream 5 at a wrong index.
    auto row = [](int type, size_t f2, int f3) {
        std::string r;
        r.push_back(static_cast<char>(type));
        r.push_back(static_cast<char>((f2 >> 8) & 0xFF));
        r.push_back(static_cast<char>(f2 & 0xFF));
        r.push_back(static_cast<char>(f3));
        return r;
    };
    std::string rows = row(0, 0, 0) + row(1, b.offsets[1], 0) + row(1, b.offsets[2], 0) +  // 0-2
                       row(1, b.offsets[5], 0) + row(1, b.offsets[6], 0) +                 // 5-6
                       row(2, selfContaining ? 10 : 6, 0) + row(2, 5, extends ? 3 : 0);   // 10-11
    size_t xpos = b.bytes.size();
    b.bytes += "7 0 obj\n<< /Type /XRef /Size 12 /W [1 2 1] /Index [0 3 5 2 10 2] /Root 1 0 R /Length " +
               std::to_string(rows.size()) + " >>\nstream\n" + rows + "\nendstream\nendobj\nstartxref\n" +
               std::to_string(xpos) + "\n%%EOF\n";
    return b.bytes;
}

TEST(CosOpenXrefStream, IndexRangesAndObjectStreams) {
    std::string f = XrefStreamFile(false, false);
    OpenDoc pd(f);
    CosDoc cos = pd.cos();
    EXPECT_FALSE(CosDocGetFileInfo(cos).repaired);
    EXPECT_EQ(pd.pages(), 2);
    EXPECT_EQ(CosDictGetName(CosDocGetObjByID(cos, 10), cosnames::Type), cosnames::Page);
    EXPECT_EQ(CosDictGetName(CosDocGetObjByID(cos, 11), cosnames::Type), cosnames::Page);
    EXPECT_TRUE(CosObjIsNull(CosDocGetObjByID(cos, 3)));  // not in any Index range
}

TEST(CosOpenXrefStream, ExtendsIsFollowedAndSelfContainingStreamFailsCleanly) {
    OpenDoc pd(XrefStreamFile(false, true));
    // Object 11's row names stream 5 with a wrong index: found by number.
    EXPECT_EQ(CosDictGetName(CosDocGetObjByID(pd.cos(), 11), cosnames::Type), cosnames::Page);
    OpenDoc self(XrefStreamFile(true, false));
    EXPECT_TRUE(CosObjIsNull(CosDocGetObjByID(self.cos(), 10)));
    CosDocLoadAllObjects(self.cos());
}

TEST(CosOpenStreams, IndirectLengthAndWrongLengthRecovered) {
    Built b = MakePdf({"<< /Type /Catalog /Pages 2 0 R >>",
                       "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                       "<< /Type /Page /Parent 2 0 R /Contents [4 0 R 6 0 R 7 0 R] >>",
                       "<< /Length 5 0 R >>\nstream\nq 1 0 0 1 0 0 cm Q\nendstream", "18",
                       "<< /Length 3 >>\nstream\nBT /F1 12 Tf ET\nendstream",
                       "<< /Length 7 0 R >>\nstream\nself\nendstream"});
    OpenDoc pd(b.bytes);
    CosDoc cos = pd.cos();
    auto data = [&](int n) {
        auto d = CosStreamEncodedData(CosDocGetObjByID(cos, n));
        return std::string(d.begin(), d.end());
    };
    EXPECT_EQ(data(4), "q 1 0 0 1 0 0 cm Q");
    EXPECT_EQ(data(6), "BT /F1 12 Tf ET");
    EXPECT_EQ(data(7), "self");  // a Length that refers to its own object
    EXPECT_EQ(pd.pages(), 1);
}

TEST(CosObjTable, HighObjectNumbersCostAFewBlocks) {
    // A page tree numbered close to the highest number accepted, found
    // through a classic table (one subsection far out) and by the scan of
    // a file without one: the table makes blocks only where entries are.
    const int far = kCosMaxObjNum - 10;
    Built b;
    b.bytes = "%PDF-1.4\n";
    AddObjects(b, {"<< /Type /Catalog /Pages " + std::to_string(far) + " 0 R >>"});
    AddObjects(b, {"<< /Type /Pages /Kids [" + std::to_string(far + 1) + " 0 R] /Count 1 >>",
                   "<< /Type /Page /Parent " + std::to_string(far) + " 0 R /MediaBox [0 0 10 10] >>"},
               far);
    std::string noTable = b.bytes;
    b.xrefPos = b.bytes.size();
    b.bytes += "xref\n0 2\n" + Entry(0, 65535, 'f') + Entry(b.offsets[1], 0, 'n') + std::to_string(far) +
               " 2\n" + Entry(b.offsets[far], 0, 'n') + Entry(b.offsets[far + 1], 0, 'n') + "trailer\n<< /Size " +
               std::to_string(far + 2) + " /Root 1 0 R >>\nstartxref\n" + std::to_string(b.xrefPos) + "\n%%EOF\n";
    for (bool scan : {false, true}) {
        OpenDoc pd(scan ? noTable : b.bytes);
        EXPECT_EQ(pd.info().repaired, scan);
        EXPECT_EQ(pd.pages(), 1);
        const CosObjTable& table = CosDocXref(pd.cos());
        EXPECT_EQ(table.size(), static_cast<size_t>(far) + 2);
        EXPECT_LE(table.BlocksMade(), 2u);
        // Loops over every object skip the empty stretch between 1 and far.
        const ASInt32 lastOfFirstBlock = ASInt32(CosObjTable::kBlockSize) - 1;
        EXPECT_EQ(CosDocNextObjID(pd.cos(), lastOfFirstBlock), far & ~lastOfFirstBlock);
        EXPECT_EQ(CosDocNextObjID(pd.cos(), far + 1), far + 2);
        EXPECT_EQ(CosDocLoadAllObjects(pd.cos()), 3);
        EXPECT_LE(table.BlocksMade(), 2u);  // reading absent numbers makes nothing
    }
    // Shrinking forgets the dropped entries.
    CosObjTable t;
    t.resize(10);
    t[9].kind = CosXrefEntry::kNew;
    t.pop_back();
    t.emplace_back();
    EXPECT_EQ(t[9].kind, CosXrefEntry::kFree);
    EXPECT_EQ(t.Find(10), nullptr);
}

TEST(CosOpenXref, HugeSubsectionNumbersAreSkippedAndPrevIsTruncated) {
    // A subsection whose first number is the largest the header can state:
    // its rows are read and dropped, and counting on from it must not wrap.
    Built b = MakePdf(PageTree(1));
    std::string huge = b.bytes;
    huge.insert(huge.find("trailer"),
                "9223372036854775807 2\n" + Entry(b.offsets[1], 0, 'n') + Entry(b.offsets[2], 0, 'n'));
    CosObjTable table;
    CosDoc doc = CosDocCreate();
    CosXrefChain chain = CosReadXrefChain(doc, Span(huge), 0, static_cast<int64_t>(b.xrefPos), table);
    EXPECT_EQ(table.size(), 4u);
    CosObjDestroy(chain.trailer);
    CosDocClose(doc);
    OpenDoc pd(huge);
    EXPECT_FALSE(pd.info().repaired);
    EXPECT_EQ(pd.pages(), 1);

    // A Prev written as a real is cut to its whole part, never rounded up
    // (rounding would land one byte into "xref" and force a repair).
    Built upd = WithUpdate();
    size_t p = upd.bytes.rfind("/Prev ");
    size_t e = upd.bytes.find(' ', p + 6);
    std::string real = upd.bytes;
    real.insert(e, ".9");
    OpenDoc r(real);
    EXPECT_FALSE(r.info().repaired);
    EXPECT_EQ(r.info().xrefSections, 2);
    EXPECT_EQ(r.pages(), 1);
}

TEST(CosOpenXref, ChainFailuresAreParserErrors) {
    // Whatever goes wrong in the chain is raised with the parser's severity
    // and system, including a section that is an object but not a stream.
    Built b = MakePdf(PageTree(1));
    CosDoc doc = CosDocCreate();
    CosObjTable table;
    const ASErrorCode notStream = ErrorCodeOf(
        [&] { CosReadXrefChain(doc, Span(b.bytes), 0, static_cast<int64_t>(b.offsets[1]), table); });
    EXPECT_EQ(notStream, ErrBuildCode(ErrSevParse, ErrSysParse, kErrExpectedStream));
    std::string prevName = b.bytes;
    prevName.insert(prevName.find("/Size"), "/Prev /Nowhere ");
    EXPECT_EQ(ErrorCodeOf([&] { CosReadXrefChain(doc, Span(prevName), 0, static_cast<int64_t>(b.xrefPos), table); }),
              ErrBuildCode(ErrSevParse, ErrSysParse, kErrExpectedNumber));
    EXPECT_EQ(ErrorCodeOf([&] { CosReadXrefChain(doc, Span(b.bytes), 0, static_cast<int64_t>(b.bytes.size()), table); }),
              ErrBuildCode(ErrSevParse, ErrSysParse, kErrMissingXref));
    CosDocClose(doc);
}

}  // namespace
