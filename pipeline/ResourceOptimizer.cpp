#include "pipeline/ResourceOptimizer.h"

#include <cstdio>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include <boost/format.hpp>

#include "base/Log.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/security/MD5.h"
#include "pipeline/NestedContent.h"
#include "pipeline/ObjectGraph.h"
#include "pipeline/StreamRecompress.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

ASAtom K(const char* name) { return ASAtomFromString(name); }
const ASAtom K_Resources = K("Resources");
const ASAtom K_Font = K("Font");
const ASAtom K_XObject = K("XObject");
const ASAtom K_ColorSpace = K("ColorSpace");
const ASAtom K_Pattern = K("Pattern");
const ASAtom K_Shading = K("Shading");
const ASAtom K_ExtGState = K("ExtGState");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_Type = K("Type");
const ASAtom K_Image = K("Image");
const ASAtom K_Form = K("Form");
const ASAtom K_Width = K("Width");
const ASAtom K_Height = K("Height");
const ASAtom K_BitsPerComponent = K("BitsPerComponent");
const ASAtom K_ImageMask = K("ImageMask");
const ASAtom K_SMask = K("SMask");
const ASAtom K_Mask = K("Mask");
const ASAtom K_G = K("G");
const ASAtom K_OPI = K("OPI");
const ASAtom K_Alternates = K("Alternates");
const ASAtom K_BaseFont = K("BaseFont");
const ASAtom K_Name = K("Name");
const ASAtom K_FontDescriptor = K("FontDescriptor");
const ASAtom K_DescendantFonts = K("DescendantFonts");
const ASAtom K_FontFile = K("FontFile");
const ASAtom K_FontFile2 = K("FontFile2");
const ASAtom K_FontFile3 = K("FontFile3");
const ASAtom K_ToUnicode = K("ToUnicode");
const ASAtom K_CIDToGIDMap = K("CIDToGIDMap");
const ASAtom K_CIDSet = K("CIDSet");
const ASAtom K_Encoding = K("Encoding");
const ASAtom K_Type3 = K("Type3");
const ASAtom K_CharProcs = K("CharProcs");
const ASAtom K_PatternType = K("PatternType");
const ASAtom K_Annots = K("Annots");
const ASAtom K_AP = K("AP");
const ASAtom K_N = K("N");
const ASAtom K_Metadata = K("Metadata");
const ASAtom K_XRef = K("XRef");
const ASAtom K_ObjStm = K("ObjStm");
const ASAtom K_FlateDecode = K("FlateDecode");
const ASAtom K_Filter = K("Filter");
constexpr const char* kPtexKeys[] = {"PTEX.FileName", "PTEX.PageNumber", "PTEX.InfoDict"};

// Resources nest through forms, patterns and Type 3 fonts; real files stay
// within a handful of levels, and the seen-sets stop cycles anyway.
constexpr int kMaxDepth = 32;

std::string Hex(const MD5::Digest& d) {
    std::string s;
    char buf[3];
    for (uint8_t b : d) {
        std::snprintf(buf, sizeof buf, "%02x", b);
        s += buf;
    }
    return s;
}

std::string ColorSpaceName(CosObj cs) {
    if (CosObjGetType(cs) == kCosName) return ASAtomGetString(CosNameValue(cs));
    if (CosObjGetType(cs) == kCosArray) {
        CosObj fam = CosArrayGet(cs, 0);
        if (CosObjGetType(fam) == kCosName) return ASAtomGetString(CosNameValue(fam));
    }
    return "";
}

bool IsStream(CosObj o) { return CosObjGetType(o) == kCosStream; }
bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

class ResourceWalk {
public:
    explicit ResourceWalk(RunContext& ctx)
        : m_ctx(ctx), m_opt(ctx.prefs.Optimize()), m_level(ctx.prefs.Optimize().flateLevel) {}

    void Run() {
        CosDoc cos = PDDocGetCosDoc(m_ctx.doc);
        const ASInt32 pages = PDDocGetNumPages(m_ctx.doc);
        for (ASInt32 i = 0; i < pages; ++i) {
            CosObj page = PDDocGetPageObj(m_ctx.doc, i);
            Resources(PDPageGetInheritedAttr(page, K_Resources), 0);
            Annotations(page);
        }
        // Point every reference to a merged duplicate at the object kept;
        // the duplicates become unreferenced and are not written.
        std::vector<CosObj> objects = ReachableIndirectObjects(cos);
        if (!m_redirect.empty()) {
            RedirectReferences(cos, objects, m_redirect);
            objects = ReachableIndirectObjects(cos);
        }
        RecompressRemaining(objects);
    }

private:
    template <typename Body>
    void Guard(const char* message, Body body) {
        try {
            body();
        } catch (const CVellumError& e) {
            m_ctx.log.ReportError(e.GetErrorCode(), message);
        }
    }

