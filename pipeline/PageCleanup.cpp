#include "pipeline/PageCleanup.h"

#include <array>
#include <cmath>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/Log.h"
#include "content/ContentHandler.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pipeline/AnnotCleanup.h"
#include "pipeline/PageResources.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

ASAtom K(const char* name) { return ASAtomFromString(name); }
const ASAtom K_PieceInfo = K("PieceInfo");
const ASAtom K_LastModified = K("LastModified");
const ASAtom K_Thumb = K("Thumb");
const ASAtom K_HDAG_Tools = K("HDAG_Tools");
const ASAtom K_Annots = K("Annots");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_FileAttachment = K("FileAttachment");
const ASAtom K_Popup = K("Popup");
const ASAtom K_Parent = K("Parent");
const ASAtom K_MediaBox = K("MediaBox");
const ASAtom K_CropBox = K("CropBox");
const ASAtom K_ArtBox = K("ArtBox");
const ASAtom K_BleedBox = K("BleedBox");
const ASAtom K_TrimBox = K("TrimBox");
const ASAtom K_Kids = K("Kids");
const ASAtom K_Type = K("Type");
const ASAtom K_Pages = K("Pages");
const ASAtom K_Rotate = K("Rotate");
const ASAtom K_Trans = K("Trans");
const ASAtom K_Dur = K("Dur");
const ASAtom K_S = K("S");
const ASAtom K_D = K("D");
const ASAtom K_Dm = K("Dm");
const ASAtom K_M = K("M");
const ASAtom K_Di = K("Di");
const ASAtom K_None = K("None");
const ASAtom K_Contents = K("Contents");
const ASAtom K_Filter = K("Filter");
const ASAtom K_DecodeParms = K("DecodeParms");
const ASAtom K_FlateDecode = K("FlateDecode");
const ASAtom K_DL = K("DL");

// "Present": the key is there and its value is not the null object (a
// reference to a missing object reads as null too).
bool Present(CosObj dict, ASAtom key) { return !CosObjIsNull(CosDictGet(dict, key)); }

bool RemoveIfPresent(CosObj dict, ASAtom key) {
    if (!Present(dict, key)) return false;
    CosDictRemove(dict, key);
    return true;
}

// ------------------------------------------------------------------ boxes

using Box = std::array<double, 4>;

enum class BoxRead { Absent, Ok, Bad };

// A box as four numbers, as stored (no normalising: the comparison is
// exact).  Anything but an array of four numbers is Bad.
BoxRead ReadBox(CosObj value, Box& box) {
    box = {0, 0, 0, 0};
    if (CosObjIsNull(value)) return BoxRead::Absent;
    if (CosObjGetType(value) != kCosArray || CosArrayLength(value) != 4) return BoxRead::Bad;
    for (int i = 0; i < 4; ++i) {
        CosObj e = CosArrayGet(value, i);
        if (CosObjGetType(e) != kCosInteger && CosObjGetType(e) != kCosFixed) return BoxRead::Bad;
        box[i] = CosFixedValue(e);
    }
    return BoxRead::Ok;
}

bool AllZero(const Box& b) { return b[0] == 0 && b[1] == 0 && b[2] == 0 && b[3] == 0; }

void WarnBadBox(RunContext& ctx, const char* which) {
    ctx.log.Warning("Page %d: the %s is not an array of four numbers; it is left as it is\n",
                    int(ctx.pageNumber + 1), which);
}

// The box `key` as a page or pages node inherits it (its own entry, else
// the nearest ancestor's).
CosObj InheritedBox(CosObj node, ASAtom key) { return PDPageGetInheritedAttr(node, key); }

// Moving `key` up to `parent` keeps every page's box only when each kid of
// the parent is a page holding exactly `box` itself: then no page inherits
// the parent's entry before the move, and every page reads `box` after it.
bool KidsAllHold(CosObj parent, ASAtom key, const Box& box) {
    CosObj kids = CosDictGet(parent, K_Kids);
    if (CosObjGetType(kids) != kCosArray || CosArrayLength(kids) < 2) return false;
    for (ASInt32 i = 0; i < CosArrayLength(kids); ++i) {
        CosObj kid = CosArrayGet(kids, i);
        if (CosObjGetType(kid) != kCosDict || CosDictGetName(kid, K_Type) == K_Pages || CosDictKnown(kid, K_Kids))
            return false;
        Box b;
        if (ReadBox(CosDictGet(kid, key), b) != BoxRead::Ok || b != box) return false;
    }
    return true;
}

