// tminspect: looks inside a PDF file through the core's parser.
//
//   tminspect FILE [--password PW]              version, pages, objects, trailer
//   tminspect FILE --object N [--decoded]       one object (a stream's data too)
//   tminspect FILE --load-all                   loads every object, prints counts
//   tminspect --rewrite IN OUT [--password PW]  full save of IN to OUT, nothing else changed
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"
#include "base/ASMem.h"

namespace {

enum class Mode { Summary, Object, LoadAll, Rewrite };

struct Options {
    Mode mode = Mode::Summary;
    std::string file;
    std::string password;
    long objNum = 0;
    bool decoded = false;
    std::string output;  // --rewrite target
};

int Usage() {
    std::fprintf(stderr,
                 "usage: tminspect FILE [--password PW] [--object N [--decoded] | --load-all]\n"
                 "       tminspect --rewrite IN OUT [--password PW]\n");
    return 1;
}

// Returns false on a bad command line.
bool ParseArgs(int argc, char** argv, Options& o) {
    std::vector<std::string> args(argv + 1, argv + argc);
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        bool hasNext = i + 1 < args.size();
        if (a == "--password" && hasNext) {
            o.password = args[++i];
        } else if (a == "--object" && hasNext) {
            o.mode = Mode::Object;
            char* end = nullptr;
            o.objNum = std::strtol(args[++i].c_str(), &end, 10);
            if (!end || *end || o.objNum <= 0) return false;
        } else if (a == "--decoded") {
            o.decoded = true;
        } else if (a == "--load-all") {
            o.mode = Mode::LoadAll;
        } else if (a == "--rewrite" && i + 2 < args.size() && o.file.empty()) {
            o.mode = Mode::Rewrite;
            o.file = args[++i];
            o.output = args[++i];
        } else if (!a.empty() && a[0] != '-' && o.file.empty()) {
            o.file = a;
        } else {
            return false;
        }
    }
    return !o.file.empty();
}

void PrintHeader(PDDoc pd) {
    CosDoc cos = PDDocGetCosDoc(pd);
    const CosDocFileInfo& info = CosDocGetFileInfo(cos);
    std::printf("version: %d.%d\n", info.majorVersion, info.minorVersion);
    std::printf("pages: %d\n", PDDocGetNumPages(pd));
    std::printf("objects: %d\n", CosDocGetObjTableSize(cos));
    std::printf("sections: %d%s%s%s\n", info.xrefSections, info.linearized ? " linearized" : "",
                info.repaired ? " repaired" : "", info.encrypted ? " encrypted" : "");
}

int RunSummary(PDDoc pd) {
    PrintHeader(pd);
    std::printf("trailer: %s\n", CosObjToDebugString(CosDocGetTrailer(PDDocGetCosDoc(pd))).c_str());
    return 0;
}

int RunObject(PDDoc pd, const Options& o) {
    CosObj obj = CosDocGetObjByID(PDDocGetCosDoc(pd), static_cast<ASInt32>(o.objNum));
    std::printf("%ld %d obj\n%s\n", o.objNum, CosObjGetGeneration(obj), CosObjToDebugString(obj).c_str());
    if (CosObjGetType(obj) == kCosStream) {
        std::vector<uint8_t> data;
        if (o.decoded) {
            data = CosStreamDecodedData(obj);
        } else {
            auto raw = CosStreamEncodedData(obj);
            data.assign(raw.begin(), raw.end());
        }
        std::printf("stream (%zu bytes%s)\n", data.size(), o.decoded ? ", decoded" : "");
        std::fwrite(data.data(), 1, data.size(), stdout);
        std::printf("\nendstream\n");
    }
    return 0;
}

int RunLoadAll(PDDoc pd) {
    PrintHeader(pd);
    ASInt32 loaded = CosDocLoadAllObjects(PDDocGetCosDoc(pd));
    std::printf("loaded: %d\n", loaded);
    return 0;
}

int RunRewrite(PDDoc pd, const Options& o) {
    CosSaveParams params;  // a full save to a new file
    params.path = o.output;
    int64_t written = CosDocSave(PDDocGetCosDoc(pd), params);
    std::printf("wrote %lld bytes to %s\n", static_cast<long long>(written), o.output.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!ParseArgs(argc, argv, o)) return Usage();
    VellumDataRec rec;
    VellumInit(&rec);
    CosCoreInit();
    int rc = 0;
    PDDoc pd = nullptr;
    try {
        pd = PDDocOpen(o.file, o.password);
        switch (o.mode) {
        case Mode::Summary: rc = RunSummary(pd); break;
        case Mode::Object: rc = RunObject(pd, o); break;
        case Mode::LoadAll: rc = RunLoadAll(pd); break;
        case Mode::Rewrite: rc = RunRewrite(pd, o); break;
        }
    } catch (const CVellumError& e) {
        std::fprintf(stderr, "tminspect: %s: %s\n", o.file.c_str(), e.what());
        rc = 2;
    }
    if (pd) PDDocClose(pd);
    VellumTerm();
    return rc;
}
