#include "pipeline/Transparency.h"

#include <map>
#include <set>
#include <vector>

#include "base/Log.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {

namespace {

ASAtom K(const char* s) { return ASAtomFromString(s); }

const ASAtom K_ExtGState = K("ExtGState");
const ASAtom K_XObject = K("XObject");
const ASAtom K_Pattern = K("Pattern");
const ASAtom K_Font = K("Font");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_Form = K("Form");
const ASAtom K_Image = K("Image");
const ASAtom K_Group = K("Group");
const ASAtom K_S = K("S");
const ASAtom K_G = K("G");
const ASAtom K_Transparency = K("Transparency");
const ASAtom K_SMask = K("SMask");
const ASAtom K_SMaskInData = K("SMaskInData");
const ASAtom K_Matte = K("Matte");
const ASAtom K_Decode = K("Decode");
const ASAtom K_CA = K("CA");
const ASAtom K_ca = K("ca");
const ASAtom K_BM = K("BM");
const ASAtom K_AIS = K("AIS");
const ASAtom K_TK = K("TK");
const ASAtom K_None = K("None");
const ASAtom K_Normal = K("Normal");
const ASAtom K_Compatible = K("Compatible");
const ASAtom K_Annots = K("Annots");
const ASAtom K_AP = K("AP");
const ASAtom K_Width = K("Width");
const ASAtom K_Height = K("Height");
const ASAtom K_BitsPerComponent = K("BitsPerComponent");

bool IsNumber(CosObj o) { return CosObjGetType(o) == kCosInteger || CosObjGetType(o) == kCosFixed; }

// Whether a graphics-state entry holds the value every page starts with.
bool IsInitialValue(ASAtom key, CosObj v) {
    if (key == K_CA || key == K_ca) return IsNumber(v) && CosFixedValue(v) == 1.0;
    if (key == K_BM) {
        if (CosObjGetType(v) == kCosArray) v = CosArrayGet(v, 0);
        ASAtom n = CosObjGetType(v) == kCosName ? CosNameValue(v) : ASAtomNull;
        return n == K_Normal || n == K_Compatible;
    }
    if (key == K_SMask) return CosObjGetType(v) == kCosName && CosNameValue(v) == K_None;
    if (key == K_AIS) return CosObjGetType(v) == kCosBoolean && !CosBooleanValue(v);
    if (key == K_TK) return CosObjGetType(v) == kCosBoolean && CosBooleanValue(v);
    return false;
}

const ASAtom kStateKeys[] = {K_CA, K_ca, K_BM, K_SMask, K_AIS, K_TK};

// A soft mask that lets every sample of its image through unchanged.
bool OpaqueSoftMask(CosObj mask) {
    if (CosObjGetType(mask) != kCosStream || CosDictKnown(mask, K_Matte)) return false;
    CosObj decode = CosDictGet(mask, K_Decode);
    if (!CosObjIsNull(decode)) {
        if (CosObjGetType(decode) != kCosArray || CosArrayLength(decode) != 2 || !IsNumber(CosArrayGet(decode, 0)) ||
            !IsNumber(CosArrayGet(decode, 1)) || CosFixedValue(CosArrayGet(decode, 0)) != 0 ||
            CosFixedValue(CosArrayGet(decode, 1)) != 1)
            return false;
    }
    int64_t w = CosDictGetInt(mask, K_Width, 0), h = CosDictGetInt(mask, K_Height, 0);
    int bpc = CosDictGetInt(mask, K_BitsPerComponent, 0);
    if (w <= 0 || h <= 0 || (bpc != 1 && bpc != 2 && bpc != 4 && bpc != 8 && bpc != 16)) return false;
    int64_t rowBits = w * bpc;
    int64_t rowBytes = (rowBits + 7) / 8;
    if (rowBytes * h > (int64_t(1) << 28)) return false;
    std::vector<uint8_t> data;
    try {
        bool complete = true;
        CosDecodeOptions opts;
        opts.maxOutput = uint64_t(rowBytes * h);
        data = CosStreamDecodedData(mask, opts, &complete);
    } catch (const CVellumError&) {
        return false;
    }
    if (int64_t(data.size()) < rowBytes * h) return false;
    int lastBits = int(rowBits % 8);
    uint8_t lastMask = lastBits ? uint8_t(0xFF << (8 - lastBits)) : 0xFF;
    for (int64_t y = 0; y < h; ++y) {
        const uint8_t* row = data.data() + y * rowBytes;
        for (int64_t x = 0; x + 1 < rowBytes; ++x)
            if (row[x] != 0xFF) return false;
        if ((row[rowBytes - 1] & lastMask) != lastMask) return false;
    }
    return true;
}

class Walk {
public:
    explicit Walk(RunContext& ctx) : m_ctx(ctx) {}

