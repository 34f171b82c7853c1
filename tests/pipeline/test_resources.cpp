// The resource step (duplicate images and profiles, family counts, stream
// recompression) and the merge of equal objects, on documents built here.
#include "filters/DCTEncode.h"
#include "pipeline/ObjectDuplicates.h"
#include "pipeline/ResourceOptimizer.h"
#include "pipeline/StreamRecompress.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipeline;
using namespace pipetest;

class ResourcesTest : public DocTest {
protected:
    ResourcesTest() : DocTest(true) {}
    void Run() {
        auto ctx = Ctx(-1);
        OptimizeResources(ctx);
    }
};

TEST_F(ResourcesTest, ImageDuplicatesNeedEqualKeyAndEqualDigest) {
    prefs.Optimize().dupXObjCheck = true;
    const Bytes data = Ramp(64 * 32, 1);
    Bytes other = data;
    other[100] ^= 0x55;
    CosObj pages[5];
    for (auto& p : pages) p = AddPage();
    CosObj first = Put(pages[0], "XObject", "Im0", Image(64, 32, data));
    Put(pages[1], "XObject", "Im0", Image(64, 32, data));
    Put(pages[2], "XObject", "Im7", Image(64, 32, data));
    // A reshaped copy: the same bytes as 32 x 64.
    CosObj reshaped = Put(pages[3], "XObject", "Im0", Image(32, 64, data));
    // Equal key, different data: stored unfiltered so the lengths agree.
    CosObj a = Image(64, 32, data), b = Image(64, 32, other);
    for (CosObj x : {a, b}) CosDictRemove(x, A("Filter"));
    CosStreamSetEncodedData(a, data);
    CosStreamSetEncodedData(b, other);
    Set(Res(pages[4], "XObject"), {{"A", a}, {"B", b}});

    Run();
    EXPECT_EQ(6, Stat("ImageXObjects_Total"));
    EXPECT_EQ(2, Stat("ImageXObjects_Duplicates"));
    for (int i : {0, 1})
        EXPECT_EQ(first, CosDictGet(Res(pages[i], "XObject"), A("Im0"))) << "page " << i;
    EXPECT_EQ(first, CosDictGet(Res(pages[2], "XObject"), A("Im7")));
    EXPECT_EQ(reshaped, CosDictGet(Res(pages[3], "XObject"), A("Im0")));
    EXPECT_EQ(a, CosDictGet(Res(pages[4], "XObject"), A("A")));
    EXPECT_EQ(b, CosDictGet(Res(pages[4], "XObject"), A("B")));

    ImageRecord r = MakeImageRecord(a);
    EXPECT_EQ("64x32x8-DeviceGray-2048-0-0-0", DuplicateKey(r));
    CosDictPut(a, A("SMask"), b);
    EXPECT_EQ("64x32x8-DeviceGray-2048-0-1-0", DuplicateKey(MakeImageRecord(a)));
    EXPECT_EQ(32u, DecodedDigest(a).size());
}

TEST_F(ResourcesTest, EqualSamplesWithADifferentMaskOrDecodeAreNotMerged) {
    prefs.Optimize().dupXObjCheck = true;
    const Bytes data = Ramp(16 * 16, 8);
    CosObj pages[4];
    for (auto& p : pages) p = AddPage();
    CosObj images[4];
    for (int i = 0; i < 4; ++i) images[i] = Put(pages[i], "XObject", "I", Image(16, 16, data));
    // 0 and 1: equal soft masks held in two objects (a duplicate); 2: a
    // soft mask with other data; 3: an inverted Decode array.
    Bytes alpha = Ramp(16 * 16, 9), other = alpha;
    other[7] ^= 1;
    CosDictPut(images[0], A("SMask"), Image(16, 16, alpha));
    CosDictPut(images[1], A("SMask"), Image(16, 16, alpha));
    CosDictPut(images[2], A("SMask"), Image(16, 16, other));
    CosDictPut(images[3], A("SMask"), Image(16, 16, alpha));
    CosDictPut(images[3], A("Decode"), Array({1, 0}));
    Run();
    EXPECT_EQ(1, Stat("ImageXObjects_Duplicates"));
    EXPECT_EQ(images[0], CosDictGet(Res(pages[1], "XObject"), A("I")));
    EXPECT_EQ(images[2], CosDictGet(Res(pages[2], "XObject"), A("I")));
    EXPECT_EQ(images[3], CosDictGet(Res(pages[3], "XObject"), A("I")));
}

