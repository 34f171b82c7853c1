// Full saves: what is kept, the new numbers and order, the table and trailer,
// reproducible identifiers, encryption at save time and atomic replacement.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "filters/Filters.h"
#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/CosWriter.h"
#include "pdfcore/PDDoc.h"
#include "tests/pdfcore/test_support.h"

namespace {

const ASAtom kOutlines = ASAtomFromString("Outlines");
const ASAtom kDangling = ASAtomFromString("Dangling");
const ASAtom kTitle = ASAtomFromString("Title");

class SaveTest : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv("SOURCE_DATE_EPOCH");
        CosOutputFileSetFailAfterForTesting(-1);
    }
    void TearDown() override {
        CosOutputFileSetFailAfterForTesting(-1);
        unsetenv("SOURCE_DATE_EPOCH");
        if (doc) CosDocClose(doc);
    }

    CosObj NewPage(const Maker& m, CosObj font, std::string_view content) {
        CosObj stream = CosNewStream(doc, CosNewNull(), Span(content));
        return m.Dict({{"Type", m.Name("Page")},
                       {"Parent", pages},
                       {"MediaBox", m.Parse("[0 0 200 100]")},
                       {"Resources", m.Dict({{"Font", m.Dict({{"F1", font}})}})},
                       {"Contents", stream}},
                      true);
    }

    // Objects are made in an order unlike the order they are written in,
    // with an object nothing refers to, reference cycles, a reference to a
    // missing object and a page referring to a later page.
    void BuildDocument() {
        doc = CosDocCreate();
        const Maker m{doc};
        orphan = m.Dict({{"Title", m.Str("ORPHAN-MARK")}}, true);
        CosObj font = m.Dict({{"Type", m.Name("Font")}}, true);
        pages = m.Dict({{"Type", m.Name("Pages")}}, true);
        CosObj page2 = NewPage(m, font, "BT /F1 9 Tf (two) Tj ET");
        CosObj page1 = NewPage(m, font, "BT /F1 9 Tf (one) Tj ET\n");
        CosObj annot = m.Dict(
            {{"Type", m.Name("Annot")}, {"P", page1}, {"Dest", m.Array({page2, m.Name("Fit")})}}, true);
        CosDictPut(page1, cosnames::Annots, m.Array({annot}));
        Maker::Put(pages, {{"Kids", m.Array({page1, page2})}, {"Count", m.Int(2)}});
        CosObj outlines = m.Dict({}, true);
        CosDictPut(outlines, cosnames::First,
                   m.Dict({{"Parent", outlines}, {"Title", m.Str("Chapter")}}, true));
        info = m.Dict({{"Title", m.Str("AB")}}, true);
        catalog = m.Dict({{"Type", m.Name("Catalog")},
                          {"Pages", pages},
                          {"Outlines", outlines},
                          {"Dangling", CosNewRef(doc, 777, 0)}},
                         true);
        Maker::Put(CosDocGetTrailer(doc), {{"Root", catalog}, {"Info", info}});
    }

    std::string Save(const std::string& name, ASUns32 flags = kCosSaveFull | kCosSaveCopy, ASInt16 major = 0,
                     ASInt16 minor = 0) {
        CosSaveParams p;
        p.flags = flags;
        p.path = dir + "/" + name;
        p.majorVersion = major;
        p.minorVersion = minor;
        int64_t n = CosDocSave(doc, p);
        std::string bytes = ReadFile(p.path);
        EXPECT_EQ(n, static_cast<int64_t>(bytes.size()));
        return bytes;
    }

    ScratchDir scratch;
    const std::string dir = scratch.path;
    CosDoc doc = nullptr;
    CosObj catalog = nullptr, pages = nullptr, info = nullptr, orphan = nullptr;
};

// The body of object `num` ("num 0 obj\r" ... "\rendobj\r"), or "".
std::string ObjectText(const std::string& file, int num) {
    std::string label = "\r" + std::to_string(num) + " 0 obj\r";
    size_t at = file.find(label);
    if (at == std::string::npos) return "";
    size_t start = at + label.size();
    size_t end = file.find("\rendobj\r", start);
    return end == std::string::npos ? "" : file.substr(start, end - start);
}

