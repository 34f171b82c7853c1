#include "pipeline/ImageReduction.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <type_traits>

#include "base/Log.h"
#include "images/Palette.h"
#include "jbig2/DocumentCoder.h"
#include "jbig2/Segments.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

// The share of a document's progress the page work stands for when images
// are reduced; the images carry the rest.
constexpr double kPageShare = 0.4;

images::ImageCompression CompressionFor(ASAtom filter) {
    const std::string f = ASAtomGetString(filter);
    if (f == "JPEG") return images::ImageCompression::JPEG;
    if (f == "Flate") return images::ImageCompression::Flate;
    if (f == "LZW") return images::ImageCompression::LZW;
    if (f == "Packbits") return images::ImageCompression::Packbits;
    if (f == "Original" || f.empty()) return images::ImageCompression::Original;
    // CCITT and JBIG2 are for bilevel images: other images keep their own.
    return images::ImageCompression::Other;
}

jbig2::SymbolOptions SymbolOptionsFor(const ImageClassParams& mono) {
    jbig2::SymbolOptions o;
    o.lossy = !mono.jbig2Lossless;
    return o;
}

const char* ClassName(images::ImageClass c) {
    switch (c) {
    case images::ImageClass::Color: return "colour";
    case images::ImageClass::Grayscale: return "grayscale";
    default: return "bilevel";
    }
}

class ImageReduction final : public DocumentOperation {
public:
    explicit ImageReduction(ImageFinderFn finder) : m_finder(std::move(finder)) {}
    const char* Name() const override { return "image reduction"; }
    DocumentPoint Point() const override { return DocumentPoint::ImageReduction; }
    bool Enabled(const CTrimoraPreferences& prefs) const override { return prefs.Image().Configured(); }
    std::string FailureMessage() const override { return "Error while processing Image Resources"; }

    void Apply(RunContext& ctx) override {
        std::vector<images::FoundImage> found = m_finder(ctx.doc, ctx.log);
        const images::ReductionParams color = ReductionParamsFor(ctx.prefs.Image().color);
        const images::ReductionParams gray = ReductionParamsFor(ctx.prefs.Image().grayscale);
        const images::ColourReductionParams colorColours = ColourReductionParamsFor(ctx.prefs.Image(), color);
        const images::ColourReductionParams grayColours = ColourReductionParamsFor(ctx.prefs.Image(), gray);
        images::MonoParams mono = MonoParamsFor(ctx.prefs.Image());
        // JBIG2 pages are symbol coded one by one; the shapes they share
        // move to one dictionary once all are done.
        jbig2::DocumentCoder coder(SymbolOptionsFor(ctx.prefs.Image().mono));
        uint32_t ticket = UINT32_MAX;
        std::vector<CosObj> coded;  // by ticket: the image its page went into, or null
        mono.jbig2 = [&](std::span<const uint8_t> rows, int width, int height) {
            const size_t stride = (size_t(width) + 7) / 8;
            return coder.Add({uint32_t(width), uint32_t(height), stride, rows}, ticket);
        };
        ctx.stats.Increment("Images_Total", ASInt32(found.size()));
        ProgressSink& sink = ctx.log.Sink();
        size_t done = 0;
        for (const images::FoundImage& f : found) {
            const images::ReductionParams* p = f.imageClass == images::ImageClass::Color       ? &color
                                               : f.imageClass == images::ImageClass::Grayscale ? &gray
                                                                                                : nullptr;
            const images::ColourReductionParams* cr = p == &color ? &colorColours : &grayColours;
            if (p && (p->Active() || cr->Active())) {
                ctx.stats.Increment("Images_ToBeProcessed");
                ReduceWithColours(f, *p, *cr, ctx);
            } else if (f.imageClass == images::ImageClass::Mono && mono.Active()) {
                ctx.stats.Increment("Images_ToBeProcessed");
                ticket = UINT32_MAX;
                const bool replaced = ReduceOne(f, mono, ctx);
                if (replaced) ctx.stats.Increment("Images_Processed");
                if (ticket != UINT32_MAX) {
                    coded.resize(ticket + 1, CosNewNull());
                    if (replaced && CosDictGetName(f.image, ASAtomFromString("Filter")) == ASAtomFromString("JBIG2Decode"))
                        coded[ticket] = f.image;
                    else
                        coder.Drop(ticket);
                }
            }
            ++done;
            sink.Completed(kPageShare + (1.0 - kPageShare) * double(done) / double(found.size()));
        }
        if (std::count_if(coded.begin(), coded.end(), [](CosObj o) { return !CosObjIsNull(o); }) >= 2)
            ShareSymbols(coder, coded, ctx);
    }

private:
    // One JBIG2Globals stream for the symbols that several images draw.
    static void ShareSymbols(const jbig2::DocumentCoder& coder, const std::vector<CosObj>& coded, RunContext& ctx) {
        std::optional<jbig2::DocumentCoder::Shared> shared;
        try {
            shared = coder.Share();
        } catch (const std::bad_alloc&) {
            ctx.log.Warning("JBIG2 images keep their own symbols: out of memory\n");
            return;
        }
        if (!shared) return;
        const ASAtom kDecodeParms = ASAtomFromString("DecodeParms");
        const ASAtom kGlobals = ASAtomFromString("JBIG2Globals");
        CosDoc cos = PDDocGetCosDoc(ctx.doc);
        CosObj globals = CosNewStream(cos, CosNewNull(), shared->globals);
        for (const auto& [ticket, bytes] : shared->pages) {
            CosObj image = coded[ticket];  // dropped pages are not shared
            CosObj parms = CosNewDict(cos, false);
            CosDictPut(parms, kGlobals, globals);
            CosDictPut(image, kDecodeParms, parms);
            CosStreamSetEncodedData(image, bytes);
        }
        ctx.log.Debug("JBIG2 symbols shared by %zu images: %zu -> %zu bytes\n", shared->pages.size(),
                      shared->bytesBefore, shared->bytesAfter);
    }