TEST_F(ResourcesTest, DuplicateSearchIsOffByDefaultAndSkipsUndecodableImages) {
    const Bytes data = Ramp(64 * 32, 2);
    CosObj p1 = AddPage(), p2 = AddPage();
    Put(p1, "XObject", "I", Image(64, 32, data));
    CosObj y = Put(p2, "XObject", "I", Image(64, 32, data));
    Run();
    EXPECT_EQ(2, Stat("ImageXObjects_Total"));
    EXPECT_EQ(0, Stat("ImageXObjects_Duplicates"));
    EXPECT_EQ(y, CosDictGet(Res(p2, "XObject"), A("I")));

    // Equal bytes behind an unknown filter: no digest, so no merge.
    Stats().Reset();
    prefs.Optimize().dupXObjCheck = true;
    CosObj p3 = AddPage(), p4 = AddPage();
    CosObj u = Image(8, 8, Ramp(64, 3)), v = Image(8, 8, Ramp(64, 3));
    for (CosObj s : {u, v}) CosDictPutName(s, A("Filter"), false, A("NoSuchDecode"));
    Put(p3, "XObject", "I", u);
    Put(p4, "XObject", "I", v);
    Run();
    EXPECT_EQ(v, CosDictGet(Res(p4, "XObject"), A("I")));
}

TEST_F(ResourcesTest, ICCProfileDuplicatesAndIndexedTables) {
    prefs.Optimize().dupXObjCheck = true;
    const Bytes profile = Ramp(3000, 4);
    CosObj pages[2] = {AddPage(), AddPage()};
    CosObj profiles[2];
    for (int i = 0; i < 2; ++i) {
        profiles[i] = Stream(profile);
        CosDictPutInteger(profiles[i], A("N"), 3);
        Put(pages[i], "ColorSpace", "CS0", Arr({Name("ICCBased"), profiles[i]}));
    }
    // An Indexed space whose 256-entry table compresses well; and a short
    // one, which stays a string.
    std::string table;
    for (int i = 0; i < 256; ++i) table += std::string{char(i), char(i), char(i)};
    CosObj big = Put(pages[0], "ColorSpace", "CS1", Arr({Name("Indexed"), Name("DeviceRGB"), Int(255), Str(table)}));
    // 25 high bytes: about 100 written, 36 deflated, but a stream of its
    // own costs more than the difference.
    std::string grays;
    for (int i = 0; i < 25; ++i) grays += char(0x80 + i * 5);
    CosObj small = Put(pages[1], "ColorSpace", "CS1", Arr({Name("Indexed"), Name("DeviceGray"), Int(24), Str(grays)}));

    Run();
    EXPECT_EQ(2, Stat("ICCProfiles_Total"));
    EXPECT_EQ(1, Stat("ICCProfiles_Duplicates"));
    EXPECT_EQ(profiles[0], CosArrayGet(CosDictGet(Res(pages[1], "ColorSpace"), A("CS0")), 1));
    EXPECT_EQ(2, Stat("IndexedColorTables_Total"));
    EXPECT_EQ(1, Stat("IndexedColorTables_Compressed"));
    CosObj lookup = CosArrayGet(big, 3);
    ASSERT_EQ(kCosStream, CosObjGetType(lookup));
    EXPECT_EQ(Text(table), CosStreamDecodedData(lookup));
    EXPECT_EQ(kCosString, CosObjGetType(CosArrayGet(small, 3)));
}

