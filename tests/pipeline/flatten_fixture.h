// Documents built in code for the flattening and transparency tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/Log.h"
#include "content/ContentParser.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"
#include "pipeline/Operations.h"
#include "pipeline/Statistics.h"
#include "settings/TrimoraPreferences.h"

namespace flattentest {

inline ASAtom A(const char* s) { return ASAtomFromString(s); }

struct CapturedLog {
    CapturedLog() : out(tmpfile()), err(tmpfile()) {
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
        log.SetChannelOff(Log::kProgress, false);
    }
    ~CapturedLog() {
        fclose(out);
        fclose(err);
    }
    static std::string Read(FILE* f) {
        fflush(f);
        std::string s;
        rewind(f);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
        return s;
    }
    std::string All() { return Read(out) + Read(err); }
    FILE* out;
    FILE* err;
    Log log;
};

class DocTest : public ::testing::Test {
protected:
    void SetUp() override {
        prefs.SetLog(&cap.log);
        pipeline::Statistics(prefs.StatisticsDict()).Reset();
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
    }
    void TearDown() override { PDDocClose(pd); }

    CosObj Num(double v) { return CosNewNumber(doc, false, v); }
    CosObj Array(std::initializer_list<double> values) {
        CosObj a = CosNewArray(doc, false);
        for (double v : values) CosArrayAppend(a, Num(v));
        return a;
    }
    CosObj Stream(const std::string& data, CosObj dict = CosNewNull()) {
        return CosNewStream(doc, dict, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(data.data()), data.size()));
    }
    // A form XObject with `content`, its BBox and (when given) Matrix.
    CosObj Form(const std::string& content, std::initializer_list<double> bbox,
                std::initializer_list<double> matrix = {}) {
        CosObj f = Stream(content);
        CosDictPutName(f, A("Type"), false, A("XObject"));
        CosDictPutName(f, A("Subtype"), false, A("Form"));
        CosDictPut(f, A("BBox"), Array(bbox));
        if (matrix.size()) CosDictPut(f, A("Matrix"), Array(matrix));
        return f;
    }
    // A page with `content`; with own resources unless `ownResources` is false.
    CosObj AddPage(const std::string& content, bool ownResources = true) {
        CosObj pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
        CosObj page = CosNewDict(doc, true);
        CosDictPutName(page, cosnames::Type, false, cosnames::Page);
        CosDictPut(page, cosnames::Parent, pages);
        CosDictPut(page, cosnames::MediaBox, Array({0, 0, 612, 792}));
        if (ownResources) CosDictPut(page, cosnames::Resources, CosNewDict(doc, false));
        CosDictPut(page, cosnames::Contents, Stream(content));
        CosArrayAppend(CosDictGet(pages, cosnames::Kids), page);
        CosDictPutInteger(pages, cosnames::Count, CosArrayLength(CosDictGet(pages, cosnames::Kids)));
        PDDocPagesChanged(pd);
        return page;
    }
    CosObj Category(CosObj page, const char* category) {
        CosObj res = CosDictGet(page, cosnames::Resources);
        CosObj cat = CosDictGet(res, A(category));
        if (CosObjIsNull(cat)) {
            cat = CosNewDict(doc, false);
            CosDictPut(res, A(category), cat);
        }
        return cat;
    }
    // The page's whole content, its streams joined as a viewer reads them.
    std::string Content(CosObj page) {
        std::vector<uint8_t> b = PageContentBytes(page);
        return std::string(b.begin(), b.end());
    }
    pipeline::RunContext Ctx(ASInt32 pageNumber = 0) {
        pipeline::RunContext ctx{pd, prefs, pipeline::Statistics(prefs.StatisticsDict()), cap.log};
        ctx.pageNumber = pageNumber;
        return ctx;
    }
    ASInt32 Stat(const char* key) { return pipeline::Statistics(prefs.StatisticsDict()).Get(key); }

    CapturedLog cap;
    CTrimoraPreferences prefs;
    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
};

}  // namespace flattentest
