// Documents, pages, streams and a captured log built in code, shared by the
// pipeline tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Log.h"
#include "content/ContentParser.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"
#include "pipeline/Operations.h"
#include "pipeline/Report.h"
#include "pipeline/Statistics.h"
#include "settings/TrimoraPreferences.h"
#include "tests/settings/SettingsTestUtil.h"

namespace pipetest {

using filters::Bytes;

inline std::span<const uint8_t> B(std::string_view s) { return {reinterpret_cast<const uint8_t*>(s.data()), s.size()}; }
inline Bytes Text(std::string_view s) { return Bytes(s.begin(), s.end()); }
inline Bytes Encoded(CosObj s) { return Bytes(CosStreamEncodedData(s).begin(), CosStreamEncodedData(s).end()); }
inline std::string Decoded(CosObj s) {
    std::vector<uint8_t> d = CosStreamDecodedData(s);
    return std::string(d.begin(), d.end());
}
inline bool Has(CosObj d, const char* key) { return CosDictKnown(d, A(key)); }
// Bytes that change from place to place, so deflating gains little.
inline Bytes Ramp(size_t n, int seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = uint8_t((i * 7 + size_t(seed) * 13 + (i / 64) * 3) & 0xFF);
    return b;
}

class DocTest : public ::testing::Test {
protected:
    explicit DocTest(bool debug = false) : cap(true, debug) {}
    void SetUp() override {
        prefs.SetLog(&cap.log);
        pipeline::Statistics(prefs.StatisticsDict()).Reset();
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        cat = CosDocGetRoot(doc);
        pages = CosDictGet(cat, cosnames::Pages);
    }
    void TearDown() override { PDDocClose(pd); }

