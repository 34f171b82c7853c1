// Helpers shared by the content tests: a log that can be read back, and
// small documents built in memory.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "base/Log.h"
#include "content/ContentHandler.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"

// A log whose console output goes to a temporary file that can be read.
class CapturedLog {
public:
    CapturedLog() {
        m_file = std::tmpfile();
        log.SetConsoleStreams(m_file, m_file);
        log.SetFileLoggingAllowed(false);
        for (int c = 0; c < Log::kChannelCount; ++c) {
            log.SetDestinations(static_cast<Log::Channel>(c), LogToStderr);
            log.SetChannelOff(static_cast<Log::Channel>(c), false);
        }
    }
    ~CapturedLog() { std::fclose(m_file); }
    std::string Text() {
        std::fflush(m_file);
        std::string out;
        std::rewind(m_file);
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, m_file)) > 0) out.append(buf, n);
        return out;
    }
    Log log;

private:
    FILE* m_file;
};

inline std::span<const uint8_t> Bytes(std::string_view s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

// Rewrites `content` through the base handler.
inline std::string Rewrite(std::string_view content, Log* log = nullptr, bool removeMarked = false) {
    ContentHandler h(log);
    h.SetRemoveMarkedContent(removeMarked);
    h.RunContent(Bytes(content));
    return h.Out().Text();
}

inline CosObj NewStream(CosDoc doc, std::string_view data, CosObj dict = CosNewNull()) {
    return CosNewStream(doc, dict, Bytes(data));
}

inline CosObj Array(CosDoc doc, std::initializer_list<double> values) {
    CosObj a = CosNewArray(doc, false);
    for (double v : values) CosArrayAppend(a, CosNewNumber(doc, false, v));
    return a;
}

inline CosObj Name(CosDoc doc, const char* n) { return CosNewName(doc, false, ASAtomFromString(n)); }

inline void Put(CosObj dict, const char* key, CosObj value) { CosDictPut(dict, ASAtomFromString(key), value); }

inline CosObj Get(CosObj dict, const char* key) { return CosDictGet(dict, ASAtomFromString(key)); }

// A resource category dictionary inside `resources`, made when missing.
inline CosObj Category(CosObj resources, const char* cat) {
    CosObj c = Get(resources, cat);
    if (CosObjGetType(c) != kCosDict) {
        c = CosNewDict(CosObjGetDoc(resources), false);
        Put(resources, cat, c);
    }
    return c;
}

// An image XObject of w x h pixels (no data needed for placement).
inline CosObj NewImage(CosDoc doc, int w, int h) {
    CosObj d = CosNewDict(doc, false);
    Put(d, "Subtype", Name(doc, "Image"));
    Put(d, "Width", CosNewInteger(doc, false, w));
    Put(d, "Height", CosNewInteger(doc, false, h));
    return NewStream(doc, "", d);
}

inline CosObj NewForm(CosDoc doc, std::string_view content, CosObj resources, CosObj matrix = CosNewNull()) {
    CosObj d = CosNewDict(doc, false);
    Put(d, "Subtype", Name(doc, "Form"));
    Put(d, "BBox", Array(doc, {0, 0, 100, 100}));
    if (!CosObjIsNull(matrix)) Put(d, "Matrix", matrix);
    if (!CosObjIsNull(resources)) Put(d, "Resources", resources);
    return NewStream(doc, content, d);
}

inline CosObj NewPage(CosDoc doc, std::string_view content, CosObj resources) {
    CosObj page = CosNewDict(doc, true);
    Put(page, "Type", Name(doc, "Page"));
    Put(page, "MediaBox", Array(doc, {0, 0, 612, 792}));
    Put(page, "Resources", resources);
    Put(page, "Contents", NewStream(doc, content));
    return page;
}

// A scratch document with a resource dictionary for content to use.
class ContentDoc : public ::testing::Test {
protected:
    void SetUp() override {
        doc = CosDocCreate();
        resources = CosNewDict(doc, true);  // indirect: the document owns it
    }
    void TearDown() override { CosDocClose(doc); }
    CosDoc doc = nullptr;
    CosObj resources;
};
