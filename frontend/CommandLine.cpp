// The option table, its parser, the usage printer and the version texts.
#include "frontend/CommandLine.h"

#include <locale.h>

#include <algorithm>
#include <boost/format.hpp>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/ASMem.h"

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// An optional sign followed only by decimal digits (nothing after the sign
// is accepted too).
bool IsIntegerText(const char* s) {
    if (*s == '+' || *s == '-') ++s;
    for (; *s; ++s)
        if (!IsDigit(*s)) return false;
    return true;
}

// Optional sign, digits, optional '.', digits, and an exponent (e or E,
// optional sign, digits) only when a digit came before it.
bool IsFloatText(const char* s) {
    if (*s == '+' || *s == '-') ++s;
    bool sawDigit = false;
    for (; IsDigit(*s); ++s) sawDigit = true;
    if (*s == '.') {
        ++s;
        for (; IsDigit(*s); ++s) sawDigit = true;
    }
    if ((*s == 'e' || *s == 'E') && sawDigit) {
        ++s;
        if (*s == '+' || *s == '-') ++s;
        for (; IsDigit(*s); ++s) {
        }
    }
    return *s == '\0';
}

int32_t ToInt32(const char* s) {
    errno = 0;
    long v = strtol(s, nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(v);
}

double ToDouble(const char* s) {
    static locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return c ? strtod_l(s, nullptr, c) : strtod(s, nullptr);
}

const ArgEntry* FindOption(const ArgEntry* table, const char* arg) {
    for (const ArgEntry* e = table; e->name; ++e) {
        if (e->type < 0 || e->type >= 4) continue;
        if (strcmp(e->name, arg) == 0) return e;
    }
    return nullptr;
}

const char* TypeSuffix(int32_t type) {
    switch (type) {
        case 1:
        case 5:
            return " <int>";
        case 2:
        case 6:
            return " <fp>";
        case 3:
        case 7:
            return " <string>";
        default:
            return "";
    }
}

}  // namespace

CommandLineOptions& GlobalCommandLine() {
    static CommandLineOptions options;
    return options;
}

std::vector<ArgEntry> BuildOptionTable(CommandLineOptions& o) {
    return {
        {"-v", kArgFlag, &o.version, 0, "print copyright and version info"},
        {"-h", kArgFlag, &o.help, 0, "print usage information"},
        {"-help", kArgFlag, &o.help, 0, "print usage information\n"},
        {"-f", kArgString, o.settingsFile, kPathCapacity,
         "name of a .tms file to read the preferences/settings from"},
        {"-l", kArgString, o.fileList, kPathCapacity,
         "name of a .tml file to read the list of files to be processed from"},
        {"-o", kArgString, o.output, kPathCapacity, "write the result to a new file at this pathname\n"},
        {"-log", kArgString, o.logFile, kPathCapacity,
         "path/name of file to log information to (default is NONE)"},
        {"-progress", kArgFlag, &o.progress, 0, "log progress information"},
        {"-debug", kArgFlag, &o.debug, 0, "log debugging information\n"},
        {"-report", kArgFlag, &o.report, 0, "display details of what Trimora did\n"},
        {"-openPass", kArgString, o.openPass, kPasswordCapacity,
         "Set the password for opening/modifying exiting documents\n"},
        {"-encrypt", kArgFlag, &o.encrypt, 0, "Encrypt the document"},
        {"-keyLength", kArgInt, &o.keyLength, 0, "Size of the encryption key (40 or 128,  default is 40)"},
        {"-ownerPass", kArgString, o.ownerPass, kPasswordCapacity, "Set the document's owner password"},
        {"-userPass", kArgString, o.userPass, kPasswordCapacity, "Set the document's user password"},
        {"-noPrinting", kArgFlag, &o.noPrinting, 0, "Disable printing of the document"},
        {"-noEditing", kArgFlag, &o.noEditing, 0, "Disable editing of the document"},
        {"-noCopy", kArgFlag, &o.noCopy, 0, "Disable copying of the document's content"},
        {"-noNotes", kArgFlag, &o.noNotes, 0, "Disable adding annotations and notes"},
        {"-allowFill", kArgFlag, &o.allowFill, 0, "Allow form filling and signing (available for 128bit only)"},
        {"-allowAccess", kArgFlag, &o.allowAccess, 0, "Allow Accessibility (available for 128bit only)"},
        {"-allowAssem", kArgFlag, &o.allowAssem, 0, "Allow Document Assembly (available for 128bit only)"},
        {"-allowHQPrint", kArgFlag, &o.allowHQPrint, 0,
         "Allow High Quality Printing (available for 128bit only)\n"},
        {nullptr, 0, nullptr, 0, nullptr},
    };
}

