// Type 1 programs: reading the installed URW fonts in every form a PDF may
// hold them, subsetting checked against FreeType's outlines, the closure
// through seac and subroutines, and damaged programs.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>
#include <stdexcept>

#include "fonts/StandardEncodings.h"
#include "fonts/Type1Font.h"

using namespace fonts;

namespace {

const std::string kUrw = "/usr/share/fonts/type1/urw-base35/";

std::vector<uint8_t> Bytes(const std::string& s) { return {s.begin(), s.end()}; }
std::string Str(const std::vector<uint8_t>& b) { return {b.begin(), b.end()}; }

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

Type1Font Read(const std::string& bytes) {
    Type1Font f;
    std::string error;
    auto b = Bytes(bytes);
    EXPECT_TRUE(ReadType1(b, 0, f, error)) << error;
    return f;
}

Type1Font Load(const std::string& name) { return Read(ReadFile(kUrw + name + ".t1")); }

std::set<std::string> AllNames(const Type1Font& f) {
    std::set<std::string> s;
    for (auto& [n, cs] : f.charStrings) s.insert(n);
    return s;
}

// A program written from `f` as it stands (how the crafted fonts are made).
std::string Write(const Type1Font& f) { return Str(SubsetType1(f, AllNames(f)).bytes); }

// The clear text followed by `priv` encrypted, with chosen leading bytes.
std::string Assemble(const Type1Font& f, const std::string& priv, std::string lead = std::string(4, '\0')) {
    return f.cleartext + Type1Encrypt(lead + priv, kEexecKey);
}

std::string Num(int v) {
    if (v >= -107 && v <= 107) return std::string(1, char(v + 139));
    if (v >= 108 && v <= 1131) return {char((v - 108) / 256 + 247), char((v - 108) % 256)};
    if (v >= -1131 && v <= -108) return {char((-v - 108) / 256 + 251), char((-v - 108) % 256)};
    uint32_t u = static_cast<uint32_t>(v);
    return {char(255), char(u >> 24), char(u >> 16), char(u >> 8), char(u)};
}

// A glyph program split after its leading hsbw, without its final endchar.
std::pair<std::string, std::string> SplitHsbw(const std::string& cs) {
    size_t i = 0;
    while (i < cs.size() && uint8_t(cs[i]) >= 32) i += uint8_t(cs[i]) <= 246 ? 1 : uint8_t(cs[i]) == 255 ? 5 : 2;
    EXPECT_EQ(cs[i], '\x0d');
    EXPECT_EQ(cs.back(), '\x0e');
    return {cs.substr(0, i + 1), cs.substr(i + 1, cs.size() - i - 2)};
}

struct Outline {
    std::vector<std::pair<long, long>> points;
    std::vector<char> tags;
    std::vector<short> contours;
    long advance = 0;
    bool operator==(const Outline&) const = default;
};

class Face {
public:
    explicit Face(std::string bytes) : bytes_(std::move(bytes)) {
        if (!lib_) FT_Init_FreeType(&lib_);
        ok_ = FT_New_Memory_Face(lib_, reinterpret_cast<const FT_Byte*>(bytes_.data()), FT_Long(bytes_.size()), 0,
                                 &face_) == 0;
    }
    ~Face() {
        if (ok_) FT_Done_Face(face_);
    }
    bool ok() const { return ok_; }
    FT_Face get() const { return face_; }
    bool Has(const std::string& name) const {
        return name == ".notdef" || FT_Get_Name_Index(face_, const_cast<char*>(name.c_str())) != 0;
    }
    Outline Glyph(const std::string& name) const {
        Outline o;
        FT_UInt gid = FT_Get_Name_Index(face_, const_cast<char*>(name.c_str()));
        EXPECT_EQ(FT_Load_Glyph(face_, gid, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING), 0) << name;
        const FT_Outline& ol = face_->glyph->outline;
        for (int i = 0; i < ol.n_points; ++i) {
            o.points.emplace_back(ol.points[i].x, ol.points[i].y);
            o.tags.push_back(ol.tags[i]);
        }
        o.contours.assign(ol.contours, ol.contours + ol.n_contours);
        o.advance = face_->glyph->metrics.horiAdvance;
        return o;
    }

private:
    static inline FT_Library lib_ = nullptr;
    std::string bytes_;
    FT_Face face_ = nullptr;
    bool ok_ = false;
};

}  // namespace

