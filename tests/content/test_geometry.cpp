// Page boxes and the path reader.
#include <gtest/gtest.h>

#include "content/PageGeometry.h"
#include "tests/content/ContentTestUtil.h"

namespace {

using PageContentBoxes = ContentDoc;

TEST_F(PageContentBoxes, FallBackAndClipToTheMediaBox) {
    CosObj parent = CosNewDict(doc, true);
    Put(parent, "MediaBox", Array(doc, {0, 0, 600, 800}));
    CosObj page = CosNewDict(doc, true);
    Put(page, "Parent", parent);
    Put(page, "CropBox", Array(doc, {500, 700, 10, 20}));  // reversed corners
    Put(page, "TrimBox", Array(doc, {20, 30, 700, 400}));  // sticks out of the media box
    CosObj bare = CosNewDict(doc, true);
    struct Case {
        CosObj page;
        const char* box;
        std::vector<double> want;
    };
    for (const Case& c : {Case{page, "media", {0, 0, 600, 800}}, Case{page, "crop", {10, 20, 500, 700}},
                          Case{page, "bleed", {10, 20, 500, 700}},  // none: the crop box
                          Case{page, "trim", {20, 30, 600, 400}}, Case{page, "other", {10, 20, 500, 700}},
                          Case{bare, "trim", {0, 0, 612, 792}}}) {
        double b[4];
        PageContentBox(c.page, c.box, b);
        EXPECT_EQ(std::vector<double>(b, b + 4), c.want) << c.box;
    }
}

TEST(PathReader, ReadsPathsThroughTheCTMAndAbandonsInterruptedOnes) {
    CapturedLog cap;
    PathReader r(&cap.log);
    r.RunContent(Bytes("2 0 0 2 10 0 cm 0 0 m 1 0 l 1 1 2 2 v 3 3 4 4 y h W n "
                       "0 0 5 5 re f* 1 1 m 2 2 l /F1 12 Tf S 7 7 l S"));
    ASSERT_EQ(r.Paths().size(), 2u);
    const ContentPath& clip = r.Paths()[0];
    EXPECT_EQ(clip.clip, 1);
    EXPECT_EQ(clip.paint, 'n');
    ASSERT_EQ(clip.segments.size(), 5u);
    EXPECT_EQ(clip.segments[1].op, 'l');
    EXPECT_DOUBLE_EQ(clip.segments[1].pts[0], 12);
    // v takes the current point as its first control point, y repeats the end.
    EXPECT_EQ(clip.segments[2].op, 'c');
    EXPECT_DOUBLE_EQ(clip.segments[2].pts[0], 12);
    EXPECT_DOUBLE_EQ(clip.segments[2].pts[4], 14);
    EXPECT_DOUBLE_EQ(clip.segments[3].pts[4], 18);
    EXPECT_DOUBLE_EQ(clip.segments[3].pts[5], 8);
    EXPECT_EQ(clip.segments[4].op, 'h');
    const ContentPath& rect = r.Paths()[1];
    EXPECT_TRUE(rect.evenOdd);
    EXPECT_EQ(rect.segments[0].op, 'r');
    EXPECT_DOUBLE_EQ(rect.segments[0].pts[2], 20);
    EXPECT_DOUBLE_EQ(rect.segments[0].pts[3], 10);
    EXPECT_EQ(cap.Text(), "Found unknown path operator! ");
}

}  // namespace
