// Small helpers shared by the core's tests: error codes, byte views, hex
// texts, scratch folders, files, a test cipher, object makers, and small
// PDF files built from object texts with correct offsets.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/ASError.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

// The full error code raised by `f`, or 0.
inline ASErrorCode ErrorCodeOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const CVellumError& e) {
        return e.GetErrorCode();
    }
    return 0;
}

// The error number raised by `f`, or 0.
inline ASInt32 ErrorOf(const std::function<void()>& f) { return ErrGetNumber(ErrorCodeOf(f)); }

inline std::span<const uint8_t> Span(std::string_view s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

// Lower-case hexadecimal of any byte container, and the bytes back.
template <typename Bytes>
std::string ToHex(const Bytes& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (uint8_t b : bytes) s += {digits[b >> 4], digits[b & 15]};
    return s;
}
inline std::string Unhex(std::string_view hex) {
    std::string out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        out += char(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return out;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A fresh folder of the test's own, removed with its contents at the end.
struct ScratchDir {
    ScratchDir() {
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~ScratchDir() { std::filesystem::remove_all(path); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    // Writes `content` to the file `name` in the folder; gives its path.
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }
    // The names in the folder, sorted.
    std::vector<std::string> Names(const std::string& sub = "") const {
        std::vector<std::string> out;
        for (const auto& e : std::filesystem::directory_iterator(sub.empty() ? path : *this / sub))
            out.push_back(e.path().filename().string());
        std::sort(out.begin(), out.end());
        return out;
    }
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("tm-core-" + std::to_string(::getpid()) + "-" +
                               ::testing::UnitTest::GetInstance()->current_test_info()->name()))
                                 .string();
};

inline CosDoc OpenPath(const std::string& path, const std::string& password = "") {
    CosOpenParams params;
    params.path = path;
    params.password = password;
    return CosDocOpen(params);
}

// A test with an empty document of its own.
class CosDocTest : public ::testing::Test {
protected:
    void SetUp() override { doc = CosDocCreate(); }
    void TearDown() override { CosDocClose(doc); }
    CosDoc doc = nullptr;
};

// Adds `shift` plus the object number to every byte, so a test can tell
// which number encrypted what.
class AddCrypt : public CosCryptFilter {
public:
    explicit AddCrypt(uint8_t shift = 0) : shift_(shift) {}
    void Decrypt(ASUns32 n, ASUns16, std::vector<uint8_t>& d) override {
        for (auto& b : d) b = static_cast<uint8_t>(b - shift_ - n);
    }
    void Encrypt(ASUns32 n, ASUns16, std::vector<uint8_t>& d) override {
        for (auto& b : d) b = static_cast<uint8_t>(b + shift_ + n);
    }

private:
    uint8_t shift_;
};

// Values of small files encrypted by qpdf (tests/data/security) with
// --static-id: "--encrypt user owner 40" and "... 128 --use-aes=n".
namespace qpdf {
inline const char* const kId = "31415926535897932384626433832795";
inline const char* const kO40 = "94e8094419662a774442fb072e3d9f19e9d130ec09a4d0061e78fe920f7ab62f";
inline const char* const kU40 = "2aa12f26bcf1a217c0f1ee491745f646671475ae85bddf3e3c1a45a8457391cb";
inline const char* const kO128 = "0ba3835f88f90388e74e54584125ce142be0de24c6b0d37746e075b891756671";
inline const char* const kU128 = "763f954d16622015ee88b60b3eb8f7590122456a91bae5134273a6db134c87c4";
// "Known title string", object 2 generation 0, as the 40-bit file holds it.
inline const char* const kTitle40 = "b45d310261a0eda2717ab3705666814a3656";
}  // namespace qpdf

// Terse object makers for documents built in memory.  Entries are put in
// the order given; values made here are direct unless `indirect` says so.
struct Maker {
    CosDoc doc;
    CosObj Int(ASInt32 v) const { return CosNewInteger(doc, false, v); }
    CosObj Name(const char* n) const { return CosNewName(doc, false, ASAtomFromString(n)); }
    CosObj Str(std::string_view s) const { return CosNewString(doc, false, s); }
    // A direct object from PDF syntax without references ("[0 0 10 10]").
    CosObj Parse(std::string_view text) const { return CosParseObjectFromBuffer(doc, text.data(), text.size()); }
    CosObj Array(std::initializer_list<CosObj> items, bool indirect = false) const {
        CosObj a = CosNewArray(doc, indirect);
        for (CosObj o : items) CosArrayAppend(a, o);
        return a;
    }
    using Entries = std::initializer_list<std::pair<const char*, CosObj>>;
    CosObj Dict(Entries entries, bool indirect = false) const { return Put(CosNewDict(doc, indirect), entries); }
    static CosObj Put(CosObj dict, Entries entries) {
        for (const auto& [key, value] : entries) CosDictPut(dict, ASAtomFromString(key), value);
        return dict;
    }
};

namespace fixture {

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
