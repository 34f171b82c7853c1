// The option table, the parser's edge cases, the usage and version texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "frontend/CommandLine.h"
#include "base/ASMem.h"
#include "tests/settings/SettingsTestUtil.h"

namespace {

// An argv whose strings the parser may reorder.
struct Argv {
    explicit Argv(std::vector<std::string> args) : strings(std::move(args)) {
        for (auto& s : strings) ptrs.push_back(s.data());
        ptrs.push_back(nullptr);
        argc = static_cast<int>(strings.size());
    }
    std::vector<std::string> Left() const { return {ptrs.begin(), ptrs.begin() + argc}; }
    std::vector<std::string> strings;
    std::vector<char*> ptrs;
    int argc;
};

struct Parsed {
    CommandLineOptions opts;
    bool ok = false;
    std::vector<std::string> left;
};

Parsed Parse(std::vector<std::string> args) {
    Parsed p;
    auto table = BuildOptionTable(p.opts);
    Argv a(std::move(args));
    p.ok = ParseArgs(table.data(), a.argc, a.ptrs.data());
    p.left = a.Left();
    return p;
}

using Strings = std::vector<std::string>;

// The expected usage, written out by hand from the option table.
const char* const kExpectedUsage = R"(Usage: trimora [options] <PDF-file> [<PDF-file2>...]
  -v                    : print copyright and version info
  -h                    : print usage information
  -help                 : print usage information

  -f <string>           : name of a .tms file to read the preferences/settings from
  -l <string>           : name of a .tml file to read the list of files to be processed from
  -o <string>           : write the result to a new file at this pathname

  -log <string>         : path/name of file to log information to (default is NONE)
  -progress             : log progress information
  -debug                : log debugging information

  -report               : display details of what Trimora did

  -openPass <string>    : Set the password for opening/modifying exiting documents

  -encrypt              : Encrypt the document
  -keyLength <int>      : Size of the encryption key (40 or 128,  default is 40)
  -ownerPass <string>   : Set the document's owner password
  -userPass <string>    : Set the document's user password
  -noPrinting           : Disable printing of the document
  -noEditing            : Disable editing of the document
  -noCopy               : Disable copying of the document's content
  -noNotes              : Disable adding annotations and notes
  -allowFill            : Allow form filling and signing (available for 128bit only)
  -allowAccess          : Allow Accessibility (available for 128bit only)
  -allowAssem           : Allow Document Assembly (available for 128bit only)
  -allowHQPrint         : Allow High Quality Printing (available for 128bit only)

)";

}  // namespace

TEST(ParseArgsTest, OptionsAreRemovedPositionalsKeepTheirOrderUntilADoubleDash) {
    Parsed p = Parse({"trimora", "a.pdf", "-encrypt", "-o", "out.pdf", "b.pdf", "-keyLength", "128", "-report",
                      "-f", "s.tms", "-o", "final.pdf"});
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.left, (Strings{"trimora", "a.pdf", "b.pdf"}));
    EXPECT_TRUE(p.opts.encrypt);
    EXPECT_TRUE(p.opts.report);
    EXPECT_FALSE(p.opts.debug);
    EXPECT_EQ(p.opts.keyLength, 128);
    EXPECT_STREQ(p.opts.settingsFile, "s.tms");
    EXPECT_STREQ(p.opts.output, "final.pdf");  // a later occurrence wins

    Parsed none = Parse({"trimora"});
    EXPECT_TRUE(none.ok);
    EXPECT_EQ(none.left, Strings{"trimora"});

    // "--" ends the options.
    Parsed dash = Parse({"trimora", "-encrypt", "--", "-report", "x.pdf", "--"});
    EXPECT_TRUE(dash.ok);
    EXPECT_TRUE(dash.opts.encrypt);
    EXPECT_FALSE(dash.opts.report);
    EXPECT_EQ(dash.left, (Strings{"trimora", "-report", "x.pdf", "--"}));

    // Unknown and upper-case options stay as positionals.
    Parsed odd = Parse({"trimora", "-H", "-HELP", "-bogus", "-help", "-V"});
    EXPECT_TRUE(odd.ok);
    EXPECT_TRUE(odd.opts.help);
    EXPECT_FALSE(odd.opts.version);
    EXPECT_EQ(odd.left, (Strings{"trimora", "-H", "-HELP", "-bogus", "-V"}));
    EXPECT_TRUE(Parse({"trimora", "-h"}).opts.help);
}