int ReadArgValue(const ArgEntry& entry, int index, int argc, char** argv, bool& ok, FILE* err) {
    const char* value = index + 1 < argc ? argv[index + 1] : nullptr;
    switch (entry.type) {
        case kArgFlag:
            *static_cast<bool*>(entry.target) = true;
            return 1;
        case kArgInt:
            if (!value || !IsIntegerText(value)) break;
            *static_cast<int32_t*>(entry.target) = ToInt32(value);
            return 2;
        case kArgFloat:
            if (!value || !IsFloatText(value)) break;
            *static_cast<double*>(entry.target) = ToDouble(value);
            return 2;
        case kArgString: {
            if (!value) break;
            char* target = static_cast<char*>(entry.target);
            if (entry.size > 0) {
                strncpy(target, value, entry.size - 1);
                target[entry.size - 1] = '\0';
            }
            return 2;
        }
        default:
            fputs("Internal error in arg table\n", err);
            return 1;
    }
    ok = false;
    return 1;
}

bool ParseArgs(const ArgEntry* table, int& argc, char** argv, FILE* err) {
    if (argc < 2) return true;
    bool ok = true;
    int i = 1;
    while (i < argc) {
        if (strcmp(argv[i], "--") == 0) {
            for (int k = i; k + 1 < argc; ++k) argv[k] = argv[k + 1];
            --argc;
            argv[argc] = nullptr;
            return ok;
        }
        const ArgEntry* entry = FindOption(table, argv[i]);
        if (!entry) {
            ++i;  // not an option of ours: left in place as a positional argument
            continue;
        }
        int consumed = ReadArgValue(*entry, i, argc, argv, ok, err);
        if (consumed > argc - i) consumed = argc - i;
        for (int k = i; k + consumed < argc; ++k) argv[k] = argv[k + consumed];
        argc -= consumed;
        argv[argc] = nullptr;
    }
    return ok;
}

void PrintUsage(FILE* err, const char* programName, const char* synopsis, const ArgEntry* table) {
    int width = 0;
    for (const ArgEntry* e = table; e->name; ++e) width = std::max(width, static_cast<int>(strlen(e->name)));
    fprintf(err, "Usage: %s [options]", programName);
    if (synopsis) fprintf(err, " %s", synopsis);
    fputs("\n", err);
    for (const ArgEntry* e = table; e->name; ++e) {
        fprintf(err, "  %s", e->name);
        fprintf(err, "%-*s", width - static_cast<int>(strlen(e->name)) + 9, TypeSuffix(e->type));
        if (e->help) fprintf(err, ": %s", e->help);
        fputs("\n", err);
    }
}

std::string VersionText() {
    char buf[256];
    snprintf(buf, sizeof buf, "trimora version %s, Build Date %s, Vellum %s\n", kTrimoraVersion, kTrimoraBuildDate,
             VellumGetVersion());
    return buf;
}

std::string NoticeText() {
    return "Trimora shrinks and cleans PDF documents; distributed in the hope that it is useful.\n"
           "PDF reading and writing by the Vellum PDF core library.\n";
}

std::string ProducerText() {
    return (boost::format("%1% %2% (%3%)") % kTrimoraProductName % kTrimoraVersion % kTrimoraBuildDate).str();
}

bool WantsUsage(const CommandLineOptions& opts, bool parsedOk, int argcAfterParse) {
    if (!parsedOk) return true;
    if (argcAfterParse < 2 && opts.fileList[0] == '\0') return true;
    return opts.version || opts.help;
}

int RunUsagePath(const CommandLineOptions& opts, const ArgEntry* table, FILE* out, FILE* err) {
    fputs(VersionText().c_str(), err);
    fputs(NoticeText().c_str(), err);
    if (!opts.version) {
        fputs("\n", out);
        fflush(out);
        PrintUsage(err, "trimora", kUsageSynopsis, table);
    }
    fflush(err);
    return 1;
}