TEST_F(ResourcesTest, RecompressionNeverGrowsAndLeavesBadStreamsAlone) {
    Bytes repetitive;
    for (int i = 0; i < 400; ++i) {
        Bytes line = Text("0 0 m 100 100 l S\n");
        repetitive.insert(repetitive.end(), line.begin(), line.end());
    }
    CosObj plain = Stream(repetitive);
    RecompressResult r = RecompressPlainStream(plain, 9);
    EXPECT_EQ(RecompressOutcome::Smaller, r.outcome);
    EXPECT_LT(r.after, r.before);
    EXPECT_EQ(A("FlateDecode"), CosDictGetName(plain, A("Filter")));
    EXPECT_EQ(repetitive, CosStreamDecodedData(plain));

    // Already at its best: a second pass keeps it.
    const Bytes once = Encoded(plain);
    EXPECT_EQ(RecompressOutcome::Kept, RecompressPlainStream(plain, 9).outcome);
    EXPECT_EQ(once, Encoded(plain));

    // Tiny: deflating would add bytes, so the stream stays unfiltered.
    CosObj tiny = Stream(Text("q Q"));
    EXPECT_EQ(RecompressOutcome::Kept, RecompressPlainStream(tiny, 9).outcome);
    EXPECT_FALSE(Has(tiny, "Filter"));

    // Damaged Flate data and an unknown filter: untouched.
    Bytes cut = filters::FlateEncode(repetitive, 1);
    cut.resize(cut.size() / 2);
    CosObj damaged = Stream(cut, "FlateDecode");
    EXPECT_EQ(RecompressOutcome::Undecodable, RecompressPlainStream(damaged, 9).outcome);
    EXPECT_EQ(cut, Encoded(damaged));
    CosObj unknown = Stream(repetitive, "NoSuchDecode");
    EXPECT_EQ(RecompressOutcome::Undecodable, RecompressPlainStream(unknown, 9).outcome);
    EXPECT_EQ(A("NoSuchDecode"), CosDictGetName(unknown, A("Filter")));
    // JPEG data is not plain data.
    CosObj jpeg = Stream(Text("\xff\xd8 not really"), "DCTDecode");
    EXPECT_EQ(RecompressOutcome::NotPlain, RecompressPlainStream(jpeg, 9).outcome);

    // Through the step: a form with damaged data is reported and kept.
    CosObj page = AddPage();
    CosObj form = Set(Put(page, "XObject", "Fm0", Stream(cut, "FlateDecode")), {{"Subtype", Name("Form")}});
    CosDictPut(Put(page, "XObject", "Fm1", Stream(repetitive)), A("Subtype"), Name("Form"));
    Run();
    EXPECT_EQ(2, Stat("FormXObjects_Total"));
    EXPECT_EQ(1, Stat("FormXObjects_Compressed"));
    EXPECT_EQ(cut, Encoded(form));
    EXPECT_NE(std::string::npos,
              cap.All().find("Stream " + std::to_string(CosObjGetID(form)) + " is left as it is"));
}

TEST_F(ResourcesTest, LosslessImageReencodingKeepsEverySample) {
    // A smooth RGB gradient: the PNG predictor wins clearly.
    const int w = 120, h = 40;
    Bytes rgb;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) rgb.push_back(uint8_t(x * 2 + y * (c + 1)));
    CosObj img = Image(w, h, rgb, "DeviceRGB");
    CosDictRemove(img, A("Filter"));
    CosStreamSetEncodedData(img, rgb);
    RecompressResult r = RecompressImageLossless(img, 9);
    ASSERT_EQ(RecompressOutcome::Smaller, r.outcome);
    CosObj parms = CosDictGet(img, A("DecodeParms"));
    EXPECT_EQ(15, CosDictGetInt(parms, A("Predictor"), 0));
    EXPECT_EQ(3, CosDictGetInt(parms, A("Colors"), 0));
    EXPECT_EQ(w, CosDictGetInt(parms, A("Columns"), 0));
    EXPECT_EQ(rgb, CosStreamDecodedData(img));

    // A 1-bit image mask and a 4-bit Indexed image keep their samples too.
    Bytes bits = Ramp(4 * 30, 6);
    CosObj mask = Image(32, 30, bits);
    CosDictRemove(mask, A("ColorSpace"));
    CosDictRemove(mask, A("BitsPerComponent"));
    CosDictPut(mask, A("ImageMask"), Bool(true));
    RecompressImageLossless(mask, 12);
    EXPECT_EQ(bits, CosStreamDecodedData(mask));

    // Data shorter than the image says: left as it is.
    CosObj liar = Image(w, h + 5, rgb, "DeviceRGB");
    const Bytes before = Encoded(liar);
    r = RecompressImageLossless(liar, 9);
    EXPECT_EQ(RecompressOutcome::Undecodable, r.outcome);
    EXPECT_NE(std::string::npos, r.message.find("expected"));
    EXPECT_EQ(before, Encoded(liar));
}

