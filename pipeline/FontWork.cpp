#include "pipeline/FontWork.h"

#include <set>

#include "base/Log.h"
#include "fonts/FontEmbed.h"
#include "fonts/FontMerge.h"
#include "fonts/FontOutline.h"
#include "fonts/FontSubset.h"
#include "fonts/GlyphUse.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {

namespace {

const ASAtom K_FontDescriptor = ASAtomFromString("FontDescriptor");
const ASAtom K_DescendantFonts = ASAtomFromString("DescendantFonts");
const ASAtom K_ToUnicode = ASAtomFromString("ToUnicode");
const ASAtom K_FontFile = ASAtomFromString("FontFile");
const ASAtom K_FontFile2 = ASAtomFromString("FontFile2");
const ASAtom K_FontFile3 = ASAtomFromString("FontFile3");

// Whether the resource step already counted the font as compressed: it
// does so when it replaced the program's or the ToUnicode's data.
bool AlreadyCompressed(CosObj font) {
    CosObj described = font;
    CosObj kids = CosDictGet(font, K_DescendantFonts);
    if (CosObjGetType(kids) == kCosArray && CosObjGetType(CosArrayGet(kids, 0)) == kCosDict)
        described = CosArrayGet(kids, 0);
    auto changed = [](CosObj s) { return CosObjGetType(s) == kCosStream && CosStreamDataChanged(s); };
    if (changed(CosDictGet(font, K_ToUnicode))) return true;
    CosObj desc = CosDictGet(described, K_FontDescriptor);
    if (CosObjGetType(desc) != kCosDict) return false;
    for (ASAtom k : {K_FontFile, K_FontFile2, K_FontFile3})
        if (changed(CosDictGet(desc, k))) return true;
    return false;
}

class FontWork : public DocumentOperation {
public:
    const char* Name() const override { return "font work"; }
    DocumentPoint Point() const override { return DocumentPoint::PostLayout; }
    bool Enabled(const CTrimoraPreferences& prefs) const override {
        const FontSettings& fs = prefs.Fonts();
        return fs.subset || fs.embed || fs.outline;
    }
    std::string FailureMessage() const override { return "Error while processing Font Resources"; }

    void Apply(RunContext& ctx) override {
        const FontSettings& fs = ctx.prefs.Fonts();
        const int level = ctx.prefs.Optimize().flateLevel;
        fonts::DocumentGlyphUse use = fonts::CollectGlyphUse(ctx.doc);
        std::set<CosObj> counted;
        for (const auto& [font, codes] : use.codes)
            if (AlreadyCompressed(font)) counted.insert(font);
        auto count = [&](const std::vector<CosObj>& changed) {
            for (CosObj font : changed) {
                if (!counted.insert(font).second) continue;
                if (ctx.stats.Get("Fonts_Compressed") < ctx.stats.Get("Fonts_Total"))
                    ctx.stats.Increment("Fonts_Compressed");
            }
        };
        // Outlines first: a font drawn as outlines needs no embedding or
        // subsetting, and the Type 3 fonts it makes hold the used glyphs only.
        if (fs.outline) {
            ctx.log.Progress("\tConverting Fonts to Outlines...\n");
            count(fonts::OutlineDocumentFonts(ctx.doc, use, level, ctx.log).changedFonts);
        }
        if (fs.embed) {
            ctx.log.Progress("\tEmbedding Fonts...\n");
            count(fonts::EmbedDocumentFonts(ctx.doc, use, level, ctx.log).changedFonts);
        }
        if (!fs.subset) return;
        ctx.log.Progress("\tSubsetting Fonts...\n");
        // Subsets of one font merge first, so the subset step trims the
        // merged program to what all their fonts draw.
        fonts::MergeOutcome merged = fonts::MergeFontSubsets(ctx.doc, use, level, ctx.log);
        count(merged.changedFonts);
        if (merged.groups > 0)
            ctx.log.Debug("Merged %d font subsets into %d programs: %zu bytes -> %zu bytes\n", merged.programsMerged,
                          merged.groups, merged.bytesBefore, merged.bytesAfter);
        fonts::SubsetOutcome out = fonts::SubsetDocumentFonts(ctx.doc, use, level, ctx.log);
        count(out.changedFonts);
        if (out.subset > 0)
            ctx.log.Debug("Subset %d of %d font programs: %zu bytes -> %zu bytes\n", out.subset, out.programs,
                          out.bytesBefore, out.bytesAfter);
    }
};

}  // namespace

std::unique_ptr<DocumentOperation> MakeFontWork() { return std::make_unique<FontWork>(); }

}  // namespace pipeline
