// The temporary file of a save: unnamed where the system allows it, named
// and removed otherwise, and links followed to the file they lead to.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "pdfcore/AtomicFile.h"
#include "tests/pdfcore/test_support.h"

namespace {

namespace fs = std::filesystem;

class AtomicFileTest : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(scratch / "sub"); }
    void TearDown() override { CosTempFileForceNamedForTesting(false); }
    std::vector<std::string> Names(const std::string& sub = "") const { return scratch.Names(sub); }
    void Put(CosTempFile& t, const std::string& text) {
        ASSERT_EQ(write(t.Fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    ScratchDir scratch;
    const std::string dir = scratch.path;
};

TEST_F(AtomicFileTest, LinksAreFollowedToTheirEnd) {
    EXPECT_EQ(CosResolveLinks(dir + "/plain.pdf"), dir + "/plain.pdf");  // need not exist
    fs::create_symlink("sub/target.pdf", dir + "/rel.pdf");
    EXPECT_EQ(CosResolveLinks(dir + "/rel.pdf"), dir + "/sub/target.pdf");  // dangling is fine
    fs::create_symlink(dir + "/rel.pdf", dir + "/sub/abs.pdf");
    EXPECT_EQ(CosResolveLinks(dir + "/sub/abs.pdf"), dir + "/sub/target.pdf");
    fs::create_symlink("loop-b", dir + "/loop-a");
    fs::create_symlink("loop-a", dir + "/loop-b");
    // A loop ends after the system's bound instead of running forever.
    std::string end = CosResolveLinks(dir + "/loop-a");
    EXPECT_TRUE(end == dir + "/loop-a" || end == dir + "/loop-b") << end;
}

TEST_F(AtomicFileTest, NamedTemporaryIsRemovedUnlessCommitted) {
    CosTempFileForceNamedForTesting(true);
    {
        CosTempFile t(dir + "/out.pdf");
        EXPECT_FALSE(t.Unnamed());
        ASSERT_FALSE(t.TempPath().empty());
        EXPECT_EQ(fs::path(t.TempPath()).filename().string().rfind(".out.pdf.tm", 0), 0u);
        EXPECT_TRUE(fs::exists(t.TempPath()));
        Put(t, "abandoned");
    }
    EXPECT_EQ(Names(), std::vector<std::string>{"sub"});
    {
        CosTempFile t(dir + "/out.pdf");
        Put(t, "kept");
        t.Commit();
    }
    EXPECT_EQ(ReadFile(dir + "/out.pdf"), "kept");
    EXPECT_EQ(Names(), (std::vector<std::string>{"out.pdf", "sub"}));
}

TEST_F(AtomicFileTest, UnnamedTemporaryLeavesNoNameUntilItIsComplete) {
    CosTempFile t(dir + "/out.pdf");
    if (!t.Unnamed()) GTEST_SKIP() << "no unnamed temporary files here";
    EXPECT_TRUE(t.TempPath().empty());
    Put(t, "body");
    EXPECT_EQ(Names(), std::vector<std::string>{"sub"});
    t.Commit();
    EXPECT_EQ(ReadFile(dir + "/out.pdf"), "body");
    EXPECT_EQ(Names(), (std::vector<std::string>{"out.pdf", "sub"}));
}

TEST_F(AtomicFileTest, ReplacingThroughALinkKeepsTheLinkAndTheTargetsMode) {
    for (bool named : {false, true}) {
        CosTempFileForceNamedForTesting(named);
        std::ofstream(dir + "/sub/target.pdf") << "old";
        chmod((dir + "/sub/target.pdf").c_str(), 0604);
        fs::remove(dir + "/link.pdf");
        fs::create_symlink("sub/target.pdf", dir + "/link.pdf");
        CosTempFile t(dir + "/link.pdf");
        EXPECT_EQ(t.ResolvedTarget(), dir + "/sub/target.pdf");
        Put(t, "new");
        t.Commit();
        EXPECT_TRUE(fs::is_symlink(dir + "/link.pdf"));
        EXPECT_EQ(ReadFile(dir + "/sub/target.pdf"), "new");
        struct stat st {};
        ASSERT_EQ(stat((dir + "/sub/target.pdf").c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0604u) << named;
        EXPECT_EQ(Names("sub"), std::vector<std::string>{"target.pdf"});
    }
}

TEST_F(AtomicFileTest, FailedRenameLeavesNothing) {
    for (bool named : {false, true}) {
        CosTempFileForceNamedForTesting(named);
        CosTempFile t(dir + "/sub");  // a folder cannot be replaced by a file
        Put(t, "x");
        EXPECT_EQ(ErrorOf([&] { t.Commit(); }), kErrCannotRename);
        EXPECT_EQ(Names(), std::vector<std::string>{"sub"}) << named;
        EXPECT_TRUE(Names("sub").empty());
    }
    EXPECT_EQ(ErrorOf([&] { CosTempFile t(dir + "/no-such-folder/x.pdf"); }), kErrCantOpenForWrite);
}

}  // namespace