TEST(Type1Crypt, KnownAnswerAndRoundTrip) {
    // The installed fonts' encrypted part starts right after "eexec\r".
    std::string raw = ReadFile(kUrw + "NimbusSans-Regular.t1");
    size_t e = raw.find("eexec") + 6;
    EXPECT_EQ(Type1Decrypt(std::string_view(raw).substr(e, 20), kEexecKey).substr(4), "dup /Private 14 ");
    // The fixed leading zeros give a first byte that is neither whitespace nor hex.
    EXPECT_EQ(uint8_t(Type1Encrypt(std::string(4, '\0'), kEexecKey)[0]), 0xD9);
    std::string text = "any \x00\xff bytes";
    for (uint16_t key : {kEexecKey, kCharStringKey}) EXPECT_EQ(Type1Decrypt(Type1Encrypt(text, key), key), text);
}

TEST(StandardEncodings, CodesWherePdfDiffersFromThePlatforms) {
    const std::tuple<const char* const*, int, const char*> cases[] = {
        {kWinAnsiEncoding, 0x27, "quotesingle"}, {kWinAnsiEncoding, 0x60, "grave"}, {kWinAnsiEncoding, 0x80, "Euro"},
        {kWinAnsiEncoding, 0x95, "bullet"},      {kWinAnsiEncoding, 0xA0, "space"}, {kWinAnsiEncoding, 0xAD, "hyphen"},
        {kWinAnsiEncoding, 0x81, nullptr},       {kWinAnsiEncoding, 0x7F, nullptr}, {kMacRomanEncoding, 0xCA, "space"},
        {kMacRomanEncoding, 0xDB, "currency"},   {kMacRomanEncoding, 0xAD, nullptr}, {kMacRomanEncoding, 0xF0, nullptr},
        {kStandardEncoding, 0x27, "quoteright"}, {kStandardEncoding, 0xC2, "acute"}, {kMacExpertEncoding, 0x21, "exclamsmall"},
        {kSymbolEncoding, 0xA0, "Euro"},         {kSymbolEncoding, 0x80, nullptr},  {kZapfDingbatsEncoding, 0x80, "a89"},
    };
    for (auto [table, code, name] : cases) {
        if (name) EXPECT_STREQ(table[code], name) << code;
        else EXPECT_EQ(table[code], nullptr) << code;
    }
}

TEST(Type1Read, EveryInstalledFontAgreesWithFreeType) {
    int n = 0;
    for (auto& entry : std::filesystem::directory_iterator(kUrw)) {
        if (entry.path().extension() != ".t1") continue;
        ++n;
        std::string raw = ReadFile(entry.path());
        Type1Font f = Read(raw);
        Face face(raw);
        ASSERT_TRUE(face.ok());
        EXPECT_EQ(f.fontName, entry.path().stem().string());
        EXPECT_EQ(f.fontName, FT_Get_Postscript_Name(face.get()));
        EXPECT_EQ(f.charStrings.size(), size_t(face.get()->num_glyphs)) << f.fontName;
        EXPECT_EQ(f.subrs.size(), 5u);
        EXPECT_EQ(f.privateText.substr(f.privateText.size() - 10), "closefile\n") << f.fontName;
    }
    EXPECT_EQ(n, 35);
}

