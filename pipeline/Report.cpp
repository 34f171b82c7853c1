#include "pipeline/Report.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include "base/Log.h"
#include "pipeline/ViewingPlan.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

const char* Noun(ASInt32 count, const char* singular, const char* plural) {
    return count == 1 ? singular : plural;
}

// Counters saturate at the 32-bit limits; sums of two of them must too.
ASInt32 ClampedSum(int64_t a, int64_t b) {
    return static_cast<ASInt32>(std::clamp<int64_t>(a + b, INT32_MIN, INT32_MAX));
}

struct CountRow {
    const char* singular;
    const char* plural;
    const char* done;   // the count of things done: decides the line and the noun
    const char* total;  // 0 when the row has none
};

}  // namespace

std::string BuildReport(const ReportInputs& in, const Statistics& st, const std::string& indent,
                        bool* formatFailed) {
    ReportWriter w(indent);
    auto get = [&](const char* key) { return st.Get(key); };

    // 1-3: duplicates found
    static const CountRow dups[] = {
        {"Image", "Images", "ImageXObjects_Duplicates", "ImageXObjects_Total"},
        {"ICC Profile", "ICC Profiles", "ICCProfiles_Duplicates", "ICCProfiles_Total"},
        {"Link Annotation", "Link Annotations", "LinkAnnots_Duplicates", "LinkAnnots_Total"}};
    for (const CountRow& r : dups)
        if (ASInt32 n = get(r.done))
            w.Line(1, "Found %2% duplicate %1% out of %3% total\n", Noun(n, r.singular, r.plural), n,
                   get(r.total));

    // 4-5: compressed
    static const CountRow compressed[] = {
        {"Font", "Fonts", "Fonts_Compressed", "Fonts_Total"},
        {"Color Table", "Color Tables", "IndexedColorTables_Compressed", "IndexedColorTables_Total"}};
    for (const CountRow& r : compressed)
        if (ASInt32 n = get(r.done))
            w.Line(1, "Compressed %2% %1% out of %3% total\n", Noun(n, r.singular, r.plural), n,
                   get(r.total));

    // 6-9: optimised and compressed
    static const CountRow optimized[] = {
        {"Form XObject", "Form XObjects", "FormXObjects_Compressed", "FormXObjects_Total"},
        {"Annotation", "Annotations", "AnnotStreams_Compressed", "AnnotStreams_Total"},
        {"Pattern", "Patterns", "Patterns_Compressed", "Patterns_Total"},
        {"Type 3 Font Glyph", "Type 3 Font Glyphs", "T3FontGlyphs_Compressed", "T3FontGlyphs_Total"}};
    for (const CountRow& r : optimized)
        if (ASInt32 n = get(r.done))
            w.Line(1, "Optimized and Compressed %2% %1% out of %3% total\n",
                   Noun(n, r.singular, r.plural), n, get(r.total));

    // 10: content streams, written whenever streams were counted.  With
    // combining, the noun follows the pages combined and "into" is what is
    // left, one stream per page; without, the noun follows the streams
    // compressed and nothing was merged.
    if (const ASInt32 total = get("ContentStreams_Total")) {
        const ASInt32 comp = get("ContentStreams_Compressed");
        const ASInt32 opt = get("ContentStreams_Optimized");
        const ASInt32 comb = get("ContentStreams_Combined");
        const char* fmt = "Combined %4% %1% into %3%, optimizing %5% & compressing %2%\n";
        if (comb != 0)
            w.Line(1, fmt, Noun(comb, "Content Stream", "Content Streams"), comp, comb, total, opt);
        else
            w.Line(1, fmt, Noun(comp, "Content Stream", "Content Streams"), comp, total, total, opt);
    }

    // 11-15: images and shadings
    if (ASInt32 n = get("Images_Processed"))
        w.Line(1, "Reduced %1% of %2% images in size\n", n, get("Images_Total"));
    if (ASInt32 n = get("Images_Colored"))
        w.Line(1, "Color Managed %1% of %2% %3%\n", n, get("Images_Total"), "images");
    if (ASInt32 n = get("Shadings_Colored"))
        w.Line(1, "Color Managed %1% of %2% %3%\n", n, get("Shadings_Total"), "shadings");
    if (ASInt32 n = get("Images_Palettized"))
        w.Line(1, "%1% %2% of %3% images\n", "Palettized", n, get("Images_Total"));
    if (ASInt32 n = get("Images_Quantized"))
        w.Line(1, "%1% %2% of %3% images\n", "Quantized", n, get("Images_Total"));

    // 16: annotations cleaned
    if (ASInt32 n = ClampedSum(get("Annots_Cleaned"), get("LinkAnnots_Cleaned")))
        w.Line(1, "Cleaned up %2% %1%\n", Noun(n, "Annotation", "Annotations"), n);

    // 17-27: removed (the two one-form nouns are spelt the same both ways)
    static const CountRow removed[] = {
        {"Rotation", "Rotations", "Rotations_Removed", nullptr},
        {"Page Box", "Page Boxes", "ExtraBoxes_Removed", nullptr},
        {"Thumbnail", "Thumbnails", "Thumbs_Removed", nullptr},
        {"Edit Data", "Edit Data", "EditData_Removed", nullptr},
        {"Job Tickets", "Job Tickets", "JobTicket_Removed", nullptr},
        {"Empty Annotation", "Empty Annotations", "Empty_Annots_Removed", nullptr},
        {"Form Appearance", "Form Appearences", "FormAPs_Removed", nullptr},
        {"OPI Structure", "OPI Structures", "OPI_Removed", nullptr},
        {"Alternate Image", "Alternate Images", "AltImages_Removed", nullptr},
        {"Unreferenced Font", "Unreferenced Fonts", "Unreferenced_Fonts_Removed", nullptr},
        {"Embedded File", "Embedded Files", "EmbeddedFiles_Removed", nullptr}};
    for (const CountRow& r : removed)
        if (ASInt32 n = get(r.done))
            w.Line(1, "Removed %2% unnecessary %1%\n", Noun(n, r.singular, r.plural), n);

    // 28: document-level removals
    static const std::pair<const char*, const char*> flags[] = {
        {"Metadata_Removed", "Metadata"},
        {"Tagging_Removed", "Tagging"},
        {"EmptyOutline_Removed", "Empty Bookmarks"},
        {"APNames_Removed", "Appearance Names"},
        {"SpiderInfo_Removed", "Web Capture Update Information"},
        {"PageLabels_Removed", "Page Labels"},
        {"OutlineTree_Removed", "Bookmarks"}};
    for (const auto& [key, noun] : flags)
        if (get(key)) w.Line(1, "Removed unnecessary %1%\n", noun);

    // 29-30: flattened and removed
    static const CountRow flattened[] = {
        {"Annotation", "Annotations", "Annots_Flattened", "Annots_Total"},
        {"Form Field", "Form Fields", "AcroForms_Flattened", "AcroForms_Total"}};
    static const char* flattenedRemoved[] = {"Annots_Removed", "AcroForms_Removed"};
    for (size_t i = 0; i < 2; ++i) {
        const CountRow& r = flattened[i];
        if (ASInt32 n = get(r.done))
            w.Line(1, "Flattened %2% & Removed %4% of %3% %1%\n", Noun(n, r.singular, r.plural), n,
                   get(r.total), get(flattenedRemoved[i]));
    }

    // 31-33: content operators
    static const CountRow contentRemoved[] = {
        {"Marked Content Element", "Marked Content Elements", "MarkedContent_Removed",
         "MarkedContent_Total"},
        {"RI Operator", "RI Operators", "RIOperators_Removed", "RIOperators_Total"}};
    for (const CountRow& r : contentRemoved)
        if (ASInt32 n = get(r.done))
            w.Line(1, "Removed %3% of %2% %1%\n", Noun(n, r.singular, r.plural), get(r.total), n);
    if (ASInt32 n = get("ColorContent_Changed"))
        w.Line(1, "Changed the colors of %3% of %2% %1%\n",
               Noun(n, "Color Content Operator", "Color Content Operators"),
               get("ColorContent_Total"), n);

    // 34
    if (get("PSDAlbum_Cleanup")) w.Line(1, "Cleaned up Photoshop Album Information\n");

    // 35-40: optimised and added
    static const CountRow optimizedPage[] = {
        {"Rotation", "Rotations", "Rotations_Optimized", nullptr},
        {"Page Box", "Page Boxes", "PageBoxes_Optimized", nullptr}};
    for (const CountRow& r : optimizedPage)
        if (ASInt32 n = get(r.done)) w.Line(1, "Optimized %2% %1%\n", Noun(n, r.singular, r.plural), n);
    static const CountRow added[] = {
        {"Page Box", "Page Boxes", "PageBoxes_Added", nullptr},
        {"Rotation", "Rotations", "Rotations_Added", nullptr},
        {"Transition", "Transitions", "Transitions_Added", nullptr},
        {"Stamp/Watermark", "Stamps/Watermarks", "Stamps_Applied", nullptr}};
    for (const CountRow& r : added)
        if (ASInt32 n = get(r.done)) w.Line(1, "Added %2% %1%\n", Noun(n, r.singular, r.plural), n);

    // 41
    if (in.linearize) w.Line(1, "Enabled 'Fast Web View'\n");

    // 42-43: encryption and the permissions it grants
    if (in.encrypt) {
        const char* who = "an owner";
        const char* word = "password";
        if (in.userPassword && in.ownerPassword) {
            who = "both user and owner";
            word = "passwords";
        } else if (in.userPassword) {
            who = "a user";
        }
        w.Line(1, "Encrypted using a %1%bit key %2% %3% and these permissions\n", in.keyLength, who,
               word);
        const ASUns16 sw = in.securityWord;
        const bool print = !(sw & 0x0004), edit = !(sw & 0x0008), copy = !(sw & 0x0010),
                   notes = !(sw & 0x0020);
        // A 40-bit key has no bits of its own for the last four: there they
        // follow the older permission that governs them.
        const bool wide = in.keyLength > 40;
        const std::pair<const char*, bool> perms[] = {
            {"printing", print},
            {"editing", edit},
            {"copying", copy},
            {"commenting", notes},
            {"form filling", wide ? (sw & 0x0100) != 0 : notes},
            {"accessability", wide ? (sw & 0x0200) != 0 : copy},
            {"assembly", wide ? (sw & 0x0400) != 0 : edit},
            {"high quality printing", wide ? (sw & 0x0800) != 0 : print}};
        for (const auto& [name, granted] : perms)
            w.Line(2, "%1% (%2%)\n", name, granted ? "enabled" : "disabled");
    }

    // 44
    if (!in.metadata.empty()) {
        w.Line(1, "Applied Metadata\n");
        for (const auto& [key, value] : in.metadata) w.Line(2, "%1% = %2%\n", key, value);
    }

    // 45
    if (in.pageMode) w.Line(1, "Set the Page Mode\n");
    if (in.pageLayout) w.Line(1, "Set the Page Layout\n");
    if (in.openDestination) w.Line(1, "Set the Open Destination\n");
    if (in.startingPage > 0) w.Line(1, "Set the starting page to %1%\n", in.startingPage);
    if (in.hideToolbar) w.Line(1, "Set the toolbar to be hidden\n");
    if (in.hideMenubar) w.Line(1, "Set the menubar to be hidden\n");
    if (in.hideWindowUI) w.Line(1, "Set the window UI to be hidden\n");
    if (in.fitWindow) w.Line(1, "Set 'fit window to screen'\n");
    if (in.centerWindow) w.Line(1, "Set 'center window on screen'\n");

    if (formatFailed) *formatFailed = w.Failed();
    return w.Text();
}

