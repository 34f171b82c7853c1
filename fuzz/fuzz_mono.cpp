// libFuzzer target for the reduction of one bilevel image.  The first
// eight bytes pick the image's size, kind (mask, gray, palette, colorant),
// filter and its parameters, and the reduction asked for; the rest is the
// image's stream data.  Any outcome but a crash, a hang or unbounded
// memory is fine, except one: a JBIG2 page coded losslessly (symbol coded
// on its own, and again with a dictionary shared with a copy of itself)
// must decode to the very bitmap it was made from.
#include <cstddef>
#include <cstdint>
#include <span>

#include "filters/Filters.h"
#include "images/MonoReduce.h"
#include "jbig2/DocumentCoder.h"
#include "jbig2/Segments.h"
#include "pdfcore/CosDoc.h"

using namespace images;

namespace {
ASAtom A(const char* s) { return ASAtomFromString(s); }

// The decoded stream (PDF samples: 0 is black) against the JBIG2 bitmap.
void CheckDecodes(const std::vector<uint8_t>& stream, const std::vector<uint8_t>& globals,
                  std::span<const uint8_t> rows, int width, int height) {
    filters::FilterChain chain{{"JBIG2Decode", {}}};
    chain[0].params.jbig2Globals = globals;
    const filters::DecodeResult r = filters::DecodeChain(stream, chain, {});
    const size_t stride = (size_t(width) + 7) / 8;
    if (r.data.size() != stride * size_t(height)) __builtin_trap();
    const uint8_t last = width % 8 ? uint8_t(0xFF << (8 - width % 8)) : 0xFF;
    for (size_t i = 0; i < r.data.size(); ++i) {
        const uint8_t mask = (i + 1) % stride == 0 ? last : 0xFF;
        if ((uint8_t(~r.data[i]) ^ rows[i]) & mask) __builtin_trap();
    }
}

std::vector<uint8_t> CodeAndCheck(std::span<const uint8_t> rows, int width, int height, bool lossy) {
    const jbig2::Bitmap page{uint32_t(width), uint32_t(height), (size_t(width) + 7) / 8, rows};
    jbig2::SymbolOptions options;
    options.lossy = lossy;
    jbig2::DocumentCoder coder(options);
    uint32_t first, second;
    std::vector<uint8_t> out = coder.Add(page, first);
    coder.Add(page, second);
    std::optional<jbig2::DocumentCoder::Shared> shared = coder.Share();
    if (lossy) return out;
    CheckDecodes(out, {}, rows, width, height);
    if (shared)
        for (const auto& [ticket, bytes] : shared->pages) CheckDecodes(bytes, shared->globals, rows, width, height);
    return out;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const uint8_t* h = data;
    std::span<const uint8_t> body(data + 8, size - 8);
    static const char* filterNames[] = {nullptr, "FlateDecode", "CCITTFaxDecode", "JBIG2Decode", "RunLengthDecode",
                                        "LZWDecode", "CCITTFaxDecode", "JBIG2Decode"};
    CosDoc doc = CosDocCreate();
    try {
        const int w = 1 + h[0] % 300, ht = 1 + h[1] % 300;
        CosObj d = CosNewDict(doc, false);
        CosDictPutName(d, A("Subtype"), false, A("Image"));
        CosDictPutInteger(d, A("Width"), w);
        CosDictPutInteger(d, A("Height"), ht);
        switch (h[2] & 3) {
        case 0: CosDictPut(d, A("ImageMask"), CosNewBoolean(doc, false, true)); break;
        case 1: CosDictPutName(d, A("ColorSpace"), false, A("DeviceGray")); break;
        case 2: {
            CosObj arr = CosNewArray(doc, false);
            CosArrayAppend(arr, CosNewName(doc, false, A("Indexed")));
            CosArrayAppend(arr, CosNewName(doc, false, A("DeviceRGB")));
            CosArrayAppend(arr, CosNewInteger(doc, false, h[3] & 3));
            CosArrayAppend(arr, CosNewString(doc, false, "\x10\x20\x30\xF0", 4));
            CosDictPut(d, A("ColorSpace"), arr);
            break;
        }
        default: {
            CosObj arr = CosNewArray(doc, false);
            CosArrayAppend(arr, CosNewName(doc, false, A("Separation")));
            CosArrayAppend(arr, CosNewName(doc, false, A("Spot")));
            CosArrayAppend(arr, CosNewName(doc, false, A("DeviceCMYK")));
            CosArrayAppend(arr, CosNewNull());
            CosDictPut(d, A("ColorSpace"), arr);
            break;
        }
        }
        if (h[2] & 4) CosDictPutInteger(d, A("BitsPerComponent"), 1);
        if (h[2] & 8) {
            CosObj dec = CosNewArray(doc, false);
            CosArrayAppend(dec, CosNewInteger(doc, false, 1));
            CosArrayAppend(dec, CosNewInteger(doc, false, 0));
            CosDictPut(d, A("Decode"), dec);
        }
        const char* filter = filterNames[h[4] & 7];
        if (filter) CosDictPutName(d, A("Filter"), false, A(filter));
        if (filter && filter[0] == 'C') {
            CosObj parms = CosNewDict(doc, false);
            CosDictPutInteger(parms, A("K"), int(int8_t(h[3])) % 3);
            CosDictPutInteger(parms, A("Columns"), (h[4] & 8) ? w : 1 + h[5]);
            if (h[4] & 0x10) CosDictPutInteger(parms, A("Rows"), (h[4] & 0x20) ? ht : h[5]);
            if (h[4] & 0x40) CosDictPut(parms, A("BlackIs1"), CosNewBoolean(doc, false, true));
            CosDictPut(d, A("DecodeParms"), parms);
        }
        CosObj image = CosNewStream(doc, d, body);
        MonoParams p;
        static const char* resamplers[] = {"point", "box", "triangle", "mitchell"};
        p.downsample = h[6] & 1;
        p.resampleFilter = resamplers[(h[6] >> 1) & 3];
        p.thresholdPpi = 100;
        p.targetPpi = 72;
        p.compression = MonoCompression((h[6] >> 3) % 7);
        p.despeckle = h[6] & 0x40;
        p.descreen = h[6] & 0x80;
        const bool lossy = h[5] & 0x80;
        p.jbig2 = [lossy](std::span<const uint8_t> rows, int width, int height) {
            return CodeAndCheck(rows, width, height, lossy);
        };
        ReduceMonoImage(image, 72 + h[7], 72 + h[3], p);
    } catch (const CVellumError&) {
        // Building the fixture, or an encoder refusing its input, may raise;
        // the image step catches that per image.
    }
    CosDocClose(doc);
    return 0;
}