    static bool First(std::unordered_set<CosObj>& seen, CosObj o) { return seen.insert(o).second; }

    void Warn(CosObj stream, const std::string& why) {
        m_ctx.log.Warning("Stream %d is left as it is: %s\n", int(CosObjGetID(stream)), why.c_str());
    }

    // Plain recompression of one stream, once per stream; true when it shrank.
    bool Shrink(CosObj stream, const char* failureFormat = nullptr, const std::string& subject = {}) {
        if (!IsStream(stream) || !First(m_done, stream)) return false;
        RecompressResult r = RecompressPlainStream(stream, m_level);
        if (r.outcome == RecompressOutcome::Undecodable) {
            if (failureFormat)
                m_ctx.log.Warning(failureFormat, subject.c_str());
            else
                Warn(stream, r.message);
        }
        return r.outcome == RecompressOutcome::Smaller;
    }

    // Content carried by a resource (form, tiling pattern, glyph procedure,
    // appearance): rewritten compactly when that reads back token for
    // token, else recompressed as it is; once per stream, true when it
    // shrank.
    bool ShrinkContent(CosObj stream, CosObj resources) {
        if (!IsStream(stream) || !First(m_done, stream)) return false;
        ContentRewriteResult r = RewriteContentStream(stream, resources, m_level);
        if (r.recompress.outcome == RecompressOutcome::Undecodable) Warn(stream, r.recompress.message);
        return r.recompress.outcome == RecompressOutcome::Smaller;
    }

    void Resources(CosObj res, int depth) {
        if (!IsDict(res) || depth > kMaxDepth || !First(m_seenResources, res)) return;
        Guard("Error while processing Font Resources", [&] { Fonts(CosDictGet(res, K_Font), depth); });
        Guard("Error while processing Image Resources", [&] {
            XObjects(CosDictGet(res, K_XObject), depth);
            CosObj css = CosDictGet(res, K_ColorSpace);
            if (IsDict(css))
                for (ASInt32 i = 0; i < CosDictCount(css); ++i) ColorSpace(CosDictValueAt(css, i), 0);
            ExtGStates(CosDictGet(res, K_ExtGState), depth);
        });
        Guard("Error while processing Pattern Resources", [&] {
            CosObj pats = CosDictGet(res, K_Pattern);
            if (IsDict(pats))
                for (ASInt32 i = 0; i < CosDictCount(pats); ++i) Pattern(CosDictValueAt(pats, i), depth);
            CosObj shs = CosDictGet(res, K_Shading);
            if (IsDict(shs))
                for (ASInt32 i = 0; i < CosDictCount(shs); ++i) Shading(CosDictValueAt(shs, i));
        });
    }

    // ------------------------------------------------------------ fonts
    void Fonts(CosObj fonts, int depth) {
        if (!IsDict(fonts)) return;
        for (ASInt32 i = 0; i < CosDictCount(fonts); ++i) Font(CosDictValueAt(fonts, i), depth);
    }

