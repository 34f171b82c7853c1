// ASCIIHex, ASCII85, RunLength and LZW: known answers, awkward endings,
// damaged data and the encoders' round trips.
#include <gtest/gtest.h>

#include <map>

#include "tests/filters/FilterTestUtil.h"

using namespace filters;
using namespace filters::testing;

TEST(ASCIIHex, WhitespaceOddDigitAndTerminator) {
    EXPECT_EQ(S(ASCIIHexDecode(B("48 65\n6c6C 6f>ignored"))), "Hello");
    // An odd final digit is its high nibble.
    EXPECT_EQ(ASCIIHexDecode(B("4142 4>")), (Bytes{0x41, 0x42, 0x40}));
    EXPECT_EQ(ASCIIHexDecode(B("a")), (Bytes{0xA0}));
    EXPECT_TRUE(ASCIIHexDecode(B(">414243")).empty());
}

TEST(ASCIIHex, BadCharacterKeepsWhatCameBefore) {
    WarningCatcher wc;
    DecodeResult r = DecodeChain(B("4142zz43>"), {{"AHx", {}}});
    EXPECT_EQ(S(r.data), "AB");
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    ASSERT_EQ(wc.warnings.size(), 1u);
    EXPECT_EQ(RaisedError([&] { DecodeChain(B("4142zz43>"), {{"AHx", {}}}, kStrict); }), kErrSyntax);
}