TEST_F(ResourcesTest, JpegTranscodeIsProgressiveFromPdf13AndReplacesOnlyWhenSmaller) {
    Bytes rgb;
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 256; ++x)
            for (int c = 0; c < 3; ++c) rgb.push_back(uint8_t((x * (c + 1) + y * 3 + (x * y) % 17) & 0xFF));
    const Bytes jpeg = filters::EncodeDCT(rgb, 256, 200, 3, {});
    const uint8_t sof2[2] = {0xFF, 0xC2};
    for (int minor : {2, 3}) {
        SCOPED_TRACE(minor);
        std::string pdf = "%PDF-1." + std::to_string(minor) +
                          "\n1 0 obj << /Type /Catalog /Pages 2 0 R >> endobj\n"
                          "2 0 obj << /Type /Pages /Kids [] /Count 0 >> endobj\n"
                          "3 0 obj << /Type /XObject /Subtype /Image /Width 256 /Height 200 /ColorSpace /DeviceRGB "
                          "/BitsPerComponent 8 /Filter /DCTDecode /Length " +
                          std::to_string(jpeg.size()) + " >>\nstream\n" + std::string(jpeg.begin(), jpeg.end()) +
                          "\nendstream endobj\ntrailer << /Root 1 0 R >>\n";
        CosDoc d = CosDocOpenFromMemory({reinterpret_cast<const uint8_t*>(pdf.data()), pdf.size()});
        CosObj img = CosDocGetObjByID(d, 3);
        RecompressImageLossless(img, 9);
        const Bytes once(CosStreamEncodedData(img).begin(), CosStreamEncodedData(img).end());
        const bool progressive = std::search(once.begin(), once.end(), sof2, sof2 + 2) != once.end();
        EXPECT_EQ(progressive, minor >= 3);  // progressive JPEG is PDF 1.3 and later
        if (minor >= 3) EXPECT_LT(once.size(), jpeg.size());
        // Transcoding the result again gains nothing, and nothing changes.
        EXPECT_NE(RecompressImageLossless(img, 9).outcome, RecompressOutcome::Smaller);
        EXPECT_EQ(once, Bytes(CosStreamEncodedData(img).begin(), CosStreamEncodedData(img).end()));
        CosDocClose(d);
    }
}

TEST_F(ResourcesTest, FontsAreCountedLoggedAndCompressed) {
    CosObj page = AddPage();
    Bytes program;
    for (int i = 0; i < 300; ++i) {
        Bytes chunk = Text("/glyph dup 4 index put\n");
        program.insert(program.end(), chunk.begin(), chunk.end());
    }
    auto font = [&](const char* name, CosObj file) {
        CosObj fd = Dict({{"Type", Name("FontDescriptor")}, {"FontFile", file}}, true);
        return Set(Font(name), {{"Subtype", Name("Type1")}, {"FontDescriptor", fd}});
    };
    Put(page, "Font", "F1", font("ABCDEF+Body", Stream(program)));
    Bytes cut = filters::FlateEncode(program, 1);
    cut.resize(cut.size() / 3);
    Put(page, "Font", "F2", font("Broken", Stream(cut, "FlateDecode")));
    Put(page, "Font", "F3", Dict({{"Subtype", Name("Type1")}, {"BaseFont", Name("Helvetica")}}, true));
    Run();
    EXPECT_EQ(3, Stat("Fonts_Total"));
    EXPECT_EQ(1, Stat("Fonts_Compressed"));
    const std::string log = cap.All();
    EXPECT_NE(std::string::npos, log.find("Font: ABCDEF+Body.\tEmbedded: true.\tSubset: true\n"));
    EXPECT_NE(std::string::npos, log.find("Font: Helvetica.\tEmbedded: false.\tSubset: false\n"));
    EXPECT_NE(std::string::npos, log.find("Unabled to access the stream for font 'Broken'\n"));
}

