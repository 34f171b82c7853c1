// The output-intent check: a document made for one output device names its
// ICC profile, and the colour work of the run should aim at that device.
#include <lcms2.h>

#include "pdfcore/CosDoc.h"
#include "pipeline/Pipeline.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

const ASAtom K_OutputIntents = ASAtomFromString("OutputIntents");
const ASAtom K_DestOutputProfile = ASAtomFromString("DestOutputProfile");

// Profiles are small; anything larger is not worth decoding for this check.
constexpr uint64_t kMaxProfileBytes = uint64_t(64) << 20;

void SilentLcms(cmsContext, cmsUInt32Number, const char*) {}

}  // namespace

bool AdoptOutputIntent(PDDoc doc, CTrimoraPreferences& prefs) {
    CosObj catalog = CosDocGetRoot(PDDocGetCosDoc(doc));
    CosObj intents = CosDictGet(catalog, K_OutputIntents);
    if (CosObjGetType(intents) != kCosArray) return false;
    CosObj first = CosArrayGet(intents, 0);
    if (CosObjGetType(first) != kCosDict) return false;
    CosObj profile = CosDictGet(first, K_DestOutputProfile);
    if (CosObjGetType(profile) != kCosStream) return false;

    CosDecodeOptions opts;
    opts.maxOutput = kMaxProfileBytes;
    bool complete = false;
    std::vector<uint8_t> bytes = CosStreamDecodedData(profile, opts, &complete);
    if (!complete || bytes.empty()) return false;

    cmsSetLogErrorHandler(SilentLcms);
    cmsHPROFILE h = cmsOpenProfileFromMem(bytes.data(), cmsUInt32Number(bytes.size()));
    if (!h) return false;
    const cmsColorSpaceSignature space = cmsGetColorSpace(h);
    cmsCloseProfile(h);

    const char* spaceName = space == cmsSigCmykData   ? "CMYK"
                            : space == cmsSigGrayData ? "Gray"
                            : space == cmsSigRgbData  ? "RGB"
                                                      : nullptr;
    if (!spaceName) return false;
    prefs.Colors().destinationProfile = std::move(bytes);
    prefs.Colors().destinationSpace = ASAtomFromString(spaceName);
    prefs.RunFinishingSteps();
    return true;
}

}  // namespace pipeline
