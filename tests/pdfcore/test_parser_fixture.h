// Builds small PDF files for the parser tests: object texts in, a file with
// correct offsets out, plus helpers to open bytes and read error numbers.
#pragma once

#include "tests/pdfcore/test_support.h"

#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

namespace fixture {

using ::ErrorOf;
using ::Span;

struct Built {
    std::string bytes;
    std::map<int, size_t> offsets;  // object number -> position of its label
    size_t xrefPos = 0;             // position of "xref" (or of the xref stream)
};

// Object 1 catalog, 2 page tree, 3.. pages: a document of `pages` pages.
inline std::vector<std::string> PageTree(int pages) {
    std::string kids;
    for (int i = 0; i < pages; ++i) kids += std::to_string(3 + i) + " 0 R ";
    std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>",
                                     "<< /Type /Pages /Kids [" + kids + "] /Count " +
                                         std::to_string(pages) + " >>"};
    for (int i = 0; i < pages; ++i) objs.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] >>");
    return objs;
}

// Appends "n 0 obj ... endobj" for each body (numbered from `firstNum`).
inline void AddObjects(Built& b, const std::vector<std::string>& bodies, int firstNum = 1) {
    for (size_t i = 0; i < bodies.size(); ++i) {
        int num = firstNum + static_cast<int>(i);
        b.offsets[num] = b.bytes.size();
        b.bytes += std::to_string(num) + " 0 obj\n" + bodies[i] + "\nendobj\n";
    }
}

inline std::string Entry(size_t off, int gen, char kind) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%010zu %05d %c\r\n", off, gen, kind);
    return buf;
}

// A classic section over every object in `b.offsets` with numbers in
// [first, last], then the trailer and the end.  Offsets are relative to
// `base` (the header position).
inline void AddClassicXref(Built& b, const std::string& trailerExtra, size_t base = 0,
                           int first = 0, int last = -1) {
    if (last < 0) last = b.offsets.empty() ? 0 : b.offsets.rbegin()->first;
    b.xrefPos = b.bytes.size();
    b.bytes += "xref\n" + std::to_string(first) + " " + std::to_string(last - first + 1) + "\n";
    for (int n = first; n <= last; ++n) {
        auto it = b.offsets.find(n);
        b.bytes += it == b.offsets.end() ? Entry(0, n == 0 ? 65535 : 0, 'f') : Entry(it->second - base, 0, 'n');
    }
    b.bytes += "trailer\n<< /Size " + std::to_string(last + 1) + " " + trailerExtra + " >>\nstartxref\n" +
               std::to_string(b.xrefPos - base) + "\n%%EOF\n";
}

// A whole one-section file.
inline Built MakePdf(const std::vector<std::string>& bodies, const std::string& trailerExtra = "/Root 1 0 R",
                     const std::string& prefix = "") {
    Built b;
    b.bytes = prefix + "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    AddObjects(b, bodies);
    AddClassicXref(b, trailerExtra, prefix.size());
    return b;
}

// Opens bytes as a document; the caller closes it.
inline PDDoc Open(const std::string& bytes, const std::string& password = "") {
    return PDDocFromCosDoc(CosDocOpenFromMemory(Span(bytes), password));
}

// A document opened from bytes, closed when it goes out of scope.
struct OpenDoc {
    explicit OpenDoc(const std::string& bytes) : pd(Open(bytes)) {}
    explicit OpenDoc(PDDoc doc) : pd(doc) {}
    ~OpenDoc() { PDDocClose(pd); }
    OpenDoc(const OpenDoc&) = delete;
    CosDoc cos() const { return PDDocGetCosDoc(pd); }
    const CosDocFileInfo& info() const { return CosDocGetFileInfo(cos()); }
    ASInt32 pages() const { return PDDocGetNumPages(pd); }
    CosObj page(ASInt32 n) const { return PDDocGetPageObj(pd, n); }
    PDDoc pd;
};

// Page count of bytes (raises what opening raises).
inline ASInt32 PageCount(const std::string& bytes) { return OpenDoc(bytes).pages(); }

}  // namespace fixture