    TransparencyCounts Run() {
        ASInt32 n = PDDocGetNumPages(m_ctx.doc);
        std::vector<std::pair<CosObj, bool>> pages;
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj page = PDDocGetPageObj(m_ctx.doc, i);
            if (CosObjGetType(page) != kCosDict) continue;
            bool t = Resources(PDPageGetInheritedAttr(page, cosnames::Resources));
            CosObj annots = CosDictGet(page, K_Annots);
            for (ASInt32 k = 0; CosObjGetType(annots) == kCosArray && k < CosArrayLength(annots); ++k) {
                CosObj annot = CosArrayGet(annots, k);
                if (CosObjGetType(annot) != kCosDict) continue;
                CosObj ap = CosDictGet(annot, K_AP);
                if (CosObjGetType(ap) != kCosDict) continue;
                for (ASInt32 j = 0; j < CosDictCount(ap); ++j) {
                    CosObj e = CosDictValueAt(ap, j);
                    if (CosObjGetType(e) == kCosStream) {
                        t |= XObject(e);
                    } else if (CosObjGetType(e) == kCosDict) {
                        for (ASInt32 m = 0; m < CosDictCount(e); ++m) t |= XObject(CosDictValueAt(e, m));
                    }
                }
            }
            pages.emplace_back(page, t);
        }
        // Entries at their initial value go wherever no state sets them
        // otherwise.
        for (ASAtom key : kStateKeys) {
            if (m_otherValue.count(key)) continue;
            for (CosObj gs : m_states) {
                if (CosDictKnown(gs, key)) {
                    CosDictRemove(gs, key);
                    ++m_counts.entries;
                }
            }
        }
        for (auto& [page, transparent] : pages) {
            CosObj group = CosDictGet(page, K_Group);
            if (transparent || CosObjGetType(group) != kCosDict || CosDictGetName(group, K_S) != K_Transparency)
                continue;
            CosDictRemove(page, K_Group);
            ++m_counts.pageGroups;
        }
        return m_counts;
    }

private:
    // Whether anything in a resource dictionary uses transparency; notes
    // every graphics state met.
    bool Resources(CosObj res) {
        if (CosObjGetType(res) != kCosDict) return false;
        auto [it, fresh] = m_resources.emplace(res, false);
        if (!fresh) return it->second;
        bool t = false;
        CosObj gss = CosDictGet(res, K_ExtGState);
        for (ASInt32 i = 0; CosObjGetType(gss) == kCosDict && i < CosDictCount(gss); ++i)
            t |= State(CosDictValueAt(gss, i));
        CosObj xos = CosDictGet(res, K_XObject);
        for (ASInt32 i = 0; CosObjGetType(xos) == kCosDict && i < CosDictCount(xos); ++i)
            t |= XObject(CosDictValueAt(xos, i));
        CosObj pats = CosDictGet(res, K_Pattern);
        for (ASInt32 i = 0; CosObjGetType(pats) == kCosDict && i < CosDictCount(pats); ++i) {
            CosObj p = CosDictValueAt(pats, i);
            if (CosObjGetType(p) != kCosDict && CosObjGetType(p) != kCosStream) continue;
            t |= State(CosDictGet(p, K_ExtGState));
            t |= Resources(CosDictGet(p, cosnames::Resources));
        }
        CosObj fonts = CosDictGet(res, K_Font);
        for (ASInt32 i = 0; CosObjGetType(fonts) == kCosDict && i < CosDictCount(fonts); ++i) {
            CosObj f = CosDictValueAt(fonts, i);
            if (CosObjGetType(f) == kCosDict) t |= Resources(CosDictGet(f, cosnames::Resources));
        }
        m_resources[res] = t;
        return t;
    }

