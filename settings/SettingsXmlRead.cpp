// Reading the XML form of a settings file into the settings.
#include <cctype>
#include <cstdlib>
#include <stdexcept>

#include "base/Log.h"
#include "settings/SettingsFile.h"
#include "settings/SettingsValues.h"

using domLite::node;
using domLite::node_ptr;
using namespace settingsvalues;
using L = SettingWordList;

namespace {

constexpr double kHuge = 1e7;  // bound for lengths and resolutions

// Reads the settings of one section; every helper leaves the setting as it
// was when the element or attribute is absent.
class XmlReader {
public:
    explicit XmlReader(Log& log) : m_log(log) {}

    // ---- element text
    void BoolText(const node_ptr& parent, const char* name, bool& out) {
        if (node_ptr c = Child(parent, name)) out = c->value() == "true";
    }
    void IntText(const node_ptr& parent, const char* name, ASInt32& out, ASInt32 lo, ASInt32 hi) {
        if (node_ptr c = Child(parent, name)) SetIntInRange(m_log, out, ToInt(c->value(), name), lo, hi, name);
    }
    void WordText(const node_ptr& parent, const char* name, ASAtom& out, L list) {
        if (node_ptr c = Child(parent, name)) SetWord(m_log, out, list, c->value(), name);
    }
    void Text(const node_ptr& parent, const char* name, std::string& out) {
        if (node_ptr c = Child(parent, name)) out = c->value();
    }
    // ---- attributes
    void BoolAttr(const node_ptr& n, const char* name, bool& out) {
        if (n && n->has_attribute(name)) out = n->attribute(name) == "true";
    }
    void IntAttr(const node_ptr& n, const char* name, ASInt32& out, ASInt32 lo, ASInt32 hi) {
        if (n && n->has_attribute(name)) SetIntInRange(m_log, out, ToInt(n->attribute(name), name), lo, hi, name);
    }
    void NumAttr(const node_ptr& n, const char* name, double& out, double lo = -kHuge, double hi = kHuge) {
        if (n && n->has_attribute(name))
            SetNumberInRange(m_log, out, ToNumber(n->attribute(name), name), lo, hi, name);
    }
    void WordAttr(const node_ptr& n, const char* name, ASAtom& out, L list) {
        if (n && n->has_attribute(name)) SetWord(m_log, out, list, n->attribute(name), name);
    }
    void TextAttr(const node_ptr& n, const char* name, std::string& out) {
        if (n && n->has_attribute(name)) out = n->attribute(name);
    }

    static node_ptr Child(const node_ptr& parent, const char* name) {
        return parent ? parent->find_child(name) : nullptr;
    }

    void Target(const node_ptr& t, TargetSettings& s) {
        TextAttr(t, "name", s.name);
        IntAttr(t, "pdfMajorVersion", s.pdfMajorVersion, 0, 2);
        IntAttr(t, "pdfMinorVersion", s.pdfMinorVersion, 0, 9);
        IntAttr(t, "precision", s.precision, 0, 10);
        WordAttr(t, "eval-units", s.evalUnits, L::EvalUnits);
    }