TEST_F(SaveTest, KeepsWhatIsReachableRenumbersDenselyInPageOrder) {
    BuildDocument();
    std::string out = Save("a.pdf");
    EXPECT_EQ(out.substr(0, 15), "%PDF-1.4\r%\xE2\xE3\xCF\xD3\r");
    EXPECT_EQ(out.find("ORPHAN-MARK"), std::string::npos);
    // Catalog, page tree, page 1 with its font, content and annotation,
    // page 2 with its content, then outlines, then the information dictionary.
    EXPECT_EQ(ObjectText(out, 1).substr(0, 17), "<<\r/Type /Catalog");
    EXPECT_NE(ObjectText(out, 1).find("/Pages 2 0 R\r/Outlines 9 0 R\r/Dangling null\r"), std::string::npos);
    EXPECT_EQ(ObjectText(out, 2), "<<\r/Type /Pages\r/Kids [3 0 R 7 0 R]\r/Count 2\r>>");
    EXPECT_NE(ObjectText(out, 3).find("/Font <<\r/F1 4 0 R\r>>"), std::string::npos);
    EXPECT_NE(ObjectText(out, 3).find("/Contents 5 0 R\r/Annots [6 0 R]"), std::string::npos);
    EXPECT_EQ(ObjectText(out, 4), "<<\r/Type /Font\r>>");
    EXPECT_EQ(ObjectText(out, 5), "<<\r/Length 24\r>>\rstream\nBT /F1 9 Tf (one) Tj ET\nendstream");
    EXPECT_EQ(ObjectText(out, 6), "<<\r/Type /Annot\r/P 3 0 R\r/Dest [7 0 R /Fit]\r>>");
    EXPECT_NE(ObjectText(out, 7).find("/Parent 2 0 R"), std::string::npos);
    EXPECT_EQ(ObjectText(out, 8), "<<\r/Length 23\r>>\rstream\nBT /F1 9 Tf (two) Tj ET\rendstream");
    EXPECT_EQ(ObjectText(out, 9), "<<\r/First 10 0 R\r>>");
    EXPECT_EQ(ObjectText(out, 10), "<<\r/Parent 9 0 R\r/Title (Chapter)\r>>");
    EXPECT_EQ(ObjectText(out, 11), "<<\r/Title (AB)\r>>");
    EXPECT_EQ(ObjectText(out, 12), "");
}

TEST_F(SaveTest, TableOffsetsPointAtTheObjectsAndTheTrailerIsMinimal) {
    BuildDocument();
    CosObj ids = CosNewArray(doc, false);
    CosArrayAppend(ids, CosNewString(doc, false, std::string_view("\x01\x02\x03\x04")));
    CosArrayAppend(ids, CosNewString(doc, false, std::string_view("\x05\x06\x07\x08")));
    CosDictPut(CosDocGetTrailer(doc), cosnames::ID, ids);
    CosDictPut(CosDocGetTrailer(doc), cosnames::Prev, CosNewInteger(doc, false, 99));
    std::string out = Save("t.pdf");
    ASSERT_GE(out.size(), 6u);
    EXPECT_EQ(out.substr(out.size() - 7), "\r%%EOF\r");
    size_t sx = out.rfind("startxref\r");
    ASSERT_NE(sx, std::string::npos);
    long xref = std::stol(out.substr(sx + 10));
    ASSERT_EQ(out.substr(size_t(xref), 5), "xref\r");
    size_t hdrEnd = out.find('\r', size_t(xref) + 5);
    std::string header = out.substr(size_t(xref) + 5, hdrEnd - size_t(xref) - 5);
    ASSERT_EQ(header, "0 12 ");  // 11 objects and the free entry
    size_t entries = hdrEnd + 1;
    EXPECT_EQ(out.substr(entries, 20), "0000000000 65535 f\r\n");
    for (int n = 1; n <= 11; ++n) {
        std::string e = out.substr(entries + size_t(n) * 20, 20);
        ASSERT_EQ(e.substr(10, 10), " 00000 n\r\n");
        long off = std::stol(e.substr(0, 10));
        std::string label = std::to_string(n) + " 0 obj\r";
        EXPECT_EQ(out.substr(size_t(off), label.size()), label) << n;
    }
    std::string trailer = out.substr(entries + 12 * 20, sx - entries - 12 * 20);
    EXPECT_EQ(trailer.substr(0, 8), "trailer\r");
    EXPECT_NE(trailer.find("/Size 12\r/Root 1 0 R\r/Info 11 0 R\r/ID [<01020304><"), std::string::npos);
    EXPECT_EQ(trailer.find("Prev"), std::string::npos);
    EXPECT_EQ(trailer.find("<05060708>"), std::string::npos);  // second element replaced
}

