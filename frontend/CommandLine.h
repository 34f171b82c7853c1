// The command line: the option table, the table-driven parser that fills
// the parsed values, the usage and version texts.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// Program identification, printed in the version text and written into
// documents as the producer.
inline constexpr const char* kTrimoraProductName = "Trimora";
inline constexpr const char* kTrimoraVersion = "2.5";
inline constexpr const char* kTrimoraBuildDate = "Apr 16 2004";

// Value types of the option table.  4 to 7 are reserved: the usage printer
// shows them like 1 to 3, the parser never matches them.
enum ArgType : int32_t {
    kArgFlag = 0,
    kArgInt = 1,
    kArgFloat = 2,
    kArgString = 3,
};

// One row of an option table; a table ends with a row whose name is null.
struct ArgEntry {
    const char* name;   // the option as typed, leading '-' included
    int32_t type;       // ArgType (4-7 reserved)
    void* target;       // bool / int32_t / double / char[size]
    uint32_t size;      // capacity of a string target, else 0
    const char* help;   // may end in "\n" for an extra blank line in the usage
};

// Capacities of the string options.
inline constexpr uint32_t kPathCapacity = 1024;
inline constexpr uint32_t kPasswordCapacity = 64;

// Everything the command line sets.  Zero-initialised: flags false,
// integers 0, strings empty.
struct CommandLineOptions {
    bool version = false;        // -v
    bool help = false;           // -h, -help
    char settingsFile[kPathCapacity] = {};  // -f
    char fileList[kPathCapacity] = {};      // -l
    char output[kPathCapacity] = {};        // -o
    char logFile[kPathCapacity] = {};       // -log
    bool progress = false;       // -progress
    bool debug = false;          // -debug
    bool report = false;         // -report
    char openPass[kPasswordCapacity] = {};  // -openPass
    bool encrypt = false;        // -encrypt
    int32_t keyLength = 0;       // -keyLength
    char ownerPass[kPasswordCapacity] = {}; // -ownerPass
    char userPass[kPasswordCapacity] = {};  // -userPass
    bool noPrinting = false;
    bool noEditing = false;
    bool noCopy = false;
    bool noNotes = false;
    bool allowFill = false;
    bool allowAccess = false;
    bool allowAssem = false;
    bool allowHQPrint = false;

    // The positional arguments left after parsing, in order, without those
    // that begin with '-' (the job driver skips them).  Filled by the driver.
    std::vector<std::string> inputs;
};

// The process-wide parsed values, reachable by the job driver and settings.
CommandLineOptions& GlobalCommandLine();

// The option table of the program over `opts`, in the order of the usage,
// ended by a null-name row.
std::vector<ArgEntry> BuildOptionTable(CommandLineOptions& opts);

// Parses argv[1..argc-1] against `table`.  Recognised options and their
// values are removed from argv and argc is reduced; index 0 and the
// positional arguments stay in order.  A "--" ends the options (and is
// removed).  Returns false when any option lacked a valid value; the rest
// of the line is parsed all the same.  `err` receives the table-error text.
bool ParseArgs(const ArgEntry* table, int& argc, char** argv, FILE* err = stderr);

// Reads the value of option `entry` standing at argv[index] (the option
// itself) by its type and returns how many arguments it consumed (1 or 2).
// A missing or malformed value consumes only the option and clears `ok`.
// A reserved type prints "Internal error in arg table\n" on `err`.
int ReadArgValue(const ArgEntry& entry, int index, int argc, char** argv, bool& ok, FILE* err = stderr);

// "Usage: trimora [options] <synopsis>" and one line per option.
void PrintUsage(FILE* err, const char* programName, const char* synopsis, const ArgEntry* table);

// "trimora version 2.5, Build Date Apr 16 2004, Vellum <core version>\n"
std::string VersionText();
// The two notice lines printed after the version text (each ends in "\n").
std::string NoticeText();
// "Trimora 2.5 (Apr 16 2004)": the application's identification.
std::string ProducerText();
// The positional synopsis shown in the usage.
inline constexpr const char* kUsageSynopsis = "<PDF-file> [<PDF-file2>...]";

// True when the usage path is to be taken after parsing: the parse failed,
// nothing positional is left and no file list was given, or -v/-h/-help.
bool WantsUsage(const CommandLineOptions& opts, bool parsedOk, int argcAfterParse);
// The usage path: version and notices on `err`; unless -v, "\n" on `out`
// and the usage on `err`.  Returns the exit status (1).
int RunUsagePath(const CommandLineOptions& opts, const ArgEntry* table, FILE* out, FILE* err);