// Step 3 for one inheritable box: drop the page's own entry when the parent
// gives the same, or move an entry that all siblings share up to the parent.
void InheritBox(CosObj page, ASAtom key, RunContext& ctx) {
    Box own;
    if (CosObjGetType(CosDictGet(page, key)) != kCosArray || ReadBox(CosDictGet(page, key), own) != BoxRead::Ok)
        return;
    CosObj parent = CosDictGet(page, K_Parent);
    if (CosObjGetType(parent) != kCosDict) return;
    Box inherited;
    if (ReadBox(InheritedBox(parent, key), inherited) == BoxRead::Ok && inherited == own) {
        CosDictRemove(page, key);
        ctx.stats.Increment("PageBoxes_Optimized");
        return;
    }
    if (!KidsAllHold(parent, key, own)) return;
    CosDictPut(parent, key, CosObjCopy(CosDictGet(page, key), CosObjGetDoc(parent), false));
    CosDictRemove(page, key);
    ctx.stats.Increment("PageBoxes_Optimized");
}

// ------------------------------------------------------------------ content

// The decoded bytes, or false when any filter fails or the data is cut:
// content that does not decode completely is never replaced.
bool DecodeComplete(CosObj stream, std::vector<uint8_t>& out) {
    CosDecodeOptions opts;
    opts.strict = true;
    try {
        bool complete = false;
        out = CosStreamDecodedData(stream, opts, &complete);
        return complete;
    } catch (const CVellumError&) {
        return false;
    }
}

// What the writer spends on "/Filter/FlateDecode" against what the stream's
// present filter entries cost, so that a few bytes of data are never traded
// for more bytes of dictionary.
size_t FilterCost(CosObj stream) {
    size_t cost = 0;
    CosObj f = CosDictGet(stream, K_Filter);
    if (!CosObjIsNull(f)) cost += 8 + CosObjToDebugString(f, 4).size();
    CosObj dp = CosDictGet(stream, K_DecodeParms);
    if (!CosObjIsNull(dp)) cost += 13 + CosObjToDebugString(dp, 4).size();
    return cost;
}
constexpr size_t kFlateCost = 8 + 12;

void StoreFlate(CosObj stream, const filters::Bytes& encoded) {
    CosDictPutName(stream, K_Filter, false, K_FlateDecode);
    CosDictRemove(stream, K_DecodeParms);
    CosDictRemove(stream, K_DL);
    CosStreamSetEncodedData(stream, encoded);
}

// Content streams that several pages draw (a background or a letterhead
// shared by every page): joining them into each page's own stream would
// write their data once per page.  Counted once per document, when the
// page loop starts.
class SharedStreams {
public:
    // Called for every page the loop visits, in order.
    void Begin(RunContext& ctx) {
        if (ctx.pageNumber <= 0 || ctx.doc != m_doc || ctx.pageNumber <= m_last) Count(ctx.doc);
        m_last = ctx.pageNumber;
    }
    bool Shared(CosObj stream) const {
        auto it = m_uses.find(stream);
        return it != m_uses.end() && it->second > 1;
    }

private:
    void Count(PDDoc doc) {
        m_uses.clear();
        m_doc = nullptr;
        for (ASInt32 i = 0; i < PDDocGetNumPages(doc); ++i) {
            CosObj c = CosDictGet(PDDocGetPageObj(doc, i), K_Contents);
            if (CosObjGetType(c) == kCosStream) ++m_uses[c];
            if (CosObjGetType(c) != kCosArray) continue;
            for (ASInt32 k = 0; k < CosArrayLength(c); ++k)
                if (CosObjGetType(CosArrayGet(c, k)) == kCosStream) ++m_uses[CosArrayGet(c, k)];
        }
        m_doc = doc;
    }
    PDDoc m_doc = nullptr;
    ASInt32 m_last = -1;
    std::unordered_map<CosObj, int> m_uses;
};

SharedStreams& Sharing() {
    static SharedStreams s;
    return s;
}

// The base handler writes every operator back compactly; this one also
// notices when the parser had to cut damaged content.
class RewriteHandler : public ContentHandler {
public:
    using ContentHandler::ContentHandler;
    void Report(Log::Channel channel, const char* text) override {
        if (std::string_view(text).starts_with("Damaged content stream")) damaged = true;
        ContentHandler::Report(channel, text);
    }
    bool damaged = false;
};

// ------------------------------------------------------------------ operations

