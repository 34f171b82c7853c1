// libFuzzer target for the reduction of one image.  The first eight bytes
// pick the image's size, depth, colour space, filter, soft mask and the
// reduction asked for; the rest is the image's stream data.  Any outcome
// but a crash, a hang or unbounded memory is fine: bad images must end in
// a Bad or LeftAlone result.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "images/ImageReduce.h"
#include "pdfcore/CosDoc.h"

using namespace images;

namespace {
ASAtom A(const char* s) { return ASAtomFromString(s); }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const uint8_t* h = data;
    std::span<const uint8_t> body(data + 8, size - 8);
    static const char* spaces[] = {"DeviceGray", "DeviceRGB", "DeviceCMYK", "Lab", "Foo", "Indexed"};
    static const char* filterNames[] = {nullptr, "FlateDecode", "DCTDecode", "RunLengthDecode", "LZWDecode"};
    static const int depths[] = {1, 2, 4, 8, 16, 8, 8, 3};
    CosDoc doc = CosDocCreate();
    try {
        CosObj d = CosNewDict(doc, false);
        CosDictPutName(d, A("Subtype"), false, A("Image"));
        CosDictPutInteger(d, A("Width"), 1 + h[0] % 200);
        CosDictPutInteger(d, A("Height"), 1 + h[1] % 200);
        CosDictPutInteger(d, A("BitsPerComponent"), depths[h[2] & 7]);
        const char* cs = spaces[(h[2] >> 3) % 6];
        if (cs == std::string_view("Indexed")) {
            CosObj arr = CosNewArray(doc, false);
            CosArrayAppend(arr, CosNewName(doc, false, A("Indexed")));
            CosArrayAppend(arr, CosNewName(doc, false, A("DeviceRGB")));
            CosArrayAppend(arr, CosNewInteger(doc, false, h[3]));
            CosArrayAppend(arr, CosNewString(doc, false, "\x10\x20\x30\x40\x50\x60", 6));
            CosDictPut(d, A("ColorSpace"), arr);
        } else {
            CosDictPutName(d, A("ColorSpace"), false, A(cs));
        }
        if (const char* f = filterNames[h[4] % 5]) CosDictPutName(d, A("Filter"), false, A(f));
        if (h[4] & 0x80) {
            CosObj key = CosNewArray(doc, false);
            for (int i = 0; i < 2 * (1 + (h[5] & 3)); ++i) CosArrayAppend(key, CosNewInteger(doc, false, h[5] * i));
            CosDictPut(d, A("Mask"), key);
        }
        CosObj image = CosNewStream(doc, d, body);
        if (h[4] & 0x40) {
            CosObj md = CosNewDict(doc, false);
            CosDictPutName(md, A("Subtype"), false, A("Image"));
            CosDictPutInteger(md, A("Width"), (h[5] & 1) ? 1 + h[0] % 200 : 7);
            CosDictPutInteger(md, A("Height"), 1 + h[1] % 200);
            CosDictPutInteger(md, A("BitsPerComponent"), 8);
            CosDictPutName(md, A("ColorSpace"), false, A("DeviceGray"));
            CosDictPut(image, A("SMask"), CosNewStream(doc, md, body.subspan(0, body.size() / 2)));
        }
        ReductionParams p;
        static const char* resamplers[] = {"point", "box", "triangle", "lanczos"};
        p.downsample = true;
        p.resampleFilter = resamplers[h[6] & 3];
        p.thresholdPpi = 100;
        p.targetPpi = 72;
        p.compression = ImageCompression((h[6] >> 2) % 5);
        p.jpegQuality = 1 + h[7] % 100;
        p.flatePrediction = h[6] & 0x80;
        ReduceImage(image, 72 + h[7], 72 + h[3], p);
    } catch (const CVellumError&) {
        // Building the fixture, or an encoder refusing its input, may raise;
        // the image step catches that per image.
    }
    CosDocClose(doc);
    return 0;
}
