// How the image steps read colour spaces and filter chains.
#include "images/ImageTraits.h"
#include "tests/images/ImageTestUtil.h"

namespace {

using namespace imagetest;
using images::ColourSpaceInfo;
using images::FilterFamily;

class ImageTraits : public ImageDocTest {
protected:
    CosObj Parse(const std::string& text) { return CosParseObjectFromBuffer(doc, text.data(), text.size()); }
    // [/ICCBased <stream with `dict`>]
    CosObj Icc(const std::string& dict) {
        CosObj cs = CosNewArray(doc, false);
        CosArrayAppend(cs, Name("ICCBased"));
        CosArrayAppend(cs, CosNewStream(doc, Parse(dict), Bytes{}));
        return cs;
    }
    // Reads a space made for the test, then frees it: direct objects no
    // container holds are the caller's.
    ColourSpaceInfo Read(CosObj cs) {
        ColourSpaceInfo ci = images::ReadColourSpace(cs);
        CosObjDestroy(cs);
        return ci;
    }
    ColourSpaceInfo Read(const std::string& text) { return Read(Parse(text)); }
    FilterFamily Family(const std::string& filter, int* chain = nullptr) {
        CosObj image = Image(1, 1, Name("DeviceGray"), 8, Bytes{0});
        if (!filter.empty()) CosDictPut(image, A("Filter"), Parse(filter));
        return images::FilterFamilyOf(image, chain);
    }
};

TEST_F(ImageTraits, ColourSpaces) {
    ColourSpaceInfo rgb = Read(Name("RGB"));
    EXPECT_EQ(rgb.components, 3);
    EXPECT_TRUE(rgb.rgbLike);
    ColourSpaceInfo lab = Read("[/Lab << /WhitePoint [1 1 1] >>]");
    EXPECT_EQ(lab.components, 3);
    EXPECT_FALSE(lab.rgbLike);
    EXPECT_FALSE(lab.unitRanges);
    ColourSpaceInfo sep = Read("[/Separation /Spot /DeviceCMYK null]");
    EXPECT_EQ(sep.components, 1);
    ColourSpaceInfo indexed = Read("[/I /DeviceCMYK 1 (abcdefgh)]");
    EXPECT_TRUE(indexed.indexed);
    EXPECT_EQ(indexed.components, 1);
    EXPECT_EQ(indexed.indexedBase, 4);
    EXPECT_EQ(Read("[/DeviceN [/A /B /C /D /E] /DeviceCMYK null]").components, 0);
    EXPECT_EQ(Read("[/DeviceN [/A /B] /DeviceCMYK null]").components, 2);
    EXPECT_EQ(Read("/Pattern").problem, "unknown colour space Pattern");
    EXPECT_EQ(Read(CosNewNull()).problem, "no colour space");
    EXPECT_EQ(Read("[1 2]").problem, "unknown colour space");
}

TEST_F(ImageTraits, IccSpacesTakeNOrTheirAlternate) {
    ColourSpaceInfo n3 = Read(Icc("<< /N 3 /Range [0 1 0 1 0 1] >>"));
    EXPECT_EQ(n3.components, 3);
    EXPECT_TRUE(n3.rgbLike);
    EXPECT_FALSE(n3.unitRanges);
    ColourSpaceInfo alt = Read(Icc("<< /Alternate /DeviceCMYK >>"));
    EXPECT_EQ(alt.components, 4);
    EXPECT_TRUE(alt.unitRanges);
    EXPECT_EQ(Read(Icc("<< /N 2 >>")).components, 0);
    EXPECT_EQ(Read("[/ICCBased 5]").problem, "ICC-based colour space without a profile");
    // Alternates inside alternates: a few levels are read, deeper ones end
    // at a limit (damaged files can make the chain endless).
    auto chain = [&](int levels) {
        CosObj cs = Name("DeviceGray");
        for (int i = 0; i < levels; ++i) {
            CosObj outer = Icc("<< >>");
            CosDictPut(CosArrayGet(outer, 1), A("Alternate"), cs);
            cs = outer;
        }
        return Read(cs).components;
    };
    EXPECT_EQ(chain(3), 1);
    EXPECT_EQ(chain(8), 0);
}

TEST_F(ImageTraits, FilterFamilyIsTheLastFilters) {
    int chain = -1;
    EXPECT_EQ(Family("", &chain), FilterFamily::Raw);
    EXPECT_EQ(chain, 0);
    EXPECT_EQ(Family("[]", &chain), FilterFamily::Raw);
    EXPECT_EQ(Family("/Fl"), FilterFamily::Flate);
    EXPECT_EQ(Family("[/AHx /DCT]", &chain), FilterFamily::DCT);
    EXPECT_EQ(chain, 2);
    EXPECT_EQ(Family("[/FlateDecode /A85]"), FilterFamily::Raw);
    EXPECT_EQ(Family("/CCF"), FilterFamily::CCITT);
    EXPECT_EQ(Family("/JBIG2Decode"), FilterFamily::JBIG2);
    EXPECT_EQ(Family("/JPXDecode"), FilterFamily::JPX);
    EXPECT_EQ(Family("/RL"), FilterFamily::RunLength);
    EXPECT_EQ(Family("/LZW"), FilterFamily::LZW);
    EXPECT_EQ(Family("/Crypt"), FilterFamily::Other);
    EXPECT_EQ(Family("[1]"), FilterFamily::Other);
}

TEST_F(ImageTraits, ImageDataIsTakenWhenItHoldsEveryRow) {
    std::string problem;
    auto decode = [&](CosObj stream, uint64_t expected, uint64_t limit = UINT64_MAX) {
        problem.clear();
        return images::DecodeImageData(stream, expected, limit, &problem);
    };
    const Bytes raw = Noise(100, 7);
    CosObj plain = Image(10, 10, Name("DeviceGray"), 8, raw);
    ASSERT_TRUE(decode(plain, 100));
    EXPECT_EQ(*decode(plain, 100), raw);
    EXPECT_EQ(decode(plain, 90)->size(), 90u);  // bytes after the last row are dropped
    EXPECT_FALSE(decode(plain, 101));
    EXPECT_EQ(problem, "image data is shorter than its size says");
    // Flate data cut short: taken when the rows came out before the damage.
    Bytes flate = filters::FlateEncode(raw, 9);
    flate.resize(flate.size() - 4);
    CosObj cut = Image(10, 10, Name("DeviceGray"), 8, flate, "FlateDecode");
    EXPECT_TRUE(decode(cut, 60));
    EXPECT_FALSE(decode(cut, 100 + 1000));
    EXPECT_EQ(problem, "damaged image data");
    // A stream that decodes past the limit is refused.
    CosObj big = Image(10, 10, Name("DeviceGray"), 8, filters::FlateEncode(Bytes(1 << 20, 0), 9), "FlateDecode");
    EXPECT_FALSE(decode(big, 100, 1000));
    EXPECT_EQ(problem, "damaged image data");
}

}  // namespace