    // The optimize section is walked in document order: unknown children
    // are skipped and a later duplicate overrides an earlier one.
    void Optimize(const node_ptr& sec, OptimizeSettings& s) {
        struct BoolItem {
            const char* name;
            bool OptimizeSettings::*field;
        };
        static const BoolItem bools[] = {
            {"linearize", &OptimizeSettings::linearize},
            {"touch-dates", &OptimizeSettings::touchDates},
            {"dup-xobj-check", &OptimizeSettings::dupXObjCheck},
            {"remove-thumbs", &OptimizeSettings::removeThumbs},
            {"remove-extra-boxes", &OptimizeSettings::removeExtraBoxes},
            {"remove-edit-data", &OptimizeSettings::removeEditData},
            {"remove-metadata", &OptimizeSettings::removeMetadata},
            {"remove-job-ticket", &OptimizeSettings::removeJobTicket},
            {"remove-tags", &OptimizeSettings::removeTags},
            {"remove-opi", &OptimizeSettings::removeOPI},
            {"remove-alt-images", &OptimizeSettings::removeAltImages},
            {"remove-outlines", &OptimizeSettings::removeOutlines},
            {"remove-embedded-files", &OptimizeSettings::removeEmbeddedFiles},
            {"remove-ri-operators", &OptimizeSettings::removeRIOperators},
            {"remove-ocgs", &OptimizeSettings::removeOCGs},
            {"remove-transparency", &OptimizeSettings::removeTransparency},
            {"flatten-xobjects", &OptimizeSettings::flattenXObjects},
            {"dup-object-check", &OptimizeSettings::dupObjectCheck},
            {"recompress-images-lossless", &OptimizeSettings::recompressImagesLossless},
            {"keep-smaller", &OptimizeSettings::keepSmaller},
        };
        struct WordItem {
            const char* name;
            ASAtom OptimizeSettings::*field;
            L list;
        };
        static const WordItem words[] = {
            {"remove-threads", &OptimizeSettings::removeThreads, L::RemoveAction},
            {"remove-named-dests", &OptimizeSettings::removeNamedDests, L::RemoveAction},
            {"remove-page-labels", &OptimizeSettings::removePageLabels, L::PageLabelAction},
            {"annot-processing", &OptimizeSettings::annotProcessing, L::AnnotAction},
            {"acroform-processing", &OptimizeSettings::acroformProcessing, L::AnnotAction},
            {"object-streams", &OptimizeSettings::objectStreams, L::ObjectStreams},
        };
        for (const node_ptr& c : sec->children()) {
            const std::string& n = c->name();
            if (n == "flate-level") {
                SetIntInRange(m_log, s.flateLevel, ToInt(c->value(), "flate-level"), 0, 12, "flate-level");
                continue;
            }
            for (const auto& b : bools)
                if (n == b.name) s.*(b.field) = c->value() == "true";
            for (const auto& w : words)
                if (n == w.name) SetWord(m_log, s.*(w.field), w.list, c->value(), w.name);
        }
    }

    void Viewing(const node_ptr& sec, ViewingSettings& s) {
        if (node_ptr c = Child(sec, "rotate")) {
            ASInt32 r = ToInt(c->value(), "rotate");
            if (r % 90 == 0 && r >= -270 && r <= 270)
                s.rotate = r;
            else
                WarnValue(m_log, "rotate", c->value());
        }
        WordText(sec, "page-mode", s.pageMode, L::PageMode);
        WordText(sec, "page-layout", s.pageLayout, L::PageLayout);
        if (node_ptr z = Child(sec, "open-zoom")) {
            if (z->has_attribute("fit")) {
                WordAttr(z, "fit", s.openZoomFit, L::ZoomFit);
            } else if (!z->value().empty()) {
                double v = ToNumber(z->value(), "open-zoom");
                if (SetNumberInRange(m_log, s.openZoom, v, 1, 6400, "open-zoom"))
                    s.openZoomFit = ASAtomFromString("Custom");
            }
        }
        if (node_ptr t = Child(sec, "transition")) {
            WordAttr(t, "name", s.transition.name, L::TransitionStyle);
            WordAttr(t, "dimension", s.transition.dimension, L::TransitionDimension);
            WordAttr(t, "motion", s.transition.motion, L::TransitionMotion);
            IntAttr(t, "direction", s.transition.direction, 0, 360);
            IntAttr(t, "trans-duration", s.transition.transDuration, 0, 3600);
            IntAttr(t, "page-duration", s.transition.pageDuration, 0, 86400);
        }
        IntText(sec, "open-page", s.openPage, 0, 1 << 30);
        BoolText(sec, "hide-toolbar", s.hideToolbar);
        BoolText(sec, "hide-menubar", s.hideMenubar);
        BoolText(sec, "hide-window", s.hideWindow);
        BoolText(sec, "fit-window", s.fitWindow);
        BoolText(sec, "center-window", s.centerWindow);
    }