TEST_F(SaveTest, SourceDateEpochGivesIdenticalBytesAndTheClockDoesNot) {
    BuildDocument();
    setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    std::string a = Save("a.pdf");
    std::string b = Save("b.pdf");
    EXPECT_EQ(a, b);
    unsetenv("SOURCE_DATE_EPOCH");
    std::string c = Save("c.pdf");
    std::string d = Save("d.pdf");
    EXPECT_NE(c, d);
    EXPECT_EQ(c.substr(0, c.find("/ID")), d.substr(0, d.find("/ID")));
    // A new identifier has two equal elements.
    size_t id = a.find("/ID [<");
    ASSERT_NE(id, std::string::npos);
    std::string first = a.substr(id + 6, 32), second = a.substr(id + 6 + 32 + 2, 32);
    EXPECT_EQ(first, second);
}

TEST_F(SaveTest, FailedWriteLeavesTheTargetAndNoTemporary) {
    BuildDocument();
    std::string target = dir + "/keep.pdf";
    std::ofstream(target) << "old bytes";
    CosOutputFileSetFailAfterForTesting(200);
    EXPECT_EQ(ErrorOf([&] { Save("keep.pdf"); }), kErrFileWrite);
    CosOutputFileSetFailAfterForTesting(-1);
    EXPECT_EQ(ReadFile(target), "old bytes");
    EXPECT_EQ(scratch.Names(), std::vector<std::string>{"keep.pdf"});
    // Now it works and replaces the file.
    std::string out = Save("keep.pdf");
    EXPECT_EQ(out.substr(0, 5), "%PDF-");
    EXPECT_EQ(scratch.Names().size(), 1u);
}

TEST_F(SaveTest, PatchedFieldsArePaddedToTheWidthOfTheirNumber) {
    const std::string path = dir + "/patch.pdf";
    {
        CosOutputFile out(path);
        out.Write("%PDF-1.4\r%tail");
        // Three characters wide, the width of 777: "1.0" fills it exactly.
        out.PatchField(5, 777, "1.0");
        // A shorter text is padded with blanks; the position is kept.
        out.PatchField(10, 1234, "ta");
        EXPECT_EQ(out.Tell(), 14);
        out.Write("!");
        // Wider than the number allows, or past what was written: refused.
        EXPECT_EQ(ErrorOf([&] { out.PatchField(5, 7, "1.0"); }), kErrBadParm);
        EXPECT_EQ(ErrorOf([&] { out.PatchField(14, 777, "x"); }), kErrBadParm);
        out.Commit();
    }
    EXPECT_EQ(ReadFile(path), "%PDF-1.0\r%ta  !");
}

TEST_F(SaveTest, BadParametersAndMissingRoot) {
    BuildDocument();
    CosSaveParams p;
    p.path = dir + "/x.pdf";
    p.size = 3;
    EXPECT_EQ(ErrorOf([&] { CosDocSave(doc, p); }), kErrBadParm);
    p.size = sizeof(CosSaveParams);
    p.path.clear();
    EXPECT_EQ(ErrorOf([&] { CosDocSave(doc, p); }), kErrBadParm);
    CosDoc empty = CosDocCreate();
    p.path = dir + "/x.pdf";
    EXPECT_EQ(ErrorOf([&] { CosDocSave(empty, p); }), kErrBadRoot);
    CosDocClose(empty);
    EXPECT_TRUE(scratch.Names().empty());
}

