// Embedding non-embedded fonts from the installed URW base 35 and
// Liberation fonts: finding the substitute, reading its file into a PDF
// program, and completing the font dictionaries.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/Log.h"
#include "fonts/FontDict.h"
#include "fonts/FontEmbed.h"
#include "fonts/GlyphUse.h"
#include "fonts/SystemFonts.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

namespace {

using namespace fonts;

ASAtom A(const char* s) { return ASAtomFromString(s); }

const char* const kUrwType1 = "/usr/share/fonts/type1/urw-base35/";
const char* const kUrwOpenType = "/usr/share/fonts/opentype/urw-base35/";

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Whether FreeType reads `bytes` as a font with a glyph named `glyph`.
bool FreeTypeReads(const std::vector<uint8_t>& bytes, const char* glyph) {
    FT_Library lib;
    if (FT_Init_FreeType(&lib)) return false;
    FT_Face face;
    bool ok = FT_New_Memory_Face(lib, bytes.data(), static_cast<FT_Long>(bytes.size()), 0, &face) == 0;
    if (ok) {
        ok = FT_Get_Name_Index(face, glyph) != 0 || (FT_Select_Charmap(face, FT_ENCODING_UNICODE) == 0 &&
                                                       FT_Get_Char_Index(face, static_cast<FT_ULong>(glyph[0])) != 0);
        FT_Done_Face(face);
    }
    FT_Done_FreeType(lib);
    return ok;
}

// ------------------------------------------------------------ finding fonts

TEST(SystemFonts, NamesFindTheirMetricCompatibleSubstitutes) {
    struct Case {
        const char* pdfName;
        const char* postScriptName;  // nullptr: none may be found
        FontFileFormat format;
        bool fixed;
    };
    const FontFileFormat T1 = FontFileFormat::Type1, CFF = FontFileFormat::OpenTypeCff,
                         TT = FontFileFormat::TrueType;
    const Case cases[] = {
        {"Helvetica", "NimbusSans-Regular", CFF, true},
        {"Helvetica-BoldOblique", "NimbusSans-BoldItalic", CFF, true},
        {"ABCDEF+Times-Roman", "NimbusRoman-Regular", CFF, true},
        {"Times-BoldItalic", "NimbusRoman-BoldItalic", CFF, true},
        {"Courier-Oblique", "NimbusMonoPS-Italic", CFF, true},
        {"Helvetica-Narrow-Bold", "NimbusSansNarrow-Bold", CFF, true},
        {"AvantGarde-Demi", "URWGothic-Demi", CFF, true},
        {"Symbol", "StandardSymbolsPS", T1, true},
        {"ZapfDingbats", "D050000L", T1, true},
        {"Arial", "LiberationSans", TT, true},
        {"ArialMT", "LiberationSans", TT, true},
        {"Arial,Bold", "LiberationSans-Bold", TT, true},
        {"Arial-ItalicMT", "LiberationSans-Italic", TT, true},
        {"Arial,BoldItalic", "LiberationSans-BoldItalic", TT, true},
        {"ArialBold", "LiberationSans-Bold", TT, true},
        {"ArialBoldMT", "LiberationSans-Bold", TT, true},
        {"TimesNewRomanPSMT", "LiberationSerif", TT, true},
        {"TimesNewRomanPS-BoldMT", "LiberationSerif-Bold", TT, true},
        {"Times New Roman,Italic", "LiberationSerif-Italic", TT, true},
        {"CourierNewPSMT", "LiberationMono", TT, true},
        {"CourierNew,Bold", "LiberationMono-Bold", TT, true},
        // Through the configuration: by PostScript name, then by family.
        {"NimbusSans-Bold", "NimbusSans-Bold", CFF, false},
        {"LiberationSerif,Bold", "LiberationSerif-Bold", TT, false},
        // Other weights, faked styles and unknown families find nothing,
        // even where the configuration would offer a fallback.
        {"Arial-Black", nullptr, TT, false},
        {"Helvetica-Light", nullptr, TT, false},
        {"Symbol,Bold", nullptr, TT, false},
        {"NoSuchFamilyAnywhere-Bold", nullptr, TT, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pdfName);
        std::string why;
        std::optional<SystemFont> f = FindSystemFont(c.pdfName, &why);
        if (!c.postScriptName) {
            EXPECT_FALSE(f) << f->path;
            EXPECT_FALSE(why.empty());
            continue;
        }
        ASSERT_TRUE(f) << why;
        EXPECT_EQ(c.postScriptName, f->postScriptName);
        EXPECT_EQ(c.format, f->format);
        EXPECT_EQ(c.fixed, f->metricCompatible);
        EXPECT_EQ(c.pdfName == std::string("Symbol") || c.pdfName == std::string("ZapfDingbats"), f->symbolic);
    }
}

// ------------------------------------------------------------ font files

TEST(FontFilePrograms, Type1FilesGiveTheSamePartsInEveryForm) {
    const std::vector<uint8_t> t1 = ReadAll(std::string(kUrwType1) + "NimbusSans-Regular.t1");
    ASSERT_FALSE(t1.empty());
    EmbeddableProgram raw;
    std::string error;
    ASSERT_TRUE(ProgramFromFontFile(t1, FontFileFormat::Type1, raw, error)) << error;
    ASSERT_EQ(raw.bytes.size(), raw.length1 + raw.length2 + raw.length3);
    const std::string clear(raw.bytes.begin(), raw.bytes.begin() + static_cast<long>(raw.length1));
    EXPECT_EQ(0u, clear.rfind("%!", 0));
    EXPECT_NE(std::string::npos, clear.find("eexec", clear.size() - 8));
    EXPECT_NE(std::string::npos, std::string(raw.bytes.end() - 16, raw.bytes.end()).find("cleartomark"));
    EXPECT_TRUE(FreeTypeReads(raw.bytes, "Adieresis"));

    const std::vector<uint8_t> enc(raw.bytes.begin() + static_cast<long>(raw.length1),
                                   raw.bytes.begin() + static_cast<long>(raw.length1 + raw.length2));
    const std::string trailer(raw.bytes.end() - static_cast<long>(raw.length3), raw.bytes.end());
    // The same font as PFA, its encrypted part hexadecimal in lines, and as
    // PFB segments.  A trailing zero byte of the data must survive the
    // trailer's zeros.
    for (bool zeroEnd : {false, true}) {
        std::vector<uint8_t> data = enc;
        if (zeroEnd) data.push_back(0);
        std::string pfa = clear;
        for (size_t i = 0; i < data.size(); ++i) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02x", data[i]);
            pfa += hex;
            if (i % 32 == 31) pfa += '\n';
        }
        pfa += "\n" + trailer;
        EmbeddableProgram fromPfa;
        ASSERT_TRUE(ProgramFromFontFile({reinterpret_cast<const uint8_t*>(pfa.data()), pfa.size()},
                                        FontFileFormat::Type1, fromPfa, error))
            << error;
        EXPECT_EQ(data.size(), fromPfa.length2);
        EXPECT_TRUE(std::equal(data.begin(), data.end(), fromPfa.bytes.begin() + static_cast<long>(fromPfa.length1)));
    }
    std::vector<uint8_t> pfb;
    auto segment = [&](uint8_t type, const std::vector<uint8_t>& part) {
        const size_t n = part.size();
        pfb.insert(pfb.end(), {0x80, type, uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16), uint8_t(n >> 24)});
        pfb.insert(pfb.end(), part.begin(), part.end());
    };
    segment(1, {clear.begin(), clear.end()});
    segment(2, enc);
    segment(1, {trailer.begin(), trailer.end()});
    pfb.insert(pfb.end(), {0x80, 3});
    EmbeddableProgram fromPfb;
    ASSERT_TRUE(ProgramFromFontFile(pfb, FontFileFormat::Type1, fromPfb, error)) << error;
    EXPECT_EQ(raw.bytes, fromPfb.bytes);
    EXPECT_EQ(raw.length2, fromPfb.length2);
}

