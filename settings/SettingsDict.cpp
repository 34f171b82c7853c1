// Reading the dictionary form of a settings file: one PDF dictionary parsed
// by the core's object parser in a private document.
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "base/Log.h"
#include "pdfcore/CosDoc.h"
#include "settings/SettingsFile.h"
#include "settings/SettingsValues.h"

using namespace settingsvalues;
using L = SettingWordList;

namespace {

// Largest settings file read into memory.
constexpr long kMaxDictFile = 16L << 20;

class DictReader {
public:
    explicit DictReader(Log& log) : m_log(log) {}

    static ASAtom K(const char* key) { return ASAtomFromString(key); }

    CosObj Get(CosObj dict, const char* key) { return CosDictGet(dict, K(key)); }

    // Each reader leaves the setting alone when the key is absent, and warns
    // when the value has the wrong kind.
    void Bool(CosObj d, const char* key, bool& out, bool invert = false) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return;
        if (CosObjGetType(v) != kCosBoolean) return Wrong(key, v);
        out = CosBooleanValue(v) != invert;
    }
    bool Number(CosObj d, const char* key, double& out) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return false;
        CosType t = CosObjGetType(v);
        if (t != kCosInteger && t != kCosFixed) {
            Wrong(key, v);
            return false;
        }
        out = CosFixedValue(v);
        return true;
    }
    void Int(CosObj d, const char* key, ASInt32& out, ASInt32 lo, ASInt32 hi) {
        double v;
        if (!Number(d, key, v)) return;
        // The range test comes first: casting a real beyond int64's range is
        // undefined behaviour, and files may hold any real.
        if (!(v >= lo && v <= hi) || v != std::floor(v)) {
            WarnValue(m_log, key, Text(Get(d, key)));
            return;
        }
        out = static_cast<ASInt32>(v);
    }
    void Num(CosObj d, const char* key, double& out, double lo, double hi) {
        double v;
        if (Number(d, key, v)) SetNumberInRange(m_log, out, v, lo, hi, key);
    }
    void Word(CosObj d, const char* key, ASAtom& out, L list) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return;
        if (CosObjGetType(v) != kCosName) return Wrong(key, v);
        SetWord(m_log, out, list, ASAtomGetString(CosNameValue(v)), key);
    }
    void String(CosObj d, const char* key, std::string& out) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return;
        if (CosObjGetType(v) != kCosString) return Wrong(key, v);
        out = CosStringBytes(v);
    }
    // A removal choice given either as a boolean (true: Remove) or a word.
    void Choice(CosObj d, const char* key, ASAtom& out, L list) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return;
        if (CosObjGetType(v) == kCosBoolean)
            out = K(CosBooleanValue(v) ? "Remove" : "None");
        else
            Word(d, key, out, list);
    }
    CosObj Dict(CosObj d, const char* key) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return v;
        if (CosObjGetType(v) != kCosDict) {
            Wrong(key, v);
            return CosNewNull();
        }
        return v;
    }
    // An array of exactly `n` numbers.
    bool Numbers(CosObj d, const char* key, double* out, int n) {
        CosObj v = Get(d, key);
        if (CosObjIsNull(v)) return false;
        if (CosObjGetType(v) != kCosArray || CosArrayLength(v) != n) {
            Wrong(key, v);
            return false;
        }
        double tmp[8];
        for (int i = 0; i < n; ++i) {
            CosObj e = CosArrayGet(v, i);
            CosType t = CosObjGetType(e);
            if (t != kCosInteger && t != kCosFixed) {
                Wrong(key, v);
                return false;
            }
            tmp[i] = CosFixedValue(e);
        }
        for (int i = 0; i < n; ++i) out[i] = tmp[i];
        return true;
    }

    void Wrong(const char* key, CosObj v) { WarnValue(m_log, key, Text(v)); }
    static std::string Text(CosObj v) { return CosObjToDebugString(v, 2); }

    void Apply(CosObj top, CTrimoraPreferences& p) {
        TargetSettings& tg = p.Target();
        OptimizeSettings& op = p.Optimize();
        ViewingSettings& vw = p.Viewing();
        Bool(top, "WebEnable", op.linearize);
        Bool(top, "TouchDates", op.touchDates);
        Int(top, "PDFMajorVersion", tg.pdfMajorVersion, 0, 2);
        Int(top, "PDFMinorVersion", tg.pdfMinorVersion, 0, 9);
        Int(top, "FixedPrecision", tg.precision, 0, 10);
        ASInt32 rot = vw.rotate;
        Int(top, "Rotate", rot, -270, 270);
        if (rot % 90 == 0)
            vw.rotate = rot;
        else
            WarnValue(m_log, "Rotate", std::to_string(rot));
        Int(top, "OpenPage", vw.openPage, 0, 1 << 30);
        double zoom;
        if (Number(top, "OpenZoom", zoom) && SetNumberInRange(m_log, vw.openZoom, zoom, 1, 6400, "OpenZoom"))
            vw.openZoomFit = K("Custom");
        Int(top, "FlateLevel", op.flateLevel, 0, 12);
        Word(top, "ObjectStreams", op.objectStreams, L::ObjectStreams);

        CosObj info = Dict(top, "Info");
        for (ASInt32 i = 0; !CosObjIsNull(info) && i < CosDictCount(info); ++i) {
            CosObj v = CosDictValueAt(info, i);
            std::string key = ASAtomGetString(CosDictKeyAt(info, i));
            if (CosObjGetType(v) == kCosString)
                p.Metadata().entries[key] = CosStringBytes(v);
            else if (CosObjGetType(v) == kCosName)
                p.Metadata().entries[key] = ASAtomGetString(CosNameValue(v));
            else
                Wrong(key.c_str(), v);
        }

        Security(Dict(top, "Encrypt"), p.Security());

        Word(top, "PageMode", vw.pageMode, L::PageMode);
        Word(top, "PageLayout", vw.pageLayout, L::PageLayout);
        Word(top, "OpenMode", vw.openZoomFit, L::ZoomFit);
        Bool(top, "HideToolbar", vw.hideToolbar);
        Bool(top, "HideMenubar", vw.hideMenubar);
        Bool(top, "HideWindowUI", vw.hideWindow);
        Bool(top, "CenterWindow", vw.centerWindow);

        Optimizations(Dict(top, "Optimizations"), op);
        Images(Dict(top, "Images"), p.Images());
        Watermark(Dict(top, "Watermark"), p.Stamp());
        Transition(Dict(top, "Transition"), vw.transition);
        Colors(Dict(top, "ColorConversion"), p);
        Imposition(Dict(top, "Imposition"), p.Layout());
        Boxes(Dict(top, "Boxes"), p.PageBoxes());
    }

    void Security(CosObj e, SecuritySettings& s) {
        if (CosObjIsNull(e)) return;
        s.encrypt = true;
        ASInt32 k = s.keyLength;
        Int(e, "KeyLength", k, 0, 1 << 20);
        if (k == 40 || k == 128)
            s.keyLength = k;
        else
            WarnValue(m_log, "KeyLength", std::to_string(k));
        String(e, "OwnerPassword", s.ownerPassword);
        String(e, "UserPassword", s.userPassword);
        if (!s.ownerPassword.empty()) s.securityWord |= kSecOwnerPasswordGiven;
        if (!s.userPassword.empty()) s.securityWord |= kSecUserPasswordGiven;
        const struct {
            const char* key;
            ASUns16 bit;
        } bits[] = {{"NoPrinting", kSecNoPrinting}, {"NoEditing", kSecNoEditing},     {"NoCopying", kSecNoCopy},
                    {"NoNotes", kSecNoNotes},       {"AllowFill", kSecAllowFill},     {"AllowAccess", kSecAllowAccess},
                    {"AllowAssembly", kSecAllowAssembly}, {"AllowHQPrint", kSecAllowHQPrint}};
        for (const auto& b : bits) {
            bool on = (s.securityWord & b.bit) != 0;
            Bool(e, b.key, on);
            if (on)
                s.securityWord |= b.bit;
            else
                s.securityWord &= static_cast<ASUns16>(~b.bit);
        }
    }

    void Optimizations(CosObj o, OptimizeSettings& s) {
        if (CosObjIsNull(o)) return;
        Bool(o, "NoXObjectCheck", s.dupXObjCheck, true);
        Bool(o, "LeaveThumbnails", s.removeThumbs, true);
        Bool(o, "RemoveExtraBoxes", s.removeExtraBoxes);
        Bool(o, "RemoveEditData", s.removeEditData);
        Bool(o, "RemoveMetadata", s.removeMetadata);
        Bool(o, "RemoveJobTicket", s.removeJobTicket);
        Bool(o, "RemoveTagging", s.removeTags);
        Bool(o, "RemoveOPI", s.removeOPI);
        Bool(o, "RemoveAltImages", s.removeAltImages);
        Bool(o, "RemoveOutlineTree", s.removeOutlines);
        Bool(o, "RemoveEmbeddedFiles", s.removeEmbeddedFiles);
        Bool(o, "RemoveRIOperators", s.removeRIOperators);
        Bool(o, "RemoveOCGs", s.removeOCGs);
        Bool(o, "DuplicateObjectCheck", s.dupObjectCheck);
        Bool(o, "RecompressImagesLossless", s.recompressImagesLossless);
        Bool(o, "KeepSmaller", s.keepSmaller);
        Choice(o, "RemoveAnnotations", s.annotProcessing, L::AnnotAction);
        Choice(o, "RemoveAcroForms", s.acroformProcessing, L::AnnotAction);
        Choice(o, "RemoveThreads", s.removeThreads, L::RemoveAction);
        Choice(o, "RemoveNamedDest", s.removeNamedDests, L::RemoveAction);
        Choice(o, "RemovePageLabels", s.removePageLabels, L::PageLabelAction);
    }

    void ImageClass(CosObj c, ImageClassSettings& s) {
        if (CosObjIsNull(c)) return;
        double res = s.resolution;
        double factor = s.resolution > 0 ? s.downsampleAbove / s.resolution : 1.5;
        Num(c, "Resolution", res, 1, 1e7);
        Num(c, "DownsampleThreshold", factor, 1, 100);
        s.resolution = res;
        s.downsampleAbove = res * factor;
        Word(c, "DownsampleType", s.downsampleUsing, L::Downsample);
        Word(c, "Filter", s.filter, L::ImageFilter);
        Word(c, "JPEGQuality", s.jpegQuality, L::JpegQuality);
        Bool(c, "Interpolate", s.interpolate);
        Bool(c, "FlatePredictor", s.flatePrediction);
        Bool(c, "RGB2YCBCR", s.rgbToYCbCr);
        Bool(c, "JBIG2Lossless", s.jbig2Lossless);
    }

    void Images(CosObj im, ImageSettings& s) {
        if (CosObjIsNull(im)) return;
        // Default first, so the class entries refine it.
        CosObj def = Dict(im, "Default");
        for (ImageClassSettings* c : {&s.color, &s.grayscale, &s.mono}) ImageClass(def, *c);
        ImageClass(Dict(im, "Color"), s.color);
        ImageClass(Dict(im, "Gray"), s.grayscale);
        ImageClass(Dict(im, "Mono"), s.mono);
        Bool(im, "AllowQuantization", s.allowQuantization);
        Int(im, "MaxColorsToQuantize", s.maxColors, 2, 256);
    }

    void Axis(CosObj w, const char* key, ASAtom& align, double& value, L list) {
        CosObj v = Get(w, key);
        if (CosObjIsNull(v)) return;
        if (CosObjGetType(v) == kCosName) {
            Word(w, key, align, list);
        } else if (Number(w, key, value)) {
            align = K("Custom");
        }
    }

    void Watermark(CosObj w, StampSettings& s) {
        if (CosObjIsNull(w)) return;
        String(w, "FileSpec", s.inputDoc);
        Int(w, "Page", s.inputPage, 1, 1 << 30);
        Bool(w, "Background", s.background);
        Axis(w, "HPosition", s.position.xAlign, s.position.x, L::StampX);
        Axis(w, "VPosition", s.position.yAlign, s.position.y, L::StampY);
        Num(w, "Opacity", s.opacity, 0, 1);
        Num(w, "Rotation", s.position.rotation, -360, 360);
        Bool(w, "MakeOCG", s.makeOCG);
        Bool(w, "Viewable", s.ocgView);
        Bool(w, "Printable", s.ocgPrint);
    }

    void Transition(CosObj t, TransitionSettings& s) {
        if (CosObjIsNull(t)) return;
        Word(t, "S", s.name, L::TransitionStyle);
        Int(t, "D", s.transDuration, 0, 3600);
        Word(t, "Dm", s.dimension, L::TransitionDimension);
        Word(t, "M", s.motion, L::TransitionMotion);
        Int(t, "Di", s.direction, 0, 360);
        Int(t, "Dur", s.pageDuration, 0, 86400);
    }

    void Colors(CosObj c, CTrimoraPreferences& p) {
        if (CosObjIsNull(c)) return;
        ColorSettings& s = p.Colors();
        Word(c, "Operation", s.rasterImages.type, L::ColorType);
        bool content = false;
        Bool(c, "Content", content);
        String(c, "GrayInputProfile", s.rasterImages.gray.inputProfile);
        String(c, "RGBInputProfile", s.rasterImages.rgb.inputProfile);
        String(c, "CMYKInputProfile", s.rasterImages.cmyk.inputProfile);
        String(c, "GrayOutputProfile", s.rasterImages.gray.outputProfile);
        String(c, "RGBOutputProfile", s.rasterImages.rgb.outputProfile);
        Word(c, "RGBOutputIntent", s.rasterImages.rgb.intent, L::Intent);
        String(c, "CMYKOutputProfile", s.rasterImages.cmyk.outputProfile);
        Word(c, "CMYKOutputIntent", s.rasterImages.cmyk.intent, L::Intent);
        String(c, "SimOutputProfile", s.simulationProfile);
        Word(c, "SimOutputIntent", s.simulationIntent, L::Intent);
        Bool(c, "ProtectSpot", s.protectSpotColors);
        Bool(c, "UseEmbeddedProfiles", s.useEmbeddedProfiles);
        Word(c, "GrayReductionColorSpace", s.grayReduction, L::GrayReduction);
        Bool(c, "AllowPalettization", p.Images().allowPalettization);
        // Content conversion follows the image conversion when asked for.
        if (content) s.content = s.rasterImages;
        LoadProfiles(s);
    }

    void LoadProfiles(const ColorSettings& s) {
        const ColorConversionGroup& g = s.rasterImages;
        const std::string* paths[] = {&g.gray.inputProfile, &g.rgb.inputProfile,  &g.cmyk.inputProfile,
                                      &g.gray.outputProfile, &g.rgb.outputProfile, &g.cmyk.outputProfile,
                                      &s.simulationProfile};
        bool any = false;
        for (const std::string* path : paths) any = any || !path->empty();
        if (!any) return;
        m_log.Info("Loading Color Profiles...\n");
        for (const std::string* path : paths) {
            if (path->empty()) continue;
            if (FILE* f = std::fopen(path->c_str(), "rb"))
                std::fclose(f);
            else
                m_log.Warning("Warning: cannot open colour profile '%s'\n", path->c_str());
        }
    }

    void Imposition(CosObj im, LayoutSettings& s) {
        if (CosObjIsNull(im)) return;
        Word(im, "Type", s.type, L::LayoutType);
        Int(im, "Rows", s.rows, 1, 100);
        Int(im, "Columns", s.columns, 1, 100);
        Num(im, "PageHeight", s.sheetSize.height, 0, 1e7);
        Num(im, "PageWidth", s.sheetSize.width, 0, 1e7);
        double g[2];
        if (Numbers(im, "Gutters", g, 2)) s.gutter = SizePair{g[0], g[1]};
        double m[4];
        if (Numbers(im, "Margins", m, 4)) s.margins = Margins{m[0], m[1], m[2], m[3]};
        Word(im, "PageBox", s.pageBox, L::PageBox);
        Word(im, "PageScale", s.pageScaling, L::PageScaling);
        Word(im, "PagePosition", s.pagePosition, L::PagePosition);
        Bool(im, "FramePages", s.marks.framePage);
        Num(im, "FrameWidth", s.marks.framePenWidth, 0, 1e7);
        Bool(im, "CropMarks", s.marks.cropMarks);
        Num(im, "CropMarkLength", s.marks.cropLength, 0, 1e7);
        Num(im, "CropMarkWidth", s.marks.cropPenWidth, 0, 1e7);
        Num(im, "CropMarkOffset", s.marks.cropOffset, 0, 1e7);
        Bool(im, "CenterMarks", s.marks.centerMarks);
        Int(im, "StepAndRepeatCount", s.stepAndRepeatCount, 1, 1000);
    }

    void Boxes(CosObj b, PageBoxSettings& s) {
        if (CosObjIsNull(b)) return;
        const struct {
            const char* key;
            BoxRect* box;
        } boxes[] = {{"CropBox", &s.crop}, {"BleedBox", &s.bleed}, {"ArtBox", &s.art}, {"TrimBox", &s.trim}};
        for (const auto& e : boxes) {
            double r[4];
            if (!Numbers(b, e.key, r, 4)) continue;
            if (r[2] < 0 || r[3] < 0) {
                WarnValue(m_log, e.key, Text(Get(b, e.key)));
                continue;
            }
            *e.box = BoxRect{r[0], r[1], r[2], r[3]};
        }
    }