TEST_F(SaveTest, CompactModeAndHeaderVersions) {
    BuildDocument();
    std::string out = Save("c.pdf", kCosSaveFull | kCosSaveCompact);
    EXPECT_NE(out.find("1 0 obj\r<</Type/Catalog/Pages 2 0 R"), std::string::npos);
    EXPECT_NE(out.find("trailer\r<</Size 12/Root 1 0 R"), std::string::npos);

    EXPECT_EQ(Save("v.pdf", kCosSaveFull, 1, 6).substr(0, 9), "%PDF-1.6\r");
    CosDocMutableFileInfo(doc).minorVersion = 3;
    EXPECT_EQ(Save("v.pdf").substr(0, 9), "%PDF-1.3\r");
    // A JPEG 2000 image raises the header to 1.5, patched after the body.
    CosObj img = CosNewStream(doc, CosNewNull(), Span("jp2"));
    CosDictPutName(img, cosnames::Filter, false, ASAtomFromString("JPXDecode"));
    CosDictPut(info, ASAtomFromString("Thumb"), img);
    EXPECT_EQ(Save("v.pdf").substr(0, 9), "%PDF-1.5\r");
}

// A one-page document with an Info title, content "ab" and a write-time
// cipher of version `v`, revision `r` that tests can follow byte by byte.
// Returns the page's content stream.
CosObj MakeEncryptedOnePage(CosDoc doc, CosObj& pages, CosObj& info, CosObj& catalog, int v, int r) {
    const Maker m{doc};
    pages = CosNewDict(doc, true);
    CosObj stream = CosNewStream(doc, CosNewNull(), Span("ab"));
    CosObj page = m.Dict({{"Parent", pages}, {"Type", m.Name("Page")}, {"Contents", stream}}, true);
    Maker::Put(pages, {{"Type", m.Name("Pages")}, {"Kids", m.Array({page})}});
    info = m.Dict({{"Title", m.Str("AB")}}, true);
    catalog = m.Dict({{"Pages", pages}}, true);
    Maker::Put(CosDocGetTrailer(doc), {{"Root", catalog}, {"Info", info}});
    CosObj enc = m.Dict({{"Filter", m.Name("Standard")}, {"V", m.Int(v)}, {"R", m.Int(r)}, {"O", m.Str("OK")}});
    CosDocSetWriteCrypt(doc, std::make_unique<AddCrypt>(), enc);
    return stream;
}

TEST_F(SaveTest, EncryptionUsesTheNewNumbersAndLeavesTheEncryptDictionaryPlain) {
    doc = CosDocCreate();
    CosDocMutableFileInfo(doc).minorVersion = 3;
    CosObj stream = MakeEncryptedOnePage(doc, pages, info, catalog, 2, 3);

    std::string out = Save("e.pdf");
    EXPECT_EQ(out.substr(0, 9), "%PDF-1.4\r");  // 128-bit RC4 needs 1.4
    // catalog 1, pages 2, page 3, content 4, info 5, encrypt 6
    EXPECT_EQ(ObjectText(out, 4), "<<\r/Length 2\r>>\rstream\nef\rendstream");  // 'a'+4, 'b'+4
    EXPECT_EQ(ObjectText(out, 5), "<<\r/Title (FG)\r>>");                      // 'A'+5, 'B'+5
    EXPECT_EQ(ObjectText(out, 6), "<<\r/Filter /Standard\r/V 2\r/R 3\r/O (OK)\r>>");
    EXPECT_NE(out.find("/Encrypt 6 0 R\r"), std::string::npos);
    // Stored data unchanged.
    EXPECT_EQ(CosStringBytes(CosDictGet(info, kTitle)), "AB");
    EXPECT_EQ(CosStreamEncodedData(stream)[0], 'a');
}

// ---------------------------------------------------------------- compact form