TEST(ASCII85, GroupsZAndPartialFinalGroups) {
    // "Man " and "sure" are the classic groups; 'z' stands for four zeros.
    EXPECT_EQ(S(ASCII85Decode(B("9jqo^F*2M7~>"))), "Man sure");
    EXPECT_EQ(ASCII85Decode(B("z~>")), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(S(ASCII85Decode(B("9jqo^ z 9jqo^~>"))), std::string("Man ") + std::string(4, '\0') + "Man ");
    // Partial final groups: 2, 3 and 4 characters give 1, 2 and 3 bytes.
    EXPECT_EQ(S(ASCII85Decode(B("9`~>"))), "M");
    EXPECT_EQ(S(ASCII85Decode(B("9jn~>"))), "Ma");
    EXPECT_EQ(S(ASCII85Decode(B("9jqo~>"))), "Man");
    // Whitespace anywhere, including inside '~ >', and no terminator at all.
    EXPECT_EQ(S(ASCII85Decode(B(" 9j\nqo\t^F*2 M7 ~\n>"))), "Man sure");
    EXPECT_EQ(S(ASCII85Decode(B("9jqo^"))), "Man ");
    // Everything after the terminator is ignored.
    EXPECT_EQ(S(ASCII85Decode(B("9jqo^~>9jqo^"))), "Man ");
}

TEST(ASCII85, DamagedGroups) {
    WarningCatcher wc;
    for (const char* bad : {"9jqo^9~>", "9jqo^9jzo^~>", "9jqo^vvvv~>", "9jqo^s8W-\"~>", "9jqo^~x"}) {
        SCOPED_TRACE(bad);
        DecodeResult r = DecodeChain(B(bad), {{"A85", {}}});
        EXPECT_EQ(r.status, DecodeStatus::Corrupt);
        EXPECT_EQ(S(r.data), "Man ");
        EXPECT_EQ(RaisedError([&] { DecodeChain(B(bad), {{"A85", {}}}, kStrict); }), kErrSyntax);
    }
    // The highest group value decodes; one past it does not.
    EXPECT_EQ(ASCII85Decode(B("s8W-!~>")), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(RunLength, KnownAnswerAndRoundTrip) {
    EXPECT_EQ(S(RunLengthDecode(Bytes{2, 'a', 'b', 'c', 0xFE, 'x', 128, 5, 'z'})), "abcxxx");
    Lcg rng(7);
    Bytes data;
    for (int i = 0; i < 5000; ++i) {
        uint8_t v = static_cast<uint8_t>(rng.Next() % 4);
        int rep = (rng.Next() % 5 == 0) ? static_cast<int>(rng.Next() % 300) : 1;
        data.insert(data.end(), static_cast<size_t>(rep), v);
    }
    Bytes enc = RunLengthEncode(data);
    EXPECT_LT(enc.size(), data.size());
    EXPECT_EQ(RunLengthDecode(enc), data);
    EXPECT_EQ(RunLengthDecode(RunLengthEncode({})), Bytes{});
    EXPECT_EQ(RunLengthDecode(RunLengthEncode(Bytes{9, 9})), (Bytes{9, 9}));
}

TEST(RunLength, TruncatedRun) {
    WarningCatcher wc;
    DecodeResult r = DecodeChain(Bytes{4, 'a', 'b'}, {{"RL", {}}});
    EXPECT_EQ(S(r.data), "ab");
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    EXPECT_EQ(wc.warnings.size(), 1u);
}

namespace {

// A plain LZW encoder written independently of the library's: a std::map
// dictionary, a settable EarlyChange, and no clear codes after the first,
// so long inputs fill the table and the decoder must stop adding entries.
Bytes ReferenceLZW(const Bytes& in, int early) {
    std::map<std::pair<int, int>, int> dict;
    Bytes out;
    uint64_t acc = 0;
    int nacc = 0;
    int next = 258;
    auto width = [&](int tableSize) {
        int n = tableSize + early;
        return n >= 2048 ? 12 : n >= 1024 ? 11 : n >= 512 ? 10 : 9;
    };
    // `decoderNext` tracks the reader's table size, one behind the writer's.
    int decoderNext = 258;
    bool first = true;
    auto put = [&](int code) {
        int w = width(decoderNext);
        acc = (acc << w) | static_cast<uint64_t>(code);
        nacc += w;
        while (nacc >= 8) {
            nacc -= 8;
            out.push_back(static_cast<uint8_t>(acc >> nacc));
        }
        if (code < 256 || code >= 258) {
            if (!first && decoderNext < 4096) ++decoderNext;
            first = false;
        }
    };
    put(256);
    int prefix = -1;
    for (uint8_t c : in) {
        if (prefix < 0) {
            prefix = c;
            continue;
        }
        auto it = dict.find({prefix, c});
        if (it != dict.end()) {
            prefix = it->second;
            continue;
        }
        put(prefix);
        if (next < 4096) dict[{prefix, c}] = next++;
        prefix = c;
    }
    if (prefix >= 0) put(prefix);
    put(257);
    if (nacc > 0) out.push_back(static_cast<uint8_t>(acc << (8 - nacc)));
    return out;
}

}  // namespace

TEST(LZW, KnownAnswerEarlyChange) {
    // The textbook example: "-----A---B" with the default EarlyChange 1.
    Bytes enc{0x80, 0x0B, 0x60, 0x50, 0x22, 0x0C, 0x0C, 0x85, 0x01};
    EXPECT_EQ(S(LZWDecode(enc)), "-----A---B");
    EXPECT_EQ(ReferenceLZW(B("-----A---B"), 1), enc);
}

TEST(LZW, TableFillsUpWithBothEarlyChanges) {
    Lcg rng(11);
    Bytes data;
    // Varied enough that the 4096-entry table fills long before the end.
    for (int i = 0; i < 60000; ++i) data.push_back(static_cast<uint8_t>('a' + rng.Next() % 20));
    for (int early : {0, 1}) {
        SCOPED_TRACE(early);
        Bytes enc = ReferenceLZW(data, early);
        EXPECT_EQ(LZWDecode(enc, Params({{"EarlyChange", double(early)}})), data);
    }
    // Read with the wrong EarlyChange the codes go astray.
    WarningCatcher wc;
    EXPECT_NE(LZWDecode(ReferenceLZW(data, 0), Params({{"EarlyChange", 1}})), data);
}

TEST(LZW, EncoderRoundTripAcrossClearCodes) {
    Lcg rng(3);
    Bytes data;
    for (int i = 0; i < 200000; ++i) data.push_back(static_cast<uint8_t>(rng.Next() % 7 == 0 ? rng.Next() : 'q'));
    Bytes enc = LZWEncode(data);
    EXPECT_LT(enc.size(), data.size());
    EXPECT_EQ(LZWDecode(enc), data);
    EXPECT_EQ(LZWDecode(LZWEncode({})), Bytes{});
    EXPECT_EQ(LZWDecode(LZWEncode(Bytes{42})), Bytes{42});
}

TEST(LZW, BadCodeGivesPartialDataOrRaises) {
    WarningCatcher wc;
    // Clear, 'A', then code 300 which is not in the table yet.
    Bytes bad{0x80, 0x10, 0x65, 0x80};
    DecodeResult r = DecodeChain(bad, {{"LZWDecode", {}}});
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    EXPECT_EQ(S(r.data), "A");
    EXPECT_EQ(RaisedError([&] { DecodeChain(bad, {{"LZW", {}}}, kStrict); }), kErrLZWFilter);
}