    // Palettisation runs before the reduction, so an image with few colours
    // is kept exact instead of going to JPEG; the reduction then keeps the
    // palette unless it downsamples.  Anything the reduction replaced, and
    // anything not palettised when quantisation is on, gets the colour
    // step again on the image as it now stands.
    void ReduceWithColours(const images::FoundImage& f, const images::ReductionParams& p,
                           const images::ColourReductionParams& cr, RunContext& ctx) {
        images::ColourReductionParams exact = cr;
        exact.quantize = false;
        const images::ColourResult before = Colours(f, exact, ctx);
        bool palettized = before.outcome == images::ColourOutcome::Palettized;
        bool replaced = palettized;
        bool reduced = false;
        if (p.Active()) {
            const int bits = CosDictGetInt(f.image, ASAtomFromString("BitsPerComponent"), 0);
            const int width = CosDictGetInt(f.image, ASAtomFromString("Width"), 0);
            const int height = CosDictGetInt(f.image, ASAtomFromString("Height"), 0);
            reduced = ReduceOne(f, p, ctx);
            // A reduction that kept the size and depth kept the palette too.
            if (reduced && palettized)
                palettized = CosDictGetInt(f.image, ASAtomFromString("BitsPerComponent"), 0) == bits &&
                             CosDictGetInt(f.image, ASAtomFromString("Width"), 0) == width &&
                             CosDictGetInt(f.image, ASAtomFromString("Height"), 0) == height;
            replaced = replaced || reduced;
        }
        bool quantized = false;
        if ((reduced && !palettized && cr.palettize) || (cr.quantize && !palettized)) {
            const images::ColourResult after = Colours(f, cr, ctx);
            palettized = palettized || after.outcome == images::ColourOutcome::Palettized;
            quantized = after.outcome == images::ColourOutcome::Quantized;
            replaced = replaced || palettized || quantized;
        }
        if (replaced) ctx.stats.Increment("Images_Processed");
        if (palettized) ctx.stats.Increment("Images_Palettized");
        if (quantized) ctx.stats.Increment("Images_Quantized");
    }

    images::ColourResult Colours(const images::FoundImage& f, const images::ColourReductionParams& cr,
                                 RunContext& ctx) {
        images::ColourResult r;
        if (!cr.Active()) return r;
        const int id = CosObjGetID(f.image);
        try {
            r = images::ReduceColours(f.image, cr);
        } catch (const CVellumError& e) {
            ctx.log.Warning("Image %d 0 R left as it was: %s\n", id, ASGetErrorString(e.GetErrorCode()));
            return {};
        } catch (const std::bad_alloc&) {
            ctx.log.Warning("Image %d 0 R left as it was: out of memory\n", id);
            return {};
        }
        switch (r.outcome) {
        case images::ColourOutcome::Palettized:
        case images::ColourOutcome::Quantized:
            if (r.psnr > 0)
                ctx.log.Debug("Image %d 0 R quantised: %d colours at %d bits, %zu -> %zu bytes, %.1f dB\n", id,
                              r.colours, r.bits, r.bytesBefore, r.bytesAfter, r.psnr);
            else
                ctx.log.Debug("Image %d 0 R %s: %d colours at %d bits, %zu -> %zu bytes\n", id,
                              r.outcome == images::ColourOutcome::Palettized ? "palettised" : "quantised", r.colours,
                              r.bits, r.bytesBefore, r.bytesAfter);
            break;
        case images::ColourOutcome::NotSmaller:
            ctx.log.Debug("Image %d 0 R kept its colours: the result was not smaller (%zu -> %zu bytes)\n", id,
                          r.bytesBefore, r.bytesAfter);
            break;
        case images::ColourOutcome::Bad:
            ctx.log.Warning("Image %d 0 R left as it was: %s\n", id, r.reason.c_str());
            break;
        default:
            if (r.psnr > 0)
                ctx.log.Debug("Image %d 0 R kept its colours: %s (%d colours, %.1f dB)\n", id, r.reason.c_str(),
                              r.colours, r.psnr);
            else if (!r.reason.empty())
                ctx.log.Debug("Image %d 0 R kept its colours: %s\n", id, r.reason.c_str());
            break;
        }
        return r;
    }