constexpr ASUns32 kCompact = kCosSaveFull | kCosSaveCopy | kCosSaveObjectStreams;

// The offset "startxref" names.
size_t StartXref(const std::string& file) {
    size_t sx = file.rfind("startxref\r");
    return sx == std::string::npos ? std::string::npos : size_t(std::stoll(file.substr(sx + 10)));
}

// The stored bytes of the stream object whose text starts at `at` (the
// Length must be a direct number).
std::string StreamBytesAt(const std::string& file, size_t at) {
    size_t len = file.find("/Length ", at);
    size_t data = file.find(">>\rstream\n", at);
    if (len == std::string::npos || data == std::string::npos) return "";
    return file.substr(data + 10, size_t(std::stoll(file.substr(len + 8))));
}

std::string Inflate(const std::string& bytes) {
    filters::DecodeResult r = filters::DecodeChain(Span(bytes), {{"FlateDecode", {}}});
    return std::string(r.data.begin(), r.data.end());
}

TEST_F(SaveTest, CompactFormPacksAllButStreamsAndReadsBack) {
    BuildDocument();
    std::string out = Save("o.pdf", kCompact);
    EXPECT_EQ(out.substr(0, 15), "%PDF-1.5\r%\xE2\xE3\xCF\xD3\r");
    EXPECT_EQ(out.find("trailer"), std::string::npos);
    EXPECT_EQ(out.find("\rxref\r"), std::string::npos);
    EXPECT_EQ(out.find("/Catalog"), std::string::npos);  // packed, so compressed
    EXPECT_EQ(out.find("ORPHAN-MARK"), std::string::npos);
    // The nine packed objects are numbered first, in write order: catalog 1,
    // page tree 2, page 1 3, its font 4 and annotation 5, page 2 6, the
    // outlines 7 and 8, the information dictionary 9.  The content streams
    // follow (10, 11) and stay on their own, with compact dictionaries.
    EXPECT_NE(out.find("10 0 obj\r<</Length 24>>\rstream\nBT /F1 9 Tf (one) Tj ET\nendstream\rendobj\r"),
              std::string::npos);
    EXPECT_LT(out.find("10 0 obj\r"), out.find("11 0 obj\r"));
    // One object stream (12), then the cross-reference stream (13), which
    // "startxref" names.
    EXPECT_NE(out.find("12 0 obj\r<</Type/ObjStm/N 9/First "), std::string::npos);
    size_t xref = StartXref(out);
    ASSERT_LT(xref, out.size());
    EXPECT_EQ(out.substr(xref, 34), "13 0 obj\r<</Type/XRef/Size 14/W[1 ");
    EXPECT_EQ(out.substr(out.size() - 7), "\r%%EOF\r");
    std::string packed = Inflate(StreamBytesAt(out, out.find("12 0 obj\r")));
    EXPECT_EQ(packed.substr(0, 6), "1 0 2 ");
    EXPECT_NE(packed.find("<</Type/Catalog/Pages 2 0 R/Outlines 7 0 R/Dangling null>>"), std::string::npos)
        << packed;
    EXPECT_NE(packed.find("/Contents 10 0 R/Annots[5 0 R]"), std::string::npos) << packed;

    CosDoc back = OpenPath(dir + "/o.pdf");
    PDDoc pd = PDDocFromCosDoc(back);
    EXPECT_TRUE(CosDocGetFileInfo(back).objectStreams);
    EXPECT_EQ(CosDocGetFileInfo(back).minorVersion, 5);
    ASSERT_EQ(PDDocGetNumPages(pd), 2);
    for (ASInt32 n = 1; n <= 9; ++n) {
        EXPECT_EQ(CosDocGetObjLocation(back, n).where, CosObjLocation::kInObjStm) << n;
        EXPECT_EQ(CosDocGetObjLocation(back, n).offset, 12u) << n;
        EXPECT_EQ(CosDocGetObjLocation(back, n).index, ASUns32(n - 1)) << n;
    }
    for (ASInt32 n : {10, 11, 12, 13}) EXPECT_EQ(CosDocGetObjLocation(back, n).where, CosObjLocation::kInFile) << n;
    CosObj page2 = PDDocGetPageObj(pd, 1);
    auto data = CosStreamEncodedData(CosDictGet(page2, cosnames::Contents));
    EXPECT_EQ(std::string(data.begin(), data.end()), "BT /F1 9 Tf (two) Tj ET");
    CosObj annot = CosArrayGet(CosDictGet(PDDocGetPageObj(pd, 0), cosnames::Annots), 0);
    EXPECT_EQ(CosArrayGet(CosDictGet(annot, cosnames::Dest), 0), page2);
    CosObj item = CosDictGet(CosDictGet(CosDocGetRoot(back), kOutlines), cosnames::First);
    EXPECT_EQ(CosStringBytes(CosDictGet(item, kTitle)), "Chapter");
    EXPECT_EQ(CosStringBytes(CosDictGet(CosDocGetInfo(back), kTitle)), "AB");
    EXPECT_TRUE(CosObjIsNull(CosDictGet(CosDocGetRoot(back), kDangling)));
    PDDocClose(pd);

    // The classic form of the same document says it used no object streams.
    Save("c.pdf");
    back = OpenPath(dir + "/c.pdf");
    EXPECT_FALSE(CosDocGetFileInfo(back).objectStreams);
    CosDocClose(back);
}