class SimplePageOperation : public PageOperation {
public:
    using Step = void (*)(CosObj, RunContext&);
    using Gate = bool (*)(const CTrimoraPreferences&);
    SimplePageOperation(const char* name, const char* failure, Gate gate, Step step)
        : m_name(name), m_failure(failure), m_gate(gate), m_step(step) {}
    const char* Name() const override { return m_name; }
    PagePhase Phase() const override { return PagePhase::PostLayout; }
    bool Enabled(const CTrimoraPreferences& prefs) const override { return m_gate(prefs); }
    std::string FailureMessage(ASInt32 pageNumber) const override {
        return std::string(m_failure) + " " + std::to_string(pageNumber);
    }
    void Apply(CosObj page, RunContext& ctx) override {
        if (CosObjGetType(page) != kCosDict) ASRaiseErr(ErrSysCos, kErrExpectedDict);
        m_step(page, ctx);
    }

private:
    const char* m_name;
    const char* m_failure;
    Gate m_gate;
    Step m_step;
};

bool Always(const CTrimoraPreferences&) { return true; }

void Add(OperationRegistry& r, const char* name, const char* failure, SimplePageOperation::Gate gate,
         SimplePageOperation::Step step) {
    r.Add(std::make_unique<SimplePageOperation>(name, failure, gate, step));
}

// The XObjects of a page are re-encoded by the resource step after the page
// loop, once per object however many pages share it; this step only says
// that the page's XObjects are handed over.
void HandOverXObjects(CosObj, RunContext& ctx) { ctx.log.Progress("\tRecompressing XObjects...\n"); }

}  // namespace

void RemoveEditData(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tRemoving Edit Data...\n");
    if (Present(page, K_PieceInfo)) {
        CosDictRemove(page, K_PieceInfo);
        RemoveIfPresent(page, K_LastModified);
        ctx.stats.Increment("EditData_Removed");
    }
    static const char* const keys[] = {"QITE_internal", "QITE_imposed_1", "QITE_pageid", "CAPT_Info",
                                       "OneVisionPageColorsInfo"};
    for (const char* key : keys)
        if (RemoveIfPresent(page, K(key))) ctx.stats.Increment("EditData_Removed");
    // Names that are not valid as identifiers are made from their text here.
    static const char* const prot[] = {"CSML:PProt", "CSML:PProtC", "CSML:PProtB"};
    for (const char* key : prot)
        if (RemoveIfPresent(page, ASAtomFromString(key))) ctx.stats.Increment("EditData_Removed");
}

void RemoveThumbnail(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tRemoving Page Thumbnail...\n");
    if (RemoveIfPresent(page, K_Thumb)) ctx.stats.Increment("Thumbs_Removed");
}

void RemoveJobTicket(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tRemoving Job Ticket Data...\n");
    if (RemoveIfPresent(page, K_HDAG_Tools)) ctx.stats.Increment("JobTicket_Removed");
}

void RemoveFileAttachments(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tRemoving embedded files...\n");
    CosObj annots = CosDictGet(page, K_Annots);
    if (CosObjIsNull(annots)) return;
    if (CosObjGetType(annots) != kCosArray) {
        ctx.log.Warning("Page %d: Annots is not an array; its annotations are left alone\n",
                        int(ctx.pageNumber + 1));
        return;
    }
    std::vector<CosObj> removed;
    for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) {
        CosObj a = CosArrayGet(annots, i);
        if (CosObjGetType(a) != kCosDict || CosDictGetName(a, K_Subtype) != K_FileAttachment) continue;
        removed.push_back(a);
        CosArrayRemoveAt(annots, i--);
        ctx.stats.Increment("EmbeddedFiles_Removed");
    }
    if (removed.empty()) return;
    // The pop-up notes of removed attachments would be left without their
    // annotation: they go too (not counted as files).
    for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) {
        CosObj a = CosArrayGet(annots, i);
        if (CosObjGetType(a) != kCosDict || CosDictGetName(a, K_Subtype) != K_Popup) continue;
        CosObj parent = CosDictGet(a, K_Parent);
        for (CosObj r : removed)
            if (parent == r) {
                CosArrayRemoveAt(annots, i--);
                break;
            }
    }
}

