// Helpers shared by the image tests: image XObjects built in a scratch
// document, test pictures and JPEG data.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "filters/DCTEncode.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "tests/pdfcore/test_support.h"

namespace imagetest {

using Bytes = std::vector<uint8_t>;

inline ASAtom A(const char* s) { return ASAtomFromString(s); }

// Pseudo-random bytes: incompressible, the same for the same seed.
inline Bytes Noise(size_t n, unsigned seed) {
    Bytes b(n);
    for (auto& v : b) {
        seed = seed * 1103515245u + 12345u;
        v = uint8_t(seed >> 16);
    }
    return b;
}

inline Bytes Jpeg(const Bytes& samples, int w, int h, int comps, int quality, bool app14 = false) {
    filters::DCTEncodeParams p;
    p.quality = quality;
    p.app14Marker = app14;
    return filters::EncodeDCT(samples, w, h, comps, p);
}

// A scratch document and builders for the objects images live in.
class ImageDocTest : public CosDocTest {
protected:
    // An image XObject holding `data` as stored; a null colour space is left out.
    CosObj Image(int w, int h, CosObj colourSpace, int bpc, const Bytes& data, const char* filter = nullptr) {
        CosObj d = CosNewDict(doc, false);
        CosDictPutName(d, A("Subtype"), false, A("Image"));
        CosDictPutInteger(d, A("Width"), w);
        CosDictPutInteger(d, A("Height"), h);
        CosDictPutInteger(d, A("BitsPerComponent"), bpc);
        if (!CosObjIsNull(colourSpace)) CosDictPut(d, A("ColorSpace"), colourSpace);
        if (filter) CosDictPutName(d, A("Filter"), false, A(filter));
        return CosNewStream(doc, d, data);
    }
    // The same over samples stored with Flate at `level`.
    CosObj FlateImage(int w, int h, CosObj colourSpace, int bpc, const Bytes& raw, int level = 6) {
        return Image(w, h, colourSpace, bpc, filters::FlateEncode(raw, level), "FlateDecode");
    }
    CosObj FlateImage(int w, int h, const char* colourSpace, int bpc, const Bytes& raw, int level = 6) {
        return FlateImage(w, h, Name(colourSpace), bpc, raw, level);
    }
    // `img` with `key` set to `value`.
    static CosObj With(CosObj img, const char* key, CosObj value) {
        CosDictPut(img, A(key), value);
        return img;
    }
    CosObj Name(const char* n) { return CosNewName(doc, false, A(n)); }
    CosObj Ints(std::initializer_list<int> v) {
        CosObj a = CosNewArray(doc, false);
        for (int x : v) CosArrayAppend(a, CosNewInteger(doc, false, x));
        return a;
    }
    // [/Indexed base hival table]
    CosObj Indexed(CosObj base, int hival, const std::string& table) {
        CosObj cs = CosNewArray(doc, false);
        CosArrayAppend(cs, Name("Indexed"));
        CosArrayAppend(cs, base);
        CosArrayAppend(cs, CosNewInteger(doc, false, hival));
        CosArrayAppend(cs, CosNewString(doc, false, table));
        return cs;
    }
    // [/Lab <<>>]
    CosObj Lab() {
        CosObj cs = CosNewArray(doc, false);
        CosArrayAppend(cs, Name("Lab"));
        CosArrayAppend(cs, CosNewDict(doc, false));
        return cs;
    }
    static int Int(CosObj img, const char* key) { return CosDictGetInt(img, A(key), -1); }
    static std::string NameOf(CosObj img, const char* key) { return ASAtomGetString(CosDictGetName(img, A(key))); }
    static std::string FilterOf(CosObj img) { return NameOf(img, "Filter"); }
};

}  // namespace imagetest
