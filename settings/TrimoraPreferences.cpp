// The settings model: defaults, the shared handle, the finishing steps.
#include "settings/TrimoraPreferences.h"

#include "pdfcore/CosDoc.h"

namespace {
ASAtom A(const char* word) { return ASAtomFromString(word); }
}  // namespace

// ---------------------------------------------------------------- defaults
TargetSettings::TargetSettings() : evalUnits(A("Points")) {}

OptimizeSettings::OptimizeSettings()
    : removeThreads(A("None")),
      removeNamedDests(A("None")),
      removePageLabels(A("None")),
      annotProcessing(A("None")),
      acroformProcessing(A("None")),
      objectStreams(A("Preserve")) {}

TransitionSettings::TransitionSettings() : name(A("None")), dimension(A("H")), motion(A("I")) {}

ViewingSettings::ViewingSettings() : pageMode(A("None")), pageLayout(A("None")), openZoomFit(A("None")) {}

bool ViewingSettings::OpenActionConfigured() const { return openPage > 0 || openZoomFit != A("None"); }

ImageClassSettings::ImageClassSettings()
    : downsampleUsing(A("none")), filter(A("Original")), jpegQuality(A("High")) {}

ImageSettings::ImageSettings() {
    // Bilevel scans live at far higher resolutions than photographs.
    mono.downsampleAbove = 1800;
    mono.resolution = 1200;
}

ColorSpaceConversion::ColorSpaceConversion() : intent(A("Perceptual")) {}

ColorConversionGroup::ColorConversionGroup() : type(A("None")) {}

ColorSettings::ColorSettings() : simulationIntent(A("Perceptual")), grayReduction(A("None")) {}

LayoutSettings::LayoutSettings()
    : type(A("None")), pageBox(A("CropBox")), pageScaling(A("Fit")), pagePosition(A("Center")) {}

bool LayoutSettings::Enabled() const { return type != A("None"); }

StampPosition::StampPosition() : xAlign(A("Center")), yAlign(A("Center")) {}

StampSettings::StampSettings() : rangeType(A("all")) {}

PageScalerSettings::PageScalerSettings() : pageScaling(A("Fit")), pagePosition(A("Center")) {}

PageBoxSettings::PageBoxSettings() : moveContentsTo(A("CropBox")), resetFrom(A("MediaBox")), resetTo(A("CropBox")) {}

bool PageBoxSettings::Enabled() const {
    return art.IsSet() || bleed.IsSet() || crop.IsSet() || trim.IsSet() || moveContents || resetPageBox;
}

bool ImageParams::Configured() const {
    for (const ImageClassParams* c : {&color, &grayscale, &mono})
        if (c->downsample || c->recompress) return true;
    return palettize || quantize || despeckle;
}

// ---------------------------------------------------------------- Impl
struct CTrimoraPreferences::Impl {
    TargetSettings target;
    OptimizeSettings optimize;
    ViewingSettings viewing;
    MetadataSettings metadata;
    SecuritySettings security;
    ImageSettings images;
    ColorSettings colors;
    LayoutSettings layout;
    StampSettings stamp;
    PageScalerSettings pageScaler;
    PageBoxSettings pageBoxes;
    FontSettings fonts;

    std::string producer;
    Log* log = nullptr;

    CRunStatistics stats;
    CosDoc statsDoc = nullptr;
    CosObj statsDict = nullptr;

    ImageParams imageParams;
    ColorParams colorParams;

    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        if (statsDoc) {
            try {
                // The dictionary is direct and in no container: the
                // document does not free it on its own.
                if (statsDict) CosObjDestroy(statsDict);
                CosDocClose(statsDoc);
            } catch (...) {
                // Closing a private document has nothing left to report to.
            }
        }
    }

    void CopySettingsFrom(const Impl& o) {
        target = o.target;
        optimize = o.optimize;
        viewing = o.viewing;
        metadata = o.metadata;
        security = o.security;
        images = o.images;
        colors = o.colors;
        layout = o.layout;
        stamp = o.stamp;
        pageScaler = o.pageScaler;
        pageBoxes = o.pageBoxes;
        fonts = o.fonts;
    }
};

CTrimoraPreferences::CTrimoraPreferences() : m_impl(std::make_shared<Impl>()) {}