    void Metadata(const node_ptr& sec, MetadataSettings& s) {
        for (const node_ptr& c : sec->children()) s.entries[c->name()] = c->value();
    }

    void Security(const node_ptr& sec, SecuritySettings& s) {
        if (node_ptr c = Child(sec, "key-length")) {
            ASInt32 k = ToInt(c->value(), "key-length");
            if (k == 40 || k == 128)
                s.keyLength = k;
            else
                WarnValue(m_log, "key-length", c->value());
        }
        Text(sec, "owner-password", s.ownerPassword);
        Text(sec, "user-password", s.userPassword);
        if (!s.ownerPassword.empty()) s.securityWord |= kSecOwnerPasswordGiven;
        if (!s.userPassword.empty()) s.securityWord |= kSecUserPasswordGiven;
        // Giving a password is what asks for encryption in this form.
        if (!s.ownerPassword.empty() || !s.userPassword.empty()) s.encrypt = true;
        if (node_ptr p = Child(sec, "permissions")) {
            struct Perm {
                const char* name;
                ASUns16 bit;
                bool grantIsBit;  // allow bits are set by "true", disable bits by "false"
            };
            static const Perm perms[] = {
                {"printing", kSecNoPrinting, false},          {"editing", kSecNoEditing, false},
                {"copying", kSecNoCopy, false},            {"commenting", kSecNoNotes, false},
                {"form-filling", kSecAllowFill, true},        {"accessability", kSecAllowAccess, true},
                {"assembly", kSecAllowAssembly, true},        {"high-quality-printing", kSecAllowHQPrint, true},
            };
            for (const auto& pm : perms) {
                if (!p->has_attribute(pm.name)) continue;
                bool granted = p->attribute(pm.name) == "true";
                if (granted == pm.grantIsBit)
                    s.securityWord |= pm.bit;
                else
                    s.securityWord &= static_cast<ASUns16>(~pm.bit);
            }
        }
    }

    void ImageClass(const node_ptr& g, ImageClassSettings& s) {
        if (node_ptr d = Child(g, "downsample")) {
            NumAttr(d, "above", s.downsampleAbove, 1, kHuge);
            NumAttr(d, "resolution", s.resolution, 1, kHuge);
            WordAttr(d, "using", s.downsampleUsing, L::Downsample);
        }
        if (node_ptr c = Child(g, "compression")) {
            WordAttr(c, "filter", s.filter, L::ImageFilter);
            WordAttr(c, "jpeg-quality", s.jpegQuality, L::JpegQuality);
            IntAttr(c, "flate-level", s.flateLevel, 0, 9);
            BoolAttr(c, "flate-prediction", s.flatePrediction);
            BoolAttr(c, "rgb-to-ycbcr", s.rgbToYCbCr);
            BoolAttr(c, "jbig2-lossless", s.jbig2Lossless);
        }
        BoolText(g, "interpolate", s.interpolate);
    }

    void Images(const node_ptr& sec, ImageSettings& s) {
        if (node_ptr g = Child(sec, "color")) ImageClass(g, s.color);
        if (node_ptr g = Child(sec, "grayscale")) ImageClass(g, s.grayscale);
        if (node_ptr g = Child(sec, "mono")) ImageClass(g, s.mono);
        BoolText(sec, "allow-palettization", s.allowPalettization);
        if (node_ptr q = Child(sec, "allow-quantization")) {
            s.allowQuantization = q->value() == "true";
            IntAttr(q, "max-colors", s.maxColors, 2, 256);
        }
        BoolText(sec, "descreen-monochrome", s.descreenMonochrome);
        BoolText(sec, "despeckle", s.despeckle);
    }