    void Font(CosObj font, int depth) {
        if (!IsDict(font) || !First(m_seenFonts, font)) return;
        m_ctx.stats.Increment("Fonts_Total");
        const bool type3 = CosDictGetName(font, K_Subtype) == K_Type3;
        ASAtom baseFont = CosDictGetName(font, K_BaseFont);
        if (baseFont == ASAtomNull) baseFont = CosDictGetName(font, K_Name);
        const std::string name = ASAtomGetString(baseFont);

        CosObj descriptor = CosDictGet(font, K_FontDescriptor);
        CosObj descendant = CosNewNull();
        CosObj desc = CosDictGet(font, K_DescendantFonts);
        if (CosObjGetType(desc) == kCosArray) descendant = CosArrayGet(desc, 0);
        if (IsDict(descendant) && !IsDict(descriptor)) descriptor = CosDictGet(descendant, K_FontDescriptor);
        CosObj program = CosNewNull();
        if (IsDict(descriptor))
            for (ASAtom key : {K_FontFile, K_FontFile2, K_FontFile3})
                if (IsStream(CosDictGet(descriptor, key))) program = CosDictGet(descriptor, key);
        const bool embedded = type3 || !CosObjIsNull(program);
        bool subset = name.size() > 7 && name[6] == '+';
        for (size_t k = 0; subset && k < 6; ++k) subset = name[k] >= 'A' && name[k] <= 'Z';
        m_ctx.log.Debug("Font: %s.\tEmbedded: %s.\tSubset: %s\n", name.c_str(), embedded ? "true" : "false",
                        subset ? "true" : "false");

        bool compressed = false;
        if (IsStream(program))
            compressed |= Shrink(program, "Unabled to access the stream for font '%s'\n", name);
        compressed |= Shrink(CosDictGet(font, K_ToUnicode), "Unabled to access the ToUnicode data for font '%s'\n",
                             name);
        if (compressed) m_ctx.stats.Increment("Fonts_Compressed");
        // Streams that belong to the font but are no program: no count.
        if (IsDict(descriptor)) Shrink(CosDictGet(descriptor, K_CIDSet));
        if (IsDict(descendant)) Shrink(CosDictGet(descendant, K_CIDToGIDMap));
        Shrink(CosDictGet(font, K_Encoding));  // an embedded CMap

        if (type3) {
            CosObj procs = CosDictGet(font, K_CharProcs);
            CosObj glyphResources = CosDictGet(font, K_Resources);
            if (IsDict(procs))
                for (ASInt32 i = 0; i < CosDictCount(procs); ++i) {
                    CosObj glyph = CosDictValueAt(procs, i);
                    if (!IsStream(glyph) || m_done.count(glyph)) continue;
                    m_ctx.stats.Increment("T3FontGlyphs_Total");
                    if (ShrinkContent(glyph, glyphResources)) m_ctx.stats.Increment("T3FontGlyphs_Compressed");
                }
            Resources(CosDictGet(font, K_Resources), depth + 1);
        }
    }

    // ------------------------------------------------------------ XObjects
    void XObjects(CosObj xobjects, int depth) {
        if (!IsDict(xobjects)) return;
        for (ASInt32 i = 0; i < CosDictCount(xobjects); ++i) {
            CosObj x = CosDictValueAt(xobjects, i);
            if (!IsStream(x)) continue;
            const ASAtom sub = CosDictGetName(x, K_Subtype);
            if (sub == K_Image)
                Image(x);
            else if (sub == K_Form)
                Form(x, depth);
        }
    }

    // Keys of other applications that a viewer never reads.
    void PrivateKeys(CosObj x) {
        if (m_opt.removeOPI && CosDictKnown(x, K_OPI)) {
            CosDictRemove(x, K_OPI);
            m_ctx.stats.Increment("OPI_Removed");
        }
        // The PTEX keys record where a typesetter took an included page
        // from (file name, page number, that file's information
        // dictionary, which can drag in much more).  Viewers never read
        // them; they go with the other applications' private data.
        if (m_opt.removeEditData)
            for (const char* key : kPtexKeys) {
                const ASAtom a = ASAtomFromString(key);
                if (CosDictKnown(x, a)) CosDictRemove(x, a);
            }
    }

    void Image(CosObj image) {
        if (!First(m_seenImages, image)) return;
        m_ctx.stats.Increment("ImageXObjects_Total");
        PrivateKeys(image);
        if (m_opt.removeAltImages && CosDictKnown(image, K_Alternates)) {
            CosObj alts = CosDictGet(image, K_Alternates);
            const ASInt32 n = CosObjGetType(alts) == kCosArray ? CosArrayLength(alts) : 1;
            CosDictRemove(image, K_Alternates);
            m_ctx.stats.Increment("AltImages_Removed", n);
        }
        ColorSpace(CosDictGet(image, K_ColorSpace), 0);
        if (m_opt.dupXObjCheck) {
            ImageRecord rec = MakeImageRecord(image);
            CosObj original = m_images.Find(rec, DuplicateKey(rec));
            if (!CosObjIsNull(original)) {
                m_redirect[image] = original;
                m_ctx.stats.Increment("ImageXObjects_Duplicates");
                return;
            }
        }
        ImageData(image);
        for (ASAtom key : {K_SMask, K_Mask}) {
            CosObj m = CosDictGet(image, key);
            if (IsStream(m)) ImageData(m);
        }
    }

