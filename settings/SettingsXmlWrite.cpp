// Writing a whole target in the XML form of a settings file.
#include "base/Log.h"
#include "settings/SettingsFile.h"

using domLite::node;
using domLite::node_ptr;

namespace {

const char* W(ASAtom a) { return ASAtomGetString(a); }

node_ptr Add(const node_ptr& parent, node_ptr child) { return parent->append_child(std::move(child)); }
node_ptr AddBool(const node_ptr& p, const char* name, bool v) { return Add(p, std::make_shared<node>(name, v)); }
node_ptr AddInt(const node_ptr& p, const char* name, ASInt32 v) { return Add(p, std::make_shared<node>(name, int(v))); }
node_ptr AddText(const node_ptr& p, const char* name, const std::string& v) { return p->add_child(name, v); }
node_ptr AddWord(const node_ptr& p, const char* name, ASAtom v) { return p->add_child(name, W(v)); }

void Target(const node_ptr& t, const TargetSettings& s) {
    t->set_attribute("name", s.name);
    t->set_attribute("pdfMajorVersion", int(s.pdfMajorVersion));
    t->set_attribute("pdfMinorVersion", int(s.pdfMinorVersion));
    t->set_attribute("precision", int(s.precision));
    t->set_attribute("eval-units", W(s.evalUnits));
}

void Optimize(const node_ptr& n, const OptimizeSettings& s) {
    AddInt(n, "flate-level", s.flateLevel);
    AddBool(n, "linearize", s.linearize);
    AddBool(n, "touch-dates", s.touchDates);
    AddBool(n, "dup-xobj-check", s.dupXObjCheck);
    AddBool(n, "remove-thumbs", s.removeThumbs);
    AddBool(n, "remove-extra-boxes", s.removeExtraBoxes);
    AddBool(n, "remove-edit-data", s.removeEditData);
    AddBool(n, "remove-metadata", s.removeMetadata);
    AddBool(n, "remove-job-ticket", s.removeJobTicket);
    AddBool(n, "remove-tags", s.removeTags);
    AddBool(n, "remove-opi", s.removeOPI);
    AddBool(n, "remove-alt-images", s.removeAltImages);
    AddBool(n, "remove-outlines", s.removeOutlines);
    AddBool(n, "remove-embedded-files", s.removeEmbeddedFiles);
    AddBool(n, "remove-ri-operators", s.removeRIOperators);
    AddBool(n, "remove-ocgs", s.removeOCGs);
    AddWord(n, "remove-threads", s.removeThreads);
    AddWord(n, "remove-named-dests", s.removeNamedDests);
    AddWord(n, "remove-page-labels", s.removePageLabels);
    AddBool(n, "remove-transparency", s.removeTransparency);
    AddWord(n, "annot-processing", s.annotProcessing);
    AddWord(n, "acroform-processing", s.acroformProcessing);
    AddBool(n, "flatten-xobjects", s.flattenXObjects);
    AddWord(n, "object-streams", s.objectStreams);
    AddBool(n, "dup-object-check", s.dupObjectCheck);
    AddBool(n, "recompress-images-lossless", s.recompressImagesLossless);
    AddBool(n, "keep-smaller", s.keepSmaller);
}

void Viewing(const node_ptr& n, const ViewingSettings& s) {
    AddInt(n, "rotate", s.rotate);
    AddWord(n, "page-mode", s.pageMode);
    AddWord(n, "page-layout", s.pageLayout);
    if (s.openZoomFit == ASAtomFromString("Custom"))
        AddText(n, "open-zoom", domLite::format_number(s.openZoom));
    else
        AddText(n, "open-zoom", "")->set_attribute("fit", W(s.openZoomFit));
    node_ptr t = AddText(n, "transition", "");
    t->set_attribute("name", W(s.transition.name));
    t->set_attribute("dimension", W(s.transition.dimension));
    t->set_attribute("motion", W(s.transition.motion));
    t->set_attribute("direction", int(s.transition.direction));
    t->set_attribute("trans-duration", int(s.transition.transDuration));
    t->set_attribute("page-duration", int(s.transition.pageDuration));
    AddInt(n, "open-page", s.openPage);
    AddBool(n, "hide-toolbar", s.hideToolbar);
    AddBool(n, "hide-menubar", s.hideMenubar);
    AddBool(n, "hide-window", s.hideWindow);
    AddBool(n, "fit-window", s.fitWindow);
    AddBool(n, "center-window", s.centerWindow);
}

void Security(const node_ptr& n, const SecuritySettings& s) {
    AddInt(n, "key-length", s.keyLength);
    AddText(n, "owner-password", s.ownerPassword);
    AddText(n, "user-password", s.userPassword);
    node_ptr p = AddText(n, "permissions", "");
    const ASUns16 w = s.securityWord;
    p->set_attribute("printing", (w & kSecNoPrinting) == 0);
    p->set_attribute("editing", (w & kSecNoEditing) == 0);
    p->set_attribute("copying", (w & kSecNoCopy) == 0);
    p->set_attribute("commenting", (w & kSecNoNotes) == 0);
    p->set_attribute("form-filling", (w & kSecAllowFill) != 0);
    p->set_attribute("accessability", (w & kSecAllowAccess) != 0);
    p->set_attribute("assembly", (w & kSecAllowAssembly) != 0);
    p->set_attribute("high-quality-printing", (w & kSecAllowHQPrint) != 0);
}

void ImageClass(const node_ptr& g, const ImageClassSettings& s) {
    node_ptr d = AddText(g, "downsample", "");
    d->set_attribute("above", s.downsampleAbove);
    d->set_attribute("resolution", s.resolution);
    d->set_attribute("using", W(s.downsampleUsing));
    node_ptr c = AddText(g, "compression", "");
    c->set_attribute("filter", W(s.filter));
    c->set_attribute("jpeg-quality", W(s.jpegQuality));
    c->set_attribute("flate-level", int(s.flateLevel));
    c->set_attribute("flate-prediction", s.flatePrediction);
    c->set_attribute("rgb-to-ycbcr", s.rgbToYCbCr);
    c->set_attribute("jbig2-lossless", s.jbig2Lossless);
    AddBool(g, "interpolate", s.interpolate);
}

void Images(const node_ptr& n, const ImageSettings& s) {
    ImageClass(AddText(n, "color", ""), s.color);
    ImageClass(AddText(n, "grayscale", ""), s.grayscale);
    ImageClass(AddText(n, "mono", ""), s.mono);
    AddBool(n, "allow-palettization", s.allowPalettization);
    AddBool(n, "allow-quantization", s.allowQuantization)->set_attribute("max-colors", int(s.maxColors));
    AddBool(n, "descreen-monochrome", s.descreenMonochrome);
    AddBool(n, "despeckle", s.despeckle);
}

void Conversion(const node_ptr& n, const ColorSpaceConversion& c, bool hasIntent) {
    AddText(n, "input", "")->set_attribute("src", c.inputProfile);
    AddText(n, "output", "")->set_attribute("src", c.outputProfile);
    if (hasIntent) AddWord(n, "intent", c.intent);
}

void ColorGroup(const node_ptr& g, const ColorConversionGroup& s) {
    g->set_attribute("type", W(s.type));
    Conversion(AddText(g, "gray", ""), s.gray, false);
    Conversion(AddText(g, "rgb", ""), s.rgb, true);
    Conversion(AddText(g, "cmyk", ""), s.cmyk, true);
}

void Colors(const node_ptr& n, const ColorSettings& s) {
    ColorGroup(AddText(n, "content", ""), s.content);
    ColorGroup(AddText(n, "raster-images", ""), s.rasterImages);
    node_ptr sim = AddText(n, "simulation", "");
    AddText(sim, "output", "")->set_attribute("src", s.simulationProfile);
    AddWord(sim, "intent", s.simulationIntent);
    AddWord(n, "gray-reduction", s.grayReduction);
    AddBool(n, "protect-spot-colors", s.protectSpotColors);
    AddBool(n, "use-embedded-profiles", s.useEmbeddedProfiles);
    AddBool(n, "overprint-aware", s.overprintAware);
}

void Sheet(const node_ptr& n, const SheetSize& s) {
    n->set_attribute("height", s.height);
    n->set_attribute("width", s.width);
}
void Pair(const node_ptr& n, const SizePair& p) {
    n->set_attribute("h", p.h);
    n->set_attribute("v", p.v);
}

void Layout(const node_ptr& n, const LayoutSettings& s) {
    n->set_attribute("type", W(s.type));
    AddInt(n, "rows", s.rows);
    AddInt(n, "columns", s.columns);
    Sheet(AddText(n, "sheet-size", ""), s.sheetSize);
    Pair(AddText(n, "gutter", ""), s.gutter);
    node_ptr m = AddText(n, "margins", "");
    m->set_attribute("top", s.margins.top);
    m->set_attribute("left", s.margins.left);
    m->set_attribute("bottom", s.margins.bottom);
    m->set_attribute("right", s.margins.right);
    Pair(AddText(n, "page-scale-factor", ""), s.pageScaleFactor);
    AddWord(n, "page-box", s.pageBox);
    AddWord(n, "page-scaling", s.pageScaling);
    AddBool(n, "page-scaling-preserve-aspect", s.pageScalingPreserveAspect);
    AddWord(n, "page-position", s.pagePosition);
    AddInt(n, "step-and-repeat-count", s.stepAndRepeatCount);
    AddInt(n, "sheets-per-saddle", s.sheetsPerSaddle);
    node_ptr k = AddText(n, "marks", "");
    k->set_attribute("crop-offset", s.marks.cropOffset);
    k->set_attribute("crop-length", s.marks.cropLength);
    k->set_attribute("crop-pen-width", s.marks.cropPenWidth);
    k->set_attribute("frame-pen-width", s.marks.framePenWidth);
    k->set_attribute("crop-marks", s.marks.cropMarks);
    k->set_attribute("center-marks", s.marks.centerMarks);
    k->set_attribute("frame-page", s.marks.framePage);
}

void Stamp(const node_ptr& n, const StampSettings& s) {
    n->set_attribute("background", s.background);
    n->set_attribute("opacity", s.opacity);
    n->set_attribute("range", s.range);
    n->set_attribute("rangeType", W(s.rangeType));
    node_ptr p = AddText(n, "position", "");
    const ASAtom custom = ASAtomFromString("Custom");
    p->set_attribute("x", s.position.xAlign == custom ? domLite::format_number(s.position.x) : W(s.position.xAlign));
    p->set_attribute("y", s.position.yAlign == custom ? domLite::format_number(s.position.y) : W(s.position.yAlign));
    p->set_attribute("w", s.position.w);
    p->set_attribute("h", s.position.h);
    p->set_attribute("rotation", s.position.rotation);
    if (s.makeOCG) {
        node_ptr o = AddText(n, "ocg", "");
        o->set_attribute("view", s.ocgView);
        o->set_attribute("print", s.ocgPrint);
    }
    node_ptr d = AddText(n, "input-doc", "");
    d->set_attribute("src", s.inputDoc);
    d->set_attribute("page-number", int(s.inputPage));
    // The text colour is read but not written.
    node_ptr t = AddText(n, "text", s.text);
    t->set_attribute("font", s.font);
    t->set_attribute("font-size", int(s.fontSize));
    t->set_attribute("starting-page-number", int(s.startingPageNumber));
}

void PageScaler(const node_ptr& n, const PageScalerSettings& s) {
    Sheet(AddText(n, "sheet-size", ""), s.sheetSize);
    Pair(AddText(n, "sheet-size-scale-factor", ""), s.sheetSizeScaleFactor);
    Pair(AddText(n, "page-scale-factor", ""), s.pageScaleFactor);
    AddWord(n, "page-scaling", s.pageScaling);
    AddBool(n, "page-scaling-preserve-aspect", s.pageScalingPreserveAspect);
    AddWord(n, "page-position", s.pagePosition);
    AddInt(n, "page-rotation", s.pageRotation);
}

void Box(const node_ptr& n, const BoxRect& b) {
    n->set_attribute("left", b.left);
    n->set_attribute("bottom", b.bottom);
    n->set_attribute("width", b.width);
    n->set_attribute("height", b.height);
}

void PageBoxes(const node_ptr& n, const PageBoxSettings& s) {
    Box(AddText(n, "art", ""), s.art);
    Box(AddText(n, "bleed", ""), s.bleed);
    Box(AddText(n, "crop", ""), s.crop);
    Box(AddText(n, "trim", ""), s.trim);
    AddBool(n, "move-contents", s.moveContents)->set_attribute("to", W(s.moveContentsTo));
    node_ptr r = AddBool(n, "reset-pagebox", s.resetPageBox);
    r->set_attribute("from", W(s.resetFrom));
    r->set_attribute("to", W(s.resetTo));
}

void Fonts(const node_ptr& n, const FontSettings& s) {
    AddBool(n, "embed", s.embed);
    AddBool(n, "subset", s.subset);
    AddBool(n, "outline", s.outline);
}

}  // namespace