    void Conversion(const node_ptr& n, ColorSpaceConversion& c, bool hasIntent) {
        if (!n) return;
        TextAttr(Child(n, "input"), "src", c.inputProfile);
        TextAttr(Child(n, "output"), "src", c.outputProfile);
        if (hasIntent) WordText(n, "intent", c.intent, L::Intent);
    }

    void ColorGroup(const node_ptr& g, ColorConversionGroup& s) {
        if (!g) return;
        WordAttr(g, "type", s.type, L::ColorType);
        Conversion(Child(g, "gray"), s.gray, false);
        Conversion(Child(g, "rgb"), s.rgb, true);
        Conversion(Child(g, "cmyk"), s.cmyk, true);
    }

    void Colors(const node_ptr& sec, ColorSettings& s) {
        ColorGroup(Child(sec, "content"), s.content);
        ColorGroup(Child(sec, "raster-images"), s.rasterImages);
        if (node_ptr sim = Child(sec, "simulation")) {
            TextAttr(Child(sim, "output"), "src", s.simulationProfile);
            WordText(sim, "intent", s.simulationIntent, L::Intent);
        }
        WordText(sec, "gray-reduction", s.grayReduction, L::GrayReduction);
        BoolText(sec, "protect-spot-colors", s.protectSpotColors);
        BoolText(sec, "use-embedded-profiles", s.useEmbeddedProfiles);
        BoolText(sec, "overprint-aware", s.overprintAware);
    }

    void Sheet(const node_ptr& n, SheetSize& s) {
        NumAttr(n, "height", s.height, 0, kHuge);
        NumAttr(n, "width", s.width, 0, kHuge);
    }
    void Pair(const node_ptr& n, SizePair& p, double lo, double hi) {
        NumAttr(n, "h", p.h, lo, hi);
        NumAttr(n, "v", p.v, lo, hi);
    }

    void Layout(const node_ptr& sec, LayoutSettings& s) {
        WordAttr(sec, "type", s.type, L::LayoutType);
        IntText(sec, "rows", s.rows, 1, 100);
        IntText(sec, "columns", s.columns, 1, 100);
        Sheet(Child(sec, "sheet-size"), s.sheetSize);
        Pair(Child(sec, "gutter"), s.gutter, 0, kHuge);
        if (node_ptr m = Child(sec, "margins")) {
            NumAttr(m, "top", s.margins.top, 0, kHuge);
            NumAttr(m, "left", s.margins.left, 0, kHuge);
            NumAttr(m, "bottom", s.margins.bottom, 0, kHuge);
            NumAttr(m, "right", s.margins.right, 0, kHuge);
        }
        Pair(Child(sec, "page-scale-factor"), s.pageScaleFactor, 0.001, 1000);
        WordText(sec, "page-box", s.pageBox, L::PageBox);
        WordText(sec, "page-scaling", s.pageScaling, L::PageScaling);
        BoolText(sec, "page-scaling-preserve-aspect", s.pageScalingPreserveAspect);
        WordText(sec, "page-position", s.pagePosition, L::PagePosition);
        IntText(sec, "step-and-repeat-count", s.stepAndRepeatCount, 1, 1000);
        IntText(sec, "sheets-per-saddle", s.sheetsPerSaddle, 0, 10000);
        if (node_ptr k = Child(sec, "marks")) {
            NumAttr(k, "crop-offset", s.marks.cropOffset, 0, kHuge);
            NumAttr(k, "crop-length", s.marks.cropLength, 0, kHuge);
            NumAttr(k, "crop-pen-width", s.marks.cropPenWidth, 0, kHuge);
            NumAttr(k, "frame-pen-width", s.marks.framePenWidth, 0, kHuge);
            BoolAttr(k, "crop-marks", s.marks.cropMarks);
            BoolAttr(k, "center-marks", s.marks.centerMarks);
            BoolAttr(k, "frame-page", s.marks.framePage);
        }
    }

