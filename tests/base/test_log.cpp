// Channels, destinations, the lazily opened log file and error reports.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <regex>
#include <string>

#include "base/Log.h"

namespace fs = std::filesystem;

namespace {

std::string ReadAll(FILE* f) {
    std::string s;
    fflush(f);
    rewind(f);
    int c;
    while ((c = fgetc(f)) != EOF) s += static_cast<char>(c);
    return s;
}

std::string ReadFile(const fs::path& p) {
    std::string s;
    if (FILE* f = fopen(p.c_str(), "rb")) {
        s = ReadAll(f);
        fclose(f);
    }
    return s;
}

// A Log whose console streams are captured, with a scratch folder.
class LogTest : public ::testing::Test {
protected:
    void SetUp() override {
        out = tmpfile();
        err = tmpfile();
        log.SetConsoleStreams(out, err);
        dir = fs::temp_directory_path() /
              ("tm-log-" + std::to_string(getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override {
        log.Close();
        fclose(out);
        fclose(err);
        fs::remove_all(dir);
    }
    Log log;
    FILE* out = nullptr;
    FILE* err = nullptr;
    fs::path dir;
};

struct RecordingSink : ProgressSink {
    std::string errors;
    void ErrorText(const char* text) override { errors += text; }
};

const char* const kSeparator = "\n--------------------\n\n";
// asctime's form: "Fri Apr 16 09:30:05 2004\n".
const std::regex kAsctime("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}\n");

}  // namespace

TEST_F(LogTest, DefaultChannelsAndDestinations) {
    log.SetFileName((dir / "Log.txt").string());
    log.Info("info %d\n", 1);
    log.Error("error %s\n", "two");
    log.Warning("warning\n");
    log.Progress("progress\n");  // off by default
    log.Debug("debug\n");        // off by default
    EXPECT_EQ(ReadAll(err), "info 1\nerror two\nwarning\n");
    EXPECT_EQ(ReadAll(out), "");
    EXPECT_FALSE(fs::exists(dir / "Log.txt"));

    log.SetChannelOff(Log::kProgress, false);
    log.SetChannelOff(Log::kInfo, true);
    log.Progress("\tstep\n");
    log.Info("dropped\n");
    EXPECT_EQ(ReadAll(out), "\tstep\n");
    EXPECT_EQ(ReadAll(err), "info 1\nerror two\nwarning\n");

    log.SetConsoleQuiet(true);
    log.Progress("quiet\n");
    log.Warning("quiet\n");
    EXPECT_EQ(ReadAll(out), "\tstep\n");
    EXPECT_EQ(ReadAll(err), "info 1\nerror two\nwarning\n");
}

TEST_F(LogTest, FileIsOpenedLazilyAndAppended) {
    const fs::path file = dir / "run.log";
    log.SetFileName(file.string());
    log.SetDestinations(Log::kInfo, LogToFile | LogToStderr);
    log.SetDestinations(Log::kDebug, LogToFile | LogToStdout);
    log.SetChannelOff(Log::kDebug, false);
    log.Warning("not in the file\n");
    EXPECT_FALSE(log.IsFileOpen());
    log.Info("first %s\n", "run");
    EXPECT_TRUE(log.IsFileOpen());
    log.Close();

    const std::string notice = "Writing error log: " + file.string() + "\n";
    EXPECT_EQ(ReadAll(out), notice);
    EXPECT_EQ(ReadAll(err), "not in the file\nfirst run\n");

    // Separator, asctime stamp, blank line, then the messages.  Appending
    // across runs is covered by the command-line tests.
    std::string rest = ReadFile(file);
    const std::string sep = kSeparator;
    ASSERT_EQ(rest.rfind(sep, 0), 0u) << rest;
    rest = rest.substr(sep.size());
    std::smatch m;
    ASSERT_TRUE(std::regex_search(rest, m, kAsctime, std::regex_constants::match_continuous)) << rest;
    EXPECT_EQ(rest.substr(m.length()), "\n" + notice + "first run\n");
}

TEST_F(LogTest, UnopenableFileWarnsOnceAndConsoleGoesOn) {
    const std::string name = (dir / "missing" / "log.txt").string();
    log.SetFileName(name);
    log.SetDestinations(Log::kInfo, LogToFile | LogToStderr);
    log.Info("one\n");
    log.Info("two\n");
    EXPECT_EQ(ReadAll(err), "Warning: error opening log file " + name + "\none\ntwo\n");

    // Once the folder exists a later message succeeds in opening the file.
    fs::create_directories(dir / "missing");
    log.Info("three\n");
    EXPECT_TRUE(log.IsFileOpen());
    log.Close();
    EXPECT_NE(ReadFile(name).find("three\n"), std::string::npos);
}

TEST_F(LogTest, StampModes) {
    const fs::path file = dir / "stamped.txt";
    log.SetFileName(file.string());
    log.SetStampMode(2);
    log.SetDestinations(Log::kWarning, LogToFile | LogToStderr);
    log.Warning("careful\n");
    log.Close();
    const std::regex stamped(
        R"(\[ [A-Z][a-z]+day, [A-Z][a-z]+ [0-9]{2}, [0-9]{4}  [0-9]{2}:[0-9]{2}:[0-9]{2} [AP]M \]\tcareful\n)");
    EXPECT_TRUE(std::regex_match(ReadAll(err), stamped)) << ReadAll(err);
    // Mode 2 writes no time stamp at the top of the file.
    const std::string text = ReadFile(file);
    ASSERT_EQ(text.rfind(kSeparator, 0), 0u);
    EXPECT_TRUE(std::regex_match(text.substr(std::string(kSeparator).size()), stamped)) << text;
}

TEST_F(LogTest, ErrorReportsAndTheSink) {
    RecordingSink sink;
    log.SetProgressSink(&sink);
    log.ReportError(ErrBuildCode(4, 0, 0x1058));
    log.ReportError(ErrBuildCode(4, 0, 0x10E8), "Error during processing");
    log.ReportError(0x10F1, "ctx");
    const std::string expected =
        "An error occured: bad parameter\n"
        "Error during processing: 'routine not yet implemented'\n"
        "ctx: 'unknown error'\n";
    EXPECT_EQ(ReadAll(err), expected);
    EXPECT_EQ(sink.errors, expected);

    log.Info("not an error\n");
    EXPECT_EQ(sink.errors, expected);
}

TEST_F(LogTest, LongMessagesAreCutToTheBuffer) {
    log.Info("%s", std::string(20000, 'z').c_str());
    EXPECT_EQ(ReadAll(err), std::string(Log::kFormatBufferSize - 1, 'z'));
}

// The strict exit status reads these counts: every message counts, also on
// a channel that is off or a console that is quiet.
TEST_F(LogTest, MessagesAreCountedPerChannel) {
    log.SetConsoleQuiet(true);
    log.Warning("one\n");
    log.Write(Log::kWarning, "two\n");
    log.Error("three\n");
    log.SetChannelOff(Log::kWarning, true);
    log.Warning("four\n");
    log.Debug("off by default\n");
    EXPECT_EQ(log.Count(Log::kWarning), 3u);
    EXPECT_EQ(log.Count(Log::kError), 1u);
    EXPECT_EQ(log.Count(Log::kDebug), 1u);
    EXPECT_EQ(log.Count(Log::kInfo), 0u);
}