TEST(FontFilePrograms, OpenTypeGivesItsCffAndBrokenFilesAreRefused) {
    EmbeddableProgram p;
    std::string error;
    const std::vector<uint8_t> otf = ReadAll(std::string(kUrwOpenType) + "NimbusRoman-Regular.otf");
    ASSERT_TRUE(ProgramFromFontFile(otf, FontFileFormat::OpenTypeCff, p, error)) << error;
    ASSERT_GT(p.bytes.size(), 1000u);
    EXPECT_EQ(1, p.bytes[0]);  // CFF major version
    EXPECT_LT(p.bytes.size(), otf.size());
    EXPECT_TRUE(FreeTypeReads(p.bytes, "Eacute"));

    std::vector<uint8_t> badDirectory(otf.begin(), otf.begin() + 64);
    badDirectory[4] = 0x7F;  // more tables than the file holds
    const std::vector<std::pair<std::vector<uint8_t>, FontFileFormat>> bad = {
        {{}, FontFileFormat::Type1},
        {{0x80, 0x01, 0xFF, 0xFF, 0xFF, 0x7F, '%', '!'}, FontFileFormat::Type1},  // segment past the end
        {{0x80, 0x07}, FontFileFormat::Type1},
        {{'%', '!', 'n', 'o', ' ', 'e', 'x', 'e', 'c'}, FontFileFormat::Type1},
        {badDirectory, FontFileFormat::OpenTypeCff},
        {otf, FontFileFormat::TrueType},
    };
    for (const auto& [bytes, format] : bad) {
        error.clear();
        EXPECT_FALSE(ProgramFromFontFile(bytes, format, p, error));
        EXPECT_FALSE(error.empty());
    }
}

