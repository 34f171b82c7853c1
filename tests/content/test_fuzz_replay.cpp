// Inputs the content fuzz target found (and hand-made hard cases) are
// replayed through every handler: no crash, no leak (under the sanitizers),
// and a rewrite that reads back as the operators it wrote.
#include <dirent.h>

#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "content/Placement.h"
#include "content/ResourceUse.h"
#include "content/TextTracking.h"
#include "tests/content/ContentTestUtil.h"

namespace {

class OperatorCounter : public ContentHandler {
public:
    OperatorCounter() { m_out.SetEnabled(false); }
    void Operator(std::string_view op) override { ++ops[std::string(op)]; }
    std::map<std::string, long> ops;
};

std::map<std::string, long> Ops(const std::string& content) {
    OperatorCounter c;
    c.RunContent(Bytes(content));
    return c.ops;
}

TEST(FuzzReplay, EveryKeptInputRewritesStably) {
    std::string dir = std::string(TM_TEST_DATA_DIR) + "/fuzz-content";
    DIR* d = opendir(dir.c_str());
    ASSERT_NE(d, nullptr);
    int files = 0;
    while (dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        std::ifstream in(dir + "/" + name, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        const std::string data = ss.str();
        ++files;
        for (bool remove : {false, true}) {
            std::string once = Rewrite(data, nullptr, remove);
            std::string twice = Rewrite(once);
            EXPECT_EQ(Ops(once), Ops(twice)) << name;
            EXPECT_EQ(once, twice) << name;
        }
        ResourceUseHandler use;
        use.RunContent(Bytes(data));
        TextTrackingHandler text;
        text.RunContent(Bytes(data));
        PlacementHandler place;
        place.RunContent(Bytes(data));
    }
    closedir(d);
    EXPECT_GT(files, 0);
}

}  // namespace
