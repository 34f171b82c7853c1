// The font step on documents built here around real font programs (the
// metric-compatible fonts the test set-up installs).
#include <ft2build.h>
#include FT_FREETYPE_H

#include <fstream>
#include <iterator>

#include "pipeline/FontWork.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipeline;
using namespace pipetest;

const char* const kTrueType = "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf";
const char* const kType1 = "/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1";

Bytes ReadFile(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// FreeType's view of a font program: which glyphs still have outlines.
class Face {
public:
    explicit Face(const Bytes& program) : m_data(program) {
        FT_Init_FreeType(&m_lib);
        if (FT_New_Memory_Face(m_lib, m_data.data(), FT_Long(m_data.size()), 0, &m_face)) m_face = nullptr;
    }
    ~Face() {
        if (m_face) FT_Done_Face(m_face);
        FT_Done_FreeType(m_lib);
    }
    bool Ok() const { return m_face != nullptr; }
    long Glyphs() const { return m_face->num_glyphs; }
    // Outline points of a glyph, by id; -1 when it cannot be loaded.
    int Points(unsigned gid) const {
        if (FT_Load_Glyph(m_face, gid, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING)) return -1;
        return m_face->glyph->outline.n_points;
    }
    int PointsOf(const char* name) const {
        FT_UInt gid = FT_Get_Name_Index(m_face, name);
        return gid ? Points(gid) : -1;
    }
    int PointsOfChar(unsigned long unicode) const {
        FT_UInt gid = FT_Get_Char_Index(m_face, unicode);
        return gid ? Points(gid) : -1;
    }

private:
    Bytes m_data;
    FT_Library m_lib = nullptr;
    FT_Face m_face = nullptr;
};

class FontWorkTest : public DocTest {
protected:
    // A simple font over an embedded program.
    CosObj EmbeddedFont(const char* subtype, const char* base, const char* fileKey, const Bytes& program,
                        CosObj encoding) {
        CosObj file = Stream(program, nullptr);
        CosDictPutInteger(file, A("Length1"), int(program.size()));
        CosObj desc = Dict({{"Type", Name("FontDescriptor")}, {"FontName", Name(base)}, {"Flags", Int(32)},
                            {fileKey, file}},
                           true);
        CosObj f = Font(base);
        Set(f, {{"Subtype", Name(subtype)}, {"FontDescriptor", desc}});
        if (!CosObjIsNull(encoding)) CosDictPut(f, A("Encoding"), encoding);
        return f;
    }
    CosObj Program(CosObj font) {
        CosObj desc = CosDictGet(font, A("FontDescriptor"));
        for (const char* k : {"FontFile", "FontFile2", "FontFile3"})
            if (Has(desc, k)) return CosDictGet(desc, A(k));
        return CosNewNull();
    }
    Bytes ProgramBytes(CosObj font) { return CosStreamDecodedData(Program(font)); }
    std::string Base(CosObj font) { return ASAtomGetString(CosDictGetName(font, A("BaseFont"))); }
    void Run() { MakeFontWork()->Apply(C()); }
};

TEST_F(FontWorkTest, TrueTypeKeepsGlyphIdsAndOnlyTheUsedOutlines) {
    const Bytes ttf = ReadFile(kTrueType);
    ASSERT_FALSE(ttf.empty()) << kTrueType;
    CosObj page = AddPage("BT /F1 12 Tf (Hi) Tj ET /X Do");
    CosObj font = Put(page, "Font", "F1", EmbeddedFont("TrueType", "LiberationSans", "FontFile2", ttf,
                                                        Name("WinAnsiEncoding")));
    // A form on the page shows one more letter with the same font.
    CosObj form = Put(page, "XObject", "X", Form("BT /F1 9 Tf [(q)] TJ ET"));
    Put(form, "Font", "F1", font);

    Run();
    const Bytes out = ProgramBytes(font);
    EXPECT_LT(out.size(), ttf.size() / 4);
    Face before(ttf), after(out);
    ASSERT_TRUE(after.Ok());
    EXPECT_EQ(before.Glyphs(), after.Glyphs());  // ids stay where they were
    for (unsigned long c : {'H', 'i', 'q'}) {
        EXPECT_GT(after.PointsOfChar(c), 0) << char(c);
        EXPECT_EQ(before.PointsOfChar(c), after.PointsOfChar(c)) << char(c);
    }
    EXPECT_EQ(0, after.PointsOfChar('Z'));
    std::string base = Base(font);
    ASSERT_EQ(21u, base.size());
    EXPECT_EQ("+LiberationSans", base.substr(6));
    EXPECT_EQ(base, ASAtomGetString(CosDictGetName(CosDictGet(font, A("FontDescriptor")), A("FontName"))));

    // A second run finds nothing smaller to write: the subset stays as it
    // is, under its name.
    const Bytes stored = Encoded(Program(font));
    Run();
    EXPECT_EQ(stored, Encoded(Program(font)));
    EXPECT_EQ(base, Base(font));
}

TEST_F(FontWorkTest, Type1KeepsTheUsedGlyphsOfEveryFontSharingTheProgram) {
    const Bytes t1 = ReadFile(kType1);
    ASSERT_FALSE(t1.empty()) << kType1;
    CosObj page = AddPage("BT /F1 12 Tf (A) Tj /F2 12 Tf <41> Tj ET");
    CosObj f1 = Put(page, "Font", "F1", EmbeddedFont("Type1", "NimbusSans-Regular", "FontFile", t1, CosNewNull()));
    // A second font over the same program, whose encoding puts "eacute"
    // (built from e and acute) at code 0x41.
    CosObj diffs = Arr({Int(0x41), Name("eacute")});
    CosObj f2 = Put(page, "Font", "F2", Dict({{"Type", Name("Font")}, {"Subtype", Name("Type1")},
                                              {"BaseFont", Name("NimbusSans-Regular")},
                                              {"FontDescriptor", CosDictGet(f1, A("FontDescriptor"))},
                                              {"Encoding", Dict({{"Differences", diffs}})}},
                                             true));
    Run();
    CosObj desc = CosDictGet(f1, A("FontDescriptor"));
    EXPECT_EQ(desc, CosDictGet(f2, A("FontDescriptor")));
    Face after(ProgramBytes(f1));
    ASSERT_TRUE(after.Ok());
    EXPECT_LT(after.Glyphs(), 12);
    for (const char* g : {"A", "eacute"}) EXPECT_GT(after.PointsOf(g), 0) << g;
    EXPECT_EQ(-1, after.PointsOf("B"));
    EXPECT_EQ(Base(f1), Base(f2));
    EXPECT_LT(CosStreamEncodedLength(Program(f1)), t1.size() / 5);
}

TEST_F(FontWorkTest, FontsTheAnalysisCannotFollowStayWhole) {
    const Bytes ttf = ReadFile(kTrueType);
    // A font of the interactive form's default resources; a font shown
    // by a form that cannot be read; a font nothing shows.
    CosObj page = AddPage("BT /F1 12 Tf (a) Tj /F2 12 Tf (b) Tj ET");
    CosObj field = Put(page, "Font", "F1", EmbeddedFont("TrueType", "LiberationSans", "FontFile2", ttf,
                                                         Name("WinAnsiEncoding")));
    CosDictPut(cat, A("AcroForm"), Dict({{"DR", Dict({{"Font", Dict({{"Helv", field}})}})}}));
    CosObj plain = Put(page, "Font", "F2", EmbeddedFont("TrueType", "LiberationSans", "FontFile2", ttf,
                                                         Name("WinAnsiEncoding")));
    CosObj unused = Put(page, "Font", "F3", EmbeddedFont("TrueType", "LiberationSans", "FontFile2", ttf,
                                                          Name("WinAnsiEncoding")));
    Run();
    EXPECT_EQ(ttf.size(), ProgramBytes(field).size());
    EXPECT_EQ(ttf.size(), ProgramBytes(unused).size());
    EXPECT_LT(ProgramBytes(plain).size(), ttf.size());

    // Text in a stream that cannot be decoded may use any glyph: the next
    // run keeps every font as it is.
    CosObj page2 = AddPage("BT /F4 12 Tf (c) Tj ET /Bad Do");
    CosObj f4 = Put(page2, "Font", "F4", EmbeddedFont("TrueType", "LiberationSans", "FontFile2", ttf,
                                                       Name("WinAnsiEncoding")));
    CosObj bad = Put(page2, "XObject", "Bad", Form("BT /F4 1 Tf (d) Tj ET"));
    CosDictPutName(bad, A("Filter"), false, A("FlateDecode"));
    Run();
    EXPECT_EQ(ttf.size(), ProgramBytes(f4).size());
}

TEST_F(FontWorkTest, Type3FontsLoseTheGlyphProceduresNoCodeSelects) {
    CosObj procs = Dict({{"a", Stream("0 0 d0 0 0 1 1 re f")}, {"b", Stream("0 0 d0")}, {"c", Stream("0 0 d0")}});
    CosObj t3 = Dict({{"Type", Name("Font")}, {"Subtype", Name("Type3")}, {"CharProcs", procs},
                      {"Encoding", Dict({{"Differences", Arr({Int(97), Name("a"), Name("b"), Name("c")})}})},
                      {"FontMatrix", Array({0.001, 0, 0, 0.001, 0, 0})}},
                     true);
    CosObj page = AddPage("BT /T 10 Tf (ac) Tj ET");
    Put(page, "Font", "T", t3);
    Run();
    EXPECT_TRUE(Has(procs, "a"));
    EXPECT_FALSE(Has(procs, "b"));
    EXPECT_TRUE(Has(procs, "c"));
}

}  // namespace