// ------------------------------------------------------------ documents

class FontEmbedTest : public ::testing::Test {
protected:
    void SetUp() override {
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
    }
    void TearDown() override {
        PDDocClose(pd);
        std::fclose(out);
        std::fclose(err);
    }
    CosObj Name(const char* n) { return CosNewName(doc, false, A(n)); }
    CosObj Font(const char* subtype, const char* base, int firstChar = -1, std::vector<double> widths = {}) {
        CosObj f = CosNewDict(doc, true);
        CosDictPut(f, A("Type"), Name("Font"));
        CosDictPut(f, A("Subtype"), Name(subtype));
        CosDictPut(f, A("BaseFont"), Name(base));
        if (firstChar >= 0) {
            CosObj w = CosNewArray(doc, false);
            for (double v : widths) CosArrayAppend(w, CosNewNumber(doc, false, v));
            CosDictPutInteger(f, A("FirstChar"), firstChar);
            CosDictPutInteger(f, A("LastChar"), firstChar + static_cast<int>(widths.size()) - 1);
            CosDictPut(f, A("Widths"), w);
        }
        return f;
    }
    // One page showing `text` in every font of `fonts` (resource names F0, F1, ...).
    void Page(const std::vector<CosObj>& fonts, const std::string& text) {
        CosObj pages = CosDictGet(CosDocGetRoot(doc), A("Pages"));
        CosObj page = CosNewDict(doc, true);
        CosDictPut(page, A("Type"), Name("Page"));
        CosDictPut(page, A("Parent"), pages);
        CosObj res = CosNewDict(doc, false), dict = CosNewDict(doc, false);
        std::string content = "BT ";
        for (size_t i = 0; i < fonts.size(); ++i) {
            const std::string name = "F" + std::to_string(i);
            CosDictPut(dict, A(name.c_str()), fonts[i]);
            content += "/" + name + " 12 Tf (" + text + ") Tj ";
        }
        content += "ET";
        CosDictPut(res, A("Font"), dict);
        CosDictPut(page, A("Resources"), res);
        CosDictPut(page, A("Contents"),
                   CosNewStream(doc, CosNewNull(), {reinterpret_cast<const uint8_t*>(content.data()), content.size()}));
        CosArrayAppend(CosDictGet(pages, A("Kids")), page);
        CosDictPutInteger(pages, A("Count"), CosArrayLength(CosDictGet(pages, A("Kids"))));
        PDDocPagesChanged(pd);
    }
    EmbedOutcome Embed() { return EmbedDocumentFonts(pd, CollectGlyphUse(pd), 6, log); }
    std::string Warnings() {
        std::fflush(err);
        std::rewind(err);
        std::string s;
        for (int c; (c = std::fgetc(err)) != EOF;) s += static_cast<char>(c);
        return s;
    }
    double Width(CosObj font, int code) {
        return CosFixedValue(CosArrayGet(CosDictGet(font, A("Widths")), code - CosDictGetInt(font, A("FirstChar"), 0)));
    }

    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    Log log;
};