    // True when the image was replaced.
    template <typename Params>
    bool ReduceOne(const images::FoundImage& f, const Params& p, RunContext& ctx) {
        const int id = CosObjGetID(f.image);
        images::ReductionResult r;
        try {
            if constexpr (std::is_same_v<Params, images::MonoParams>)
                r = images::ReduceMonoImage(f.image, f.ppiX, f.ppiY, p);
            else
                r = images::ReduceImage(f.image, f.ppiX, f.ppiY, p);
        } catch (const CVellumError& e) {
            // One image failing never stops the others.
            ctx.log.Warning("Image %d 0 R left as it was: %s\n", id, ASGetErrorString(e.GetErrorCode()));
            return false;
        } catch (const std::bad_alloc&) {
            ctx.log.Warning("Image %d 0 R left as it was: out of memory\n", id);
            return false;
        }
        switch (r.outcome) {
        case images::ReductionOutcome::Replaced:
            ctx.log.Debug("Image %d 0 R (%s, %.0f x %.0f ppi): now %d x %d, %zu -> %zu bytes\n", id,
                          ClassName(f.imageClass), f.ppiX, f.ppiY, r.newWidth, r.newHeight, r.bytesBefore,
                          r.bytesAfter);
            break;
        case images::ReductionOutcome::NotSmaller:
            ctx.log.Debug("Image %d 0 R kept: the result was not smaller (%zu -> %zu bytes)\n", id, r.bytesBefore,
                          r.bytesAfter);
            break;
        case images::ReductionOutcome::Bad:
            ctx.log.Warning("Image %d 0 R left as it was: %s\n", id, r.reason.c_str());
            break;
        case images::ReductionOutcome::LeftAlone:
        case images::ReductionOutcome::Unchanged:
            if (!r.reason.empty()) ctx.log.Debug("Image %d 0 R left alone: %s\n", id, r.reason.c_str());
            break;
        }
        return r.outcome == images::ReductionOutcome::Replaced;
    }

    ImageFinderFn m_finder;
};

}  // namespace

images::ReductionParams ReductionParamsFor(const ImageClassParams& c) {
    images::ReductionParams p;
    p.downsample = c.downsample;
    p.resampleFilter = c.resampleFilter;
    p.thresholdPpi = c.thresholdPpi;
    p.targetPpi = c.targetPpi;
    p.compression = CompressionFor(c.filter);
    p.jpegQuality = c.jpegQuality > 0 ? c.jpegQuality : 80;
    p.flateLevel = c.flateLevel;
    p.flatePrediction = c.flatePrediction;
    p.rgbToYCbCr = c.rgbToYCbCr;
    p.interpolate = c.interpolate;
    return p;
}

images::ColourReductionParams ColourReductionParamsFor(const ImageParams& images,
                                                      const images::ReductionParams& cls) {
    images::ColourReductionParams c;
    c.palettize = images.palettize;
    c.quantize = images.quantize;
    c.maxColors = images.maxColors;
    c.compression = cls.compression;
    c.flateLevel = cls.flateLevel;
    c.flatePrediction = cls.flatePrediction;
    c.maxDecodedBytes = cls.maxDecodedBytes;
    return c;
}

images::MonoParams MonoParamsFor(const ImageParams& all) {
    const ImageClassParams& c = all.mono;
    images::MonoParams p;
    p.downsample = c.downsample;
    p.resampleFilter = c.resampleFilter;
    p.thresholdPpi = c.thresholdPpi;
    p.targetPpi = c.targetPpi;
    const std::string f = ASAtomGetString(c.filter);
    p.compression = f == "CCITTG4"    ? images::MonoCompression::CCITTG4
                    : f == "CCITTG3"  ? images::MonoCompression::CCITTG3
                    : f == "JBIG2"    ? images::MonoCompression::JBIG2
                    : f == "LZW"      ? images::MonoCompression::LZW
                    : f == "Packbits" ? images::MonoCompression::Packbits
                    // JPEG is no encoding for line art: bilevel images asked
                    // for it are stored losslessly with Flate.
                    : f == "Flate" || f == "JPEG" ? images::MonoCompression::Flate
                                                  : images::MonoCompression::Original;
    p.flateLevel = c.flateLevel;
    p.interpolate = c.interpolate;
    p.despeckle = all.despeckle;
    p.descreen = all.descreenMonochrome;
    p.jbig2 = [symbols = SymbolOptionsFor(c)](std::span<const uint8_t> rows, int width, int height) {
        const size_t stride = (size_t(width) + 7) / 8;
        return jbig2::EncodePage({uint32_t(width), uint32_t(height), stride, rows}, symbols);
    };
    return p;
}

std::unique_ptr<DocumentOperation> MakeImageReduction(ImageFinderFn finder) {
    return std::make_unique<ImageReduction>(std::move(finder));
}

}  // namespace pipeline
