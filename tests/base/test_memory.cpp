// The core heap in both modes, block validation, the status sink and the
// end-of-run reports.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "base/ASMem.h"
#include "base/ASUsage.h"

namespace {

const ASErrorCode kBadParm = ErrBuildCode(4, 0, 0x1058);

struct Captured {
    std::string text;
    int calls = 0;
    static void Proc(const char* t, void* client) {
        auto* c = static_cast<Captured*>(client);
        c->text += t;
        ++c->calls;
    }
};

// One core session with the given flags; its status text lands in `status`.
class Session {
public:
    explicit Session(ASUns32 flags) {
        VellumDataRec rec;
        rec.vellumFlags = flags;
        rec.statusProc = &Captured::Proc;
        rec.statusClientData = &status;
        VellumInit(&rec);
    }
    ~Session() { End(); }
    void End() {
        if (VellumIsInitialized()) VellumTerm();
    }
    Captured status;
};

ASErrorCode CodeOf(void (*fn)()) {
    try {
        fn();
    } catch (const CVellumError& e) {
        return e.GetErrorCode();
    }
    return 0;
}

// Right-aligned in `width` columns, as "%*s" would.
std::string Right(const std::string& s, size_t width) {
    return s.size() >= width ? s : std::string(width - s.size(), ' ') + s;
}

}  // namespace

class HeapModes : public ::testing::TestWithParam<ASUns32> {};

TEST_P(HeapModes, AllocationFreeAndCounters) {
    Session s(GetParam());
    EXPECT_EQ(CodeOf([] { ASmalloc(0); }), kBadParm);
    EXPECT_EQ(CodeOf([] { ASmalloc(-5); }), kBadParm);
    s.status.text.clear();  // drop the reports of the two raises

    const ASInt32 mallocs = ASGetMallocCount(), frees = ASGetFreeCount();
    ASfree(nullptr);
    EXPECT_EQ(ASGetFreeCount(), frees);

    auto* a = static_cast<double*>(ASmalloc(3 * sizeof(double)));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % alignof(std::max_align_t), 0u);
    a[0] = 1.5;
    a[2] = 2.5;
    auto* z = static_cast<unsigned char*>(AScalloc(100));
    for (int i = 0; i < 100; ++i) ASSERT_EQ(z[i], 0) << i;
    EXPECT_EQ(ASGetMallocCount(), mallocs + 2);
    ASfree(a);
    ASfree(z);
    EXPECT_EQ(ASGetFreeCount(), frees + 2);
    EXPECT_EQ(s.status.text, "");
}

TEST_P(HeapModes, ReallocShrinksInPlaceAndGrowsByCopy) {
    Session s(GetParam());
    auto* p = static_cast<char*>(ASmalloc(16));
    memcpy(p, "ABCDEFGHIJKLMNOP", 16);

    // Shrinking keeps the pointer and zeroes the cut-off bytes.
    char* q = static_cast<char*>(ASrealloc(p, 6));
    ASSERT_EQ(q, p);
    EXPECT_EQ(memcmp(q, "ABCDEF", 6), 0);
    for (int i = 6; i < 16; ++i) EXPECT_EQ(q[i], '\0') << i;

    // The stored size stays 16: growing to 12 is still "not larger".
    EXPECT_EQ(ASrealloc(q, 12), q);

    const ASInt32 frees = ASGetFreeCount();
    char* r = static_cast<char*>(ASrealloc(q, 4096, true));
    EXPECT_NE(r, q);
    EXPECT_EQ(memcmp(r, "ABCDEF\0\0\0\0\0\0\0\0\0\0", 16), 0);
    for (int i = 16; i < 4096; ++i) ASSERT_EQ(r[i], '\0') << i;
    EXPECT_EQ(ASGetFreeCount(), frees + 1);

    EXPECT_EQ(CodeOf([] {
                  void* t = ASmalloc(8);
                  try {
                      ASrealloc(t, 0);
                  } catch (...) {
                      ASfree(t);
                      throw;
                  }
              }),
              kBadParm);
    ASfree(r);
}

INSTANTIATE_TEST_SUITE_P(Modes, HeapModes,
                         ::testing::Values(0u, kVellumLeakproof, kVellumLeakproof | kVellumValidateBlocks));

TEST(HeapValidation, InvalidBlocksAreReportedNotReleased) {
    Session s(kVellumLeakproof | kVellumValidateBlocks);
    alignas(16) char never[64] = {};
    const ASInt32 mallocs = ASGetMallocCount(), frees = ASGetFreeCount();
    ASfree(never + 32);
    EXPECT_EQ(s.status.text, "ASfree called with an invalid block\n");
    EXPECT_EQ(ASGetFreeCount(), frees);
    EXPECT_EQ(ASGetMallocCount(), mallocs);

    s.status.text.clear();
    try {
        ASrealloc(never + 32, 8);
        ADD_FAILURE() << "no raise";
    } catch (const CVellumError& e) {
        EXPECT_EQ(e.GetErrorCode(), kBadParm);
    }
    EXPECT_EQ(s.status.text.rfind("ASrealloc called with an invalid block\n", 0), 0u) << s.status.text;

    // A block freed twice is not on the list any more.
    void* p = ASmalloc(8);
    ASfree(p);
    s.status.text.clear();
    ASfree(p);
    EXPECT_EQ(s.status.text, "ASfree called with an invalid block\n");
}