    bool State(CosObj gs) {
        if (CosObjGetType(gs) != kCosDict) return false;
        auto [it, fresh] = m_stateSeen.emplace(gs, false);
        if (!fresh) return it->second;
        m_states.push_back(gs);
        bool t = false;
        for (ASAtom key : kStateKeys) {
            CosObj v = CosDictGet(gs, key);
            if (CosObjIsNull(v) || IsInitialValue(key, v)) continue;
            m_otherValue.insert(key);
            if (key == K_CA || key == K_ca || key == K_BM || key == K_SMask) t = true;
        }
        CosObj smask = CosDictGet(gs, K_SMask);
        if (CosObjGetType(smask) == kCosDict) {
            XObject(CosDictGet(smask, K_G));  // its own states count too
            t = true;
        }
        m_stateSeen[gs] = t;
        return t;
    }

    bool XObject(CosObj x) {
        if (CosObjGetType(x) != kCosStream) return false;
        auto [it, fresh] = m_xobjects.emplace(x, false);
        if (!fresh) return it->second;
        bool t = false;
        ASAtom subtype = CosDictGetName(x, K_Subtype);
        if (subtype == K_Form) {
            t = CosDictKnown(x, K_Group);
            t |= Resources(CosDictGet(x, cosnames::Resources));
        } else if (subtype == K_Image) {
            CosObj smask = CosDictGet(x, K_SMask);
            if (CosObjGetType(smask) == kCosStream && OpaqueSoftMask(smask)) {
                CosDictRemove(x, K_SMask);
                ++m_counts.softMasks;
                smask = CosNewNull();
            }
            CosObj inData = CosDictGet(x, K_SMaskInData);
            if (IsNumber(inData) && CosFixedValue(inData) == 0) {
                CosDictRemove(x, K_SMaskInData);
                ++m_counts.softMasks;
            }
            t = !CosObjIsNull(smask) || CosDictKnown(x, K_SMaskInData);
        }
        m_xobjects[x] = t;
        return t;
    }

    RunContext& m_ctx;
    TransparencyCounts m_counts;
    std::map<CosObj, bool> m_resources, m_stateSeen, m_xobjects;
    std::vector<CosObj> m_states;
    std::set<ASAtom> m_otherValue;
};

class TransparencyOperation : public DocumentOperation {
public:
    const char* Name() const override { return "transparency removal"; }
    DocumentPoint Point() const override { return DocumentPoint::PostLayout; }
    bool Enabled(const CTrimoraPreferences& prefs) const override { return prefs.Optimize().removeTransparency; }
    std::string FailureMessage() const override { return "Error while removing transparency"; }
    void Apply(RunContext& ctx) override {
        ctx.log.Progress("\tRemoving Transparency...\n");
        TransparencyCounts c = RemoveInvisibleTransparency(ctx);
        ctx.log.Debug("Transparency: %d graphics-state entries, %d soft masks, %d page groups removed\n", c.entries,
                      c.softMasks, c.pageGroups);
    }
};

}  // namespace

TransparencyCounts RemoveInvisibleTransparency(RunContext& ctx) { return Walk(ctx).Run(); }

std::unique_ptr<DocumentOperation> MakeTransparencyRemoval() { return std::make_unique<TransparencyOperation>(); }

}  // namespace pipeline
