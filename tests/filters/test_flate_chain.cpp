// Flate, the predictors, and the chain's rules: names, pass-through codecs,
// limits, damaged data and the push interface.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

#include "tests/filters/FilterTestUtil.h"

using namespace filters;
using namespace filters::testing;

namespace {

Bytes RawDeflate(const Bytes& in) {
    z_stream zs{};
    deflateInit2(&zs, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    Bytes out(deflateBound(&zs, in.size()) + 16);
    zs.next_in = const_cast<Bytef*>(in.data());
    zs.avail_in = static_cast<uInt>(in.size());
    zs.next_out = out.data();
    zs.avail_out = static_cast<uInt>(out.size());
    deflate(&zs, Z_FINISH);
    out.resize(zs.total_out);
    deflateEnd(&zs);
    return out;
}

Bytes Pattern(size_t n, uint32_t seed) {
    Lcg rng(seed);
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>((i / 7) ^ (rng.Next() % 3));
    return b;
}

// PNG row filtering written out from the PNG rules, for fixtures.
Bytes FilterRowPNG(int type, const Bytes& row, const Bytes& prev, size_t bpp) {
    Bytes out(row.size());
    for (size_t i = 0; i < row.size(); ++i) {
        int a = i >= bpp ? row[i - bpp] : 0, b = prev[i], c = i >= bpp ? prev[i - bpp] : 0;
        int pred = 0;
        if (type == 1) pred = a;
        if (type == 2) pred = b;
        if (type == 3) pred = (a + b) / 2;
        if (type == 4) {
            int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
            pred = (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
        }
        out[i] = static_cast<uint8_t>(row[i] - pred);
    }
    return out;
}

struct Shape {
    int colors, bpc, columns;
};

}  // namespace

TEST(Flate, ZlibRawAndTruncatedStreams) {
    Bytes data = Pattern(100000, 1);
    EXPECT_EQ(FlateDecode(FlateEncode(data, 6)), data);
    // Without the zlib header the data is taken as raw deflate.
    EXPECT_EQ(FlateDecode(RawDeflate(data)), data);
    // A cut stream yields what decoded, with a warning.
    WarningCatcher wc;
    Bytes enc = FlateEncode(data, 9);
    Bytes cut(enc.begin(), enc.begin() + static_cast<std::ptrdiff_t>(enc.size() / 2));
    DecodeResult r = DecodeChain(cut, {{"Fl", {}}});
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    ASSERT_GT(r.data.size(), 1000u);
    ASSERT_LT(r.data.size(), data.size());
    EXPECT_TRUE(std::equal(r.data.begin(), r.data.end(), data.begin()));
    EXPECT_EQ(wc.warnings.size(), 1u);
    EXPECT_EQ(RaisedError([&] { DecodeChain(cut, {{"FlateDecode", {}}}, kStrict); }), kErrSyntax);
    // Garbage in the middle of the stream.
    Bytes broken = enc;
    for (size_t i = 100; i < 140; ++i) broken[i] = 0xFF;
    EXPECT_EQ(DecodeChain(broken, {{"Fl", {}}}).status, DecodeStatus::Corrupt);
}

TEST(Flate, EncodeLevelsRoundTrip) {
    Bytes data = Pattern(70000, 2);
    size_t stored = FlateEncode(data, 0).size();
    size_t best = FlateEncode(data, 9).size();
    EXPECT_GT(stored, data.size());
    EXPECT_LT(best, stored);
    for (int level : {0, 1, 6, 9, 10, 11, 12}) {
        Bytes enc = FlateEncode(data, level);
        // A zlib header (deflate, 32K window, check bits) that any reader takes.
        ASSERT_GE(enc.size(), 6u);
        EXPECT_EQ(enc[0] & 0x0F, 8);
        EXPECT_EQ(((enc[0] << 8) | enc[1]) % 31, 0);
        EXPECT_EQ(FlateDecode(enc), data) << "level " << level;
    }
    EXPECT_EQ(FlateDecode(FlateEncode({}, 9)), Bytes{});
    // The extra levels search harder: never larger than level 9 on text-like data.
    Bytes text;
    for (int i = 0; i < 4000; ++i) {
        std::string line = "BT /F1 12 Tf " + std::to_string(i * 7 % 613) + " 720 Td (line " +
                           std::to_string(i % 97) + ") Tj ET\n";
        text.insert(text.end(), line.begin(), line.end());
    }
    EXPECT_LE(FlateEncode(text, 12).size(), FlateEncode(text, 9).size());
    // Out-of-range levels fall back to the default level rather than failing.
    EXPECT_EQ(FlateEncode(text, 13), FlateEncode(text, 6));
    EXPECT_EQ(FlateEncode(text, -1), FlateEncode(text, 6));
}

TEST(Predictor, PNGRowTypesMixedPerRow) {
    for (Shape sh : {Shape{1, 8, 13}, Shape{3, 8, 7}, Shape{1, 16, 5}, Shape{1, 1, 19}, Shape{2, 4, 5}}) {
        SCOPED_TRACE(::testing::Message() << sh.colors << "x" << sh.bpc << "x" << sh.columns);
        size_t rowBytes = (size_t(sh.colors) * sh.bpc * sh.columns + 7) / 8;
        size_t bpp = std::max(1, sh.colors * sh.bpc / 8);
        Bytes image = Pattern(rowBytes * 10, 5);
        Bytes predicted;
        Bytes prev(rowBytes, 0);
        for (int r = 0; r < 10; ++r) {
            Bytes row(image.begin() + static_cast<std::ptrdiff_t>(r * rowBytes),
                      image.begin() + static_cast<std::ptrdiff_t>((r + 1) * rowBytes));
            int type = r % 5;
            predicted.push_back(static_cast<uint8_t>(type));
            Bytes f = FilterRowPNG(type, row, prev, bpp);
            predicted.insert(predicted.end(), f.begin(), f.end());
            prev = row;
        }
        FilterParams p = Params({{"Predictor", 12}, {"Colors", double(sh.colors)},
                                 {"BitsPerComponent", double(sh.bpc)}, {"Columns", double(sh.columns)}});
        EXPECT_EQ(FlateDecode(FlateEncode(predicted, 6), p), image);
        // The encoder's choice decodes to the same image.
        EXPECT_EQ(FlateDecode(FlateEncodePNG(image, 6, sh.colors, sh.bpc, sh.columns), p), image);
    }
}

TEST(Predictor, PNGEncoderPicksTheCheapestFilter) {
    // Row 0 is a ramp (Sub makes it all ones); row 1 repeats row 0 (Up
    // makes it all zeros).
    Bytes image;
    for (int i = 0; i < 32; ++i) image.push_back(static_cast<uint8_t>(i * 1 + 100));
    Bytes copy = image;
    image.insert(image.end(), copy.begin(), copy.end());
    Bytes enc = PNGPredictEncode(image, 1, 8, 32);
    ASSERT_EQ(enc.size(), 66u);
    EXPECT_EQ(enc[0], 1);
    EXPECT_EQ(enc[33], 2);
    EXPECT_EQ(std::count(enc.begin() + 34, enc.end(), 0), 32);
}

TEST(Predictor, TIFFHorizontalDifferencing) {
    auto decode = [](const Bytes& in, int colors, int bpc, int columns) {
        FilterParams p = Params({{"Predictor", 2}, {"Colors", double(colors)},
                                 {"BitsPerComponent", double(bpc)}, {"Columns", double(columns)}});
        return DecodeChain(FlateEncode(in, 6), {{"FlateDecode", p}}).data;
    };
    EXPECT_EQ(decode({10, 20, 30, 1, 1, 1, 2, 2, 2, 5, 5, 5, 0, 0, 0, 1, 1, 1}, 3, 8, 3),
              (Bytes{10, 20, 30, 11, 21, 31, 13, 23, 33, 5, 5, 5, 5, 5, 5, 6, 6, 6}));
    // 16-bit samples carry from the low byte into the high byte.
    EXPECT_EQ(decode({0x00, 0xFF, 0x00, 0x01, 0x00, 0x02}, 1, 16, 3), (Bytes{0x00, 0xFF, 0x01, 0x00, 0x01, 0x02}));
    // 1-bit samples: each is the running XOR; a new row starts afresh.
    EXPECT_EQ(decode({0b10010000, 0b01000000, 0b11000000, 0b00000000}, 1, 1, 10),
              (Bytes{0b11100000, 0b01000000, 0b10000000, 0b00000000}));
    // 4-bit, two colours: the nibbles of each colour add up modulo 16.
    EXPECT_EQ(decode({0x12, 0x11, 0xF1}, 2, 4, 3), (Bytes{0x12, 0x23, 0x14}));
}

TEST(Predictor, BadParametersAndRowTypes) {
    WarningCatcher wc;
    Bytes badType{7, 1, 2, 3};
    DecodeResult r = DecodeChain(FlateEncode(badType, 6), {{"Fl", Params({{"Predictor", 12}, {"Columns", 3}})}});
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    r = DecodeChain(FlateEncode(badType, 6), {{"Fl", Params({{"Predictor", 12}, {"BitsPerComponent", 3}})}});
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    EXPECT_TRUE(r.data.empty());
    EXPECT_EQ(wc.warnings.size(), 2u);
}

TEST(Chain, NamesAndUnknownFilters) {
    EXPECT_EQ(CanonicalFilterName("AHx"), "ASCIIHexDecode");
    EXPECT_EQ(CanonicalFilterName("CCF"), "CCITTFaxDecode");
    EXPECT_EQ(CanonicalFilterName("Fl"), "FlateDecode");
    EXPECT_EQ(CanonicalFilterName("flatedecode"), "");
    EXPECT_TRUE(IsImageCodec("DCTDecode"));
    EXPECT_TRUE(IsImageCodec("JBIG2Decode"));
    EXPECT_FALSE(IsImageCodec("LZWDecode"));
    // An unknown name anywhere in the chain raises before anything decodes.
    EXPECT_EQ(RaisedError([] { DecodeChain(B("41>"), {{"AHx", {}}, {"Bogus", {}}}); }), kErrUnknownFilter);
    EXPECT_EQ(RaisedError([] { DecodeChain(B("41>"), {{"JPXDecode", {}}, {"Bogus", {}}}); }), kErrUnknownFilter);
}

TEST(Chain, PassThroughCodecsAndKeptImages) {
    // JPX data is never decoded and never an error.
    Bytes jpx{0x00, 0x00, 0x00, 0x0C, 'j', 'P', ' ', ' '};
    DecodeResult r = DecodeChain(jpx, {{"JPXDecode", {}}});
    EXPECT_EQ(r.status, DecodeStatus::Undecodable);
    EXPECT_EQ(r.data, jpx);
    EXPECT_EQ(r.filtersApplied, 0u);
    r = DecodeChain(B("48 69>"), {{"AHx", {}}, {"JPXDecode", {}}});
    EXPECT_EQ(r.status, DecodeStatus::Undecodable);
    EXPECT_EQ(S(r.data), "Hi");
    EXPECT_EQ(r.filtersApplied, 1u);
    // Kept image codecs stop the chain before them.
    DecodeOptions keep;
    keep.keepImageCodecs = true;
    r = DecodeChain(FlateEncode(B("JPEGDATA"), 6), {{"Fl", {}}, {"DCT", {}}}, keep);
    EXPECT_EQ(r.status, DecodeStatus::Partial);
    EXPECT_EQ(S(r.data), "JPEGDATA");
    EXPECT_EQ(r.filtersApplied, 1u);
    // An Identity crypt filter changes nothing.
    r = DecodeChain(B("abc"), {{"Crypt", {}}});
    EXPECT_EQ(r.status, DecodeStatus::Ok);
    EXPECT_EQ(S(r.data), "abc");
}

TEST(Chain, DecompressionBombsStopAtTheLimit) {
    Bytes zeros(10 << 20, 0);
    Bytes bomb = FlateEncode(zeros, 9);
    DecodeOptions opts;
    opts.maxOutput = 1 << 20;
    EXPECT_EQ(RaisedError([&] { DecodeChain(bomb, {{"FlateDecode", {}}}, opts); }), kErrTooComplex);
    // Also when a later filter shrinks the data again: every stage counts.
    Bytes spaces(10 << 20, ' ');
    Bytes bomb2 = FlateEncode(spaces, 9);
    EXPECT_EQ(RaisedError([&] { DecodeChain(bomb2, {{"FlateDecode", {}}, {"AHx", {}}}, opts); }), kErrTooComplex);
    // The limit is inclusive of exactly-sized output.
    opts.maxOutput = zeros.size();
    EXPECT_EQ(DecodeChain(bomb, {{"FlateDecode", {}}}, opts).data.size(), zeros.size());
}

TEST(Chain, PushInterfaceTakesAnyChunking) {
    Bytes image = Pattern(40 * 25, 9);
    FilterParams p = Params({{"Predictor", 15}, {"Columns", 40}});
    Bytes enc = FlateEncodePNG(image, 9, 1, 8, 40);
    Bytes hex;
    for (uint8_t b : enc) {
        static const char* d = "0123456789ABCDEF";
        hex.push_back(static_cast<uint8_t>(d[b >> 4]));
        hex.push_back(static_cast<uint8_t>(d[b & 15]));
        hex.push_back('\n');
    }
    FilterChain chain{{"AHx", {}}, {"Fl", p}};
    for (size_t chunk : {size_t(1), size_t(3), size_t(4096)}) {
        SCOPED_TRACE(chunk);
        Bytes out;
        int calls = 0;
        Decoder dec(chain, {}, [&](ByteSpan s) {
            out.insert(out.end(), s.begin(), s.end());
            ++calls;
        });
        for (size_t i = 0; i < hex.size(); i += chunk) {
            dec.Write(ByteSpan(hex.data() + i, std::min(chunk, hex.size() - i)));
        }
        dec.Finish();
        EXPECT_EQ(dec.Status(), DecodeStatus::Ok);
        EXPECT_EQ(dec.FiltersApplied(), 2u);
        EXPECT_EQ(out, image);
        if (chunk == 1) {
            EXPECT_GT(calls, 1);
        }
    }
}

TEST(Warnings, FilterEntryMessages) {
    WarningCatcher wc;
    WarnBadFilterName();
    WarnBadFilterAttribute();
    ASSERT_EQ(wc.warnings.size(), 2u);
    EXPECT_EQ(wc.warnings[0], "Bad filter name");
    EXPECT_EQ(wc.warnings[1], "Bad 'Filter' attribute in stream");
}