    // Lossless re-encoding of an image's samples, when the settings ask.
    void ImageData(CosObj image) {
        if (!m_opt.recompressImagesLossless || !First(m_done, image)) return;
        RecompressResult r = RecompressImageLossless(image, m_level);
        if (r.outcome == RecompressOutcome::Undecodable) Warn(image, r.message);
    }

    void Form(CosObj form, int depth) {
        if (!First(m_seenForms, form)) return;
        m_ctx.stats.Increment("FormXObjects_Total");
        PrivateKeys(form);
        if (ShrinkContent(form, CosDictGet(form, K_Resources))) m_ctx.stats.Increment("FormXObjects_Compressed");
        Resources(CosDictGet(form, K_Resources), depth + 1);
    }

    void ExtGStates(CosObj states, int depth) {
        if (!IsDict(states)) return;
        for (ASInt32 i = 0; i < CosDictCount(states); ++i) {
            CosObj gs = CosDictValueAt(states, i);
            if (!IsDict(gs)) continue;
            CosObj sm = CosDictGet(gs, K_SMask);
            if (IsDict(sm) && IsStream(CosDictGet(sm, K_G))) Form(CosDictGet(sm, K_G), depth);
        }
    }

    // ------------------------------------------------------------ colour
    void ColorSpace(CosObj cs, int depth) {
        if (CosObjGetType(cs) != kCosArray || depth > 8) return;
        const std::string family = ColorSpaceName(cs);
        if (family == "ICCBased") {
            ICCProfile(CosArrayGet(cs, 1));
        } else if (family == "Indexed" || family == "I") {
            ColorSpace(CosArrayGet(cs, 1), depth + 1);
            IndexedTable(cs);
        } else if (family == "Separation") {
            ColorSpace(CosArrayGet(cs, 2), depth + 1);
        } else if (family == "DeviceN") {
            ColorSpace(CosArrayGet(cs, 2), depth + 1);
        } else if (family == "Pattern") {
            ColorSpace(CosArrayGet(cs, 1), depth + 1);
        }
    }

    void ICCProfile(CosObj profile) {
        if (!IsStream(profile) || !First(m_seenProfiles, profile)) return;
        m_ctx.stats.Increment("ICCProfiles_Total");
        if (m_opt.dupXObjCheck) {
            // Profiles are matched as images are: a key of what the
            // dictionary says, then the digest of the decoded data.
            ImageRecord rec;
            rec.image = profile;
            rec.width = CosDictGetInt(profile, K_N, 0);
            rec.colorSpace = "ICCBased";
            rec.length = ASInt32(CosStreamEncodedLength(profile));
            CosObj original = m_profiles.Find(rec, DuplicateKey(rec));
            if (!CosObjIsNull(original)) {
                m_redirect[profile] = original;
                m_ctx.stats.Increment("ICCProfiles_Duplicates");
                return;
            }
        }
        Shrink(profile);
    }