CTrimoraPreferences::~CTrimoraPreferences() = default;

CTrimoraPreferences CTrimoraPreferences::Copy() const {
    CTrimoraPreferences c;
    Impl& d = *c.m_impl;
    const Impl& s = *m_impl;
    d.CopySettingsFrom(s);
    d.producer = s.producer;
    d.log = s.log;
    d.stats = s.stats;
    if (s.statsDict) {
        d.statsDoc = CosDocCreate();
        d.statsDict = CosObjCopy(s.statsDict, d.statsDoc, true);
    }
    // The derived objects point into their own settings: rebuild them.
    c.RunFinishingSteps();
    return c;
}

void CTrimoraPreferences::ResetToDefaults() {
    Impl fresh;
    m_impl->CopySettingsFrom(fresh);
    m_impl->imageParams = ImageParams();
    m_impl->colorParams = ColorParams();
}

#define TM_SECTION(Type, Getter, field)                                   \
    Type& CTrimoraPreferences::Getter() { return m_impl->field; }        \
    const Type& CTrimoraPreferences::Getter() const { return m_impl->field; }
TM_SECTION(TargetSettings, Target, target)
TM_SECTION(OptimizeSettings, Optimize, optimize)
TM_SECTION(ViewingSettings, Viewing, viewing)
TM_SECTION(MetadataSettings, Metadata, metadata)
TM_SECTION(SecuritySettings, Security, security)
TM_SECTION(ImageSettings, Images, images)
TM_SECTION(ColorSettings, Colors, colors)
TM_SECTION(LayoutSettings, Layout, layout)
TM_SECTION(StampSettings, Stamp, stamp)
TM_SECTION(PageScalerSettings, PageScaler, pageScaler)
TM_SECTION(PageBoxSettings, PageBoxes, pageBoxes)
TM_SECTION(FontSettings, Fonts, fonts)
#undef TM_SECTION

const std::string& CTrimoraPreferences::ProducerText() const { return m_impl->producer; }
void CTrimoraPreferences::SetProducerText(const std::string& text) { m_impl->producer = text; }
const char* CTrimoraPreferences::ProductName() { return "Trimora"; }

Log* CTrimoraPreferences::GetLog() const { return m_impl->log; }
void CTrimoraPreferences::SetLog(Log* log) { m_impl->log = log; }

CRunStatistics& CTrimoraPreferences::Statistics() { return m_impl->stats; }

CosObj& CTrimoraPreferences::StatisticsDict() {
    if (!m_impl->statsDict) {
        if (!m_impl->statsDoc) m_impl->statsDoc = CosDocCreate();
        m_impl->statsDict = CosNewDict(m_impl->statsDoc, false, 64);
    }
    return m_impl->statsDict;
}

CosDoc CTrimoraPreferences::StatisticsDoc() {
    StatisticsDict();
    return m_impl->statsDoc;
}

// ---------------------------------------------------------------- finishing
std::string ResampleFilterNameFor(ASAtom word) {
    std::string w = ASAtomGetString(word);
    if (w == "Subsample" || w == "point") return "point";
    if (w == "Average") return "box";
    // Bicubic is served by the triangle filter.
    if (w == "Bicubic" || w == "triangle") return "triangle";
    return "";
}

ASInt32 JpegQualityFor(ASAtom word) {
    std::string w = ASAtomGetString(word);
    if (w == "Minimum") return 25;
    if (w == "Low") return 45;
    if (w == "Medium") return 65;
    if (w == "High") return 80;
    if (w == "Maximum") return 92;
    return 0;
}

