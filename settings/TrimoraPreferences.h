// The settings of one optimisation run.
//
// CTrimoraPreferences is a handle: it owns a private Impl through a shared,
// reference-counted pointer, so copying the handle shares the settings and a
// change through one copy is seen through all.  Copy() makes an independent
// working copy (the job driver makes one per document).
//
// The settings are grouped in one plain struct per section of the settings
// file.  Words that select among choices are held as name atoms, so the
// pipeline compares them by atom identity (see SettingsWords.h for the
// accepted words).  Lengths are in the unit named by TargetSettings::evalUnits.
//
// After the settings are loaded, two finishing steps build derived working
// objects (per-class image parameters with the resampling filter name, and
// the colour conversion parameters); both are rebuilt from scratch each time
// RunFinishingSteps() is called.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pdfcore/CosObj.h"
#include "pdfcore/security/SecurityWord.h"

class Log;


// ---------------------------------------------------------------- sections
struct TargetSettings {
    std::string name = "Untitled Target";
    // Header version of the output; a major version of 0 keeps the input's.
    ASInt32 pdfMajorVersion = 0;
    ASInt32 pdfMinorVersion = 0;
    ASInt32 precision = 5;        // decimal places of numbers the program writes
    ASAtom evalUnits;             // Points (default), Inches, Millimeters, Centimeters
    TargetSettings();
    bool operator==(const TargetSettings&) const = default;
};

struct OptimizeSettings {
    ASInt32 flateLevel = 9;  // 0..12 (10-12: slower, smaller)
    bool linearize = false;
    bool touchDates = false;
    bool dupXObjCheck = false;
    bool removeThumbs = true;
    bool removeExtraBoxes = true;
    bool removeEditData = true;
    bool removeMetadata = true;
    bool removeJobTicket = true;
    bool removeTags = true;
    bool removeOPI = true;
    bool removeAltImages = true;
    bool removeOutlines = false;
    bool removeEmbeddedFiles = true;
    bool removeRIOperators = false;
    bool removeOCGs = true;
    ASAtom removeThreads;      // None (keep, default) or Remove
    ASAtom removeNamedDests;   // None (keep, default) or Remove
    ASAtom removePageLabels;   // None (keep, default), Remove, RemoveUnused
    bool removeTransparency = false;
    ASAtom annotProcessing;    // None (keep, default), Flatten, Remove
    ASAtom acroformProcessing; // None (keep, default), Flatten, Remove
    bool flattenXObjects = false;
    // Preserve (default: the compact form when the input used object
    // streams), Generate (always), Disable (always the classic form).
    ASAtom objectStreams;
    bool dupObjectCheck = false;            // merge byte-equal objects of every kind
    bool recompressImagesLossless = false;  // re-encode images without changing a sample
    bool keepSmaller = false;  // an output larger than its input gives way to the input's bytes
    OptimizeSettings();
    bool operator==(const OptimizeSettings&) const = default;
};

struct TransitionSettings {
    ASAtom name;          // transition style; None (default) adds no transition
    ASAtom dimension;     // H (default) or V
    ASAtom motion;        // I (default) or O
    ASInt32 direction = 0;      // degrees: 0, 90, 180, 270, 315
    ASInt32 transDuration = 1;  // seconds the transition takes
    ASInt32 pageDuration = 0;   // seconds a page is shown; 0: no automatic advance
    TransitionSettings();
    bool operator==(const TransitionSettings&) const = default;
};

// Every "None" word below means "leave the document's own setting alone".
struct ViewingSettings {
    ASInt32 rotate = 0;       // degrees added to every page; 0 leaves rotation alone
    ASAtom pageMode;          // None (default), Thumbs, Bookmarks, FullScreen
    ASAtom pageLayout;        // None (default), Single, Continuous, ContinuousFacing
    ASInt32 openPage = 0;     // 1-based page the document opens on; 0 leaves it alone
    ASAtom openZoomFit;       // None (default), FitWindow, FitWidth, FitHeight, FitPage, or
                              // Custom when the zoom is the number openZoom
    double openZoom = 0;      // zoom factor in percent, used when openZoomFit is Custom
    bool hideToolbar = false; // the viewer flags are applied only when true
    bool hideMenubar = false;
    bool hideWindow = false;
    bool fitWindow = false;
    bool centerWindow = false;
    TransitionSettings transition;
    ViewingSettings();
    bool operator==(const ViewingSettings&) const = default;
    bool OpenActionConfigured() const;  // open page or zoom asks for a change
};

// Document-information entries: key to text; an empty map changes nothing.
struct MetadataSettings {
    std::map<std::string, std::string> entries;
    bool Enabled() const { return !entries.empty(); }
    bool operator==(const MetadataSettings&) const = default;
};