    // The lookup table of an Indexed space: a stream is recompressed; a
    // string becomes a compressed stream when that is smaller written out.
    void IndexedTable(CosObj cs) {
        if (!First(m_seenIndexed, cs)) return;
        m_ctx.stats.Increment("IndexedColorTables_Total");
        CosObj lookup = CosArrayGet(cs, 3);
        if (IsStream(lookup)) {
            if (Shrink(lookup, "Unabled to access the stream for indexed space\n"))
                m_ctx.stats.Increment("IndexedColorTables_Compressed");
            return;
        }
        if (CosObjGetType(lookup) != kCosString) return;
        std::string bytes = CosStringBytes(lookup);
        size_t written = 2;
        if (CosStringIsHex(lookup)) {
            written += 2 * bytes.size();
        } else {
            for (unsigned char c : bytes)
                written += (c >= 32 && c < 127) ? ((c == '(' || c == ')' || c == '\\') ? 2 : 1) : 4;
        }
        filters::Bytes enc = filters::FlateEncode(
            std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), m_level);
        // An indirect stream costs its framing, its dictionary, a cross-reference
        // entry and the reference: about 80 bytes.
        if (enc.size() + 80 >= written) return;
        CosDoc doc = CosObjGetDoc(cs);
        CosObj dict = CosNewDict(doc, false, 2);
        CosDictPutName(dict, K_Filter, false, K_FlateDecode);
        CosObj stream = CosNewStream(doc, dict, enc);
        m_done.insert(stream);
        CosArrayPut(cs, 3, stream);
        m_ctx.stats.Increment("IndexedColorTables_Compressed");
    }

    // ------------------------------------------------------------ patterns
    void Pattern(CosObj pattern, int depth) {
        if (!(IsDict(pattern) || IsStream(pattern)) || !First(m_seenPatterns, pattern)) return;
        m_ctx.stats.Increment("Patterns_Total");
        if (IsStream(pattern) && CosDictGetInt(pattern, K_PatternType, 1) == 1) {
            if (ShrinkContent(pattern, CosDictGet(pattern, K_Resources)))
                m_ctx.stats.Increment("Patterns_Compressed");
            Resources(CosDictGet(pattern, K_Resources), depth + 1);
        } else {
            Shading(CosDictGet(pattern, K_Shading));
        }
    }

    void Shading(CosObj shading) {
        if (!(IsDict(shading) || IsStream(shading)) || !First(m_seenShadings, shading)) return;
        m_ctx.stats.Increment("Shadings_Total");
        ColorSpace(CosDictGet(shading, K_ColorSpace), 0);
        if (IsStream(shading)) Shrink(shading);
    }

    // ------------------------------------------------------------ annotations
    // Appearance streams' resources are walked like a page's.  (Links are
    // counted and their duplicates dropped by the page loop's annotation
    // clean-up.)
    void Annotations(CosObj page) {
        CosObj annots = CosDictGet(page, K_Annots);
        if (CosObjGetType(annots) != kCosArray) return;
        for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) {
            CosObj a = CosArrayGet(annots, i);
            if (IsDict(a)) Appearances(CosDictGet(a, K_AP));
        }
    }

    // Every appearance stream (each state of N, R and D) is counted once,
    // its content rewritten like a form's, and its resources walked.
    void Appearances(CosObj ap) {
        if (!IsDict(ap)) return;
        auto one = [&](CosObj s) {
            if (!IsStream(s) || !First(m_seenAppearances, s)) return;
            m_ctx.stats.Increment("AnnotStreams_Total");
            CosObj res = CosDictGet(s, K_Resources);
            if (ShrinkContent(s, res)) m_ctx.stats.Increment("AnnotStreams_Compressed");
            Resources(res, 1);
        };
        for (ASInt32 i = 0; i < CosDictCount(ap); ++i) {
            CosObj v = CosDictValueAt(ap, i);
            if (IsStream(v)) {
                one(v);
            } else if (IsDict(v)) {
                for (ASInt32 j = 0; j < CosDictCount(v); ++j) one(CosDictValueAt(v, j));
            }
        }
    }

    // ------------------------------------------------------------ the rest
    // Every other stream the file will hold, as plain data: page contents,
    // annotation appearances, functions, embedded files, soft-mask groups.
    // Metadata streams stay as they are: archival readers require them
    // unfiltered.  Images are only touched by the lossless re-encoding.
    void RecompressRemaining(const std::vector<CosObj>& objects) {
        for (CosObj o : objects) {
            if (!IsStream(o) || m_done.count(o)) continue;
            const ASAtom type = CosDictGetName(o, K_Type);
            if (type == K_Metadata || type == K_XRef || type == K_ObjStm) continue;
            if (CosDictGetName(o, K_Subtype) == K_Image) {
                ImageData(o);
                continue;
            }
            try {
                Shrink(o);
            } catch (const CVellumError& e) {
                // Out of memory or a stream too large to decode: leave it.
                m_ctx.log.ReportError(e.GetErrorCode(), "Error while recompressing a stream");
            }
        }
    }

    RunContext& m_ctx;
    const OptimizeSettings& m_opt;
    int m_level;
    std::unordered_set<CosObj> m_seenResources, m_seenFonts, m_seenImages, m_seenForms, m_seenProfiles,
        m_seenIndexed, m_seenPatterns, m_seenShadings, m_seenAppearances, m_done;
    DuplicateFinder m_images, m_profiles;
    std::unordered_map<CosObj, CosObj> m_redirect;
};

class ResourceOperation : public DocumentOperation {
public:
    const char* Name() const override { return "resource optimization"; }
    DocumentPoint Point() const override { return DocumentPoint::PostLayout; }
    bool Enabled(const CTrimoraPreferences&) const override { return true; }
    void Apply(RunContext& ctx) override { OptimizeResources(ctx); }
};

bool SameRendering(CosObj a, CosObj b, int depth = 0);

}  // namespace