ReportInputs ReportInputsFromPreferences(const CTrimoraPreferences& prefs) {
    ReportInputs in;
    in.linearize = prefs.Optimize().linearize;
    const SecuritySettings& sec = prefs.Security();
    in.encrypt = sec.encrypt;
    in.keyLength = sec.keyLength;
    in.securityWord = sec.securityWord;
    in.userPassword = !sec.userPassword.empty() || (sec.securityWord & kSecUserPasswordGiven);
    in.ownerPassword = !sec.ownerPassword.empty() || (sec.securityWord & kSecOwnerPasswordGiven);
    for (const auto& [key, value] : prefs.Metadata().entries) in.metadata.emplace_back(key, value);
    const ViewingPlan plan = MakeViewingPlan(prefs.Viewing());
    in.pageMode = plan.pageMode != ASAtomNull;
    in.pageLayout = plan.pageLayout != ASAtomNull;
    in.openDestination = plan.OpenDestination();
    in.startingPage = plan.startingPage;
    in.hideToolbar = plan.hideToolbar;
    in.hideMenubar = plan.hideMenubar;
    in.hideWindowUI = plan.hideWindowUI;
    in.fitWindow = plan.fitWindow;
    in.centerWindow = plan.centerWindow;
    return in;
}

void WriteReport(const CTrimoraPreferences& prefs, const Statistics& stats,
                 const std::string& indent, Log& log) {
    bool failed = false;
    const std::string text = BuildReport(ReportInputsFromPreferences(prefs), stats, indent, &failed);
    if (!text.empty()) log.Write(Log::kInfo, text.c_str());
    if (failed) log.Write(Log::kInfo, "Problem with boost::format\n");
}

}  // namespace pipeline
