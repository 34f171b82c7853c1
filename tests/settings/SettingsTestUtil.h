// Helpers of the settings tests (and the layers above): a log whose console
// output is captured, and settings read from a text through a scratch
// folder.
#pragma once

#include <cstdio>
#include <string>

#include "base/Log.h"
#include "settings/SettingsFile.h"
#include "tests/pdfcore/test_support.h"

inline ASAtom A(const char* s) { return ASAtomFromString(s); }

// What a log prints to the console, captured; with progress (and on
// request debug) lines when asked.
struct CapturedLog {
    explicit CapturedLog(bool progress = false, bool debug = false) {
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
        if (progress) log.SetChannelOff(Log::kProgress, false);
        if (debug) log.SetChannelOff(Log::kDebug, false);
    }
    ~CapturedLog() {
        std::fclose(out);
        std::fclose(err);
    }
    static std::string Read(FILE* f) {
        std::fflush(f);
        std::string s;
        std::rewind(f);
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
        return s;
    }
    std::string Out() { return Read(out); }
    std::string Err() { return Read(err); }
    // Everything written to either console stream.
    std::string Text() { return Out() + Err(); }
    std::string All() { return Text(); }
    bool Logged(const std::string& text) { return Text().find(text) != std::string::npos; }
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    Log log;
};

// Settings read by `reader` (ReadXmlSettings or LoadSettingsFile) from
// `text` saved as `name`, over `start`; keeps what the reading logged.
struct ReadSettings {
    using Reader = bool (*)(CTrimoraPreferences&, const std::string&, Log&);
    ScratchDir dir;
    CapturedLog log;
    CTrimoraPreferences p;
    std::string path;
    bool ok;
    ReadSettings(Reader reader, const std::string& name, const std::string& text, CTrimoraPreferences start = {})
        : p(start), path(dir.Write(name, text)), ok(reader(p, path, log.log)) {}
    ReadSettings(const ReadSettings&) = delete;
};
