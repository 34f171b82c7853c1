// Finding the images pages draw, with their sharpest placement, in
// documents built here.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "base/Log.h"
#include "images/ImageFinder.h"
#include "pdfcore/CosNames.h"
#include "tests/images/ImageTestUtil.h"

using namespace images;
using namespace imagetest;

namespace {

class Finder : public ImageDocTest {
protected:
    void SetUp() override {
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        log.SetFileLoggingAllowed(false);
        log.SetChannelOff(Log::kWarning, true);
    }
    void TearDown() override { PDDocClose(pd); }

    Maker M() const { return Maker{doc}; }
    CosObj Stream(const std::string& content, CosObj dict = CosNewNull()) {
        return CosNewStream(doc, dict, Span(content));
    }
    CosObj Picture(int w, int h, const char* cs = "DeviceRGB") {
        return Image(w, h, Name(cs), 8, Bytes(size_t(w) * h * 3, 0x40));
    }
    CosObj Resources(Maker::Entries xobjects) { return M().Dict({{"XObject", M().Dict(xobjects)}}); }
    CosObj Form(const std::string& content, CosObj resources) {
        return Stream(content, M().Dict({{"Subtype", M().Name("Form")},
                                         {"BBox", M().Parse("[0 0 1000 1000]")},
                                         {"Resources", resources}}));
    }
    CosObj AddPage(const std::string& content, CosObj resources) {
        CosObj pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
        CosObj page = M().Dict({{"Type", M().Name("Page")},
                                {"Parent", pages},
                                {"MediaBox", M().Parse("[0 0 612 792]")},
                                {"Resources", resources},
                                {"Contents", Stream(content)}},
                               true);
        CosArrayAppend(CosDictGet(pages, cosnames::Kids), page);
        CosDictPutInteger(pages, cosnames::Count, CosArrayLength(CosDictGet(pages, cosnames::Kids)));
        PDDocPagesChanged(pd);
        return page;
    }
    const FoundImage* Find(const std::vector<FoundImage>& v, CosObj img) {
        for (const FoundImage& f : v)
            if (CosObjEqual(f.image, img)) return &f;
        return nullptr;
    }

    PDDoc pd = nullptr;
    Log log;
};

}  // namespace

TEST_F(Finder, SharpestPlacementThroughFormsAndAnnotations) {
    CosObj photo = Picture(400, 200);
    CosObj unused = Picture(10, 10);
    CosObj stamp = Picture(300, 300, "DeviceGray");
    // The form draws the photo at half the page's size.
    CosObj form = Form("q 100 0 0 50 0 0 cm /P Do Q", Resources({{"P", photo}}));
    AddPage("q 200 0 0 100 50 50 cm /Im1 Do Q /Fm1 Do",
            Resources({{"Im1", photo}, {"Fm1", form}, {"Unused", unused}}));
    // A second page draws the photo stretched: wide along x only.
    CosObj page2 = AddPage("q 400 0 0 25 0 0 cm /X Do Q", Resources({{"X", photo}}));
    // An annotation appearance draws another image at one inch.
    CosObj ap = Form("q 72 0 0 72 0 0 cm /S Do Q", Resources({{"S", stamp}}));
    CosObj annot = M().Dict(
        {{"Subtype", M().Name("Stamp")}, {"Rect", M().Parse("[0 0 1000 1000]")}, {"AP", M().Dict({{"N", ap}})}}, true);
    CosDictPut(page2, A("Annots"), M().Array({annot}));

    std::vector<FoundImage> found = FindImages(pd, log);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(Find(found, unused), nullptr);
    const FoundImage* p = Find(found, photo);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->placements, 3);
    EXPECT_EQ(p->imageClass, ImageClass::Color);
    // 400 px over 100 pt in the form: 288 ppi across; 200 px over 25 pt on page 2: 576 ppi down.
    EXPECT_NEAR(p->ppiX, 288.0, 1e-6);
    EXPECT_NEAR(p->ppiY, 576.0, 1e-6);
    const FoundImage* s = Find(found, stamp);
    ASSERT_NE(s, nullptr);
    EXPECT_NEAR(s->ppiX, 300.0, 1e-6);
    EXPECT_EQ(s->imageClass, ImageClass::Grayscale);
}

TEST_F(Finder, DegeneratePlacementsGiveNoResolution) {
    CosObj img = Picture(100, 100);
    AddPage("q 0 0 0 0 0 0 cm /I Do Q", Resources({{"I", img}}));
    std::vector<FoundImage> found = FindImages(pd, log);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].ppiX, 0.0);
    EXPECT_EQ(found[0].ppiY, 0.0);
    // The collector ignores anything that is not an image.
    ImageCollector c;
    c.Add(CosNewDict(doc, true), 100, 100);
    c.Add(Form("", CosNewDict(doc, false)), 100, 100);
    c.Add(img, std::nan(""), -5);
    ASSERT_EQ(c.Images().size(), 1u);
    EXPECT_EQ(c.Images()[0].ppiX, 0.0);
}