struct SecuritySettings {
    bool encrypt = false;  // encrypt the output
    ASInt32 keyLength = 40;  // 40 or 128
    std::string ownerPassword;
    std::string userPassword;
    ASUns16 securityWord = 0;  // kSec* bits
    bool operator==(const SecuritySettings&) const = default;
};

struct ImageClassSettings {
    double downsampleAbove = 450;  // ppi; only images above this are downsampled
    double resolution = 300;       // ppi the downsampled images get
    ASAtom downsampleUsing;  // none (default: no downsampling), triangle, Bicubic, Average, point, Subsample
    ASAtom filter;           // Original (default), LZW, Flate, JPEG, CCITTG3, CCITTG4, Packbits, JBIG2
    ASAtom jpegQuality;      // Minimum, Low, Medium, High (default), Maximum
    ASInt32 flateLevel = 9;
    bool flatePrediction = true;
    bool rgbToYCbCr = true;
    bool jbig2Lossless = true;
    bool interpolate = false;
    ImageClassSettings();
    bool operator==(const ImageClassSettings&) const = default;
};

struct ImageSettings {
    ImageClassSettings color;
    ImageClassSettings grayscale;
    ImageClassSettings mono;
    bool allowPalettization = false;
    bool allowQuantization = false;
    ASInt32 maxColors = 256;
    bool descreenMonochrome = false;
    bool despeckle = false;
    ImageSettings();
    bool operator==(const ImageSettings&) const = default;
};

// Profiles are file paths; an empty path means "the built-in default".
struct ColorSpaceConversion {
    std::string inputProfile;
    std::string outputProfile;
    ASAtom intent;  // Perceptual (default), RelativeColorimetric, Saturation, AbsoluteColorimetric
    ColorSpaceConversion();
    bool operator==(const ColorSpaceConversion&) const = default;
};

struct ColorConversionGroup {
    ASAtom type;  // None (default: no conversion), Gray, RGB, CMYK
    ColorSpaceConversion gray;  // intent unused for gray
    ColorSpaceConversion rgb;
    ColorSpaceConversion cmyk;
    ColorConversionGroup();
    bool operator==(const ColorConversionGroup&) const = default;
};

struct ColorSettings {
    ColorConversionGroup content;
    ColorConversionGroup rasterImages;
    std::string simulationProfile;
    ASAtom simulationIntent;  // intent words as above
    ASAtom grayReduction;     // None (default), DeviceGray, CalGray
    bool protectSpotColors = true;
    bool useEmbeddedProfiles = true;
    bool overprintAware = true;
    // A profile the run found in the document's output intent; replaces the
    // output profile of its colour space when the finishing steps run.  Not
    // read from or written to settings files.
    std::vector<uint8_t> destinationProfile;
    ASAtom destinationSpace = ASAtomNull;  // Gray, RGB or CMYK
    ColorSettings();
    bool operator==(const ColorSettings&) const = default;
};

struct SizePair {  // width/height or horizontal/vertical
    double h = 0;
    double v = 0;
    bool operator==(const SizePair&) const = default;
};

struct SheetSize {
    double width = 612;
    double height = 792;
    bool operator==(const SheetSize&) const = default;
};

struct Margins {
    double top = 0, left = 0, bottom = 0, right = 0;
    bool operator==(const Margins&) const = default;
};

struct MarksSettings {
    double cropOffset = 9;
    double cropLength = 18;
    double cropPenWidth = 0.5;
    double framePenWidth = 0.5;
    bool cropMarks = false;
    bool centerMarks = false;
    bool framePage = false;
    bool operator==(const MarksSettings&) const = default;
};

struct LayoutSettings {
    ASAtom type;  // None (default: no imposition), NUp, Booklet, StepAndRepeat
    ASInt32 rows = 1;
    ASInt32 columns = 1;
    SheetSize sheetSize;
    SizePair gutter;
    Margins margins;
    SizePair pageScaleFactor{1, 1};
    ASAtom pageBox;      // MediaBox, CropBox (default), BleedBox, TrimBox, ArtBox
    ASAtom pageScaling;  // None, Fit (default), Shrink, Scale
    bool pageScalingPreserveAspect = true;
    ASAtom pagePosition;  // Center (default), Top, Bottom, Left, Right, TopLeft, TopRight, BottomLeft, BottomRight
    ASInt32 stepAndRepeatCount = 1;
    ASInt32 sheetsPerSaddle = 0;  // 0: all sheets in one signature
    MarksSettings marks;
    LayoutSettings();
    bool Enabled() const;
    bool operator==(const LayoutSettings&) const = default;
};