TEST_F(FontEmbedTest, StandardAndTrueTypeFontsAreEmbeddedWithCompleteDictionaries) {
    // Arial's widths for "Wor'ld" (W o r quoteright l d); code 39 is a
    // quote that StandardEncoding calls quoteright.
    std::vector<double> arial(120 - 39 + 1, 0);
    for (auto [code, w] : {std::pair{'W', 944}, {'o', 556}, {'r', 333}, {'\'', 222}, {'l', 222}, {'d', 556}})
        arial[static_cast<size_t>(code - 39)] = w;
    CosObj helv = Font("Type1", "Helvetica"), helv2 = Font("Type1", "Helvetica");
    CosObj tt = Font("TrueType", "Arial", 39, arial), sym = Font("Type1", "Symbol");
    Page({helv, helv2, tt, sym}, "Wor'ld");
    // A code StandardEncoding leaves empty draws nothing with or without
    // the program, whose .notdef is blank.
    Page({helv}, "\x80");
    // A font selected to show nothing (an empty field's appearance), and
    // one only the form's default resources name: both are embedded.
    CosObj empty = Font("Type1", "Courier"), formOnly = Font("Type1", "Times-Roman");
    Page({empty}, "");
    CosObj form = CosNewDict(doc, false), dr = CosNewDict(doc, false), drFonts = CosNewDict(doc, false);
    CosDictPut(drFonts, A("TiRo"), formOnly);
    CosDictPut(dr, A("Font"), drFonts);
    CosDictPut(form, A("DR"), dr);
    CosDictPut(CosDocGetRoot(doc), A("AcroForm"), form);

    EmbedOutcome o = Embed();
    EXPECT_EQ(6, o.candidates);
    EXPECT_EQ(6, o.embedded) << Warnings();
    EXPECT_EQ(6u, o.changedFonts.size());
    EXPECT_EQ(FontKind::Type1C, ReadFontInfo(empty).kind);
    EXPECT_EQ(FontKind::Type1C, ReadFontInfo(formOnly).kind);

    FontInfo h = ReadFontInfo(helv);
    ASSERT_EQ(FontKind::Type1C, h.kind);
    EXPECT_EQ(h.program, ReadFontInfo(helv2).program);  // one program for one installed file
    EXPECT_STREQ("Helvetica", ASAtomGetString(CosDictGetName(helv, A("BaseFont"))));
    EXPECT_STREQ("Helvetica", ASAtomGetString(CosDictGetName(h.descriptor, A("FontName"))));
    EXPECT_EQ(32, CosDictGetInt(h.descriptor, A("Flags"), 0) & 36);
    for (const char* k : {"FontBBox", "ItalicAngle", "Ascent", "Descent", "CapHeight", "StemV"})
        EXPECT_TRUE(CosDictKnown(h.descriptor, A(k))) << k;
    EXPECT_NEAR(718, CosDictGetNumber(h.descriptor, A("CapHeight"), 0), 10);
    EXPECT_NEAR(-210, CosDictGetNumber(h.descriptor, A("Descent"), 0), 15);
    // Widths over the whole of StandardEncoding, from the program.
    EXPECT_EQ(32, CosDictGetInt(helv, A("FirstChar"), -1));
    EXPECT_EQ(251, CosDictGetInt(helv, A("LastChar"), -1));
    EXPECT_EQ(944, Width(helv, 'W'));
    EXPECT_EQ(222, Width(helv, '\''));
    EXPECT_TRUE(FreeTypeReads(CosStreamDecodedData(h.program), "W"));

    FontInfo t = ReadFontInfo(tt);
    ASSERT_EQ(FontKind::TrueType, t.kind);
    const std::vector<uint8_t> ttf = CosStreamDecodedData(t.program);
    EXPECT_EQ(static_cast<ASInt32>(ttf.size()), CosDictGetInt(t.program, A("Length1"), 0));
    EXPECT_TRUE(FreeTypeReads(ttf, "W"));
    EXPECT_EQ(32, CosDictGetInt(t.descriptor, A("Flags"), 0) & 36);
    // The encoding is spelled out over WinAnsiEncoding, with the codes
    // StandardEncoding reads differently as differences.
    CosObj enc = CosDictGet(tt, A("Encoding"));
    ASSERT_EQ(kCosDict, CosObjGetType(enc));
    EXPECT_EQ(A("WinAnsiEncoding"), CosDictGetName(enc, A("BaseEncoding")));
    SimpleEncoding names = ReadSimpleEncoding(tt);
    EXPECT_EQ("quoteright", names.names[39]);
    EXPECT_EQ("quoteleft", names.names[96]);
    EXPECT_EQ("W", names.names['W']);
    EXPECT_EQ(".notdef", names.names[0x80]);  // Euro in WinAnsiEncoding, nothing in StandardEncoding

    // Symbol keeps its own encoding: a Type 1 program, symbolic.
    FontInfo s = ReadFontInfo(sym);
    ASSERT_EQ(FontKind::Type1, s.kind);
    EXPECT_EQ(4, CosDictGetInt(s.descriptor, A("Flags"), 0) & 36);
    EXPECT_GT(CosDictGetInt(s.program, A("Length2"), 0), 1000);
    EXPECT_EQ(631, Width(sym, 'a'));  // alpha

    // The saved file reads back with the programs in place.
    const std::string path = ::testing::TempDir() + "font_embed.pdf";
    PDDocSave(pd, path, 1);
    PDDoc again = PDDocOpen(path);
    CosObj font = CosDictGet(CosDictGet(CosDictGet(PDDocGetPageObj(again, 0), A("Resources")), A("Font")), A("F2"));
    EXPECT_EQ(FontKind::TrueType, ReadFontInfo(font).kind);
    PDDocClose(again);
    std::remove(path.c_str());
}