TEST(Type1Read, TopLevelAndPrivateValues) {
    Type1Font f = Load("NimbusSans-Regular");
    EXPECT_EQ(f.fontBBox, (std::array<double, 4>{-210, -299, 1032, 1075}));
    EXPECT_EQ(f.fontMatrix, (std::array<double, 6>{0.001, 0, 0, 0.001, 0, 0}));
    EXPECT_TRUE(f.standardEncoding);
    EXPECT_EQ(f.fontInfo["FullName"], "Nimbus Sans");
    EXPECT_EQ(f.fontInfo["Notice"], "(URW)++,Copyright 2014 by (URW)++ Design & Development");
    EXPECT_EQ(f.fontInfo["UnderlinePosition"], "-151");
    EXPECT_EQ(f.fontInfo["isFixedPitch"], "false");
    EXPECT_EQ(f.privateValues["BlueValues"], (std::vector<double>{-23, 0, 524, 539, 729, 741, 709, 723}));
    EXPECT_EQ(f.privateValues["StdVW"], (std::vector<double>{93}));
    EXPECT_EQ(f.privateValues["ForceBold"], (std::vector<double>{0}));
    EXPECT_EQ(f.privateValues.count("StemSnapLength"), 0u);  // inside a procedure
    EXPECT_EQ(f.lenIV, 4);
    EXPECT_EQ(f.charStrings[0].first, "A");
}

TEST(Type1Read, BuiltInEncodingsMatchTheStandardTables) {
    for (auto [file, table] : {std::pair{"D050000L", kZapfDingbatsEncoding}, {"StandardSymbolsPS", kSymbolEncoding}}) {
        Type1Font f = Load(file);
        EXPECT_FALSE(f.standardEncoding);
        for (int c = 0; c < 256; ++c) {
            // The symbol font also places its apple logo at 0x80, which the
            // standard Symbol encoding leaves out.
            if (table == kSymbolEncoding && c == 0x80) continue;
            EXPECT_EQ(f.encoding[c], table[c] ? table[c] : "") << file << " code " << c;
        }
    }
}

TEST(Type1Subset, KeptOutlinesMatchAndDroppedGlyphsAreGone) {
    const std::set<std::string> latin = {"H", "e", "l", "o", "space", "comma", "W", "r", "d", "exclam", "eacute", "fi"};
    for (std::string file : {"NimbusSans-Regular", "C059-Italic", "URWGothic-Demi", "D050000L"}) {
        std::string raw = ReadFile(kUrw + file + ".t1");
        Type1Font f = Read(raw);
        std::set<std::string> want = file == "D050000L" ? std::set<std::string>{"a1", "a20", "a191"} : latin;
        Type1Program p = SubsetType1(f, want, "ABCDEF+" + file);
        EXPECT_EQ(p.length1 + p.length2, p.bytes.size());
        EXPECT_EQ(p.length3, 0u);
        EXPECT_EQ(p.bytes, SubsetType1(f, want, "ABCDEF+" + file).bytes);  // deterministic

        Type1Font back = Read(Str(p.bytes));
        want.insert(".notdef");
        EXPECT_EQ(AllNames(back), want);
        EXPECT_EQ(back.fontName, "ABCDEF+" + file);
        Face orig(raw), sub(Str(p.bytes));
        ASSERT_TRUE(sub.ok()) << file;
        EXPECT_STREQ(FT_Get_Postscript_Name(sub.get()), ("ABCDEF+" + file).c_str());
        EXPECT_EQ(sub.get()->num_glyphs, long(want.size()));
        for (const std::string& g : want) EXPECT_EQ(sub.Glyph(g), orig.Glyph(g)) << file << " " << g;
        for (const char* g : {"A", "zero", "a2"}) EXPECT_FALSE(sub.Has(g)) << g;
        EXPECT_LT(p.bytes.size(), raw.size() / 5);
    }
}