void RemoveExtraBoxes(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tRemoving Extra Page Boxes...\n");
    Box media;
    BoxRead mr = ReadBox(InheritedBox(page, K_MediaBox), media);
    if (mr == BoxRead::Bad) {
        WarnBadBox(ctx, "MediaBox");
        return;
    }
    struct Other {
        ASAtom key;
        const char* name;
    };
    const Other others[] = {{K_CropBox, "CropBox"}, {K_ArtBox, "ArtBox"}, {K_BleedBox, "BleedBox"}, {K_TrimBox, "TrimBox"}};
    for (const Other& o : others) {
        Box b;
        BoxRead r = ReadBox(CosDictGet(page, o.key), b);
        if (r == BoxRead::Bad) {
            WarnBadBox(ctx, o.name);
            continue;
        }
        if (r == BoxRead::Absent || AllZero(b) || b != media) continue;
        CosDictRemove(page, o.key);
        ctx.stats.Increment("ExtraBoxes_Removed");
    }
    if (PDDocGetNumPages(ctx.doc) > 1) {
        InheritBox(page, K_MediaBox, ctx);
        InheritBox(page, K_CropBox, ctx);
    }
}

void AdjustRotation(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tAdjusting Rotation...\n");
    const ASInt32 rotate = ctx.prefs.Viewing().rotate;
    if (rotate != 0) {
        if (rotate % 90 != 0) {
            ctx.log.Warning("A rotation of %d degrees is not a multiple of 90: page %d is not rotated\n",
                            int(rotate), int(ctx.pageNumber + 1));
            return;
        }
        CosDictPutInteger(page, K_Rotate, ((rotate % 360) + 360) % 360);
        ctx.stats.Increment("Rotations_Added");
        return;
    }
    CosObj r = CosDictGet(page, K_Rotate);
    // A rotation that is not a number at all is a damaged page: reading it
    // raises, and the page loop reports the page with this step's message.
    if (!CosObjIsNull(r) && CosObjGetType(r) != kCosInteger && CosObjGetType(r) != kCosFixed)
        ASRaiseErr(ErrSysCos, kErrExpectedNumber);
    if (CosObjGetType(r) == kCosInteger && CosIntegerValue(r) == 0) {
        CosDictRemove(page, K_Rotate);
        ctx.stats.Increment("Rotations_Removed");
    }
}

void AddTransition(CosObj page, RunContext& ctx) {
    const TransitionSettings& t = ctx.prefs.Viewing().transition;
    if (t.name == K_None || t.name == ASAtomNull) return;
    ctx.log.Progress("\tAdding Transition...\n");
    CosDoc doc = CosObjGetDoc(page);
    CosObj trans = CosNewDict(doc, false);
    CosDictPutName(trans, K_Type, false, K_Trans);
    CosDictPutName(trans, K_S, false, t.name);
    CosDictPutInteger(trans, K_D, t.transDuration);
    // Only the entries that the style reads (ISO 32000-1, 12.4.4.1).
    const std::string style = ASAtomGetString(t.name);
    if ((style == "Split" || style == "Blinds") && t.dimension != ASAtomNull)
        CosDictPutName(trans, K_Dm, false, t.dimension);
    if ((style == "Split" || style == "Box") && t.motion != ASAtomNull) CosDictPutName(trans, K_M, false, t.motion);
    if (style == "Wipe" || style == "Glitter") CosDictPutInteger(trans, K_Di, t.direction);
    CosDictPut(page, K_Trans, trans);
    if (t.pageDuration > 0)
        CosDictPutInteger(page, K_Dur, t.pageDuration);
    ctx.stats.Increment("Transitions_Added");
}

void CombineContentStreams(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tCombining Content Streams\n");
    Sharing().Begin(ctx);
    CosObj contents = CosDictGet(page, K_Contents);
    // Every page the step runs on counts once in ContentStreams_Combined,
    // whether its streams were joined or it already held one: the count is
    // then the number of streams the pages hold afterwards.
    if (CosObjGetType(contents) == kCosStream) {
        ctx.stats.Increment("ContentStreams_Total");
        ctx.stats.Increment("ContentStreams_Combined");
        return;
    }
    if (CosObjGetType(contents) != kCosArray) return;
    std::vector<CosObj> streams;
    for (ASInt32 i = 0; i < CosArrayLength(contents); ++i) {
        CosObj s = CosArrayGet(contents, i);
        // Viewers skip what is not a stream (a reference to a missing
        // object, typically); so does the joined stream.
        if (CosObjGetType(s) == kCosStream) streams.push_back(s);
    }
    ctx.stats.Increment("ContentStreams_Total", ASInt32(streams.size()));
    if (streams.empty()) return;
    // A page whose streams stay apart (shared with another page, or not
    // decodable) still counts once, as the step ran on it.
    ctx.stats.Increment("ContentStreams_Combined");
    for (CosObj s : streams)
        if (Sharing().Shared(s)) return;
    std::vector<uint8_t> joined, part;
    for (CosObj s : streams) {
        if (!DecodeComplete(s, part)) {
            ctx.log.Warning("Page %d: content stream %d does not decode completely; the streams are not combined\n",
                            int(ctx.pageNumber + 1), int(CosObjGetID(s)));
            return;
        }
        // A token never runs from one stream into the next: a line end
        // between them keeps them apart.
        if (!joined.empty()) joined.push_back('\n');
        joined.insert(joined.end(), part.begin(), part.end());
    }
    CosObj stream = CosNewStream(CosObjGetDoc(page), CosNewNull(), {});
    CosStreamSetDecodedData(stream, joined, ctx.prefs.Optimize().flateLevel);
    CosDictPut(page, K_Contents, stream);
}