TEST_F(FontEmbedTest, FontsThatWouldDrawDifferentlyStayAsTheyAre) {
    // Arial's widths for "Wor", with o 5% too wide; the same widths right,
    // but for a family that is not installed.
    auto arial = [](double oScale) {
        std::vector<double> w('r' - 'W' + 1, 0);
        w[0] = 944, w['o' - 'W'] = 556 * oScale, w['r' - 'W'] = 333;
        return w;
    };
    CosObj off = Font("TrueType", "ArialMT", 'W', arial(1.05));
    CosObj unknown = Font("TrueType", "NoSuchFamilyAnywhere", 'W', arial(1));
    // A code whose glyph the substitute lacks.
    CosObj noGlyph = Font("Type1", "Helvetica");
    CosObj diffs = CosNewArray(doc, false);
    CosArrayAppend(diffs, CosNewInteger(doc, false, 'r'));
    CosArrayAppend(diffs, Name("nosuchglyph"));
    CosObj e = CosNewDict(doc, false);
    CosDictPut(e, A("Differences"), diffs);
    CosDictPut(noGlyph, A("Encoding"), e);
    Page({off, unknown, noGlyph}, "Wor");
    // The TrueType substitute's .notdef is a box, which a code without a
    // glyph would now show.
    CosObj box = Font("TrueType", "Arial");
    Page({box}, "W\x80");
    // A font of the form's default resources, where fill-in text may use
    // any code: a wrong width of a code not shown yet counts.
    CosObj whole = Font("Type1", "Helvetica", 'W', {944, 999});
    Page({whole}, "W");
    CosObj form = CosNewDict(doc, false), dr = CosNewDict(doc, false), drFonts = CosNewDict(doc, false);
    CosDictPut(drFonts, A("Helv"), whole);
    CosDictPut(dr, A("Font"), drFonts);
    CosDictPut(form, A("DR"), dr);
    CosDictPut(CosDocGetRoot(doc), A("AcroForm"), form);

    EmbedOutcome o = Embed();
    EXPECT_EQ(5, o.candidates);
    EXPECT_EQ(0, o.embedded);
    ASSERT_EQ(5u, o.leftOut.size());
    const std::string w = Warnings();
    EXPECT_NE(std::string::npos, w.find("The font 'Helvetica' is not embedded: the width of code 88 ('X') is 999"))
        << w;
    EXPECT_NE(std::string::npos, w.find("The font 'Arial' is not embedded: code 128 names no glyph")) << w;
    EXPECT_NE(std::string::npos, w.find("The font 'ArialMT' is not embedded: the width of code 111 ('o')")) << w;
    EXPECT_NE(std::string::npos, w.find("The font 'NoSuchFamilyAnywhere' is not embedded")) << w;
    EXPECT_NE(std::string::npos, w.find("'nosuchglyph'")) << w;
    for (CosObj f : {off, unknown, noGlyph, box, whole}) {
        EXPECT_EQ(FontKind::NotEmbedded, ReadFontInfo(f).kind);
        EXPECT_FALSE(CosDictKnown(f, A("FontDescriptor")));
    }
    EXPECT_FALSE(CosDictKnown(noGlyph, A("Widths")));
}

}  // namespace