TEST(Type1Subset, SeacComponentsAreKeptDirectlyAndThroughSubrs) {
    Type1Font f = Load("NimbusSans-Regular");
    auto cs = [&](const std::string& name) -> std::string& {
        for (auto& [n, c] : f.charStrings)
            if (n == name) return c;
        throw std::runtime_error(name);
    };
    std::string hsbw = SplitHsbw(cs("A")).first;
    // Aacute = A (65) + acute (194); Eacute = E (69) + acute, its seac in subr 5.
    cs("Aacute") = hsbw + Num(0) + Num(180) + Num(190) + Num(65) + Num(194) + "\x0c\x06";
    f.subrs.push_back(Num(0) + Num(150) + Num(190) + Num(69) + Num(194) + "\x0c\x06");
    cs("Eacute") = hsbw + Num(5) + "\x0a";
    std::string full = Write(f);
    f = Read(full);

    std::set<std::string> closure = {"Eacute"};
    Type1GlyphClosure(f, closure);
    EXPECT_EQ(closure, (std::set<std::string>{".notdef", "E", "acute", "Eacute"}));

    Type1Program p = SubsetType1(f, {"Aacute", "Eacute"});
    Type1Font back = Read(Str(p.bytes));
    EXPECT_EQ(AllNames(back), (std::set<std::string>{".notdef", "A", "E", "acute", "Aacute", "Eacute"}));
    EXPECT_EQ(back.subrs.size(), 6u);
    Face ref(full), sub(Str(p.bytes));
    ASSERT_TRUE(sub.ok());
    for (const char* g : {"Aacute", "Eacute"}) {
        Outline o = sub.Glyph(g);
        EXPECT_EQ(o, ref.Glyph(g)) << g;
        EXPECT_GT(o.contours.size(), ref.Glyph("acute").contours.size()) << g;  // base and accent merged
    }
}

TEST(Type1Subset, UnusedSubrsBecomeReturnAndTheTailIsCut) {
    Type1Font f = Load("NimbusSans-Regular");
    Face orig(ReadFile(kUrw + "NimbusSans-Regular.t1"));
    auto& B = f.charStrings[1];
    ASSERT_EQ(B.first, "B");
    auto [hsbw, body] = SplitHsbw(B.second);
    f.subrs.resize(10, Num(0) + Num(30) + "\x01\x0b");  // unused stems
    f.subrs[6] = Num(0) + Num(20) + "\x01\x0b";          // reached by hint replacement only
    f.subrs[7] = Num(8) + "\x0a\x0b";
    f.subrs[8] = body + "\x0b";
    // "6 1 3 callothersubr pop callsubr", then 7, which calls 8.
    B.second = hsbw + Num(6) + Num(1) + Num(3) + "\x0c\x10\x0c\x11\x0a" + Num(7) + "\x0a\x0e";
    f = Read(Write(f));

    Type1Program p = SubsetType1(f, {"B"});
    Type1Font back = Read(Str(p.bytes));
    ASSERT_EQ(back.subrs.size(), 9u);
    EXPECT_NE(back.privateText.find("/Subrs 9 array"), std::string::npos);
    EXPECT_EQ(back.subrs[5], "\x0b");
    for (size_t i : {0, 1, 2, 3, 6, 7, 8}) EXPECT_EQ(back.subrs[i], f.subrs[i]) << i;
    Face sub(Str(p.bytes));
    ASSERT_TRUE(sub.ok());
    EXPECT_EQ(sub.Glyph("B"), orig.Glyph("B"));
}

TEST(Type1Read, UnencryptedCharStringsWithLenIVMinusOne) {
    std::string raw = ReadFile(kUrw + "P052-Roman.t1");
    Type1Font f = Read(raw);
    f.privateText.insert(f.privateText.find("/Subrs"), "/lenIV -1 def\n");
    f.lenIV = -1;
    std::string out = Str(SubsetType1(f, {"g", "Q"}).bytes);
    Type1Font back = Read(out);
    EXPECT_NE(back.privateText.find("dup 0 " + std::to_string(f.subrs[0].size()) + " RD "), std::string::npos);
    EXPECT_EQ(back.lenIV, -1);
    EXPECT_EQ(back.subrs, f.subrs);
    Face orig(raw), sub(out);
    ASSERT_TRUE(sub.ok());
    for (const char* g : {"g", "Q"}) EXPECT_EQ(sub.Glyph(g), orig.Glyph(g)) << g;
}