struct StampPosition {
    ASAtom xAlign;  // Left, Right, Center (default), Fit, or Custom when x is a number
    ASAtom yAlign;  // Bottom, Top, Center (default), Fit, or Custom
    double x = 0;
    double y = 0;
    double w = 0;  // 0: the stamp's own size
    double h = 0;
    double rotation = 0;
    StampPosition();
    bool operator==(const StampPosition&) const = default;
};

struct StampSettings {
    bool background = false;  // behind the page content instead of over it
    double opacity = 1.0;
    std::string range = "0-";  // page ranges, as the file list's pageRange
    ASAtom rangeType;          // all (default), even, odd
    StampPosition position;
    bool ocgView = true;
    bool ocgPrint = true;
    bool makeOCG = false;  // put the stamp in an optional-content group
    std::string inputDoc;  // stamp taken from a page of this PDF file
    ASInt32 inputPage = 1; // 1-based page of inputDoc
    std::string text;      // text stamp; empty: none
    std::string font = "Helvetica";
    ASInt32 fontSize = 24;
    ASInt32 startingPageNumber = 1;
    double textColor[3] = {0, 0, 0};  // RGB 0..1; read but never written
    StampSettings();
    bool Enabled() const { return !inputDoc.empty() || !text.empty(); }
    bool operator==(const StampSettings&) const = default;
};

struct PageScalerSettings {
    SheetSize sheetSize{0, 0};  // 0 x 0: no scaling
    SizePair sheetSizeScaleFactor{1, 1};
    SizePair pageScaleFactor{1, 1};
    ASAtom pageScaling;  // as LayoutSettings::pageScaling
    bool pageScalingPreserveAspect = true;
    ASAtom pagePosition;  // as LayoutSettings::pagePosition
    ASInt32 pageRotation = 0;
    PageScalerSettings();
    bool Enabled() const { return sheetSize.width > 0 && sheetSize.height > 0; }
    bool operator==(const PageScalerSettings&) const = default;
};

struct BoxRect {  // a box to set on every page; width or height 0: not set
    double left = 0, bottom = 0, width = 0, height = 0;
    bool IsSet() const { return width > 0 && height > 0; }
    bool operator==(const BoxRect&) const = default;
};

struct PageBoxSettings {
    BoxRect art, bleed, crop, trim;
    bool moveContents = false;
    ASAtom moveContentsTo;   // a box name; default CropBox
    bool resetPageBox = false;
    ASAtom resetFrom;        // default MediaBox
    ASAtom resetTo;          // default CropBox
    PageBoxSettings();
    bool Enabled() const;
    bool operator==(const PageBoxSettings&) const = default;
};

struct FontSettings {
    bool embed = false;
    bool subset = true;
    bool outline = false;
    bool operator==(const FontSettings&) const = default;
};

// ---------------------------------------------------------------- derived
// Built by the first finishing step from one image class.
struct ImageClassParams {
    bool downsample = false;       // downsampleUsing is not "none"/"None"
    std::string resampleFilter;    // filter name for the resampler ("" when not downsampling)
    double thresholdPpi = 0;       // downsample images above this
    double targetPpi = 0;          // to this
    bool recompress = false;       // filter is not Original
    ASAtom filter = ASAtomNull;
    ASInt32 jpegQuality = 0;       // libjpeg quality 1..100 for the quality word
    ASInt32 flateLevel = 9;
    bool flatePrediction = false;
    bool rgbToYCbCr = false;
    bool jbig2Lossless = true;
    bool interpolate = false;
    bool operator==(const ImageClassParams&) const = default;
};

struct ImageParams {
    ImageClassParams color, grayscale, mono;
    bool palettize = false;
    bool quantize = false;
    ASInt32 maxColors = 256;
    bool descreenMonochrome = false;
    bool despeckle = false;
    // Any downsampling, recompression, quantisation, palettisation or
    // despeckling asked for.
    bool Configured() const;
};

// Built by the second finishing step.
struct ColorTargetParams {
    bool convert = false;          // the group's type is not None
    ASAtom targetSpace = ASAtomNull;  // Gray, RGB or CMYK
    std::string grayInput, rgbInput, cmykInput;  // profiles to assume for sources
    std::string outputProfile;     // profile of the target space ("" built-in)
    const std::vector<uint8_t>* outputProfileData = nullptr;  // set when the document's output intent replaces it
    ASAtom intent = ASAtomNull;    // intent for the target space
};

