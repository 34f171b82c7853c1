// Helpers of the settings tests: a log whose console output is captured,
// a scratch folder for the files a test writes, and settings read from a
// text through such a folder.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/Log.h"
#include "settings/SettingsFile.h"

struct CapturedLog {
    Log log;
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    CapturedLog() {
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
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
    // Everything written to either console stream.
    std::string Text() { return Read(out) + Read(err); }
};

struct ScratchDir {
    std::filesystem::path dir;
    ScratchDir() {
        char tmpl[] = "/tmp/tm-settings-XXXXXX";
        dir = mkdtemp(tmpl);
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    std::string Write(const std::string& name, const std::string& content) const {
        std::filesystem::path p = dir / name;
        std::ofstream(p, std::ios::binary) << content;
        return p.string();
    }
    std::string Path(const std::string& name) const { return (dir / name).string(); }
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
