#include "pipeline/Statistics.h"

#include <algorithm>
#include <iterator>
#include <climits>

namespace pipeline {
namespace {

constexpr const char* kCounters[] = {
    // content streams
    "ContentStreams_Total", "ContentStreams_Compressed", "ContentStreams_Optimized",
    "ContentStreams_Combined",
    // page clean-up
    "Rotations_Removed", "Rotations_Optimized", "Rotations_Added", "ExtraBoxes_Removed",
    "PageBoxes_Optimized", "PageBoxes_Added", "Thumbs_Removed", "EditData_Removed",
    "JobTicket_Removed", "Empty_Annots_Removed", "FormAPs_Removed", "EmbeddedFiles_Removed",
    "Transitions_Added", "Stamps_Applied",
    // annotations and forms
    "AnnotStreams_Total", "AnnotStreams_Compressed", "LinkAnnots_Total", "LinkAnnots_Duplicates",
    "LinkAnnots_Cleaned", "Annots_Total", "Annots_Removed", "Annots_Cleaned", "Annots_Flattened",
    "AcroForms_Total", "AcroForms_Removed", "AcroForms_Flattened",
    // resources
    "ImageXObjects_Total", "ImageXObjects_Duplicates", "ICCProfiles_Total",
    "ICCProfiles_Duplicates", "Fonts_Total", "Fonts_Compressed", "FormXObjects_Total",
    "FormXObjects_Compressed", "IndexedColorTables_Total", "IndexedColorTables_Compressed",
    "Patterns_Total", "Patterns_Compressed", "Shadings_Total", "Shadings_Colored",
    "T3FontGlyphs_Total", "T3FontGlyphs_Compressed", "OPI_Removed", "AltImages_Removed",
    "Unreferenced_Fonts_Removed",
    // images
    "Images_Total", "Images_ToBeProcessed", "Images_Processed", "Images_Colored",
    "Images_Quantized", "Images_Palettized",
    // content editing
    "MarkedContent_Total", "MarkedContent_Removed", "RIOperators_Total", "RIOperators_Removed",
    "ColorContent_Total", "ColorContent_Changed",
};
constexpr size_t kCounterCount = std::size(kCounters);

constexpr const char* kFlags[] = {
    "Metadata_Removed",   "Tagging_Removed",   "EmptyOutline_Removed", "APNames_Removed",
    "SpiderInfo_Removed", "PageLabels_Removed", "OutlineTree_Removed", "PSDAlbum_Cleanup"};

bool Contains(const char* const* list, size_t count, ASAtom key) {
    if (key == ASAtomNull) return false;
    const char* text = ASAtomGetString(key);
    for (size_t i = 0; i < count; ++i)
        if (std::string_view(list[i]) == text) return true;
    return false;
}

ASInt32 SaturatingAdd(ASInt32 a, ASInt32 b) {
    int64_t s = int64_t(a) + int64_t(b);
    return static_cast<ASInt32>(std::clamp<int64_t>(s, INT32_MIN, INT32_MAX));
}

}  // namespace

std::span<const char* const> StatisticsCounterKeys() { return {kCounters, kCounterCount}; }
std::span<const char* const> StatisticsFlagKeys() { return {kFlags, std::size(kFlags)}; }

bool Statistics::IsCounterKey(ASAtom key) { return Contains(kCounters, kCounterCount, key); }
bool Statistics::IsFlagKey(ASAtom key) { return Contains(kFlags, std::size(kFlags), key); }

Statistics::Statistics(CosObj dict) : m_dict(dict) {}

void Statistics::Reset() {
    if (CosObjIsNull(m_dict)) return;
    CosDoc doc = CosObjGetDoc(m_dict);
    while (CosDictCount(m_dict) > 0) CosDictRemove(m_dict, CosDictKeyAt(m_dict, 0));
    for (const char* k : StatisticsCounterKeys())
        CosDictPut(m_dict, ASAtomFromString(k), CosNewInteger(doc, false, 0));
    for (const char* k : StatisticsFlagKeys())
        CosDictPut(m_dict, ASAtomFromString(k), CosNewBoolean(doc, false, false));
}

void Statistics::Increment(ASAtom key, ASInt32 by) {
    if (CosObjIsNull(m_dict)) return;
    CosObj v = CosDictGet(m_dict, key);
    if (CosObjGetType(v) != kCosInteger) return;
    CosNumberSetValue(v, SaturatingAdd(CosIntegerValue(v), by));
}

void Statistics::Increment(std::string_view key, ASInt32 by) {
    Increment(ASAtomFromString(key), by);
}

ASInt32 Statistics::Get(ASAtom key) const {
    if (CosObjIsNull(m_dict)) return 0;
    CosObj v = CosDictGet(m_dict, key);
    switch (CosObjGetType(v)) {
        case kCosInteger: return CosIntegerValue(v);
        case kCosBoolean: return CosBooleanValue(v) ? 1 : 0;
        default: return 0;
    }
}

ASInt32 Statistics::Get(std::string_view key) const { return Get(ASAtomFromString(key)); }

void Statistics::Set(ASAtom key, ASInt32 value) {
    if (CosObjIsNull(m_dict)) return;
    CosDoc doc = CosObjGetDoc(m_dict);
    if (IsFlagKey(key))
        CosDictPut(m_dict, key, CosNewBoolean(doc, false, value != 0));
    else if (IsCounterKey(key))
        CosDictPut(m_dict, key, CosNewInteger(doc, false, value));
}

void Statistics::Set(std::string_view key, ASInt32 value) { Set(ASAtomFromString(key), value); }

}  // namespace pipeline