    // A stamp axis is a placement word or a number (custom placement).
    void Axis(const node_ptr& n, const char* name, ASAtom& align, double& value, L list) {
        if (!n || !n->has_attribute(name)) return;
        std::string v = n->attribute(name);
        if (IsSettingWord(list, v)) {
            align = ASAtomFromString(v);
        } else if (SetNumberInRange(m_log, value, ToNumber(v, name), -kHuge, kHuge, name)) {
            align = ASAtomFromString("Custom");
        }
    }

    void Stamp(const node_ptr& sec, StampSettings& s) {
        BoolAttr(sec, "background", s.background);
        NumAttr(sec, "opacity", s.opacity, 0, 1);
        TextAttr(sec, "range", s.range);
        WordAttr(sec, "rangeType", s.rangeType, L::StampRangeType);
        if (node_ptr p = Child(sec, "position")) {
            Axis(p, "x", s.position.xAlign, s.position.x, L::StampX);
            Axis(p, "y", s.position.yAlign, s.position.y, L::StampY);
            NumAttr(p, "w", s.position.w, 0, kHuge);
            NumAttr(p, "h", s.position.h, 0, kHuge);
            NumAttr(p, "rotation", s.position.rotation, -360, 360);
        }
        if (node_ptr o = Child(sec, "ocg")) {
            s.makeOCG = true;
            BoolAttr(o, "view", s.ocgView);
            BoolAttr(o, "print", s.ocgPrint);
        }
        if (node_ptr d = Child(sec, "input-doc")) {
            TextAttr(d, "src", s.inputDoc);
            IntAttr(d, "page-number", s.inputPage, 1, 1 << 30);
        }
        if (node_ptr t = Child(sec, "text")) {
            s.text = t->value();
            TextAttr(t, "font", s.font);
            IntAttr(t, "font-size", s.fontSize, 1, 10000);
            IntAttr(t, "starting-page-number", s.startingPageNumber, 0, 1 << 30);
            if (t->has_attribute("text-color")) TextColor(t->attribute("text-color"), s.textColor);
        }
    }

    // "r g b" with components 0..1, or "#RRGGBB".
    void TextColor(const std::string& text, double (&rgb)[3]) {
        double c[3];
        if (text.size() == 7 && text[0] == '#') {
            for (int i = 0; i < 3; ++i) {
                // Two hex digits exactly: strtol alone would also take a sign
                // or a blank ("#-1-1-1") and give a negative component.
                const char hi = text[1 + 2 * i];
                const char lo = text[2 + 2 * i];
                if (!std::isxdigit(static_cast<unsigned char>(hi)) || !std::isxdigit(static_cast<unsigned char>(lo))) {
                    WarnValue(m_log, "text-color", text);
                    return;
                }
                c[i] = std::strtol(text.substr(1 + 2 * i, 2).c_str(), nullptr, 16) / 255.0;
            }
        } else {
            size_t pos = 0;
            for (int i = 0; i < 3; ++i) {
                while (pos < text.size() && text[pos] == ' ') ++pos;
                size_t end = text.find(' ', pos);
                std::string part = text.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
                c[i] = ToNumber(part, "text-color");
                if (c[i] < 0 || c[i] > 1) {
                    WarnValue(m_log, "text-color", text);
                    return;
                }
                pos = end == std::string::npos ? text.size() : end;
            }
        }
        for (int i = 0; i < 3; ++i) rgb[i] = c[i];
    }

    void PageScaler(const node_ptr& sec, PageScalerSettings& s) {
        Sheet(Child(sec, "sheet-size"), s.sheetSize);
        Pair(Child(sec, "sheet-size-scale-factor"), s.sheetSizeScaleFactor, 0.001, 1000);
        Pair(Child(sec, "page-scale-factor"), s.pageScaleFactor, 0.001, 1000);
        WordText(sec, "page-scaling", s.pageScaling, L::PageScaling);
        BoolText(sec, "page-scaling-preserve-aspect", s.pageScalingPreserveAspect);
        WordText(sec, "page-position", s.pagePosition, L::PagePosition);
        if (node_ptr c = Child(sec, "page-rotation")) {
            ASInt32 r = ToInt(c->value(), "page-rotation");
            if (r % 90 == 0 && r >= -270 && r <= 270)
                s.pageRotation = r;
            else
                WarnValue(m_log, "page-rotation", c->value());
        }
    }