TEST_F(SaveTest, CompactFormCutsStreamsByPageAndSize) {
    BuildDocument();
    CosSaveParams p;
    p.flags = kCompact;
    p.path = dir + "/s.pdf";
    p.objectsPerStream = 3;
    CosDocSave(doc, p);
    CosDoc back = OpenPath(p.path);
    auto stm = [&](ASInt32 n) {
        CosObjLocation l = CosDocGetObjLocation(back, n);
        return l.where == CosObjLocation::kInObjStm ? long(l.offset) : -1L;
    };
    // Groups of packed objects: catalog and tree (1 2), page 1 with its
    // font and annotation (3 4 5), page 2 (6), the rest (7 8 9).  Page 1's
    // three fill a stream of their own rather than straddle two.
    EXPECT_EQ(stm(1), stm(2));
    EXPECT_NE(stm(3), stm(2));
    EXPECT_EQ(stm(3), stm(4));
    EXPECT_EQ(stm(3), stm(5));
    EXPECT_NE(stm(6), stm(5));
    EXPECT_NE(stm(7), stm(6));
    EXPECT_EQ(stm(7), stm(9));
    for (ASInt32 n : {1, 3, 6, 7}) EXPECT_GT(stm(n), 0) << n;
    CosDocClose(back);

    // A big array, too big to share a stream, hangs off the information
    // dictionary (it becomes object 10) and is written on its own.
    CosObj big = CosNewArray(doc, true);
    for (int i = 0; i < 70000; ++i) CosArrayAppend(big, CosNewInteger(doc, false, 12345));
    CosDictPut(info, ASAtomFromString("Big"), big);
    p.objectsPerStream = 0;
    CosDocSave(doc, p);
    back = OpenPath(p.path);
    EXPECT_EQ(CosDocGetObjLocation(back, 10).where, CosObjLocation::kInFile);
    EXPECT_GT(stm(9), 0);
    CosObj bigBack = CosDictGet(CosDocGetInfo(back), ASAtomFromString("Big"));
    EXPECT_EQ(CosArrayLength(bigBack), 70000);
    EXPECT_EQ(CosIntegerValue(CosArrayGet(bigBack, 69999)), 12345);
    CosDocClose(back);
}