void ProcessContentStreams(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tProcessing Content Streams...\n");
    CosObj stream = CosDictGet(page, K_Contents);
    if (CosObjGetType(stream) != kCosStream) return;
    std::vector<uint8_t> original;
    if (!DecodeComplete(stream, original)) {
        ctx.log.Warning("Page %d: content stream %d does not decode completely; it is left as it is\n",
                        int(ctx.pageNumber + 1), int(CosObjGetID(stream)));
        return;
    }
    RewriteHandler h(&ctx.log);
    h.SetResources(PDPageGetInheritedAttr(page, cosnames::Resources));
    h.RunContent(original);
    h.Finish();
    // Content the parser had to cut is kept as the viewer reads it: only
    // recompressed, never rewritten.
    const bool rewritten = !h.damaged && h.Out().Size() < original.size();
    std::span<const uint8_t> chosen = original;
    if (rewritten) chosen = {reinterpret_cast<const uint8_t*>(h.Out().Text().data()), h.Out().Size()};
    filters::Bytes encoded = filters::FlateEncode(chosen, ctx.prefs.Optimize().flateLevel);
    if (encoded.size() + kFlateCost >= CosStreamEncodedLength(stream) + FilterCost(stream)) return;
    StoreFlate(stream, encoded);
    ctx.stats.Increment("ContentStreams_Compressed");
    if (rewritten) ctx.stats.Increment("ContentStreams_Optimized");
}

void RegisterPageRemovalOperations(OperationRegistry& r) {
    Add(r, "edit data removal", "Error while removing edit data from page",
        [](const CTrimoraPreferences& p) { return p.Optimize().removeEditData; }, RemoveEditData);
    Add(r, "thumbnail removal", "Error while removing the thumbnail of page",
        [](const CTrimoraPreferences& p) { return p.Optimize().removeThumbs; }, RemoveThumbnail);
    Add(r, "job ticket removal", "Error while removing job ticket data from page",
        [](const CTrimoraPreferences& p) { return p.Optimize().removeJobTicket; }, RemoveJobTicket);
    Add(r, "embedded file removal", "Error while removing embedded files from page",
        [](const CTrimoraPreferences& p) { return p.Optimize().removeEmbeddedFiles; }, RemoveFileAttachments);
    Add(r, "page box removal", "Error while removing extra page boxes from page",
        [](const CTrimoraPreferences& p) { return p.Optimize().removeExtraBoxes; }, RemoveExtraBoxes);
}

void RegisterPageContentOperations(OperationRegistry& r) {
    Add(r, "annotation clean-up", "Error while cleaning up the annotations of page", Always, CleanUpAnnotations);
    Add(r, "transition", "Error while adding a transition to page",
        [](const CTrimoraPreferences& p) {
            ASAtom n = p.Viewing().transition.name;
            return n != ASAtomNull && n != K_None;
        },
        AddTransition);
    Add(r, "rotation", "Error while rotating page", Always, AdjustRotation);
    Add(r, "content stream combining", "Error while combining the content streams of page", Always,
        CombineContentStreams);
    Add(r, "page resource clean-up", "Error while cleaning up the resources of page", Always,
        CleanUpPageResources);
    Add(r, "XObject hand-over", "Error while recompressing the XObjects of page", Always, HandOverXObjects);
    Add(r, "content stream processing", "Error while processing the content streams of page", Always,
        ProcessContentStreams);
}

}  // namespace pipeline