struct ColorParams {
    ColorTargetParams content, images;
    bool simulate = false;
    std::string simulationProfile;
    ASAtom simulationIntent = ASAtomNull;
    bool reduceGray = false;
    ASAtom grayReduction = ASAtomNull;
    bool protectSpotColors = true;
    bool useEmbeddedProfiles = true;
    bool overprintAware = true;
    bool Configured() const { return content.convert || images.convert || simulate; }
};

// ---------------------------------------------------------------- statistics
// Counters and sizes of the run, filled and reset by the pipeline.  The
// counter dictionary lives in a private document owned by the settings.
struct CRunStatistics {
    ASInt32 startingSize = 0;
    ASInt32 endingSize = 0;
    double percent = 0;
    int64_t startMillis = 0;  // from the millisecond clock
    int64_t endMillis = 0;
    // keep-smaller: the job allows it (one whole PDF file in, one out),
    // and the save found the output larger and left the target alone.
    bool keepSmallerAllowed = false;
    bool keptInput = false;
};

// ---------------------------------------------------------------- the handle
class CTrimoraPreferences {
public:
    // Builds the defaults.  The statistics document is made on first use.
    CTrimoraPreferences();
    ~CTrimoraPreferences();
    CTrimoraPreferences(const CTrimoraPreferences&) = default;  // shares
    CTrimoraPreferences& operator=(const CTrimoraPreferences&) = default;

    // An independent working copy: every section, the producer text, the
    // log pointer and the derived objects; the statistics counters are
    // copied into a new private document.
    CTrimoraPreferences Copy() const;
    // Back to the defaults (the log pointer and producer text are kept).
    void ResetToDefaults();

    TargetSettings& Target();
    const TargetSettings& Target() const;
    OptimizeSettings& Optimize();
    const OptimizeSettings& Optimize() const;
    ViewingSettings& Viewing();
    const ViewingSettings& Viewing() const;
    MetadataSettings& Metadata();
    const MetadataSettings& Metadata() const;
    SecuritySettings& Security();
    const SecuritySettings& Security() const;
    ImageSettings& Images();
    const ImageSettings& Images() const;
    ColorSettings& Colors();
    const ColorSettings& Colors() const;
    LayoutSettings& Layout();
    const LayoutSettings& Layout() const;
    StampSettings& Stamp();
    const StampSettings& Stamp() const;
    PageScalerSettings& PageScaler();
    const PageScalerSettings& PageScaler() const;
    PageBoxSettings& PageBoxes();
    const PageBoxSettings& PageBoxes() const;
    FontSettings& Fonts();
    const FontSettings& Fonts() const;

    // Identification written into documents ("Trimora 2.5 (Apr 16 2004)"),
    // stored by the job driver.
    const std::string& ProducerText() const;
    void SetProducerText(const std::string& text);
    // Product name used in generated strings: "Trimora".
    static const char* ProductName();

    // The log the run writes to (not owned; may be null).
    Log* GetLog() const;
    void SetLog(Log* log);

    // Statistics of the run.  StatisticsDict() makes the private document
    // and an empty dictionary on first use; the pipeline fills and resets it.
    CRunStatistics& Statistics();
    CosObj& StatisticsDict();
    CosDoc StatisticsDoc();

    // The two finishing steps, rebuilt from scratch on every call.
    void RunFinishingSteps();
    void BuildImageParams();
    void BuildColorParams();
    const ImageParams& Image() const;        // last built image parameters
    const ColorParams& Color() const;        // last built colour parameters

    // True when both handles share one Impl.
    bool SharesWith(const CTrimoraPreferences& other) const { return m_impl == other.m_impl; }

private:
    struct Impl;
    std::shared_ptr<Impl> m_impl;
};

// ---------------------------------------------------------------- overrides
// Plain values of the command line's encryption options.
struct CommandLineSecurity {
    bool encrypt = false;
    ASInt32 keyLength = 0;      // taken only when 40 or 128
    std::string ownerPassword;  // taken when non-empty
    std::string userPassword;
    bool noPrinting = false, noEditing = false, noCopy = false, noNotes = false;
    bool allowFill = false, allowAccess = false, allowAssem = false, allowHQPrint = false;
};

// Applies the options after the settings file: they only switch things on
// (bits are OR'ed into the security word and never cleared).
void ApplyCommandLineOverrides(CTrimoraPreferences& prefs, const CommandLineSecurity& options);

// The resampling filter name for a downsampling word ("Subsample" -> "point",
// "Average" -> "box", "Bicubic" -> "triangle", "triangle", "point"); "" for
// "none"/"None" and unknown words.
std::string ResampleFilterNameFor(ASAtom downsampleUsing);
// libjpeg quality for a quality word; 0 for an unknown word.
ASInt32 JpegQualityFor(ASAtom qualityWord);