TEST(Type1Read, FormsAndDamagedPrograms) {
    Type1Font f = Load("NimbusRoman-Bold");
    Type1Program p = SubsetType1(f, {"a", "b"});
    std::string bin = Str(p.bytes), clear = bin.substr(0, p.length1), cipher = bin.substr(p.length1);
    std::string zeros;
    for (int i = 0; i < 8; ++i) zeros += std::string(64, '0') + "\n";
    std::string hex;
    for (size_t i = 0; i < cipher.size(); ++i) {
        hex += "0123456789abcdef"[uint8_t(cipher[i]) >> 4];
        hex += "0123456789abcdef"[uint8_t(cipher[i]) & 15];
        if (i % 32 == 31) hex += "\r\n";
    }
    auto seg = [](int type, const std::string& body) {
        uint32_t n = uint32_t(body.size());
        return std::string{char(0x80), char(type), char(n), char(n >> 8), char(n >> 16), char(n >> 24)} + body;
    };
    std::string pfb = seg(1, clear) + seg(2, cipher) + seg(1, zeros + "cleartomark\n") + "\x80\x03";
    // The private text of the subset, damaged in one place at a time.
    std::string priv = Read(bin).privateText;
    auto edit = [&](const std::string& from, const std::string& to) {
        std::string s = priv;
        size_t at = s.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return Assemble(f, s.replace(at, from.size(), to));
    };

    struct Case {
        const char* what;
        std::string bytes;
        const char* error;  // nullptr: reads, with glyphs a and b
    };
    const Case cases[] = {
        {"binary with trailer", bin + "\n" + zeros + "cleartomark\n", nullptr},
        {"hexadecimal", clear + hex + "\n" + zeros + "cleartomark\n", nullptr},
        {"PFB segments", pfb, nullptr},
        {"binary data starting with a newline byte", Assemble(f, priv, std::string("\xd3\0\0\0", 4)), nullptr},
        {"Subrs declared larger than present", edit("/Subrs 5 array", "/Subrs 40 array"), nullptr},
        {"empty", "", "no eexec"},
        {"eexec only as a name", "/FontName /eexec\r" + cipher, "no eexec"},
        {"clear text only", clear, "does not decrypt"},
        {"garbage after eexec", clear + std::string(3000, '\x9c'), "does not decrypt"},
        {"truncated", bin.substr(0, p.length1 + 4 + priv.find("/b ") + 12), "past the end"},
        {"PFB segment past the end", pfb.substr(0, pfb.size() - 100), "PFB segment"},
        {"no CharStrings", edit("/CharStrings", "/CharStrungs"), "no CharStrings"},
        {"huge Subrs count", edit("/Subrs 5 array", "/Subrs 100000 array"), "Subrs count"},
        {"negative Subrs count", edit("/Subrs 5 array", "/Subrs -5 array"), "Subrs count"},
        {"Subrs index past its count", edit("/Subrs 5 array", "/Subrs 3 array"), "outside the declared count"},
        {"negative charstring length", edit("/a ", "/a -"), "no valid length"},
        {"length past the end", edit("/b ", "/b 99999"), "past the end"},
        {"lenIV out of range", edit("/Subrs", "/lenIV 300 def /Subrs"), "lenIV"},
        {"charstring shorter than lenIV", edit("/Subrs", "/lenIV 200 def /Subrs"), "shorter than lenIV"},
    };
    for (const Case& c : cases) {
        Type1Font out;
        std::string error;
        bool ok = ReadType1(Bytes(c.bytes), 0, out, error);
        EXPECT_EQ(ok, c.error == nullptr) << c.what << ": " << error;
        if (c.error) EXPECT_NE(error.find(c.error), std::string::npos) << c.what << ": " << error;
        else EXPECT_EQ(out.charStrings, Read(bin).charStrings) << c.what;
    }
}
