// Font fuzz target.  The first byte picks what the rest is:
//   - high bit clear: a Type 1 program.  Bit 0 set means the part after
//     "eexec" is plain text and is encrypted here first, so that mutations
//     reach the private dictionary and the charstrings.  A program that
//     reads is subset to some of its glyphs, and the subset must read back
//     with exactly the glyphs kept.
//   - 0x80 to 0xbf: a bare CFF program, merged with itself (which must
//     work whenever it reads, and give a program that reads back with its
//     glyphs) and with its second half.
//   - 0xc0 and above: one page's content, drawn with a simple font, a
//     Type 0 font and a Type 3 font whose glyph procedure is the same
//     content; the glyph use is collected and the fonts merged and subset.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>

#include "base/ASMem.h"
#include "base/Log.h"
#include "fonts/CffTables.h"
#include "fonts/FontMerge.h"
#include "fonts/FontSubset.h"
#include "fonts/GlyphUse.h"
#include "fonts/Type1Font.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"
#include "fuzz/FuzzInit.h"

using namespace fonts;

namespace {

void MergeCff(std::span<const uint8_t> program) {
    std::string error;
    cff::CffInfo info;
    const bool reads = cff::ReadCff(program, info, error) && !info.cidKeyed;
    CffMerger self;
    if (!self.Add(program, error)) return;
    if (!reads) __builtin_trap();
    // A program merges with itself, unless it names two glyphs alike (the
    // second then reads as a different glyph of the same name).
    std::set<std::string> names;
    bool unique = true;
    for (unsigned g = 1; g < info.glyphCount; ++g) unique = names.insert(cff::GlyphName(info, g)).second && unique;
    if (!self.Add(program, error) && unique && !names.count(".notdef")) __builtin_trap();
    std::array<std::string, 256> encoding;
    for (int c = 0; c < 256; ++c)
        if (info.encoding[c]) encoding[c] = cff::GlyphName(info, info.encoding[c]);
    std::vector<uint8_t> out = self.Build(encoding, error);
    cff::CffInfo back;
    if (!out.empty() && (!cff::ReadCff(out, back, error) || back.glyphCount > info.glyphCount)) __builtin_trap();
    CffMerger halves;
    if (halves.Add(program, error)) {
        (void)halves.Add(program.subspan(program.size() / 2), error);
        (void)halves.Build(encoding, error);
    }
}

CosObj Name(CosDoc doc, const char* n) { return CosNewName(doc, false, ASAtomFromString(n)); }

void GlyphUse(std::span<const uint8_t> content) {
    PDDoc pd = PDDocCreate();
    CosDoc doc = PDDocGetCosDoc(pd);
    auto dict = [&](std::initializer_list<std::pair<const char*, CosObj>> entries) {
        CosObj d = CosNewDict(doc, true);
        for (const auto& [k, v] : entries) CosDictPut(d, ASAtomFromString(k), v);
        return d;
    };
    // A direct object has one container: each font gets its own array.
    auto diffs = [&] {
        CosObj d = CosNewArray(doc, false);
        CosArrayAppend(d, CosNewInteger(doc, false, 65));
        CosArrayAppend(d, Name(doc, "g"));
        return d;
    };
    CosObj simple = dict({{"Type", Name(doc, "Font")}, {"Subtype", Name(doc, "Type1")}, {"BaseFont", Name(doc, "Helvetica")},
                          {"Encoding", dict({{"Differences", diffs()}})}});
    CosObj kids = CosNewArray(doc, false);
    CosArrayAppend(kids, dict({{"Type", Name(doc, "Font")}, {"Subtype", Name(doc, "CIDFontType2")},
                               {"BaseFont", Name(doc, "Cid")}}));
    CosObj type0 = dict({{"Type", Name(doc, "Font")}, {"Subtype", Name(doc, "Type0")}, {"BaseFont", Name(doc, "Cid")},
                         {"Encoding", Name(doc, "Identity-H")}, {"DescendantFonts", kids}});
    CosObj procs = dict({{"g", CosNewStream(doc, CosNewNull(), content)}});
    CosObj fonts = CosNewDict(doc, true);  // shared by the page and the Type 3 font
    CosObj type3 = dict({{"Type", Name(doc, "Font")}, {"Subtype", Name(doc, "Type3")}, {"CharProcs", procs},
                         {"Encoding", dict({{"Differences", diffs()}})}});
    CosDictPut(type3, ASAtomFromString("Resources"), dict({{"Font", fonts}}));
    CosDictPut(fonts, ASAtomFromString("F1"), simple);
    CosDictPut(fonts, ASAtomFromString("F2"), type0);
    CosDictPut(fonts, ASAtomFromString("F3"), type3);
    CosObj pages = CosDictGet(CosDocGetRoot(doc), ASAtomFromString("Pages"));
    CosObj page = dict({{"Type", Name(doc, "Page")}, {"Parent", pages}, {"Resources", dict({{"Font", fonts}})},
                        {"Contents", CosNewStream(doc, CosNewNull(), content)}});
    CosArrayAppend(CosDictGet(pages, ASAtomFromString("Kids")), page);
    CosDictPutInteger(pages, ASAtomFromString("Count"), 1);
    PDDocPagesChanged(pd);

    static FILE* sink = std::fopen("/dev/null", "w");
    Log log;
    log.SetConsoleStreams(sink, sink);
    log.SetFileLoggingAllowed(false);
    DocumentGlyphUse use = CollectGlyphUse(pd);
    MergeFontSubsets(pd, use, 1, log);
    SubsetDocumentFonts(pd, use, 1, log);
    PDDocClose(pd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StartCoreOnce();
    if (size < 1) return 0;
    uint8_t sel = data[0];
    if (sel >= 0xc0) {
        GlyphUse({data + 1, size - 1});
        return 0;
    }
    if (sel >= 0x80) {
        MergeCff({data + 1, size - 1});
        return 0;
    }
    std::string program(reinterpret_cast<const char*>(data + 1), size - 1);
    if (sel & 1) {
        size_t e = program.find("eexec");
        if (e == std::string::npos) return 0;
        e += 6;
        if (e > program.size()) return 0;
        program = program.substr(0, e) + Type1Encrypt(std::string(4, '\0') + program.substr(e), kEexecKey);
    }
    Type1Font font;
    std::string error;
    std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(program.data()), program.size());
    if (!ReadType1(bytes, 0, font, error)) return 0;

    std::set<std::string> glyphs;
    for (size_t i = 0; i < font.charStrings.size(); ++i)
        if ((i + (sel >> 1)) % 3 == 0) glyphs.insert(font.charStrings[i].first);
    Type1GlyphClosure(font, glyphs);
    Type1Program subset = SubsetType1(font, glyphs, "ABCDEF+Fuzz");
    if (subset.bytes.empty()) return 0;
    if (subset.length1 + subset.length2 != subset.bytes.size() || subset.length3 != 0) __builtin_trap();

    Type1Font back;
    if (!ReadType1(subset.bytes, subset.length1, back, error)) __builtin_trap();
    size_t kept = 0;
    for (const auto& [name, cs] : font.charStrings)
        if (glyphs.count(name)) {
            if (kept >= back.charStrings.size() || back.charStrings[kept].first != name ||
                back.charStrings[kept].second != cs)
                __builtin_trap();
            ++kept;
        }
    if (kept != back.charStrings.size()) __builtin_trap();
    return 0;
}