    CosObj Num(double v) { return CosNewNumber(doc, false, v); }
    CosObj Int(int v) { return CosNewInteger(doc, false, v); }
    CosObj Str(std::string_view s) { return CosNewString(doc, false, s); }
    CosObj Name(const char* s) { return CosNewName(doc, false, A(s)); }
    CosObj Bool(bool b) { return CosNewBoolean(doc, false, b); }
    CosObj Array(std::initializer_list<double> values) {
        CosObj a = CosNewArray(doc, false);
        for (double v : values) CosArrayAppend(a, Num(v));
        return a;
    }
    CosObj Arr(std::initializer_list<CosObj> items, bool indirect = false) {
        CosObj a = CosNewArray(doc, indirect);
        for (CosObj o : items) CosArrayAppend(a, o);
        return a;
    }
    CosObj Names(std::initializer_list<const char*> names) {
        CosObj a = CosNewArray(doc, false);
        for (const char* n : names) CosArrayAppend(a, Name(n));
        return a;
    }
    CosObj Dict(bool indirect = false) { return CosNewDict(doc, indirect); }
    CosObj Dict(std::initializer_list<std::pair<const char*, CosObj>> entries, bool indirect = false) {
        return Set(CosNewDict(doc, indirect), entries);
    }
    CosObj Set(CosObj dict, std::initializer_list<std::pair<const char*, CosObj>> entries) {
        for (auto& [k, v] : entries) CosDictPut(dict, A(k), v);
        return dict;
    }
    // The entry `key` of `dict`, made an empty dictionary when missing.
    CosObj Sub(CosObj dict, const char* key) {
        CosObj d = CosDictGet(dict, A(key));
        if (CosObjIsNull(d)) {
            d = Dict();
            CosDictPut(dict, A(key), d);
        }
        return d;
    }
    // The `category` dictionary of the resources of `owner` (a page or form).
    CosObj Res(CosObj owner, const char* category) { return Sub(Sub(owner, "Resources"), category); }
    CosObj Put(CosObj owner, const char* category, const char* name, CosObj value) {
        CosDictPut(Res(owner, category), A(name), value);
        return value;
    }
    // `data` stored as it is, under `dict` (an empty one when null).
    CosObj Stream(std::string_view data, CosObj dict = CosNewNull()) { return CosNewStream(doc, dict, B(data)); }
    CosObj Stream(std::span<const uint8_t> data, const char* filter = nullptr) {
        CosObj d = Dict();
        if (filter) CosDictPutName(d, A("Filter"), false, A(filter));
        return CosNewStream(doc, d, data);
    }
    // A form XObject with `content`, its BBox and (when given) Matrix.
    CosObj Form(std::string_view content, std::initializer_list<double> bbox = {0, 0, 1, 1},
                std::initializer_list<double> matrix = {}) {
        CosObj f = Stream(content, Dict({{"Type", Name("XObject")}, {"Subtype", Name("Form")}, {"BBox", Array(bbox)}}));
        if (matrix.size()) CosDictPut(f, A("Matrix"), Array(matrix));
        return f;
    }
    // An 8-bit image of `cs`, its samples deflated.
    CosObj Image(int w, int h, std::span<const uint8_t> samples, const char* cs = "DeviceGray") {
        CosObj img = Stream(filters::FlateEncode(samples, 6), "FlateDecode");
        for (auto [k, v] : {std::pair{"Type", "XObject"}, {"Subtype", "Image"}, {"ColorSpace", cs}})
            CosDictPutName(img, A(k), false, A(v));
        CosDictPutInteger(img, A("Width"), w);
        CosDictPutInteger(img, A("Height"), h);
        CosDictPutInteger(img, A("BitsPerComponent"), 8);
        return img;
    }
    CosObj Font(const char* base) { return Dict({{"Type", Name("Font")}, {"BaseFont", Name(base)}}, true); }
    // A letter page under `parent` (the root by default): with a content
    // stream unless `content` is null, with resources of its own unless
    // `ownResources` is false, with a media box unless `media` is false.
    CosObj AddPage(const char* content = nullptr, bool ownResources = true, bool media = true,
                   CosObj parent = nullptr) {
        if (!parent) parent = pages;
        CosObj page = Dict({{"Type", Name("Page")}, {"Parent", parent}}, true);
        if (media) CosDictPut(page, cosnames::MediaBox, Array({0, 0, 612, 792}));
        if (ownResources) CosDictPut(page, cosnames::Resources, Dict());
        if (content) CosDictPut(page, cosnames::Contents, Stream(content));
        CosArrayAppend(CosDictGet(parent, cosnames::Kids), page);
        CosDictPutInteger(parent, cosnames::Count, CosArrayLength(CosDictGet(parent, cosnames::Kids)));
        PDDocPagesChanged(pd);
        return page;
    }
    // The page's whole content, its streams joined as a viewer reads them.
    std::string Content(CosObj page) {
        std::vector<uint8_t> b = PageContentBytes(page);
        return std::string(b.begin(), b.end());
    }
    pipeline::RunContext Ctx(ASInt32 pageNumber = 0) {
        pipeline::RunContext ctx{pd, prefs, Stats(), cap.log};
        ctx.pageNumber = pageNumber;
        return ctx;
    }
    // One context for the whole test, for steps that do not look at the page number.
    pipeline::RunContext& C() {
        if (!ctx_) ctx_.emplace(Ctx());
        return *ctx_;
    }
    pipeline::Statistics Stats() { return pipeline::Statistics(prefs.StatisticsDict()); }
    ASInt32 Stat(const char* key) { return Stats().Get(key); }
    bool Flag(const char* key) { return Stats().GetFlag(key); }
    std::string Report(const char* indent = "   ") { return BuildReport(pipeline::ReportInputs{}, Stats(), indent); }
    bool Reported(const std::string& line) { return Report().find(line) != std::string::npos; }

    CapturedLog cap;
    CTrimoraPreferences prefs;
    std::optional<pipeline::RunContext> ctx_;
    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
    CosObj cat = nullptr;
    CosObj pages = nullptr;
};

}  // namespace pipetest