TEST(ParseArgsTest, IntegerValuesAndMissingValues) {
    Parsed bad = Parse({"trimora", "-keyLength", "abc", "f.pdf"});
    EXPECT_FALSE(bad.ok);
    EXPECT_EQ(bad.opts.keyLength, 0);
    // Only the option is consumed; the bad value becomes a positional.
    EXPECT_EQ(bad.left, (Strings{"trimora", "abc", "f.pdf"}));
    for (const char* text : {"1.5", "12a"}) EXPECT_FALSE(Parse({"trimora", "-keyLength", text}).ok) << text;
    struct Case {
        const char* text;
        int value;
    } cases[] = {{"", 0}, {"+", 0}, {"-56", -56}, {"+40", 40}};
    for (const Case& c : cases) {
        Parsed p = Parse({"trimora", "-keyLength", c.text});
        EXPECT_TRUE(p.ok) << c.text;
        EXPECT_EQ(p.opts.keyLength, c.value) << c.text;
    }

    // Parsing goes on after a failure.
    Parsed on = Parse({"trimora", "-keyLength", "x", "-encrypt", "in.pdf"});
    EXPECT_FALSE(on.ok);
    EXPECT_TRUE(on.opts.encrypt);
    EXPECT_EQ(on.left, (Strings{"trimora", "x", "in.pdf"}));

    // A value missing at the end fails too.
    for (const char* opt : {"-o", "-f", "-log", "-keyLength", "-ownerPass"}) {
        Parsed p = Parse({"trimora", "x.pdf", opt});
        EXPECT_FALSE(p.ok) << opt;
        EXPECT_EQ(p.left, (Strings{"trimora", "x.pdf"})) << opt;
    }
}

TEST(ParseArgsTest, StringsAreCutToCapacityMinusOne) {
    const std::string seventy(70, 'p');
    Parsed p = Parse({"trimora", "-ownerPass", seventy, "-userPass", "short", "in.pdf"});
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(std::string(p.opts.ownerPass), seventy.substr(0, 63));
    EXPECT_STREQ(p.opts.userPass, "short");
    const std::string longPath(2000, 'd');
    EXPECT_EQ(std::string(Parse({"trimora", "-o", longPath}).opts.output), longPath.substr(0, 1023));
}

TEST(ParseArgsTest, FloatValuesAndReservedTypes) {
    double d = -1;
    int32_t reserved = 0;
    ArgEntry table[] = {{"-scale", kArgFloat, &d, 0, "a factor"},
                        {"-r", 5, &reserved, 0, "reserved"},
                        {nullptr, 0, nullptr, 0, nullptr}};
    auto parse = [&](const char* value) {
        Argv a({"p", "-scale", value});
        return ParseArgs(table, a.argc, a.ptrs.data());
    };
    EXPECT_TRUE(parse("1.5e3"));
    EXPECT_DOUBLE_EQ(d, 1500.0);
    EXPECT_TRUE(parse("-.5E-2"));
    EXPECT_DOUBLE_EQ(d, -0.005);
    EXPECT_TRUE(parse("7."));
    EXPECT_DOUBLE_EQ(d, 7.0);
    for (const char* bad : {"e5", "1.2.3", "abc", "1e5x", ".e3"}) EXPECT_FALSE(parse(bad)) << bad;

    // A reserved type is never matched by the parser...
    Argv a({"p", "-r", "9"});
    EXPECT_TRUE(ParseArgs(table, a.argc, a.ptrs.data()));
    EXPECT_EQ(a.Left(), (Strings{"p", "-r", "9"}));
    EXPECT_EQ(reserved, 0);
    // ...and the value reader refuses it with a message, consuming one argument.
    CapturedLog cap;
    bool ok = true;
    EXPECT_EQ(ReadArgValue(table[1], 1, a.argc, a.ptrs.data(), ok, cap.err), 1);
    EXPECT_TRUE(ok);
    EXPECT_EQ(cap.Err(), "Internal error in arg table\n");
}

// The usage text is checked whole, byte for byte, as the usage path prints it.
TEST(UsageTest, UsagePathAndVersionTexts) {
    const std::string versionLine = std::string("trimora version 2.5, Build Date Apr 16 2004, Vellum ") +
                                VellumGetVersion() + "\n";
    EXPECT_EQ(VersionText(), versionLine);
    EXPECT_EQ(ProducerText(), "Trimora 2.5 (Apr 16 2004)");
    const std::string notices = NoticeText();
    ASSERT_FALSE(notices.empty());
    EXPECT_EQ(std::count(notices.begin(), notices.end(), '\n'), 2);
    EXPECT_EQ(notices.back(), '\n');

    CommandLineOptions o;
    auto table = BuildOptionTable(o);
    CapturedLog usage, version;
    EXPECT_EQ(RunUsagePath(o, table.data(), usage.out, usage.err), 1);
    EXPECT_EQ(usage.Out(), "\n");
    EXPECT_EQ(usage.Err(), versionLine + notices + kExpectedUsage);

    o.version = true;
    EXPECT_EQ(RunUsagePath(o, table.data(), version.out, version.err), 1);
    EXPECT_EQ(version.Out(), "");
    EXPECT_EQ(version.Err(), versionLine + notices);
}

TEST(UsageTest, WhenTheUsageIsWanted) {
    CommandLineOptions o;
    EXPECT_TRUE(WantsUsage(o, true, 1));    // nothing to do
    EXPECT_FALSE(WantsUsage(o, true, 2));   // one input
    EXPECT_TRUE(WantsUsage(o, false, 2));   // a failed parse
    snprintf(o.fileList, sizeof o.fileList, "%s", "jobs.tml");
    EXPECT_FALSE(WantsUsage(o, true, 1));   // a file list is work enough
    o.help = true;
    EXPECT_TRUE(WantsUsage(o, true, 2));
    o.help = false;
    o.version = true;
    EXPECT_TRUE(WantsUsage(o, true, 2));
}