namespace {
ImageClassParams DeriveClass(const ImageClassSettings& s) {
    ImageClassParams p;
    p.resampleFilter = ResampleFilterNameFor(s.downsampleUsing);
    p.downsample = !p.resampleFilter.empty() && s.resolution > 0;
    if (p.downsample) {
        p.targetPpi = s.resolution;
        // Never upsample: the threshold is at least the target.
        p.thresholdPpi = s.downsampleAbove > s.resolution ? s.downsampleAbove : s.resolution;
    } else {
        p.resampleFilter.clear();
    }
    p.filter = s.filter;
    p.recompress = s.filter != A("Original");
    p.jpegQuality = JpegQualityFor(s.jpegQuality);
    if (p.jpegQuality == 0) p.jpegQuality = 80;
    p.flateLevel = s.flateLevel;
    p.flatePrediction = s.flatePrediction;
    p.rgbToYCbCr = s.rgbToYCbCr;
    p.jbig2Lossless = s.jbig2Lossless;
    p.interpolate = s.interpolate;
    return p;
}

ColorTargetParams DeriveTarget(const ColorConversionGroup& g, const ColorSettings& cs) {
    ColorTargetParams t;
    t.convert = g.type != A("None");
    t.grayInput = g.gray.inputProfile;
    t.rgbInput = g.rgb.inputProfile;
    t.cmykInput = g.cmyk.inputProfile;
    if (!t.convert) return t;
    t.targetSpace = g.type;
    const ColorSpaceConversion* out = &g.rgb;
    if (g.type == A("Gray"))
        out = &g.gray;
    else if (g.type == A("CMYK"))
        out = &g.cmyk;
    t.outputProfile = out->outputProfile;
    // Gray has no intent of its own: it follows the RGB group's.
    t.intent = g.type == A("Gray") ? g.rgb.intent : out->intent;
    if (!cs.destinationProfile.empty() && cs.destinationSpace == g.type) t.outputProfileData = &cs.destinationProfile;
    return t;
}
}  // namespace

void CTrimoraPreferences::BuildImageParams() {
    const ImageSettings& s = m_impl->images;
    ImageParams p;
    p.color = DeriveClass(s.color);
    p.grayscale = DeriveClass(s.grayscale);
    p.mono = DeriveClass(s.mono);
    p.palettize = s.allowPalettization;
    p.quantize = s.allowQuantization;
    p.maxColors = s.maxColors;
    p.descreenMonochrome = s.descreenMonochrome;
    p.despeckle = s.despeckle;
    m_impl->imageParams = p;
}

void CTrimoraPreferences::BuildColorParams() {
    const ColorSettings& s = m_impl->colors;
    ColorParams p;
    p.content = DeriveTarget(s.content, s);
    p.images = DeriveTarget(s.rasterImages, s);
    p.simulate = !s.simulationProfile.empty();
    p.simulationProfile = s.simulationProfile;
    p.simulationIntent = s.simulationIntent;
    p.grayReduction = s.grayReduction;
    p.reduceGray = s.grayReduction != A("None");
    p.protectSpotColors = s.protectSpotColors;
    p.useEmbeddedProfiles = s.useEmbeddedProfiles;
    p.overprintAware = s.overprintAware;
    m_impl->colorParams = p;
}

void CTrimoraPreferences::RunFinishingSteps() {
    BuildImageParams();
    BuildColorParams();
}

const ImageParams& CTrimoraPreferences::Image() const { return m_impl->imageParams; }
const ColorParams& CTrimoraPreferences::Color() const { return m_impl->colorParams; }

// ---------------------------------------------------------------- overrides
void ApplyCommandLineOverrides(CTrimoraPreferences& prefs, const CommandLineSecurity& o) {
    SecuritySettings& s = prefs.Security();
    if (o.encrypt) s.encrypt = true;
    if (o.keyLength == 40 || o.keyLength == 128) s.keyLength = o.keyLength;
    if (!o.ownerPassword.empty()) {
        s.ownerPassword = o.ownerPassword;
        s.securityWord |= kSecOwnerPasswordGiven;
    }
    if (!o.userPassword.empty()) {
        s.userPassword = o.userPassword;
        s.securityWord |= kSecUserPasswordGiven;
    }
    const struct {
        bool on;
        ASUns16 bit;
    } flags[] = {{o.noPrinting, kSecNoPrinting}, {o.noEditing, kSecNoEditing}, {o.noCopy, kSecNoCopy},
                 {o.noNotes, kSecNoNotes},       {o.allowFill, kSecAllowFill}, {o.allowAccess, kSecAllowAccess},
                 {o.allowAssem, kSecAllowAssembly}, {o.allowHQPrint, kSecAllowHQPrint}};
    for (const auto& f : flags)
        if (f.on) s.securityWord |= f.bit;
}
