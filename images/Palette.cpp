#include "images/Palette.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "filters/Filters.h"
#include "images/ImageEncode.h"
#include "images/ImageTraits.h"
#include "images/Quantize.h"

namespace images {
namespace {

const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");
const ASAtom K_BitsPerComponent = ASAtomFromString("BitsPerComponent");
const ASAtom K_ColorSpace = ASAtomFromString("ColorSpace");
const ASAtom K_ImageMask = ASAtomFromString("ImageMask");
const ASAtom K_Mask = ASAtomFromString("Mask");
const ASAtom K_SMask = ASAtomFromString("SMask");
const ASAtom K_Matte = ASAtomFromString("Matte");
const ASAtom K_Filter = ASAtomFromString("Filter");
const ASAtom K_DecodeParms = ASAtomFromString("DecodeParms");
const ASAtom K_Decode = ASAtomFromString("Decode");
const ASAtom K_F = ASAtomFromString("F");
const ASAtom K_ColorTransform = ASAtomFromString("ColorTransform");
const ASAtom K_Indexed = ASAtomFromString("Indexed");
const ASAtom K_FlateDecode = ASAtomFromString("FlateDecode");

constexpr int64_t kMaxSide = 1 << 20;
// Colour tables up to this many bytes are strings, larger ones streams,
// which cost about this much beyond their data (dictionary, keywords,
// cross-reference entry).
constexpr size_t kStringTable = 48;
constexpr size_t kStreamCost = 80;
// Images of this many pixels or more are probed before being quantised.
constexpr size_t kProbePixels = size_t(1) << 18;
// Largest image quantised: 64 megapixels.
constexpr size_t kMaxQuantizePixels = size_t(1) << 26;

// The image's samples as 8-bit values (1, 2 and 4-bit ones spread over
// 0..255 exactly).  `exact` tells whether 16-bit samples were all 8-bit
// values in disguise.
struct Samples {
    Raster raster;
    bool exact = true;
};

struct Failure {
    ColourOutcome outcome = ColourOutcome::Bad;
    std::string reason;
};

std::optional<Samples> DecodeImage(CosObj image, FilterFamily fam, int chain, int w, int h, int comps, int bpc,
                                   uint64_t limit, Failure* failure) {
    Samples s;
    s.raster.width = w;
    s.raster.height = h;
    s.raster.colors = comps;
    if (fam == FilterFamily::DCT) {
        std::vector<uint8_t> jpeg;
        try {
            if (chain == 1) {
                auto span = CosStreamEncodedData(image);
                jpeg.assign(span.begin(), span.end());
            } else {
                CosDecodeOptions opts;
                opts.maxOutput = limit;
                opts.keepImageCodecs = true;
                jpeg = CosStreamDecodedData(image, opts);
            }
            filters::FilterParams fp;
            CosObj dp = CosDictGet(image, K_DecodeParms);
            if (CosObjGetType(dp) == kCosArray) dp = CosArrayGet(dp, CosArrayLength(dp) - 1);
            if (CosObjGetType(dp) == kCosDict && CosDictKnown(dp, K_ColorTransform))
                fp.values["ColorTransform"] = CosDictGetInt(dp, K_ColorTransform, 1);
            filters::DecodeOptions fo;
            fo.strict = true;
            fo.maxOutput = limit;
            filters::DCTImage img = filters::DecodeDCT(jpeg, fp, fo);
            if (img.corrupt || img.width != w || img.height != h || img.components != comps) {
                *failure = {ColourOutcome::Bad, "JPEG data does not match the image's size or colour space"};
                return std::nullopt;
            }
            s.raster.data = std::move(img.samples);
        } catch (const CVellumError&) {
            *failure = {ColourOutcome::Bad, "damaged JPEG data"};
            return std::nullopt;
        }
        return s;
    }
    const uint64_t rowBytes = (uint64_t(w) * uint64_t(comps) * uint64_t(bpc) + 7) / 8;
    std::string problem;
    const auto decoded = DecodeImageData(image, rowBytes * uint64_t(h), limit, &problem);
    if (!decoded) {
        *failure = {ColourOutcome::Bad, problem};
        return std::nullopt;
    }
    const std::vector<uint8_t>& data = *decoded;
    const size_t perRow = size_t(w) * size_t(comps);
    s.raster.data.resize(perRow * size_t(h));
    const unsigned maxv = bpc >= 8 ? 255 : (1u << bpc) - 1;
    for (int y = 0; y < h; ++y) {
        const uint8_t* in = data.data() + size_t(y) * rowBytes;
        uint8_t* out = s.raster.data.data() + size_t(y) * perRow;
        for (size_t i = 0; i < perRow; ++i) {
            if (bpc == 8) {
                out[i] = in[i];
            } else if (bpc == 16) {
                const unsigned hi = in[2 * i], lo = in[2 * i + 1];
                if (hi != lo) s.exact = false;
                out[i] = uint8_t((((hi << 8) | lo) * 255 + 32767) / 65535);
            } else {
                const size_t bit = i * size_t(bpc);
                const unsigned v = (in[bit / 8] >> (8 - bpc - bit % 8)) & maxv;
                out[i] = uint8_t(v * (255 / maxv));
            }
        }
    }
    return s;
}

// A colour key in 8-bit sample units: pairs of lowest and highest value
// per component (a pair may be empty, lo > hi).
std::optional<std::vector<int>> ReadKey(CosObj mask, int comps, int bpc, std::string* problem) {
    std::vector<int> key;
    if (CosArrayLength(mask) != 2 * comps) {
        *problem = "bad colour-key mask";
        return std::nullopt;
    }
    for (ASInt32 i = 0; i < 2 * comps; ++i) {
        CosObj v = CosArrayGet(mask, i);
        if (CosObjGetType(v) != kCosInteger) {
            *problem = "bad colour-key mask";
            return std::nullopt;
        }
        const int raw = CosIntegerValue(v);
        int k = raw;
        if (bpc == 16) {
            // Every sample is a multiple of 257 here: round the range inwards.
            k = i % 2 == 0 ? (raw + 256) / 257 : (raw < 0 ? -1 : raw / 257);
        } else if (bpc < 8) {
            k = raw * int(255 / ((1u << bpc) - 1));
        }
        key.push_back(k);
    }
    return key;
}

bool Keyed(const uint8_t* px, int comps, const std::vector<int>& key) {
    for (int c = 0; c < comps; ++c)
        if (px[c] < key[2 * size_t(c)] || px[c] > key[2 * size_t(c) + 1]) return false;
    return true;
}

// The Decode array per component: false for the plain mapping, true for
// the inverted one ([1 0]); nullopt for anything else.
std::optional<std::vector<bool>> ReadDecode(CosObj decode, int comps) {
    std::vector<bool> inverted(size_t(comps), false);
    if (CosObjIsNull(decode)) return inverted;
    if (CosObjGetType(decode) != kCosArray || CosArrayLength(decode) != 2 * comps) return std::nullopt;
    for (int c = 0; c < comps; ++c) {
        CosObj a = CosArrayGet(decode, 2 * c), b = CosArrayGet(decode, 2 * c + 1);
        auto num = [](CosObj o) -> std::optional<double> {
            if (CosObjGetType(o) == kCosInteger) return double(CosIntegerValue(o));
            if (CosObjGetType(o) == kCosFixed) return CosFixedValue(o);
            return std::nullopt;
        };
        auto x = num(a), y = num(b);
        if (!x || !y) return std::nullopt;
        if (*x == 0 && *y == 1) continue;
        if (*x == 1 && *y == 0) {
            inverted[size_t(c)] = true;
            continue;
        }
        return std::nullopt;
    }
    return inverted;
}

// The class's lossless encoding, with the PNG predictor tried as well when
// `predict` (never for indices, whose neighbours' differences mean nothing).
EncodedImage EncodeRows(std::span<const uint8_t> rows, int colors, int bits, int columns,
                        const ColourReductionParams& p, bool predict) {
    return EncodeLosslessRows(rows, colors, bits, columns, p.compression, p.flateLevel, p.flatePrediction,
                              predict ? Prediction::Both : Prediction::Never);
}

// Puts the keyed colours first so the key becomes one range of indices;
// returns how many entries are keyed.
int KeyedFirst(IndexedRaster& ir, const std::vector<int>& key) {
    const size_t c = size_t(ir.colors);
    std::vector<int> order;
    for (int i = 0; i < ir.entries; ++i)
        if (Keyed(ir.table.data() + size_t(i) * c, ir.colors, key)) order.push_back(i);
    const int keyed = int(order.size());
    for (int i = 0; i < ir.entries; ++i)
        if (!Keyed(ir.table.data() + size_t(i) * c, ir.colors, key)) order.push_back(i);
    std::vector<uint8_t> newIndex(256, 0), table(ir.table.size());
    for (int n = 0; n < ir.entries; ++n) {
        newIndex[size_t(order[size_t(n)])] = uint8_t(n);
        std::copy_n(ir.table.begin() + long(size_t(order[size_t(n)]) * c), c, table.begin() + long(size_t(n) * c));
    }
    ir.table = std::move(table);
    for (uint8_t& v : ir.indices) v = newIndex[v];
    return keyed;
}

// Replaces the Mask with `lo`..`hi` (or removes it when no sample is keyed).
void PutKey(CosObj image, bool hadKey, int lo, int hi) {
    if (!hadKey) return;
    if (lo > hi) {
        CosDictRemove(image, K_Mask);
        return;
    }
    CosDoc doc = CosObjGetDoc(image);
    CosObj mask = CosNewArray(doc, false, 2);
    CosArrayAppend(mask, CosNewInteger(doc, false, lo));
    CosArrayAppend(mask, CosNewInteger(doc, false, hi));
    CosDictPut(image, K_Mask, mask);
}

}  // namespace

int IndexBits(int entries) {
    if (entries <= 2) return 1;
    if (entries <= 4) return 2;
    if (entries <= 16) return 4;
    return 8;
}

std::optional<IndexedRaster> ExactPalette(const Raster& r, int maxEntries) {
    if (r.bits != 8 || r.alpha || r.colors < 1 || r.colors > 4 || r.data.size() < r.ByteSize()) return std::nullopt;
    maxEntries = std::clamp(maxEntries, 1, 256);
    IndexedRaster ir;
    ir.width = r.width;
    ir.height = r.height;
    ir.colors = r.colors;
    const size_t n = size_t(r.width) * size_t(r.height), c = size_t(r.colors);
    ir.indices.resize(n);
    // Open addressing on the packed colour; 1024 slots hold 257 colours
    // with short probes.
    constexpr size_t kSlots = 1024;
    std::vector<uint32_t> keys(kSlots, 0);
    std::vector<int16_t> values(kSlots, -1);
    uint32_t lastKey = 0;
    int lastIndex = -1;
    for (size_t i = 0; i < n; ++i) {
        const uint8_t* px = r.data.data() + i * c;
        uint32_t k = 0;
        for (size_t j = 0; j < c; ++j) k = (k << 8) | px[j];
        if (lastIndex >= 0 && k == lastKey) {
            ir.indices[i] = uint8_t(lastIndex);
            continue;
        }
        size_t slot = (k * 2654435761u) >> 22;
        while (values[slot] >= 0 && keys[slot] != k) slot = (slot + 1) & (kSlots - 1);
        if (values[slot] < 0) {
            if (ir.entries == maxEntries) return std::nullopt;
            keys[slot] = k;
            values[slot] = int16_t(ir.entries++);
            ir.table.insert(ir.table.end(), px, px + c);
        }
        lastKey = k;
        lastIndex = values[slot];
        ir.indices[i] = uint8_t(lastIndex);
    }
    return ir;
}

int GridBits(const Raster& gray) {
    if (gray.bits != 8 || gray.colors != 1 || gray.alpha) return 0;
    bool seen[256] = {};
    for (uint8_t v : gray.data) seen[v] = true;
    for (int bits : {1, 2, 4}) {
        const int step = 255 / ((1 << bits) - 1);
        bool fits = true;
        for (int v = 0; v < 256 && fits; ++v)
            if (seen[v] && v % step != 0) fits = false;
        if (fits) return bits;
    }
    return 0;
}

std::vector<uint8_t> PackSamples(const std::vector<uint8_t>& values, int width, int height, int components,
                                 int bits) {
    const size_t perRow = size_t(width) * size_t(components);
    if (bits == 8) return std::vector<uint8_t>(values.begin(), values.begin() + long(perRow * size_t(height)));
    const size_t rowBytes = (perRow * size_t(bits) + 7) / 8;
    std::vector<uint8_t> out(rowBytes * size_t(height), 0);
    const unsigned maxv = (1u << bits) - 1;
    for (int y = 0; y < height; ++y) {
        const uint8_t* in = values.data() + size_t(y) * perRow;
        uint8_t* row = out.data() + size_t(y) * rowBytes;
        for (size_t i = 0; i < perRow; ++i) {
            const size_t bit = i * size_t(bits);
            row[bit / 8] |= uint8_t((in[i] & maxv) << (8 - bits - bit % 8));
        }
    }
    return out;
}

Raster ExpandIndexed(const IndexedRaster& ir) {
    Raster r;
    r.width = ir.width;
    r.height = ir.height;
    r.colors = ir.colors;
    r.data.resize(r.ByteSize());
    const size_t n = size_t(r.width) * size_t(r.height), c = size_t(r.colors);
    for (size_t i = 0; i < n; ++i) {
        const size_t e = std::min<size_t>(ir.indices[i], size_t(std::max(ir.entries - 1, 0)));
        std::copy_n(ir.table.begin() + long(e * c), c, r.data.begin() + long(i * c));
    }
    return r;
}

double Psnr(const Raster& a, const Raster& b) {
    const size_t n = std::min(a.data.size(), b.data.size());
    if (n == 0 || a.data.size() != b.data.size()) return 0;
    double sum = 0;
    for (size_t i = 0; i < n; ++i) {
        const double d = double(a.data[i]) - double(b.data[i]);
        sum += d * d;
    }
    if (sum == 0) return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(255.0 * 255.0 / (sum / double(n)));
}

ColourResult ReduceColours(CosObj image, const ColourReductionParams& p) {
    ColourResult res;
    auto stop = [&](ColourOutcome o, std::string why) {
        res.outcome = o;
        res.reason = std::move(why);
        return res;
    };
    if (!p.Active()) return res;
    if (CosObjGetType(image) != kCosStream) return stop(ColourOutcome::Bad, "not an image stream");
    if (CosDictGetBool(image, K_ImageMask, false)) return stop(ColourOutcome::Unchanged, "image mask");
    if (CosDictKnown(image, K_F)) return stop(ColourOutcome::LeftAlone, "image data in an external file");
    int chain = 0;
    const FilterFamily fam = FilterFamilyOf(image, &chain);
    if (fam == FilterFamily::JBIG2 || fam == FilterFamily::CCITT) return stop(ColourOutcome::Unchanged, "bilevel image");
    if (fam == FilterFamily::JPX) return stop(ColourOutcome::LeftAlone, "JPX image");
    if (fam == FilterFamily::Other) return stop(ColourOutcome::LeftAlone, "unknown image filter");
    const ColourSpaceInfo space = ReadColourSpace(CosDictGet(image, K_ColorSpace));
    if (space.indexed) return stop(ColourOutcome::Unchanged, "already Indexed");
    if (!space.problem.empty()) return stop(ColourOutcome::LeftAlone, space.problem);
    const int64_t w = CosDictGetInt(image, K_Width, 0);
    const int64_t h = CosDictGetInt(image, K_Height, 0);
    const int bpc = fam == FilterFamily::DCT ? 8 : CosDictGetInt(image, K_BitsPerComponent, 0);
    if (w <= 0 || h <= 0 || w > kMaxSide || h > kMaxSide) return stop(ColourOutcome::Bad, "absurd image size");
    if (bpc != 1 && bpc != 2 && bpc != 4 && bpc != 8 && bpc != 16)
        return stop(ColourOutcome::Bad, "bad BitsPerComponent");
    const int comps = space.components;
    // A one-bit gray image is as small as palettisation can make it.
    if (comps == 1 && bpc == 1) return stop(ColourOutcome::Unchanged, "one bit per pixel already");
    if (uint64_t(w) * uint64_t(h) * uint64_t(comps) > p.maxDecodedBytes)
        return stop(ColourOutcome::LeftAlone, "image too large");

    std::optional<std::vector<int>> key;
    CosObj mask = CosDictGet(image, K_Mask);
    if (CosObjGetType(mask) == kCosArray) {
        std::string problem;
        key = ReadKey(mask, comps, bpc, &problem);
        if (!key) return stop(ColourOutcome::Bad, problem);
    }
    const std::optional<std::vector<bool>> inverted = ReadDecode(CosDictGet(image, K_Decode), comps);
    const bool hasDecode = CosDictKnown(image, K_Decode);

    Failure failure;
    std::optional<Samples> samples =
        DecodeImage(image, fam, chain, int(w), int(h), comps, bpc, p.maxDecodedBytes, &failure);
    if (!samples) return stop(failure.outcome, failure.reason);
    const Raster& raster = samples->raster;
    res.bytesBefore = CosStreamEncodedLength(image);
    CosDoc doc = CosObjGetDoc(image);

    auto replace = [&](ColourOutcome outcome, const EncodedImage& e, size_t extra, int bits) -> bool {
        res.bytesAfter = e.data.size() + extra;
        res.bits = bits;
        if (res.bytesAfter >= res.bytesBefore) {
            res.outcome = ColourOutcome::NotSmaller;
            return false;
        }
        PutEncodedImage(image, e, int(w), int(h), bits);
        res.outcome = outcome;
        return true;
    };

    // A one-component image on the grid of a smaller depth: the same
    // space and Decode, fewer bits.
    if (p.palettize && comps == 1 && samples->exact) {
        const int bits = GridBits(raster);
        if (bits > 0 && bits < bpc) {
            const int step = 255 / ((1 << bits) - 1);
            std::vector<uint8_t> levels(raster.data.size());
            for (size_t i = 0; i < levels.size(); ++i) levels[i] = uint8_t(raster.data[i] / step);
            const std::vector<uint8_t> rows = PackSamples(levels, int(w), int(h), 1, bits);
            const EncodedImage e = EncodeRows(rows, 1, bits, int(w), p, true);
            res.colours = 1 << bits;
            if (replace(ColourOutcome::Palettized, e, 0, bits)) {
                if (key) {
                    const int maxv = (1 << bits) - 1;
                    const int lo = std::max(0, ((*key)[0] + step - 1) / step);
                    const int hi = (*key)[1] < 0 ? -1 : std::min(maxv, (*key)[1] / step);
                    PutKey(image, true, lo, hi);
                }
            }
            return res;
        }
    }

    // Colour tables: the table's bytes are the colours themselves, so the
    // Decode array is folded into them.
    if (hasDecode && (!inverted || !space.unitRanges))
        return stop(ColourOutcome::LeftAlone, "Decode array that a colour table cannot hold");
    // A soft mask's Matte colour has one value per component of its image's
    // colour space, which an Indexed space would change.
    CosObj smask = CosDictGet(image, K_SMask);
    if (CosObjGetType(smask) == kCosStream && CosDictKnown(smask, K_Matte))
        return stop(ColourOutcome::LeftAlone, "soft mask with a Matte colour");

    // Below this many bits per pixel a table does not pay.
    const int bitsPerPixel = comps * bpc;
    const int tableLimit = comps == 1 ? 16 : 256;
    std::optional<IndexedRaster> indexed;
    ColourOutcome outcome = ColourOutcome::Palettized;
    if (samples->exact && (p.palettize || p.quantize)) {
        const int limit = p.palettize ? tableLimit : std::min(tableLimit, std::clamp(p.maxColors, 2, 256));
        indexed = ExactPalette(raster, limit);
        if (indexed && !p.palettize) outcome = ColourOutcome::Quantized;
    }
    if (!indexed && p.quantize) {
        if (!space.rgbLike) return stop(ColourOutcome::Unchanged, "too many colours; only RGB images are quantised");
        if (key) return stop(ColourOutcome::LeftAlone, "colour-keyed images are not quantised");
        if (hasDecode) return stop(ColourOutcome::LeftAlone, "images with a Decode array are not quantised");
        // The quantiser holds several copies of the image at once.
        if (size_t(w) * size_t(h) > kMaxQuantizePixels)
            return stop(ColourOutcome::LeftAlone, "image too large to quantise");
        std::string why;
        if (size_t(w) * size_t(h) >= kProbePixels) {
            // Quantising a large photograph costs seconds and mostly ends
            // larger than its JPEG: a probe of every fourth row and column,
            // quantised quickly, tells first.  A probe compresses worse per
            // pixel than the whole image, hence the margin.
            Raster probe;
            probe.width = int(w + 3) / 4;
            probe.height = int(h + 3) / 4;
            probe.colors = 3;
            probe.data.reserve(probe.ByteSize());
            for (int64_t y = 0; y < h; y += 4)
                for (int64_t x = 0; x < w; x += 4) {
                    const uint8_t* px = raster.data.data() + (size_t(y) * size_t(w) + size_t(x)) * 3;
                    probe.data.insert(probe.data.end(), px, px + 3);
                }
            std::optional<IndexedRaster> q = QuantizeRGB(probe, p.maxColors, &why, true);
            if (!q) return stop(ColourOutcome::LeftAlone, why);
            const EncodedImage e = EncodeRows(PackSamples(q->indices, probe.width, probe.height, 1, 8), 1, 8,
                                         probe.width, p, false);
            res.bytesAfter = e.data.size() * 16;
            if (res.bytesAfter > res.bytesBefore * 3 / 2) return stop(ColourOutcome::NotSmaller, "");
        }
        indexed = QuantizeRGB(raster, p.maxColors, &why);
        if (!indexed) return stop(ColourOutcome::LeftAlone, why);
        res.psnr = Psnr(raster, ExpandIndexed(*indexed));
        if (res.psnr < p.minPsnr) {
            res.colours = indexed->entries;
            return stop(ColourOutcome::Unchanged, "quantised image too far from the original");
        }
        outcome = ColourOutcome::Quantized;
    }
    if (!indexed) return stop(ColourOutcome::Unchanged, samples->exact ? "too many colours" : "16-bit samples");

    const int bits = IndexBits(indexed->entries);
    if (bits >= bitsPerPixel) return stop(ColourOutcome::Unchanged, "a colour table would not be smaller");
    res.colours = indexed->entries;
    if (inverted)
        for (size_t i = 0; i < indexed->table.size(); ++i)
            if ((*inverted)[i % size_t(comps)]) indexed->table[i] = uint8_t(255 - indexed->table[i]);
    int keyed = 0;
    if (key) {
        // The key holds sample values; the table now holds colours.
        std::vector<int> k = *key;
        for (int c = 0; c < comps; ++c)
            if ((*inverted)[size_t(c)]) {
                const int lo = k[2 * size_t(c)], hi = k[2 * size_t(c) + 1];
                k[2 * size_t(c)] = 255 - hi;
                k[2 * size_t(c) + 1] = 255 - lo;
            }
        keyed = KeyedFirst(*indexed, k);
    }
    const std::vector<uint8_t> rows = PackSamples(indexed->indices, int(w), int(h), 1, bits);
    const EncodedImage e = EncodeRows(rows, 1, bits, int(w), p, false);
    // A small table goes in a string; a large one in a Flate stream of its
    // own, since strings of binary bytes are written in hex.
    const bool tableStream = indexed->table.size() > kStringTable;
    filters::Bytes packedTable;
    if (tableStream) packedTable = filters::FlateEncode(indexed->table, 9);
    const bool packTable = tableStream && packedTable.size() < indexed->table.size();
    const size_t tableCost = !tableStream ? 2 * indexed->table.size() + 2
                                          : (packTable ? packedTable.size() : indexed->table.size()) + kStreamCost;
    if (!replace(outcome, e, tableCost, bits)) return res;

    CosObj base = CosDictGet(image, K_ColorSpace);
    if (!CosObjIsIndirect(base)) base = CosObjCopy(base, doc, false);
    CosObj cs = CosNewArray(doc, false, 4);
    CosArrayAppend(cs, CosNewName(doc, false, K_Indexed));
    CosArrayAppend(cs, base);
    CosArrayAppend(cs, CosNewInteger(doc, false, indexed->entries - 1));
    if (tableStream) {
        CosObj dict = CosNewDict(doc, false);
        if (packTable) CosDictPut(dict, K_Filter, CosNewName(doc, false, K_FlateDecode));
        CosArrayAppend(cs, CosNewStream(doc, dict, packTable ? packedTable : indexed->table));
    } else {
        CosArrayAppend(cs, CosNewString(doc, false, reinterpret_cast<const char*>(indexed->table.data()),
                                        indexed->table.size()));
    }
    CosDictPut(image, K_ColorSpace, cs);
    CosDictRemove(image, K_Decode);
    PutKey(image, key.has_value(), 0, keyed - 1);
    return res;
}

}  // namespace images
