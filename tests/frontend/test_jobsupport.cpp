// Output names for the command-line and list jobs, the summary lines
// printed after each output, and the job notices to the progress sink.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "frontend/JobRunner.h"
#include "frontend/JobSupport.h"
#include "base/Log.h"
#include "settings/FileList.h"
#include "settings/TrimoraPreferences.h"
#include "tests/settings/SettingsTestUtil.h"

namespace fs = std::filesystem;
using jobs::OutputNameFor;
using jobs::PdfNameForImage;

namespace {

// The summary of one job, captured from the Info channel.
std::string Summary(ASInt32 starting, ASInt32 ending, const JobTimer& timer) {
    CapturedLog cap;
    CTrimoraPreferences prefs;
    CRunStatistics& run = prefs.Statistics();
    run.startingSize = starting;
    run.endingSize = ending;
    run.percent = starting == 0 ? 0 : (double(starting) - double(ending)) * 100.0 / double(starting);
    jobs::PrintSummary(prefs, timer, false, cap.log);
    EXPECT_EQ(cap.Out(), "");
    return cap.Err();
}

}  // namespace

TEST(OutputNameTest, ForADirectoryAndForAFile) {
    ScratchDir dir;
    const std::string out = dir / "out";
    fs::create_directories(out);
    // A directory takes the input's last path part, whichever separator
    // the input uses, and trailing separators of the option do not double.
    EXPECT_EQ(OutputNameFor(out, "in/sub/a.pdf"), out + "/a.pdf");
    EXPECT_EQ(OutputNameFor(out, "C:\\in\\a.pdf"), out + "/a.pdf");
    EXPECT_EQ(OutputNameFor(out + "/", "in/a.pdf"), out + "/a.pdf");
    // An input without any separator contributes nothing: the directory.
    EXPECT_EQ(OutputNameFor(out, "a.pdf"), out);
    // Anything that is not an existing directory is the output as it stands.
    EXPECT_EQ(OutputNameFor(dir / "new.pdf", "in/a.pdf"), dir / "new.pdf");
    EXPECT_EQ(OutputNameFor(dir / "nope/x", "in/a.pdf"), dir / "nope/x");
}

TEST(ImageOutputNameTest, ExtensionBecomesPdf) {
    EXPECT_EQ(PdfNameForImage("scan.tif"), "scan.pdf");
    EXPECT_EQ(PdfNameForImage("dir/photo.v2.JPEG"), "dir/photo.v2.pdf");
    EXPECT_EQ(PdfNameForImage("dir.d/scan"), "dir.d/scan.pdf");
    EXPECT_EQ(PdfNameForImage("scan"), "scan.pdf");
}

TEST(SummaryTest, SizesPercentAndTime) {
    const JobTimer t{100, 200, 100, 600};
    EXPECT_EQ(Summary(2048, 1024, t),
              "   starting size  = 2.0 KB (2,048 Bytes)\n"
              "   ending size    = 1.0 KB (1,024 Bytes)\n"
              "   percent shrunk = 50.0%\n"
              "\n"
              "   elapsed time   : 0.40 seconds\n"
              "\n");
    // A larger output is "grown", with a positive number.
    const std::string grown = Summary(1000, 1250, t);
    EXPECT_NE(grown.find("   percent grown  = 25.0%\n"), std::string::npos) << grown;
    EXPECT_EQ(grown.find("shrunk"), std::string::npos);
    // Equal sizes count as shrunk by 0.
    EXPECT_NE(Summary(1000, 1000, t).find("   percent shrunk = 0.0%\n"), std::string::npos);
    // Nothing to compare with: only the time.
    EXPECT_EQ(Summary(0, 5000, JobTimer{}), "   elapsed time   : < 1 second\n\n");
}

namespace {

struct JobSink : ProgressSink {
    int begun = 0;
    int ended = 0;
    void JobBegin() override { ++begun; }
    void JobEnd() override { ++ended; }
};

}  // namespace

TEST(JobRunTest, TellsTheSinkWhenJobsStartAndEnd) {
    ScratchDir dir;
    CapturedLog cap;
    Log& log = cap.log;
    JobSink sink;
    log.SetProgressSink(&sink);
    CTrimoraPreferences master;
    master.SetLog(&log);
    jobs::JobOptions options;

    EXPECT_EQ(jobs::RunCommandLineJob({}, options, master, log), 0);
    EXPECT_EQ(sink.begun, 1);
    EXPECT_EQ(sink.ended, 1);

    FileList list;
    EXPECT_EQ(jobs::RunListJob(list, options, master, log), 0);
    EXPECT_EQ(sink.begun, 2);
    EXPECT_EQ(sink.ended, 2);

    // A job that ends in a core error still ends for the sink.
    const std::string missing = dir / "missing.pdf";
    EXPECT_THROW(jobs::RunCommandLineJob({missing}, options, master, log), CVellumError);
    EXPECT_EQ(sink.begun, 3);
    EXPECT_EQ(sink.ended, 3);
    EXPECT_TRUE(cap.Logged("Attempting to shrink input file: " + missing + "\n"));
}