domLite::document BuildXmlSettings(const CTrimoraPreferences& prefs) {
    auto root = std::make_shared<node>("trimora");
    node_ptr t = root->add_child("target");
    Target(t, prefs.Target());
    Optimize(t->add_child("optimize"), prefs.Optimize());
    Viewing(t->add_child("viewing"), prefs.Viewing());
    node_ptr md = t->add_child("metadata");
    for (const auto& [k, v] : prefs.Metadata().entries) md->add_child(k, v);
    Security(t->add_child("security"), prefs.Security());
    Images(t->add_child("images"), prefs.Images());
    Colors(t->add_child("colors"), prefs.Colors());
    Layout(t->add_child("layout"), prefs.Layout());
    Stamp(t->add_child("stamp"), prefs.Stamp());
    PageScaler(t->add_child("page-scaler"), prefs.PageScaler());
    PageBoxes(t->add_child("page-boxes"), prefs.PageBoxes());
    Fonts(t->add_child("fonts"), prefs.Fonts());
    domLite::document doc(root);
    doc.set_version("1.0");
    doc.set_encoding("UTF-8");
    return doc;
}

bool WriteXmlSettings(const CTrimoraPreferences& prefs, const std::string& path, Log& log) {
    domLite::document doc;
    try {
        doc = BuildXmlSettings(prefs);
    } catch (const std::exception& e) {
        log.Error("An error ('%s') occured while creating the preferences\n", e.what());
        return false;
    }
    try {
        doc.write_file(path);
    } catch (const std::exception& e) {
        log.Error("An error ('%s') occured while writing the preferences\n", e.what());
        return false;
    }
    return true;
}
