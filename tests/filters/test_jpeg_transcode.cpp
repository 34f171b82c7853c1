// Lossless JPEG rewriting: the same samples after decoding, the colour
// markers kept, the rest dropped.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "filters/JpegTranscode.h"
#include "tests/filters/FilterTestUtil.h"

namespace {

using namespace filters;

// A JPEG as a careless writer makes it: standard Huffman tables, restart
// markers, an Exif block, optionally an ICC profile and the APP14 marker.
Bytes MakeJpeg(int w, int h, J_COLOR_SPACE in, J_COLOR_SPACE stored, int comps, bool icc, bool app14) {
    Bytes pixels;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < comps; ++k)
                pixels.push_back(uint8_t((x * (k + 3) + y * 5 + ((x ^ y) & 15) * 4) & 0xFF));
    const char exif[] = "Exif\0\0 some camera data";
    std::vector<std::pair<int, std::string>> markers{{JPEG_APP0 + 1, std::string(exif, sizeof exif)}};
    if (icc) markers.push_back({JPEG_APP0 + 2, std::string("ICC_PROFILE\0\x01\x01", 14) + std::string(200, 'p')});
    return filters::testing::EncodeJpeg(w, h, comps, in, pixels, 85, [&](jpeg_compress_struct& c) {
        jpeg_set_colorspace(&c, stored);
        c.write_Adobe_marker = app14 ? TRUE : FALSE;
        c.restart_interval = 4;
    }, markers);
}

const uint8_t kSOF2[] = {0xFF, 0xC2};
// The identifier that opens the APP14 colour-transform marker.
const char kApp14Id[] = "\x41\x64\x6f\x62\x65";

bool HasMarker(const Bytes& jpeg, int marker, const char* tag) {
    for (size_t i = 2; i + 4 < jpeg.size();) {
        if (jpeg[i] != 0xFF) return false;
        const int m = jpeg[i + 1];
        const size_t len = (size_t(jpeg[i + 2]) << 8) | jpeg[i + 3];
        if (m == marker && std::memcmp(&jpeg[i + 4], tag, std::strlen(tag)) == 0) return true;
        if (m == 0xDA) return false;  // start of scan: no more markers before data
        i += 2 + len;
    }
    return false;
}

TEST(JpegTranscode, SmallerWithIdenticalSamplesAndColourMarkers) {
    struct Case {
        J_COLOR_SPACE in, stored;
        int comps;
        bool icc, app14;
    } cases[] = {
        {JCS_RGB, JCS_YCbCr, 3, true, false},   // JFIF with an ICC profile
        {JCS_GRAYSCALE, JCS_GRAYSCALE, 1, false, false},
        {JCS_CMYK, JCS_CMYK, 4, false, true},   // CMYK with the APP14 marker
        {JCS_RGB, JCS_RGB, 3, false, true},     // untransformed RGB: APP14 transform 0
    };
    int progressive = 0;
    for (const Case& k : cases) {
        SCOPED_TRACE(::testing::Message() << "components " << k.comps << " stored " << int(k.stored));
        Bytes original = MakeJpeg(256, 200, k.in, k.stored, k.comps, k.icc, k.app14);
        JpegTranscodeResult t = JpegTranscode(original);
        progressive += t.progressive;
        ASSERT_TRUE(t.ok) << t.message;
        EXPECT_LT(t.data.size(), original.size());
        DCTImage a = DecodeDCT(original), b = DecodeDCT(t.data);
        EXPECT_EQ(a.components, b.components);
        EXPECT_EQ(a.app14Transform, b.app14Transform);
        EXPECT_EQ(a.invertedCMYK, b.invertedCMYK);
        EXPECT_TRUE(a.samples == b.samples) << "samples differ";
        EXPECT_EQ(HasMarker(original, 0xE0, "JFIF"), HasMarker(t.data, 0xE0, "JFIF"));
        EXPECT_EQ(k.icc, HasMarker(t.data, 0xE2, "ICC_PROFILE"));
        EXPECT_EQ(k.app14, HasMarker(t.data, 0xEE, kApp14Id));
        EXPECT_FALSE(HasMarker(t.data, 0xE1, "Exif"));
        // Sequential on request: no progressive frame marker (SOF2).
        JpegTranscodeResult seq = JpegTranscode(original, false);
        ASSERT_TRUE(seq.ok);
        EXPECT_FALSE(seq.progressive);
        EXPECT_EQ(seq.data.end(), std::search(seq.data.begin(), seq.data.end(), kSOF2, kSOF2 + 2));
        EXPECT_TRUE(DecodeDCT(seq.data).samples == a.samples);
        if (t.progressive)
            EXPECT_NE(t.data.end(), std::search(t.data.begin(), t.data.end(), kSOF2, kSOF2 + 2));
    }
    // At this size the progressive form wins at least once, so its
    // decoding was compared too.
    EXPECT_GT(progressive, 0);
}

TEST(JpegTranscode, DamagedDataIsRefusedNotRepaired) {
    Bytes original = MakeJpeg(64, 64, JCS_RGB, JCS_YCbCr, 3, false, false);
    Bytes cut(original.begin(), original.begin() + std::ptrdiff_t(original.size() * 2 / 3));
    EXPECT_FALSE(JpegTranscode(cut).ok);
    EXPECT_FALSE(JpegTranscode({}).ok);
    Bytes junk(500, 0x42);
    JpegTranscodeResult r = JpegTranscode(junk);
    EXPECT_FALSE(r.ok);
    EXPECT_FALSE(r.message.empty());
    EXPECT_TRUE(r.data.empty());
}

}  // namespace