TEST_F(SaveTest, CompactFormVersionsCatalogWhenLinearisingAndReproducibleBytes) {
    BuildDocument();
    // 1.5 at least, even when a lower version is asked for.
    EXPECT_EQ(Save("v.pdf", kCompact, 1, 4).substr(0, 9), "%PDF-1.5\r");
    EXPECT_EQ(Save("v.pdf", kCompact, 1, 7).substr(0, 9), "%PDF-1.7\r");
    setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    EXPECT_EQ(Save("a.pdf", kCompact), Save("b.pdf", kCompact));
    unsetenv("SOURCE_DATE_EPOCH");

    // A file to be linearised keeps its catalog out of the object streams.
    Save("l.pdf", kCompact | kCosSaveLinearize);
    CosDoc back = OpenPath(dir + "/l.pdf");
    const ASInt32 cat = CosObjGetID(CosDocGetRoot(back));
    EXPECT_EQ(cat, 9);  // after the eight packed objects
    EXPECT_EQ(CosDocGetObjLocation(back, cat).where, CosObjLocation::kInFile);
    EXPECT_EQ(CosDocGetObjLocation(back, cat).offset, ReadFile(dir + "/l.pdf").find("\r9 0 obj\r<</Type/Catalog") + 1);
    EXPECT_EQ(CosDocGetObjLocation(back, 1).where, CosObjLocation::kInObjStm);
    CosDocClose(back);
}

TEST_F(SaveTest, CompactFormEncryptsObjectStreamsWholeAndLeavesTheXrefStreamPlain) {
    doc = CosDocCreate();
    MakeEncryptedOnePage(doc, pages, info, catalog, 1, 2);

    std::string out = Save("e.pdf", kCompact);
    // catalog 1, pages 2, page 3, info 4 (packed), content 5, encrypt 6,
    // object stream 7, cross-reference stream 8
    EXPECT_NE(out.find("5 0 obj\r<</Length 2>>\rstream\nfg\rendstream"), std::string::npos);  // 'a'+5, 'b'+5
    EXPECT_NE(out.find("6 0 obj\r<</Filter/Standard/V 1/R 2/O(OK)>>\rendobj\r"), std::string::npos);
    size_t objstm = out.find("7 0 obj\r<</Type/ObjStm/N 4/");
    ASSERT_NE(objstm, std::string::npos);
    std::string sealed = StreamBytesAt(out, objstm);
    for (char& c : sealed) c = static_cast<char>(c - 7);  // the whole stream under its own number
    std::string packed = Inflate(sealed);
    EXPECT_NE(packed.find("<</Title(AB)>>"), std::string::npos) << packed;  // strings not encrypted again
    size_t xref = StartXref(out);
    ASSERT_LT(xref, out.size());
    EXPECT_EQ(out.substr(xref, 9), "8 0 obj\r<");
    std::string rows = Inflate(StreamBytesAt(out, xref));
    EXPECT_EQ(rows.size(), 9u * 5);  // objects 0-8: a predictor tag and W [1 2 1] per row
    size_t dictEnd = out.find(">>\rstream\n", xref);
    std::string xdict = out.substr(xref, dictEnd - xref);
    EXPECT_NE(xdict.find("/Encrypt 6 0 R/ID[<"), std::string::npos) << xdict;
    EXPECT_NE(xdict.find("/W[1 2 1]"), std::string::npos) << xdict;
    EXPECT_EQ(out.substr(0, 9), "%PDF-1.5\r");
}

TEST_F(SaveTest, MergedPagesCarryTheObjectStreamMark) {
    BuildDocument();
    PDDoc source = PDDocFromCosDoc(doc);
    doc = nullptr;
    PDDoc plain = PDDocCreate();
    PDDocInsertPages(plain, -1, source, 0, 1);
    EXPECT_FALSE(CosDocGetFileInfo(PDDocGetCosDoc(plain)).objectStreams);
    CosDocMutableFileInfo(PDDocGetCosDoc(source)).objectStreams = true;
    PDDoc merged = PDDocCreate();
    PDDocInsertPageList(merged, -1, source, {});  // nothing taken: no mark
    EXPECT_FALSE(CosDocGetFileInfo(PDDocGetCosDoc(merged)).objectStreams);
    PDDocInsertPages(merged, -1, source, 1, 1);
    EXPECT_TRUE(CosDocGetFileInfo(PDDocGetCosDoc(merged)).objectStreams);
    PDDocClose(merged);
    PDDocClose(plain);
    PDDocClose(source);
}

}  // namespace