    void Box(const node_ptr& n, BoxRect& b) {
        NumAttr(n, "left", b.left);
        NumAttr(n, "bottom", b.bottom);
        NumAttr(n, "width", b.width, 0, kHuge);
        NumAttr(n, "height", b.height, 0, kHuge);
    }

    void PageBoxes(const node_ptr& sec, PageBoxSettings& s) {
        Box(Child(sec, "art"), s.art);
        Box(Child(sec, "bleed"), s.bleed);
        Box(Child(sec, "crop"), s.crop);
        Box(Child(sec, "trim"), s.trim);
        if (node_ptr m = Child(sec, "move-contents")) {
            s.moveContents = m->value() == "true";
            WordAttr(m, "to", s.moveContentsTo, L::PageBox);
        }
        if (node_ptr r = Child(sec, "reset-pagebox")) {
            s.resetPageBox = r->value() == "true";
            WordAttr(r, "from", s.resetFrom, L::PageBox);
            WordAttr(r, "to", s.resetTo, L::PageBox);
        }
    }

    void Fonts(const node_ptr& sec, FontSettings& s) {
        BoolText(sec, "embed", s.embed);
        BoolText(sec, "subset", s.subset);
        BoolText(sec, "outline", s.outline);
    }

private:
    Log& m_log;
};

}  // namespace

void ApplyXmlSettings(CTrimoraPreferences& prefs, const domLite::document& doc, Log& log) {
    node_ptr root = doc.root();
    if (!root || root->name() != "trimora") throw std::runtime_error("the document element is not 'trimora'");
    if (root->children().empty() || root->children().front()->name() != "target")
        throw std::runtime_error("the first element inside 'trimora' is not 'target'");
    node_ptr t = root->children().front();
    XmlReader r(log);
    r.Target(t, prefs.Target());
    if (node_ptr s = t->find_child("optimize")) r.Optimize(s, prefs.Optimize());
    if (node_ptr s = t->find_child("viewing")) r.Viewing(s, prefs.Viewing());
    if (node_ptr s = t->find_child("metadata")) r.Metadata(s, prefs.Metadata());
    if (node_ptr s = t->find_child("security")) r.Security(s, prefs.Security());
    if (node_ptr s = t->find_child("images")) r.Images(s, prefs.Images());
    if (node_ptr s = t->find_child("colors")) r.Colors(s, prefs.Colors());
    if (node_ptr s = t->find_child("layout")) r.Layout(s, prefs.Layout());
    if (node_ptr s = t->find_child("stamp")) r.Stamp(s, prefs.Stamp());
    if (node_ptr s = t->find_child("page-scaler")) r.PageScaler(s, prefs.PageScaler());
    if (node_ptr s = t->find_child("page-boxes")) r.PageBoxes(s, prefs.PageBoxes());
    if (node_ptr s = t->find_child("fonts")) r.Fonts(s, prefs.Fonts());
}

bool ReadXmlSettings(CTrimoraPreferences& prefs, const std::string& path, Log& log) {
    log.Info("Reading settings from '%s'... \n", path.c_str());
    try {
        domLite::parser p;
        domLite::document doc = p.parse_file(path);
        ApplyXmlSettings(prefs, doc, log);
    } catch (const std::exception& e) {
        log.Error("An error ('%s') occured while reading the preferences\n", e.what());
        return false;
    } catch (...) {
        log.Error("An error ('%s') occured while reading the preferences\n", "unknown error");
        return false;
    }
    log.Info("Initializing Settings...\n");
    prefs.RunFinishingSteps();
    return true;
}