ImageRecord MakeImageRecord(CosObj image) {
    ImageRecord r;
    r.image = image;
    r.width = CosDictGetInt(image, K_Width, 0);
    r.height = CosDictGetInt(image, K_Height, 0);
    r.bitsPerComponent = uint8_t(CosDictGetInt(image, K_BitsPerComponent, 0));
    r.colorSpace = ColorSpaceName(CosDictGet(image, K_ColorSpace));
    r.length = ASInt32(std::min<size_t>(CosStreamEncodedLength(image), INT32_MAX));
    r.imageMask = CosDictGetBool(image, K_ImageMask, false);
    r.sMask = CosDictKnown(image, K_SMask);
    r.mask = CosDictKnown(image, K_Mask);
    return r;
}

std::string DuplicateKey(const ImageRecord& r) {
    return (boost::format("%1%x%2%x%3%-%4%-%5%-%6%-%7%-%8%") % r.width % r.height % int(r.bitsPerComponent) %
            r.colorSpace % r.length % int(r.imageMask) % int(r.sMask) % int(r.mask))
        .str();
}

std::string DecodedDigest(CosObj stream) {
    CosDecodeOptions opts;
    opts.strict = true;
    try {
        bool complete = false;
        std::vector<uint8_t> data = CosStreamDecodedData(stream, opts, &complete);
        if (!complete) return {};
        return Hex(MD5::Of(data));
    } catch (const CVellumError&) {
        return {};
    }
}

namespace {

// Equal samples are not yet an equal picture: the rest of the dictionary
// (Decode, Interpolate, Intent, Matte, an ICC profile's Alternate and
// Range...) must agree, and so must the soft mask or mask, by object or by
// decoded data.  Keys that only say how the data is stored, or that the
// step removes, are left out.
bool SameRendering(CosObj a, CosObj b, int depth) {
    static const std::vector<ASAtom> storage = {
        K("Length"), K("Filter"), K("DecodeParms"), K("DL"), K("Name"), K("Metadata"), K_SMask, K_Mask,
        K_OPI, K_Alternates, K("PTEX.FileName"), K("PTEX.PageNumber"), K("PTEX.InfoDict")};
    auto byId = [](CosObj v) { return std::to_string(CosObjGetID(v)); };
    std::string ta, tb;
    // The dictionaries alone: the stored data may already be recompressed.
    CosObj da = IsStream(a) ? CosStreamDict(a) : a, db = IsStream(b) ? CosStreamDict(b) : b;
    if (!AppendCanonical(ta, da, byId, storage) || !AppendCanonical(tb, db, byId, storage) || ta != tb) return false;
    for (ASAtom key : {K_SMask, K_Mask}) {
        CosObj ma = CosDictGet(a, key), mb = CosDictGet(b, key);
        if (ma == mb) continue;
        if (IsStream(ma) && IsStream(mb)) {
            if (depth > 2) return false;
            const std::string da = DecodedDigest(ma);
            if (da.empty() || da != DecodedDigest(mb) || !SameRendering(ma, mb, depth + 1)) return false;
            continue;
        }
        std::string ca, cb;
        if (!AppendCanonical(ca, ma, byId) || !AppendCanonical(cb, mb, byId) || ca != cb) return false;
    }
    return true;
}

}  // namespace

CosObj DuplicateFinder::Find(const ImageRecord& record, const std::string& key) {
    std::vector<ImageRecord>& list = m_byKey[key];
    ImageRecord rec = record;
    // A digest that cannot be computed is kept as "-", which no hex digest
    // equals, so an undecodable image is neither merged nor decoded again.
    if (!list.empty()) {
        rec.digest = DecodedDigest(rec.image);
        if (rec.digest.empty()) rec.digest.assign(1, '-');
        for (ImageRecord& earlier : list) {
            if (earlier.digest.empty()) earlier.digest = DecodedDigest(earlier.image);
            if (earlier.digest.empty()) earlier.digest.assign(1, '-');
            if (rec.digest != "-" && earlier.digest == rec.digest && SameRendering(earlier.image, rec.image))
                return earlier.image;
        }
    }
    list.push_back(std::move(rec));
    return CosNewNull();
}

void OptimizeResources(RunContext& ctx) {
    ctx.log.Progress("\tOptimizing Resources...\n");
    ResourceWalk(ctx).Run();
}

void RegisterResourceOperations(OperationRegistry& registry) {
    registry.Add(std::make_unique<ResourceOperation>());
}

}  // namespace pipeline