private:
    Log& m_log;
};

// Closes the private document however the parse ends.
struct DocGuard {
    CosDoc doc;
    CosObj top = nullptr;  // direct, so the document does not free it
    ~DocGuard() {
        try {
            if (top) CosObjDestroy(top);
            if (doc) CosDocClose(doc);
        } catch (...) {
        }
    }
};

// Relative paths inside the file (profiles, the watermark file) are taken
// from the settings file's folder while it is applied; the previous current
// directory comes back afterwards whatever happens.
struct DirGuard {
    char saved[256] = {0};
    bool changed = false;
    explicit DirGuard(const std::string& file) {
        size_t slash = file.find_last_of('/');
        if (slash == std::string::npos) return;
        if (!getcwd(saved, sizeof saved)) return;  // longer than 255: stay where we are
        std::string dir = slash == 0 ? "/" : file.substr(0, slash);
        changed = chdir(dir.c_str()) == 0;
    }
    ~DirGuard() {
        if (changed && chdir(saved) != 0) {
            // Nothing sensible is left to do when the old folder vanished.
        }
    }
};

}  // namespace

void ApplyDictSettingsText(CTrimoraPreferences& prefs, const std::string& text, Log& log) {
    DocGuard guard{CosDocCreate()};
    CosObj top = CosParseObjectFromBuffer(guard.doc, text.data(), text.size());
    if (!CosObjIsIndirect(top)) guard.top = top;
    if (CosObjGetType(top) != kCosDict) throw std::runtime_error("the settings file does not hold a dictionary");
    DictReader(log).Apply(top, prefs);
}

bool ReadDictSettings(CTrimoraPreferences& prefs, const std::string& path, Log& log) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        log.Error("Unable to locate configuration file '%s'.\n", path.c_str());
        return false;
    }
    log.Info("Reading settings from '%s'... \n", path.c_str());
    std::string data;
    try {
        if (std::fseek(f, 0, SEEK_END) != 0) throw std::runtime_error("cannot seek in the settings file");
        long size = std::ftell(f);
        if (size < 0 || size > kMaxDictFile) throw std::runtime_error("the settings file is too large");
        std::rewind(f);
        data.resize(static_cast<size_t>(size));
        if (size > 0 && std::fread(data.data(), 1, data.size(), f) != data.size())
            throw std::runtime_error("cannot read the settings file");
        std::fclose(f);
        f = nullptr;
        DirGuard dir(path);
        ApplyDictSettingsText(prefs, data, log);
    } catch (const std::exception& e) {
        if (f) std::fclose(f);
        log.Error("An error ('%s') occured while reading the preferences\n", e.what());
        return false;
    }
    return true;
}
