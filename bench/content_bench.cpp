// Content rewrite throughput: every page, form, tiling pattern and Type 3
// glyph of each file is decoded (not timed), then parsed and rewritten
// through the base content handler (timed).
//
//   content_bench LIST    LIST: one "PATH<TAB>PASSWORD" line per file
//
// Prints the decoded content bytes, the rewritten bytes and their ratio,
// and the parse-and-rewrite time and throughput.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "base/ASMem.h"
#include "content/ContentHandler.h"
#include "content/ContentParser.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"

namespace {

struct Totals {
    double seconds = 0;
    uint64_t in = 0, out = 0, streams = 0;
};

void Rewrite(const std::vector<uint8_t>& data, CosObj resources, Totals& t) {
    auto start = std::chrono::steady_clock::now();
    ContentHandler h;
    h.SetResources(resources);
    h.Out().Reserve(data.size());
    h.RunContent(data);
    t.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    t.in += data.size();
    t.out += h.Out().Size();
    ++t.streams;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: content_bench LIST\n");
        return 2;
    }
    VellumDataRec rec;
    VellumInit(&rec);
    CosCoreInit();
    const ASAtom kSubtype = ASAtomFromString("Subtype");
    const ASAtom kForm = ASAtomFromString("Form");
    const ASAtom kType3 = ASAtomFromString("Type3");
    const ASAtom kCharProcs = ASAtomFromString("CharProcs");
    const ASAtom kPatternType = ASAtomFromString("PatternType");
    Totals t;
    int files = 0;
    std::ifstream list(argv[1]);
    std::string line;
    while (std::getline(list, line)) {
        size_t tab = line.find('\t');
        std::string path = line.substr(0, tab);
        std::string pw = tab == std::string::npos ? "" : line.substr(tab + 1);
        PDDoc pd = nullptr;
        try {
            pd = PDDocOpen(path, pw);
            CosDoc cos = PDDocGetCosDoc(pd);
            for (ASInt32 p = 0; p < PDDocGetNumPages(pd); ++p) {
                CosObj page = PDDocGetPageObj(pd, p);
                Rewrite(PageContentBytes(page), PDPageGetInheritedAttr(page, cosnames::Resources), t);
            }
            for (ASInt32 i = 1; i < CosDocGetObjTableSize(cos); ++i) {
                try {
                    CosObj o = CosDocGetObjByID(cos, i);
                    if (CosObjGetType(o) == kCosStream &&
                        (CosDictGetName(o, kSubtype) == kForm || CosDictGetInt(o, kPatternType, 0) == 1)) {
                        Rewrite(CosStreamDecodedData(o), CosDictGet(o, cosnames::Resources), t);
                    } else if (CosObjGetType(o) == kCosDict && CosDictGetName(o, kSubtype) == kType3) {
                        CosObj procs = CosDictGet(o, kCharProcs);
                        for (ASInt32 k = 0; CosObjGetType(procs) == kCosDict && k < CosDictCount(procs); ++k) {
                            CosObj proc = CosDictValueAt(procs, k);
                            if (CosObjGetType(proc) == kCosStream)
                                Rewrite(CosStreamDecodedData(proc), CosDictGet(o, cosnames::Resources), t);
                        }
                    }
                } catch (const CVellumError&) {
                }
            }
            ++files;
        } catch (const CVellumError& e) {
            std::fprintf(stderr, "content_bench: %s: %s\n", path.c_str(), e.what());
        }
        if (pd) PDDocClose(pd);
    }
    std::printf("content rewrite: %d files, %llu streams, %.1f MB decoded content -> %.1f MB rewritten "
                "(%.3f of the input), %.3f s, %.1f MB/s\n",
                files, static_cast<unsigned long long>(t.streams), t.in / 1e6, t.out / 1e6,
                t.in ? static_cast<double>(t.out) / static_cast<double>(t.in) : 0.0, t.seconds,
                t.seconds > 0 ? t.in / 1e6 / t.seconds : 0.0);
    VellumTerm();
    return 0;
}