TEST_F(ResourcesTest, OpiAndAlternates) {
    CosObj page = AddPage();
    CosObj img = Image(4, 4, Ramp(16, 7));
    Set(img, {{"OPI", Dict()}, {"Alternates", Arr({Dict(), Dict()})}, {"PTEX.FileName", Str("fig.pdf")}});
    Put(page, "XObject", "Im", img);

    Run();
    EXPECT_EQ(1, Stat("OPI_Removed"));
    EXPECT_EQ(2, Stat("AltImages_Removed"));
    EXPECT_FALSE(Has(img, "OPI") || Has(img, "Alternates") || Has(img, "PTEX.FileName"));
}

// ---------------------------------------------------------------- all objects

class ObjectMergeTest : public ResourcesTest {};

TEST_F(ObjectMergeTest, FontsEmbeddedPerPageBecomeOneAfterSeveralRounds) {
    CosObj p1 = AddPage(), p2 = AddPage();
    auto font = [&] {
        CosObj fd = Dict({{"FontFile2", Stream(Ramp(500, 9))}}, true);
        return Dict({{"BaseFont", Name("X")}, {"FontDescriptor", fd}}, true);
    };
    CosObj f1 = Put(p1, "Font", "F", font());
    Put(p2, "Font", "F", font());
    ObjectMergeResult r = MergeDuplicateObjects(doc);
    // Round 1 the programs, 2 the descriptors, 3 the fonts, 4 nothing.
    EXPECT_EQ(3u, r.merged);
    EXPECT_EQ(4, r.rounds);
    EXPECT_EQ(f1, CosDictGet(Res(p2, "Font"), A("F")));
    // The pages themselves are equal but keep their identity.
    EXPECT_NE(PDDocGetPageObj(pd, 0), PDDocGetPageObj(pd, 1));
}

TEST_F(ObjectMergeTest, TwoRoundFixpointAndStreamsComparedByBytes) {
    CosObj page = AddPage();
    CosObj s1 = Stream(Ramp(100, 1)), s2 = Stream(Ramp(100, 1));
    // Same dictionary, same length, different bytes: never merged.
    CosObj s3 = Stream(Ramp(100, 2));
    CosObj a1 = Arr({s1}, true), a2 = Arr({s2}, true), a3 = Arr({s3}, true);
    CosObj holder = Arr({a1, a2, a3});
    CosDictPut(page, A("Holder"), holder);
    ObjectMergeResult r = MergeDuplicateObjects(doc);
    EXPECT_EQ(2u, r.merged);  // s2 in round 1, a2 in round 2
    EXPECT_EQ(3, r.rounds);
    EXPECT_EQ(a1, CosArrayGet(holder, 1));
    EXPECT_EQ(a3, CosArrayGet(holder, 2));
    EXPECT_EQ(s3, CosArrayGet(a3, 0));
}

TEST_F(ObjectMergeTest, IdentityObjectsAndCyclesAreKept) {
    CosObj page = AddPage();
    // Two equal annotations, two equal outline items, two equal optional
    // content groups: each keeps its own object.
    auto annot = [&] { return Dict({{"Subtype", Name("Text")}}, true); };
    auto ocg = [&] { return Dict({{"Type", Name("OCG")}, {"Name", Str("Layer")}}, true); };
    CosObj annots = Arr({annot(), annot()}), ocgs = Arr({ocg(), ocg()});
    Set(page, {{"Annots", annots}, {"Groups", ocgs}});
    // Two equal cycles (a -> b -> a, c -> d -> c) and an object that refers
    // to itself: the merge ends, and what it cannot prove equal it keeps.
    auto cycle = [&] {
        CosObj a = Dict(true);
        CosDictPut(a, A("Other"), Dict({{"Other", a}}, true));
        return a;
    };
    CosObj self = Dict(true);
    CosDictPut(self, A("Me"), self);
    CosObj list = Arr({cycle(), cycle(), self});
    CosDictPut(page, A("Cycles"), list);

    ObjectMergeResult r = MergeDuplicateObjects(doc);
    EXPECT_EQ(0u, r.merged);
    EXPECT_NE(CosArrayGet(annots, 0), CosArrayGet(annots, 1));
    EXPECT_NE(CosArrayGet(ocgs, 0), CosArrayGet(ocgs, 1));
    EXPECT_NE(CosArrayGet(list, 0), CosArrayGet(list, 1));
    EXPECT_TRUE(CarriesIdentity(page));
}

}  // namespace
