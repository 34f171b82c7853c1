#include <gtest/gtest.h>

#include "settings/FileList.h"
#include "tests/settings/SettingsTestUtil.h"

namespace {
std::vector<ASInt32> V(std::initializer_list<ASInt32> l) { return l; }

FileList Read(const std::string& xml) {
    FileList list;
    ApplyFileList(domLite::parser().parse_string(xml), list);
    return list;
}
}  // namespace

TEST(FileList, EntriesDefaultsAndAttributes) {
    FileList l = Read("<trimFileList merge=\"True\" outputDir=\"out\">"
                      "<file src=\"a.pdf\"/>"
                      "<!-- a comment --><other src=\"skip.pdf\"/>"
                      "<file src=\"b.pdf\" pageRange=\"3\" rangeType=\"even\" box=\"CropBox\" password=\"pw\" "
                      "output=\"b-out.pdf\"/>"
                      "<file src=\"c.pdf\" rangeType=\"Even\"/></trimFileList>");
    EXPECT_FALSE(l.merge);  // only exactly "true" merges
    EXPECT_EQ(l.outputDir, "out");
    ASSERT_EQ(l.entries.size(), 3u);
    const FileListEntry& a = l.entries[0];
    EXPECT_EQ(a.src, "a.pdf");
    EXPECT_EQ(a.box, " MediaBox");
    EXPECT_EQ(a.rangeType, kRangeAll);
    EXPECT_EQ(SelectPages(a.ranges, a.rangeType, 4), V({0, 1, 2, 3}));
    const FileListEntry& b = l.entries[1];
    EXPECT_EQ(b.box, "CropBox");
    EXPECT_EQ(b.password, "pw");
    EXPECT_EQ(b.output, "b-out.pdf");
    EXPECT_EQ(b.rangeType, kRangeEven);
    EXPECT_EQ(SelectPages(b.ranges, kRangeAll, 10), V({2}));
    EXPECT_EQ(l.entries[2].rangeType, kRangeAll);  // misspelled: all pages

    EXPECT_TRUE(Read("<trimFileList merge=\"true\"/>").merge);
    EXPECT_TRUE(Read("<fileList><file src=\"a.pdf\"/></fileList>").entries.empty());
}

TEST(FileList, PageRangesAndSelection) {
    auto r = ParsePageRange("1-3, 5 ,7-,2-1");
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[0], (FileListPageRange{1, 3}));
    EXPECT_EQ(r[1], (FileListPageRange{5, 5}));
    EXPECT_EQ(r[2], (FileListPageRange{7, -1}));
    EXPECT_EQ(SelectPages(r, kRangeAll, 8), V({0, 1, 2, 4, 6, 7, 1, 0}));
    EXPECT_EQ(SelectPages(r, kRangeOdd, 8), V({0, 2, 4, 6, 0}));
    EXPECT_EQ(SelectPages(r, kRangeEven, 8), V({1, 7, 1}));
    // Clipping: pages past the end are dropped, an open range past the end is empty.
    EXPECT_EQ(SelectPages(ParsePageRange("2-99"), kRangeAll, 3), V({1, 2}));
    EXPECT_EQ(SelectPages(ParsePageRange("5-"), kRangeAll, 3), V({}));
    EXPECT_EQ(SelectPages(ParsePageRange("9"), kRangeAll, 3), V({}));
    EXPECT_EQ(SelectPages(ParsePageRange("0"), kRangeAll, 3), V({0}));
    EXPECT_EQ(SelectPages(ParsePageRange("0-"), kRangeAll, 0), V({}));
    EXPECT_THROW(ParsePageRange("1-x"), std::runtime_error);
    EXPECT_THROW(ParsePageRange("-3"), std::runtime_error);
    EXPECT_THROW(ParsePageRange("99999999999"), std::runtime_error);
}

TEST(FileList, ReadFailuresAreLogged) {
    ScratchDir dir;
    CapturedLog log;
    FileList list;
    list.outputDir = "kept";
    EXPECT_FALSE(ReadFileList(dir.Write("bad.tml", "<trimFileList><file pageRange=\"a\"/></trimFileList>"), list,
                              log.log));
    EXPECT_NE(log.Text().find("An error ('bad page range 'a'') occured while reading the file list\n"),
              std::string::npos)
        << log.Text();
    EXPECT_EQ(list.outputDir, "kept");
    EXPECT_FALSE(ReadFileList(dir.Write("broken.tml", "<trimFileList>"), list, log.log));
    EXPECT_NE(log.Text().find("An error ('Parse error at line 1"), std::string::npos);
    ASSERT_TRUE(ReadFileList(dir.Write("ok.tml", "<trimFileList merge=\"true\"><file src=\"x.pdf\"/>"
                                                 "</trimFileList>"),
                             list, log.log));
    EXPECT_TRUE(list.merge);
    EXPECT_EQ(list.outputDir, "");
    EXPECT_EQ(list.entries.size(), 1u);
}