TEST(HeapModesMixed, BlocksSurviveAModeChange) {
    // Made in normal mode, released in leak-proof mode, and the other way.
    void* plain = ASmalloc(24);
    void* linked;
    {
        Session s(kVellumLeakproof);
        linked = ASmalloc(40);
        ASfree(plain);
    }
    ASfree(linked);  // after shutdown
    EXPECT_FALSE(VellumIsInitialized());
}

TEST(Reports, LeakProofSummaryListsNewestFirst) {
    Session s(kVellumLeakproof | kVellumReport);
    void* older = ASmalloc(10);
    void* newer = ASmalloc(20);
    const long mallocs = ASGetMallocCount(), frees = ASGetFreeCount();
    s.End();
    const std::string expected =
        "Vellum memory allocation summary: total mallocs = " + std::to_string(mallocs) +
        ", total frees = " + std::to_string(frees) +
        "\n"
        "Reporting memory leaks caused by ASmalloc calls:\n"
        "Note: to obtain detailed information about the file and line where the leak\n"
        "occurred, as well as other useful debugging information, please use a debug\n"
        "version of this application.\n"
        "  Leaked 20 bytes\n"
        "  Leaked 10 bytes\n"
        "\n\nNote: to review object usage by Vellum, OR the kVellumTrackObjUsage into VellumDataRec.vellumFlags "
        "before calling VellumInit.\n";
    EXPECT_EQ(s.status.text, expected);
    ASfree(older);
    ASfree(newer);
}

TEST(Reports, NormalModeNoteAndSilenceWithoutReportFlag) {
    Session s(kVellumReport);
    s.End();
    EXPECT_NE(s.status.text.find("\n\nNote: to review Vellum's detailed memory leak information, OR the "
                                 "kVellumLeakproof into VellumDataRec.vellumFlags before calling VellumInit.\n"),
              std::string::npos);
    Session quiet(kVellumLeakproof | kVellumTrackObjUsage);
    void* leak = ASmalloc(5);
    quiet.End();
    EXPECT_EQ(quiet.status.text, "");
    ASfree(leak);
}

TEST(Reports, UsageTableCountsAndHighWaterMark) {
    Session s(kVellumTrackObjUsage | kVellumReport);
    // The table lives for the whole process: these two kinds are used by
    // this test alone.
    ASUsageCreated(kUsagePDWordFinder);
    ASUsageCreated(kUsagePDWordFinder);
    ASUsageCreated(kUsagePDWordFinder);
    ASUsageFreed(kUsagePDWordFinder);
    ASUsageFreed(kUsagePDWordFinder);
    ASUsageCreated(kUsagePDWordFinder);  // alive: 3, 2, 1, 2 -> high water 3
    ASUsageCreated(kUsagePDPageToPageNumberMappingbject);
    ASUsageCreated(-1);  // out of range: ignored
    ASUsageCreated(kUsageKindCount);
    s.End();

    const std::string& t = s.status.text;
    const size_t table = t.find("\n\nVellum object usage table:\n");
    ASSERT_NE(table, std::string::npos) << t;
    const std::string heading = "\n\nVellum object usage table:\n" + std::string(32, ' ') + Right("created", 20) +
                                Right("freed", 20) + Right("leaked", 20) + Right("high water mark", 20) + "\n";
    EXPECT_EQ(t.substr(table, heading.size()), heading);
    // Rows come in kind order; the misspelt last kind is printed as it stands.
    const std::string rows =
        Right("PDWordFinder", 32) + Right("4", 20) + Right("2", 20) + Right("2", 20) + Right("3", 20) + "\n";
    const std::string last = Right("PDPageToPageNumberMappingbject", 32) + Right("1", 20) + Right("0", 20) +
                             Right("1", 20) + Right("1", 20) + "\n";
    const size_t a = t.find(rows), b = t.find(last);
    ASSERT_NE(a, std::string::npos) << t;
    ASSERT_NE(b, std::string::npos) << t;
    EXPECT_LT(a, b);
    EXPECT_EQ(b + last.size(), t.size());
}

TEST(StatusSink, CallbackRules) {
    {
        Session s(0);
        const char* emptyFormat = "";
        VellumStatusPrintf(emptyFormat);
        VellumStatusPrintf(nullptr);
        EXPECT_EQ(s.status.calls, 0);
        VellumStatusPrintf("%s", "");  // an empty text still calls: only an empty format is skipped
        const std::string big(20000, 'q');
        VellumStatusPrintf("%s %d\n", big.c_str(), 42);
        EXPECT_EQ(s.status.calls, 2);
        EXPECT_EQ(s.status.text, big + " 42\n");
    }
    {
        VellumDataRec rec;
        rec.statusProc = kVellumStatusToConsole;
        VellumInit(&rec);
        testing::internal::CaptureStderr();
        VellumStatusPrintf("to the console %d\n", 7);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "to the console 7\n");
        VellumTerm();
    }
    EXPECT_EQ(CodeOf([] {
                  VellumDataRec r;
                  r.size = 3;
                  VellumInit(&r);
              }),
              kBadParm);
    EXPECT_THROW(VellumInit(nullptr), CVellumError);
    EXPECT_FALSE(VellumIsInitialized());
}
