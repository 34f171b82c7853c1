// Helpers of the settings tests: a log whose console output is captured,
// and a scratch folder for the files a test writes.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/Log.h"

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
