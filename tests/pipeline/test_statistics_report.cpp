// The statistics dictionary and the report built from it.
#include <gtest/gtest.h>

#include <string>

#include "pdfcore/CosDoc.h"
#include "pipeline/Report.h"
#include "pipeline/Statistics.h"

using pipeline::BuildReport;
using pipeline::ReportInputs;
using pipeline::Statistics;

namespace {

class StatsTest : public ::testing::Test {
protected:
    void SetUp() override {
        doc = CosDocCreate();
        stats = Statistics(CosNewDict(doc, true));
        stats.Reset();
    }
    void TearDown() override { CosDocClose(doc); }
    std::string Report(const ReportInputs& in = {}) {
        bool failed = true;
        std::string text = BuildReport(in, stats, "   ", &failed);
        EXPECT_FALSE(failed);
        return text;
    }
    void Set(std::initializer_list<std::pair<const char*, ASInt32>> counts) {
        for (auto [key, n] : counts) stats.Set(key, n);
    }
    CosType Kind(const std::string& key) { return CosObjGetType(CosDictGet(stats.Dict(), ASAtomFromString(key.c_str()))); }
    CosDoc doc = nullptr;
    Statistics stats{CosNewNull()};
};

TEST_F(StatsTest, ResetCreatesEveryKeyWithItsKind) {
    const size_t keys = pipeline::StatisticsCounterKeys().size() + pipeline::StatisticsFlagKeys().size();
    EXPECT_EQ(keys, size_t(CosDictCount(stats.Dict())));
    for (const auto& key : pipeline::StatisticsCounterKeys())
        EXPECT_EQ(kCosInteger, Kind(key)) << key;
    for (const auto& key : pipeline::StatisticsFlagKeys())
        EXPECT_EQ(kCosBoolean, Kind(key)) << key;

    // A reset after use forgets counts, flags and anything foreign.
    stats.Increment("Fonts_Total", 4);
    stats.SetFlag("Tagging_Removed", true);
    CosDictPut(stats.Dict(), ASAtomFromString("Stray"), CosNewInteger(doc, false, 1));
    stats.Reset();
    EXPECT_EQ(0, stats.Get("Fonts_Total"));
    EXPECT_FALSE(stats.GetFlag("Tagging_Removed"));
    EXPECT_FALSE(CosDictKnown(stats.Dict(), ASAtomFromString("Stray")));
    EXPECT_EQ(keys, size_t(CosDictCount(stats.Dict())));
}

TEST_F(StatsTest, IncrementAndSetTouchOnlyExistingKeysOfTheirKind) {
    stats.Increment("Thumbs_Removed");
    stats.Increment("Thumbs_Removed", 2);
    EXPECT_EQ(3, stats.Get("Thumbs_Removed"));

    stats.Increment("No_Such_Key", 5);  // never created by an increment
    EXPECT_FALSE(CosDictKnown(stats.Dict(), ASAtomFromString("No_Such_Key")));
    EXPECT_EQ(0, stats.Get("No_Such_Key"));

    stats.Increment("Metadata_Removed");  // a flag is not a counter
    EXPECT_EQ(kCosBoolean, Kind("Metadata_Removed"));
    EXPECT_FALSE(stats.GetFlag("Metadata_Removed"));

    stats.Set("Images_Total", 0x7ffffff0);
    stats.Increment("Images_Total", 100);  // saturates instead of wrapping
    EXPECT_EQ(0x7fffffff, stats.Get("Images_Total"));

    // Set keeps a flag a flag and creates nothing either.
    stats.Set("Metadata_Removed", 7);
    EXPECT_EQ(kCosBoolean, Kind("Metadata_Removed"));
    EXPECT_EQ(1, stats.Get("Metadata_Removed"));
    stats.Set("Made_Up", 1);
    EXPECT_FALSE(CosDictKnown(stats.Dict(), ASAtomFromString("Made_Up")));
}

TEST_F(StatsTest, NothingDoneGivesNoLines) {
    stats.Set("Images_Total", 12);  // totals alone are not things done
    stats.Set("Fonts_Total", 3);
    stats.Set("Shadings_Total", 2);
    stats.Set("Annots_Total", 4);
    stats.Set("Annots_Removed", 1);  // the row waits for its first counter
    stats.Set("MarkedContent_Total", 6);
    EXPECT_EQ("", Report());
}

TEST_F(StatsTest, DuplicateAndCompressedRowsWithNouns) {
    Set({{"ImageXObjects_Duplicates", 1}, {"ImageXObjects_Total", 7}});
    EXPECT_EQ("   Found 1 duplicate Image out of 7 total\n", Report());

    Set({{"ImageXObjects_Duplicates", 2}, {"Fonts_Compressed", 1}, {"Fonts_Total", 1},
         {"T3FontGlyphs_Compressed", 3}, {"T3FontGlyphs_Total", 4}});
    EXPECT_EQ(
        "   Found 2 duplicate Images out of 7 total\n"
        "   Compressed 1 Font out of 1 total\n"
        "   Optimized and Compressed 3 Type 3 Font Glyphs out of 4 total\n",
        Report());
}

TEST_F(StatsTest, OneFormNounsAndMisspellingsStand) {
    Set({{"EditData_Removed", 1}, {"JobTicket_Removed", 1}, {"FormAPs_Removed", 2}});
    EXPECT_EQ(
        "   Removed 1 unnecessary Edit Data\n"
        "   Removed 1 unnecessary Job Tickets\n"
        "   Removed 2 unnecessary Form Appearences\n",
        Report());
    Set({{"EditData_Removed", 4}, {"JobTicket_Removed", 4}, {"FormAPs_Removed", 1}});
    EXPECT_EQ(
        "   Removed 4 unnecessary Edit Data\n"
        "   Removed 4 unnecessary Job Tickets\n"
        "   Removed 1 unnecessary Form Appearance\n",
        Report());
}

TEST_F(StatsTest, ContentStreamVariants) {
    // Counted streams are reported even when none was compressed or combined.
    Set({{"ContentStreams_Total", 3}, {"ContentStreams_Optimized", 3}});
    EXPECT_EQ("   Combined 3 Content Streams into 3, optimizing 3 & compressing 0\n", Report());

    Set({{"ContentStreams_Total", 6}, {"ContentStreams_Compressed", 1}, {"ContentStreams_Optimized", 2}});
    EXPECT_EQ("   Combined 6 Content Stream into 6, optimizing 2 & compressing 1\n", Report());
    // Combined counts the pages, each left with one stream.
    stats.Set("ContentStreams_Combined", 4);
    EXPECT_EQ("   Combined 6 Content Streams into 4, optimizing 2 & compressing 1\n", Report());
    stats.Set("ContentStreams_Combined", 1);
    EXPECT_EQ("   Combined 6 Content Stream into 1, optimizing 2 & compressing 1\n", Report());

    // Without streams counted there is nothing to report.
    stats.Set("ContentStreams_Total", 0);
    EXPECT_EQ("", Report());
}

TEST_F(StatsTest, SumsOfSaturatedCountersStayInRange) {
    Set({{"Annots_Cleaned", 0x7fffffff}, {"LinkAnnots_Cleaned", 0x7fffffff}});
    EXPECT_EQ("   Cleaned up 2147483647 Annotations\n", Report());
}

TEST_F(StatsTest, FlagsAndOperatorRowsInOrder) {
    for (const char* flag : {"OutlineTree_Removed", "Metadata_Removed", "PSDAlbum_Cleanup"}) stats.SetFlag(flag, true);
    Set({{"Annots_Flattened", 1}, {"Annots_Removed", 2}, {"Annots_Total", 5}, {"RIOperators_Removed", 3},
         {"RIOperators_Total", 8}, {"Annots_Cleaned", 1}, {"LinkAnnots_Cleaned", 1}, {"Stamps_Applied", 1},
         {"Images_Palettized", 2}, {"Images_Total", 9}});
    EXPECT_EQ(
        "   Palettized 2 of 9 images\n"
        "   Cleaned up 2 Annotations\n"
        "   Removed unnecessary Metadata\n"
        "   Removed unnecessary Bookmarks\n"
        "   Flattened 1 & Removed 2 of 5 Annotation\n"
        "   Removed 3 of 8 RI Operators\n"
        "   Cleaned up Photoshop Album Information\n"
        "   Added 1 Stamp/Watermark\n",
        Report());
}

TEST_F(StatsTest, EncryptionMetadataAndViewingFromSettings) {
    ReportInputs in;
    in.linearize = true;
    in.encrypt = true;
    in.keyLength = 128;
    in.userPassword = true;
    in.securityWord = 0x0004 | 0x0010 | 0x0200 | 0x0800;  // no print, no copy; access, HQ print
    in.metadata = {{"Title", "Annual report"}};
    in.startingPage = 3;
    in.centerWindow = true;
    const std::string sub = "      ";
    EXPECT_EQ("   Enabled 'Fast Web View'\n"
              "   Encrypted using a 128bit key a user password and these permissions\n" +
                  sub + "printing (disabled)\n" + sub + "editing (enabled)\n" + sub +
                  "copying (disabled)\n" + sub + "commenting (enabled)\n" + sub +
                  "form filling (disabled)\n" + sub + "accessability (enabled)\n" + sub +
                  "assembly (disabled)\n" + sub + "high quality printing (enabled)\n" +
                  "   Applied Metadata\n" + sub + "Title = Annual report\n" +
                  "   Set the starting page to 3\n"
                  "   Set 'center window on screen'\n",
              Report(in));

    // 40-bit keys: the four newer permissions follow the older ones.
    ReportInputs weak;
    weak.encrypt = true;
    weak.keyLength = 40;
    weak.userPassword = weak.ownerPassword = true;
    weak.securityWord = 0x0008;  // editing disabled
    std::string text = Report(weak);
    EXPECT_NE(std::string::npos,
              text.find("Encrypted using a 40bit key both user and owner passwords and these"));
    EXPECT_NE(std::string::npos, text.find(sub + "assembly (disabled)\n"));
    EXPECT_NE(std::string::npos, text.find(sub + "form filling (enabled)\n"));

    weak.userPassword = false;
    EXPECT_NE(std::string::npos, Report(weak).find("key an owner password and"));
}

TEST(ReportWriter, FailureKeepsEarlierLinesAndDropsLater) {
    pipeline::ReportWriter w("   ");
    w.Line(1, "First %1%\n", 1);
    w.Line(1, "Broken %1% %2%\n", 1);  // too few arguments
    w.Line(1, "Never %1%\n", 2);
    EXPECT_TRUE(w.Failed());
    EXPECT_EQ("   First 1\n", w.Text());
}

}  // namespace
