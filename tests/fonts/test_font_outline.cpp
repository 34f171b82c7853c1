// Converting embedded simple fonts to Type 3 fonts of glyph outlines.
#include <ft2build.h>
#include <gtest/gtest.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>

#include "fonts/FontOutline.h"
#include "fonts/GlyphUse.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

namespace {

using namespace fonts;

const char* const kSans = "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf";
const char* const kNimbus = "/usr/share/fonts/type1/urw-base35/NimbusSans-Regular.t1";

ASAtom A(const char* s) { return ASAtomFromString(s); }

std::string FileBytes(const char* path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

std::string Decoded(CosObj s) {
    std::vector<uint8_t> d = CosStreamDecodedData(s);
    return std::string(d.begin(), d.end());
}

// A path followed in small steps along its curves: the enclosed signed
// area and the extent of the points passed.  A quadratic and the cubic
// that draws the same curve pass the same points.
class Shape {
public:
    void Move(double x, double y) {
        Close();
        m_x = m_sx = x;
        m_y = m_sy = y;
    }
    void Line(double x, double y) {
        m_sum += m_x * y - x * m_y;
        m_x = x;
        m_y = y;
        lo[0] = std::min(lo[0], x), lo[1] = std::min(lo[1], y);
        hi[0] = std::max(hi[0], x), hi[1] = std::max(hi[1], y);
    }
    void Quad(double qx, double qy, double x, double y) {
        double x0 = m_x, y0 = m_y;
        for (double i = 1; i <= kSteps; ++i) {
            double t = i / kSteps, u = 1 - t;
            Line(u * u * x0 + 2 * u * t * qx + t * t * x, u * u * y0 + 2 * u * t * qy + t * t * y);
        }
    }
    void Cubic(double ax, double ay, double bx, double by, double x, double y) {
        double x0 = m_x, y0 = m_y;
        for (double i = 1; i <= kSteps; ++i) {
            double t = i / kSteps, u = 1 - t;
            Line(u * u * u * x0 + 3 * u * u * t * ax + 3 * u * t * t * bx + t * t * t * x,
                 u * u * u * y0 + 3 * u * u * t * ay + 3 * u * t * t * by + t * t * t * y);
        }
    }
    double Area() {
        Close();
        return m_sum / 2;
    }
    double lo[2] = {1e9, 1e9}, hi[2] = {-1e9, -1e9};

private:
    static constexpr int kSteps = 32;
    void Close() { m_sum += m_x * m_sy - m_sx * m_y; }
    double m_sum = 0, m_x = 0, m_y = 0, m_sx = 0, m_sy = 0;
};

// A glyph as FreeType reads it from the program, in thousandths of an em.
Shape ProgramShape(FT_Outline* outline, double k) {
    struct Walk {
        Shape shape;
        double k;
        double X(const FT_Vector* p) const { return static_cast<double>(p->x) * k; }
        double Y(const FT_Vector* p) const { return static_cast<double>(p->y) * k; }
    } w{{}, k};
    using V = const FT_Vector*;
    FT_Outline_Funcs f = {};
    f.move_to = [](V p, void* u) {
        auto& w = *static_cast<Walk*>(u);
        return w.shape.Move(w.X(p), w.Y(p)), 0;
    };
    f.line_to = [](V p, void* u) {
        auto& w = *static_cast<Walk*>(u);
        return w.shape.Line(w.X(p), w.Y(p)), 0;
    };
    f.conic_to = [](V q, V p, void* u) {
        auto& w = *static_cast<Walk*>(u);
        return w.shape.Quad(w.X(q), w.Y(q), w.X(p), w.Y(p)), 0;
    };
    f.cubic_to = [](V a, V b, V p, void* u) {
        auto& w = *static_cast<Walk*>(u);
        return w.shape.Cubic(w.X(a), w.Y(a), w.X(b), w.Y(b), w.X(p), w.Y(p)), 0;
    };
    EXPECT_EQ(0, FT_Outline_Decompose(outline, &f, &w));
    return w.shape;
}

// A glyph procedure's path, its d1 box and its painting operator.
Shape ProcedureShape(const std::string& text, double d1[4], std::string& paint) {
    Shape s;
    std::istringstream in(text);
    std::vector<double> n;
    for (std::string tok; in >> tok;) {
        if (std::isdigit(static_cast<unsigned char>(tok[0])) || tok[0] == '-' || tok[0] == '.') {
            n.push_back(std::stod(tok));
            continue;
        }
        if (tok == "d1" && n.size() == 6) std::copy(n.begin() + 2, n.end(), d1);
        if (tok == "m" && n.size() == 2) s.Move(n[0], n[1]);
        if (tok == "l" && n.size() == 2) s.Line(n[0], n[1]);
        if (tok == "c" && n.size() == 6) s.Cubic(n[0], n[1], n[2], n[3], n[4], n[5]);
        if (tok == "f" || tok == "f*") paint = tok;
        n.clear();
    }
    return s;
}

class OutlineTest : public ::testing::Test {
protected:
    void SetUp() override {
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        log.SetConsoleQuiet(true);
    }
    void TearDown() override { PDDocClose(pd); }
    void Fresh() {
        TearDown();
        SetUp();
    }

    CosObj Name(const char* n) { return CosNewName(doc, false, A(n)); }
    CosObj Stream(const std::string& data) {
        auto bytes = reinterpret_cast<const uint8_t*>(data.data());
        return CosNewStream(doc, CosNewNull(), {bytes, data.size()});
    }
    CosObj Dict(std::initializer_list<std::pair<const char*, CosObj>> entries, bool indirect) {
        CosObj d = CosNewDict(doc, indirect);
        for (auto& [k, v] : entries) CosDictPut(d, A(k), v);
        return d;
    }
    // A simple font over the program in `path` under `key`, with widths
    // 100 + code over 32..126.
    CosObj Font(const char* subtype, const char* path, const char* key, CosObj encoding) {
        CosObj w = CosNewArray(doc, false);
        for (int c = 32; c <= 126; ++c) CosArrayAppend(w, CosNewInteger(doc, false, 100 + c));
        CosObj desc = Dict({{key, Stream(FileBytes(path))}}, true);
        CosObj f = Dict({{"Type", Name("Font")},
                         {"Subtype", Name(subtype)},
                         {"Widths", w},
                         {"FirstChar", CosNewInteger(doc, false, 32)},
                         {"FontDescriptor", desc}},
                        true);
        if (!CosObjIsNull(encoding)) CosDictPut(f, A("Encoding"), encoding);
        return f;
    }
    CosObj TrueType() { return Font("TrueType", kSans, "FontFile2", Name("WinAnsiEncoding")); }
    CosObj Type1(CosObj enc = CosNewNull()) { return Font("Type1", kNimbus, "FontFile", enc); }

    // A page drawing `content` with `fonts` as /F1, /F2... and a form of
    // the content `form` (when given) as /Fm.
    void AddPage(const std::string& content, std::vector<CosObj> fonts,
                 const std::string& form = "") {
        CosObj pages = CosDictGet(CosDocGetRoot(doc), A("Pages"));
        CosObj fontRes = CosNewDict(doc, false);
        for (size_t i = 0; i < fonts.size(); ++i)
            CosDictPut(fontRes, A(("F" + std::to_string(i + 1)).c_str()), fonts[i]);
        CosObj res = Dict({{"Font", fontRes}}, false);
        if (!form.empty()) {
            CosObj fm = Stream(form);
            CosDictPut(fm, A("Subtype"), Name("Form"));
            CosDictPut(res, A("XObject"), Dict({{"Fm", fm}}, false));
        }
        CosObj page = Dict({{"Type", Name("Page")},
                            {"Parent", pages},
                            {"Resources", res},
                            {"Contents", Stream(content)}},
                           true);
        CosArrayAppend(CosDictGet(pages, A("Kids")), page);
        CosDictPutInteger(pages, A("Count"), CosArrayLength(CosDictGet(pages, A("Kids"))));
        PDDocPagesChanged(pd);
    }
    OutlineOutcome Run() { return OutlineDocumentFonts(pd, CollectGlyphUse(pd), 6, log); }
    static bool IsType3(CosObj font) { return CosDictGetName(font, A("Subtype")) == A("Type3"); }
    static std::string Proc(CosObj font, const char* name) {
        return Decoded(CosDictGet(CosDictGet(font, A("CharProcs")), A(name)));
    }
    static double Width(CosObj font, int code) {
        int first = CosDictGetInt(font, A("FirstChar"), 0);
        return CosFixedValue(CosArrayGet(CosDictGet(font, A("Widths")), code - first));
    }

    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
    Log log;
};

TEST_F(OutlineTest, FontsBecomeType3WithTheUsedGlyphsOnly) {
    for (bool type1 : {false, true}) {
        SCOPED_TRACE(type1 ? "Type 1 by its built-in encoding" : "TrueType by its Unicode map");
        Fresh();
        CosObj font = type1 ? Type1() : TrueType();
        AddPage("BT /F1 12 Tf (Hello ) Tj ET", {font});
        OutlineOutcome out = Run();
        ASSERT_EQ(1, out.outlined) << (out.kept.empty() ? "" : out.kept[0].reason);
        EXPECT_EQ(5, out.glyphs);
        EXPECT_EQ(0u, log.Count(Log::kWarning));
        EXPECT_TRUE(IsType3(font));  // the same dictionary, which the resources name
        EXPECT_FALSE(CosDictKnown(font, A("FontDescriptor")));
        CosObj procs = CosDictGet(font, A("CharProcs"));
        EXPECT_EQ(5, CosDictCount(procs));
        // Differences in runs, every name a procedure's.
        CosObj diffs = CosDictGet(CosDictGet(font, A("Encoding")), A("Differences"));
        std::string seen;
        for (ASInt32 i = 0; i < CosArrayLength(diffs); ++i) {
            CosObj v = CosArrayGet(diffs, i);
            bool name = CosObjGetType(v) == kCosName;
            seen += name ? ASAtomGetString(CosNameValue(v)) : std::to_string(CosIntegerValue(v));
            seen += ' ';
            if (name) {
                EXPECT_TRUE(CosDictKnown(procs, CosNameValue(v)));
            }
        }
        EXPECT_EQ("32 space 72 H 101 e 108 l 111 o ", seen);
        // Widths keep their text-space values under a 0.001 matrix; the
        // blank space has a procedure of its width alone.
        EXPECT_DOUBLE_EQ(0.001, CosFixedValue(CosArrayGet(CosDictGet(font, A("FontMatrix")), 3)));
        EXPECT_EQ(111, CosDictGetInt(font, A("LastChar"), 0));
        for (int c : {' ', 'H', 'i', 'o'}) EXPECT_EQ(100 + c, Width(font, c)) << char(c);
        EXPECT_EQ("132 0 0 0 0 0 d1\n", Proc(font, "space"));
        EXPECT_EQ(100 + 'H', std::stoi(Proc(font, "H")));
        // Text stays extractable.
        std::string cmap = Decoded(CosDictGet(font, A("ToUnicode")));
        EXPECT_NE(std::string::npos, cmap.find("<48> <0048>"));
        EXPECT_NE(std::string::npos, cmap.find("<6F> <006F>"));
    }
}

// The path drawn is the program's outline (quadratic curves of TrueType
// raised to cubics): the same area and extent, to the tenth of a unit the
// coordinates are written in, within the d1 box.
TEST_F(OutlineTest, ProceduresDrawTheProgramsOutlines) {
    FT_Library lib;
    ASSERT_EQ(0, FT_Init_FreeType(&lib));
    for (bool type1 : {false, true}) {
        Fresh();
        CosObj font = type1 ? Type1() : TrueType();
        AddPage("BT /F1 12 Tf (@Og) Tj ET", {font});
        ASSERT_EQ(1, Run().outlined);
        std::string bytes = FileBytes(type1 ? kNimbus : kSans);
        FT_Face face;
        ASSERT_EQ(0, FT_New_Memory_Face(lib, reinterpret_cast<const FT_Byte*>(bytes.data()),
                                        static_cast<FT_Long>(bytes.size()), 0, &face));
        for (const char* name : {"at", "O", "g"}) {
            SCOPED_TRACE(std::string(type1 ? "Type 1 " : "TrueType ") + name);
            FT_ULong ch = name[1] ? '@' : static_cast<FT_ULong>(name[0]);
            ASSERT_EQ(0, FT_Load_Char(face, ch, FT_LOAD_NO_SCALE));
            Shape want = ProgramShape(&face->glyph->outline, 1000.0 / face->units_per_EM);
            double d1[4] = {};
            std::string paint;
            Shape got = ProcedureShape(Proc(font, name), d1, paint);
            EXPECT_EQ("f", paint);
            EXPECT_NEAR(want.Area(), got.Area(), std::fabs(want.Area()) * 1e-3);
            for (int k = 0; k < 2; ++k) {
                EXPECT_NEAR(want.lo[k], got.lo[k], 0.06);
                EXPECT_NEAR(want.hi[k], got.hi[k], 0.06);
                EXPECT_LE(d1[k], got.lo[k]);
                EXPECT_GE(d1[k + 2], got.hi[k]);
            }
        }
        FT_Done_Face(face);
    }
    FT_Done_FreeType(lib);
}

// Text drawn in any mode but fill, anywhere, keeps the font; q/Q and
// forms scope the mode as the graphics state does.
TEST_F(OutlineTest, OnlyFontsWhoseTextIsFilledAreOutlined) {
    struct Case {
        const char* page;
        const char* form;  // drawn as /Fm
        bool outlined;
    } cases[] = {
        {"BT /F1 12 Tf 3 Tr (Hi) Tj ET", "", false},
        {"BT /F1 12 Tf 1 Tr 0 Tr (Hi) Tj ET", "", true},
        {"BT /F1 12 Tf (Hi) Tj 2 Tr (H) ' ET", "", false},
        {"q 7 Tr Q BT /F1 12 Tf (Hi) Tj ET", "", true},
        {"BT /F1 12 Tf /X Tr (Hi) Tj ET", "", false},
        {"5 Tr /Fm Do", "BT /F1 12 Tf (Hi) Tj ET", false},
        {"/Fm Do BT /F1 12 Tf (Hi) Tj ET", "4 Tr Q Q", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.page);
        Fresh();
        CosObj font = TrueType();
        AddPage(c.page, {font}, c.form);
        OutlineOutcome out = Run();
        EXPECT_EQ(c.outlined, IsType3(font));
        EXPECT_EQ(c.outlined ? 0u : 1u, out.kept.size());
    }
}

TEST_F(OutlineTest, FontsThatCannotBeFollowedStayWhole) {
    // F1: a Differences name no character map of a TrueType program leads
    // from.  F2: a ToUnicode map of its own survives the rewrite.  F3: the
    // program is no font.  F4: a Type 1 program draws its blank .notdef
    // for a name it lacks.
    CosObj diffs = CosNewArray(doc, false);
    CosArrayAppend(diffs, CosNewInteger(doc, false, 65));
    CosArrayAppend(diffs, Name("nosuchglyph"));
    CosObj enc = Dict({{"BaseEncoding", Name("WinAnsiEncoding")}, {"Differences", diffs}}, true);
    CosObj missing = Font("TrueType", kSans, "FontFile2", enc);
    CosObj withMap = TrueType();
    CosObj map = Stream("/CIDInit /ProcSet findresource begin");
    CosDictPut(withMap, A("ToUnicode"), map);
    CosObj broken = TrueType();
    CosDictPut(CosDictGet(broken, A("FontDescriptor")), A("FontFile2"), Stream("not a font"));
    CosObj notdef = Type1(enc);
    AddPage("BT /F1 9 Tf (AB) Tj /F2 9 Tf (x) Tj /F3 9 Tf (y) Tj /F4 9 Tf (A) Tj ET",
            {missing, withMap, broken, notdef});
    OutlineOutcome out = Run();
    EXPECT_EQ(4, out.fonts);
    EXPECT_EQ(2, out.outlined);
    ASSERT_EQ(2u, out.kept.size());
    EXPECT_FALSE(IsType3(missing));
    EXPECT_NE(std::string::npos, out.kept[0].reason.find("<41>"));
    EXPECT_FALSE(out.kept[0].damaged);
    EXPECT_TRUE(out.kept[1].damaged);
    EXPECT_EQ(1u, log.Count(Log::kWarning));
    EXPECT_EQ(map, CosDictGet(withMap, A("ToUnicode")));
    EXPECT_EQ("165 0 0 0 0 0 d1\n", Proc(notdef, "nosuchglyph"));
}

}  // namespace
