// Reading font dictionaries: encodings, composite-font code maps, glyph
// names and subset tags.
#include <gtest/gtest.h>

#include "fonts/FontDict.h"
#include "fonts/GlyphNames.h"
#include "fonts/SubsetTag.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

namespace {

using namespace fonts;

ASAtom A(const char* s) { return ASAtomFromString(s); }

class FontDictTest : public ::testing::Test {
protected:
    void SetUp() override {
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
    }
    void TearDown() override { PDDocClose(pd); }
    // Indirect, so the document owns names a test hands to a reader alone.
    CosObj Name(const char* n) { return CosNewName(doc, true, A(n)); }
    CosObj Stream(std::string_view data) {
        return CosNewStream(doc, CosNewNull(), {reinterpret_cast<const uint8_t*>(data.data()), data.size()});
    }
    // A simple font whose Encoding is `encoding`.
    CosObj Font(CosObj encoding) {
        CosObj f = CosNewDict(doc, true);
        CosDictPut(f, A("Subtype"), Name("Type1"));
        if (!CosObjIsNull(encoding)) CosDictPut(f, A("Encoding"), encoding);
        return f;
    }
    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
};

TEST_F(FontDictTest, SimpleEncodingsApplyDifferencesOverTheBase) {
    // [32 /a /b 300 /x (junk) 255 /last /over] on WinAnsi: runs continue
    // from the last number; a number out of range skips its run; junk
    // entries are ignored.
    auto encoding = [&](bool withBase) {
        CosObj diffs = CosNewArray(doc, false);
        for (CosObj o : {CosNewInteger(doc, false, 32), Name("a"), Name("b"), CosNewInteger(doc, false, 300),
                         Name("x"), CosNewString(doc, false, "junk"), CosNewInteger(doc, false, 255), Name("last"),
                         Name("over")})
            CosArrayAppend(diffs, o);
        CosObj e = CosNewDict(doc, false);
        if (withBase) CosDictPut(e, A("BaseEncoding"), Name("WinAnsiEncoding"));
        CosDictPut(e, A("Differences"), diffs);
        return e;
    };
    SimpleEncoding enc = ReadSimpleEncoding(Font(encoding(true)));
    EXPECT_TRUE(enc.hasBase);
    EXPECT_TRUE(enc.hasDifferences);
    EXPECT_EQ("a", enc.names[32]);
    EXPECT_EQ("b", enc.names[33]);
    EXPECT_EQ("A", enc.names[65]);  // from the base
    EXPECT_EQ("Euro", enc.names[0x80]);
    EXPECT_EQ("last", enc.names[255]);

    // No base: only the differences name glyphs; the rest is built-in.
    enc = ReadSimpleEncoding(Font(encoding(false)));
    EXPECT_FALSE(enc.hasBase);
    EXPECT_EQ("", enc.names[65]);
    EXPECT_EQ("a", enc.names[32]);

    struct {
        const char* base;
        int code;
        const char* name;
    } named[] = {{"StandardEncoding", 0x27, "quoteright"}, {"WinAnsiEncoding", 0x27, "quotesingle"},
                 {"MacRomanEncoding", 0x80, "Adieresis"}, {"MacExpertEncoding", 0x30, "zerooldstyle"},
                 {"Unknown", 0x41, ""}};
    for (auto& n : named) EXPECT_EQ(n.name, ReadSimpleEncoding(Font(Name(n.base))).names[n.code]) << n.base;
}

TEST_F(FontDictTest, EmbeddedCMapsMapCodesToCids) {
    CidMap m;
    EXPECT_TRUE(m.Read(CosNewName(doc, true, A("Identity-V"))));
    EXPECT_EQ(0x1234u, m.Cid(0x1234));
    EXPECT_FALSE(m.Read(CosNewName(doc, true, A("UniJIS-UCS2-H"))));  // a predefined CMap we do not read

    const char* cmap =
        "/CIDInit /ProcSet findresource begin 12 dict begin begincmap\n"
        "1 begincodespacerange <00> <FF> endcodespacerange\n"
        "2 begincidrange <20> <7E> 1 <A0> <A5> 500 endcidrange\n"
        "1 begincidchar <41> 900 endcidchar\n"
        "endcmap CMapName currentdict /CMap defineresource pop end end\n";
    ASSERT_TRUE(m.Read(Stream(cmap)));
    EXPECT_EQ(1u, m.Cid(0x20));
    EXPECT_EQ(94u, m.Cid(0x7D));
    EXPECT_EQ(900u, m.Cid(0x41));  // the later single mapping wins
    EXPECT_EQ(503u, m.Cid(0xA3));
    EXPECT_FALSE(m.Cid(0x10).has_value());

    // usecmap of Identity: unmapped codes are their own CIDs.
    ASSERT_TRUE(m.Read(Stream("/Identity-H usecmap 1 begincidchar <0041> 7 endcidchar")));
    EXPECT_EQ(7u, m.Cid(0x41));
    EXPECT_EQ(0x42u, m.Cid(0x42));
    EXPECT_FALSE(m.Read(Stream("/UniGB-UCS2-H usecmap")));
    // Ranges of mismatched widths are a CMap we cannot follow.
    EXPECT_FALSE(m.Read(Stream("1 begincidrange <00> <FFFF> 0 endcidrange")));
}

TEST_F(FontDictTest, CidToGidMapsReadStreamsAndDefaultToIdentity) {
    CosObj cid = CosNewDict(doc, true);
    CidToGid m;
    ASSERT_TRUE(m.Read(cid));
    EXPECT_TRUE(m.Identity());
    EXPECT_EQ(77u, m.Gid(77));
    CosDictPut(cid, A("CIDToGIDMap"), Stream(std::string("\x00\x05\x01\x02\x00", 5)));
    ASSERT_TRUE(m.Read(cid));
    EXPECT_FALSE(m.Identity());
    EXPECT_EQ(5u, m.Gid(0));
    EXPECT_EQ(0x102u, m.Gid(1));
    EXPECT_EQ(0u, m.Gid(2));  // the odd last byte is no entry
    EXPECT_EQ(0u, m.Gid(70000));
}

TEST_F(FontDictTest, FontKindsComeFromSubtypeAndProgram) {
    struct {
        const char* subtype;
        const char* fileKey;
        const char* fileSubtype;
        FontKind kind;
    } cases[] = {{"Type1", "FontFile", nullptr, FontKind::Type1},
                 {"Type1", "FontFile3", "Type1C", FontKind::Type1C},
                 {"TrueType", "FontFile2", nullptr, FontKind::TrueType},
                 {"Type1", "FontFile2", nullptr, FontKind::Unknown},  // a program of the wrong kind
                 {"TrueType", "FontFile3", "OpenType", FontKind::OpenType},
                 {"Type1", nullptr, nullptr, FontKind::NotEmbedded}};
    for (auto& c : cases) {
        CosObj f = Font(CosNewNull());
        CosDictPut(f, A("Subtype"), Name(c.subtype));
        CosDictPut(f, A("BaseFont"), Name("ABCDEF+Minion"));
        CosObj d = CosNewDict(doc, true);
        CosDictPut(f, A("FontDescriptor"), d);
        if (c.fileKey) {
            CosObj s = Stream("x");
            if (c.fileSubtype) CosDictPut(s, A("Subtype"), Name(c.fileSubtype));
            CosDictPut(d, A(c.fileKey), s);
        }
        FontInfo info = ReadFontInfo(f);
        EXPECT_EQ(c.kind, info.kind) << c.subtype << " " << (c.fileKey ? c.fileKey : "-");
        EXPECT_EQ("Minion", info.baseName);
        EXPECT_EQ("ABCDEF", info.tag);
    }
    // A Type0 is described by its descendant.
    CosObj cid = Font(CosNewNull());
    CosDictPut(cid, A("Subtype"), Name("CIDFontType0"));
    CosDictPut(cid, A("BaseFont"), Name("Kozuka"));
    CosObj d = CosNewDict(doc, true);
    CosObj s = Stream("x");
    CosDictPut(s, A("Subtype"), Name("CIDFontType0C"));
    CosDictPut(d, A("FontFile3"), s);
    CosDictPut(cid, A("FontDescriptor"), d);
    CosObj t0 = Font(Name("Identity-H"));
    CosDictPut(t0, A("Subtype"), Name("Type0"));
    CosObj kids = CosNewArray(doc, false);
    CosArrayAppend(kids, cid);
    CosDictPut(t0, A("DescendantFonts"), kids);
    FontInfo info = ReadFontInfo(t0);
    EXPECT_TRUE(info.composite);
    EXPECT_EQ(FontKind::CidType0C, info.kind);
    EXPECT_EQ("Kozuka", info.baseName);
    EXPECT_TRUE(info.tag.empty());
}

TEST(GlyphNames, NamesGiveUnicodeValues) {
    struct {
        const char* name;
        uint32_t unicode;  // 0: none
    } cases[] = {{"A", 0x41}, {"zero", 0x30}, {"Euro", 0x20AC}, {"fi", 0xFB01}, {"a.sc", 0x61},
                 {"uni20AC", 0x20AC}, {"u1F600", 0x1F600}, {"uni20ac", 0}, {"uniD800", 0},
                 {"u110000", 0}, {"g123", 0}, {"", 0}, {".notdef", 0}};
    for (auto& c : cases) {
        auto u = UnicodeForGlyphName(c.name);
        EXPECT_EQ(c.unicode, u.value_or(0)) << c.name;
    }
}

TEST(SubsetTags, AreDeterministicAndUnique) {
    std::set<std::string> a, b;
    std::string t1 = MakeSubsetTag("Times/A/B", a);
    EXPECT_EQ(t1, MakeSubsetTag("Times/A/B", b));
    ASSERT_EQ(6u, t1.size());
    for (char c : t1) EXPECT_TRUE(c >= 'A' && c <= 'Z');
    // The same seed again in the same document gets another tag, and the
    // same one again in a new run.
    std::string t2 = MakeSubsetTag("Times/A/B", a);
    EXPECT_NE(t1, t2);
    EXPECT_EQ(t2, MakeSubsetTag("Times/A/B", b));
    EXPECT_NE(t1, MakeSubsetTag("Times/A/C", a));
    EXPECT_TRUE(HasSubsetTag(t1 + "+Times"));
    EXPECT_FALSE(HasSubsetTag("ABCDEf+Times"));
    EXPECT_FALSE(HasSubsetTag("ABCDEF-Times"));
}

}  // namespace
