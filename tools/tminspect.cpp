// tminspect: looks inside a PDF file through the core's parser.
//
//   tminspect FILE [--password PW]              version, pages, objects, trailer
//   tminspect FILE --object N [--decoded]       one object (a stream's data too)
//   tminspect FILE --load-all                   loads every object, prints counts
//   tminspect FILE --packing                    how the objects are stored: object
//                                               streams, objects per stream, bytes per type
//   tminspect --rewrite IN OUT [--password PW] [--object-streams [--per-stream N]]
//                                               full save of IN to OUT, nothing else
//                                               changed (in the compact form on request)
//   tminspect --sizes FILE [FILE2]              the file's bytes by what they are for
//                                               (content, forms, fonts, images by
//                                               filter, ...); two files side by side
//   tminspect FILE --content N                  page N's content as the rewriter writes it
//   tminspect --rewrite-content IN OUT          every page, form, tiling pattern and Type 3
//                                               glyph rewritten through the base content
//                                               handler, then a full save; prints the
//                                               operators each page lost (--no-check:
//                                               not counted; --store: no compression)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "content/ContentHandler.h"
#include "content/ContentParser.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"
#include "base/ASMem.h"

namespace {

enum class Mode { Summary, Object, LoadAll, Packing, Rewrite, Content, RewriteContent, Sizes };

struct Options {
    Mode mode = Mode::Summary;
    std::string file;
    std::string password;
    long objNum = 0;
    long pageNum = 0;
    bool decoded = false;
    std::string output;  // --rewrite target
    bool objectStreams = false;
    long perStream = 0;
    bool check = true;   // --no-check: skip counting lost operators
    int flate = 6;       // --store: write rewritten content without compression
};

int Usage() {
    std::fprintf(stderr,
                 "usage: tminspect FILE [--password PW] [--object N [--decoded] | --load-all | --packing]\n"
                 "       tminspect FILE --content N [--password PW]\n"
                 "       tminspect --sizes FILE [FILE2] [--password PW]\n"
                 "       tminspect --rewrite IN OUT [--password PW] [--object-streams [--per-stream N]]\n"
                 "       tminspect --rewrite-content IN OUT [--password PW] [--no-check] [--store]\n");
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
        } else if (a == "--content" && hasNext) {
            o.mode = Mode::Content;
            char* end = nullptr;
            o.pageNum = std::strtol(args[++i].c_str(), &end, 10);
            if (!end || *end || o.pageNum <= 0) return false;
        } else if (a == "--rewrite-content" && i + 2 < args.size() && o.file.empty()) {
            o.mode = Mode::RewriteContent;
            o.file = args[++i];
            o.output = args[++i];
        } else if (a == "--no-check") {
            o.check = false;
        } else if (a == "--store") {
            o.flate = -1;
        } else if (a == "--decoded") {
            o.decoded = true;
        } else if (a == "--load-all") {
            o.mode = Mode::LoadAll;
        } else if (a == "--sizes" && hasNext && o.file.empty()) {
            o.mode = Mode::Sizes;
            o.file = args[++i];
            if (i + 1 < args.size() && args[i + 1][0] != '-') o.output = args[++i];
        } else if (a == "--packing") {
            o.mode = Mode::Packing;
        } else if (a == "--object-streams") {
            o.objectStreams = true;
        } else if (a == "--per-stream" && hasNext) {
            char* end = nullptr;
            o.perStream = std::strtol(args[++i].c_str(), &end, 10);
            if (!end || *end || o.perStream <= 0 || o.perStream > 1000000) return false;
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

// ---------------------------------------------------------------- packing
// A short name for what an object is: its Type (with the Subtype of an
// XObject), else its kind.
std::string KindOf(CosObj obj) {
    const ASAtom kType = ASAtomFromString("Type");
    const ASAtom kSubtype = ASAtomFromString("Subtype");
    CosType t = CosObjGetType(obj);
    CosObj dict = t == kCosStream ? CosStreamDict(obj) : obj;
    if (t == kCosStream || t == kCosDict) {
        ASAtom type = CosDictGetName(dict, kType);
        std::string name = type != ASAtomNull ? ASAtomGetString(type) : (t == kCosStream ? "stream" : "dict");
        if (type == ASAtomFromString("XObject") || type == ASAtomFromString("Font")) {
            ASAtom sub = CosDictGetName(dict, kSubtype);
            if (sub != ASAtomNull) name += std::string("/") + ASAtomGetString(sub);
        }
        if (t == kCosStream && type != ASAtomNull) name += " stream";
        return name;
    }
    switch (t) {
        case kCosArray: return "array";
        case kCosBoolean: return "boolean";
        case kCosFixed: case kCosInteger: return "number";
        case kCosName: return "name";
        case kCosString: return "string";
        default: return "null";
    }
}

// The offset that "startxref" names, or the file length when none is found.
uint64_t StartXref(const std::string& path, uint64_t fileLength) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return fileLength;
    const long tail = static_cast<long>(std::min<uint64_t>(fileLength, 1024));
    std::string buf(static_cast<size_t>(tail), '\0');
    std::fseek(f, -tail, SEEK_END);
    size_t got = std::fread(buf.data(), 1, buf.size(), f);
    std::fclose(f);
    buf.resize(got);
    size_t at = buf.rfind("startxref");
    if (at == std::string::npos) return fileLength;
    unsigned long long v = std::strtoull(buf.c_str() + at + 9, nullptr, 10);
    return v > 0 && v < fileLength ? v : fileLength;
}

// Member offsets of an object stream: (object number, offset from First).
std::vector<std::pair<long, size_t>> StreamMembers(CosObj stm, const std::vector<uint8_t>& data, size_t* first) {
    std::vector<std::pair<long, size_t>> out;
    CosObj dict = CosStreamDict(stm);
    ASInt32 n = CosDictGetInt(dict, ASAtomFromString("N"), 0);
    ASInt32 f = CosDictGetInt(dict, ASAtomFromString("First"), 0);
    *first = f > 0 && size_t(f) <= data.size() ? size_t(f) : data.size();
    std::string head(data.begin(), data.begin() + static_cast<long>(*first));
    const char* p = head.c_str();
    for (ASInt32 i = 0; i < n; ++i) {
        char* end = nullptr;
        long num = std::strtol(p, &end, 10);
        if (end == p) break;
        p = end;
        unsigned long off = std::strtoul(p, &end, 10);
        if (end == p) break;
        p = end;
        out.emplace_back(num, off);
    }
    return out;
}

int RunPacking(PDDoc pd, const Options& o) {
    CosDoc cos = PDDocGetCosDoc(pd);
    PrintHeader(pd);
    const CosDocFileInfo& fi = CosDocGetFileInfo(cos);
    CosObj trailer = CosDocGetTrailer(cos);
    const bool xrefStream = CosDictGetName(trailer, ASAtomFromString("Type")) == ASAtomFromString("XRef");
    std::printf("cross-reference: %s\n", xrefStream ? "stream" : "table");

    struct Tally {
        long count = 0;
        uint64_t bytes = 0;
    };
    std::map<std::string, Tally> own, packed;  // by kind: on their own, in object streams
    std::map<long, std::vector<long>> streams; // object stream -> its members
    std::vector<std::pair<uint64_t, long>> inFile;
    const ASInt32 size = CosDocGetObjTableSize(cos);
    for (ASInt32 n = 1; n < size; ++n) {
        CosObjLocation loc = CosDocGetObjLocation(cos, n);
        if (loc.where == CosObjLocation::kInFile) inFile.emplace_back(loc.offset, n);
        if (loc.where == CosObjLocation::kInObjStm) streams[long(loc.offset)].push_back(n);
    }
    // An object on its own spans from its offset to the next object's; the
    // last one ends where the cross-reference data begins (offsets are
    // relative to the header).
    std::sort(inFile.begin(), inFile.end());
    const uint64_t end = StartXref(o.file, uint64_t(fi.fileLength));
    for (size_t i = 0; i < inFile.size(); ++i) {
        // The cross-reference stream itself starts where "startxref" points
        // and runs to the end of the file.
        const uint64_t last = end > inFile[i].first ? end : uint64_t(fi.fileLength);
        uint64_t next = i + 1 < inFile.size() ? inFile[i + 1].first : std::max(last, inFile[i].first);
        Tally& t = own[KindOf(CosDocGetObjByID(cos, ASInt32(inFile[i].second)))];
        ++t.count;
        t.bytes += next - inFile[i].first;
    }
    long packedCount = 0, minPer = 0, maxPer = 0;
    for (const auto& [num, members] : streams) {
        CosObj stm = CosDocGetObjByID(cos, ASInt32(num));
        if (CosObjGetType(stm) != kCosStream) continue;
        std::vector<uint8_t> data = CosStreamDecodedData(stm);
        size_t first = 0;
        auto offsets = StreamMembers(stm, data, &first);
        std::vector<size_t> sorted;
        for (const auto& m : offsets) sorted.push_back(m.second);
        std::sort(sorted.begin(), sorted.end());
        for (const auto& [obj, off] : offsets) {
            auto it = std::upper_bound(sorted.begin(), sorted.end(), off);
            size_t stop = it == sorted.end() ? data.size() - first : *it;
            Tally& t = packed[KindOf(CosDocGetObjByID(cos, ASInt32(obj)))];
            ++t.count;
            t.bytes += stop > off ? stop - off : 0;
        }
        const long k = long(members.size());
        packedCount += k;
        minPer = minPer == 0 ? k : std::min(minPer, k);
        maxPer = std::max(maxPer, k);
        std::printf("object stream %ld: %ld objects, %zu bytes decoded, %zu stored\n", num, k, data.size(),
                    CosStreamEncodedLength(stm));
    }
    std::printf("object streams: %zu\n", streams.size());
    std::printf("objects in object streams: %ld", packedCount);
    if (!streams.empty())
        std::printf(" (per stream: min %ld, mean %.1f, max %ld)", minPer, double(packedCount) / double(streams.size()),
                    maxPer);
    std::printf("\nobjects on their own: %zu\n", inFile.size());
    std::printf("%-28s %8s %12s %8s %12s\n", "kind", "own", "own bytes", "packed", "packed bytes");
    std::map<std::string, int> kinds;
    for (const auto& k : own) kinds[k.first] = 1;
    for (const auto& k : packed) kinds[k.first] = 1;
    for (const auto& [kind, _] : kinds) {
        Tally a = own.count(kind) ? own[kind] : Tally{};
        Tally b = packed.count(kind) ? packed[kind] : Tally{};
        std::printf("%-28s %8ld %12llu %8ld %12llu\n", kind.c_str(), a.count, (unsigned long long)a.bytes, b.count,
                    (unsigned long long)b.bytes);
    }
    std::printf("(own bytes as stored in the file; packed bytes decoded, before the stream's compression)\n");
    return 0;
}

// ---------------------------------------------------------------- sizes
// Where a file's bytes go, by what they are for.  Every byte counts once:
// an object on its own spans from its offset to the next object's; an
// object stream's stored bytes are shared among its members by their
// decoded sizes (its index of numbers counts as object-stream overhead);
// the bytes before the first object are the header, those from the
// cross-reference data on the cross-reference section.
using SizeTable = std::map<std::string, uint64_t>;

// The bytes an object's own role gives it, or "" to look at it alone.
std::map<long, std::string> StreamRoles(PDDoc pd) {
    CosDoc cos = PDDocGetCosDoc(pd);
    std::map<long, std::string> roles;
    auto mark = [&](CosObj o, const std::string& role) {
        if (CosObjIsIndirect(o)) roles.emplace(long(CosObjGetID(o)), role);
    };
    for (ASInt32 p = 0; p < PDDocGetNumPages(pd); ++p) {
        CosObj c = CosDictGet(PDDocGetPageObj(pd, p), ASAtomFromString("Contents"));
        if (CosObjGetType(c) == kCosStream) mark(c, "content");
        if (CosObjGetType(c) == kCosArray)
            for (ASInt32 i = 0; i < CosArrayLength(c); ++i) mark(CosArrayGet(c, i), "content");
    }
    const ASInt32 size = CosDocGetObjTableSize(cos);
    for (ASInt32 n = 1; n < size; ++n) {
        CosObj o = CosDocGetObjByID(cos, n);
        if (CosObjGetType(o) != kCosDict) continue;
        const ASAtom type = CosDictGetName(o, ASAtomFromString("Type"));
        if (type == ASAtomFromString("FontDescriptor")) {
            for (const char* key : {"FontFile", "FontFile2", "FontFile3"}) {
                CosObj f = CosDictGet(o, ASAtomFromString(key));
                if (CosObjGetType(f) != kCosStream) continue;
                std::string kind = key == std::string("FontFile") ? "Type 1" : key == std::string("FontFile2") ? "TrueType" : "";
                if (kind.empty()) {
                    ASAtom sub = CosDictGetName(CosStreamDict(f), ASAtomFromString("Subtype"));
                    kind = sub == ASAtomNull ? "FontFile3" : ASAtomGetString(sub);
                }
                mark(f, "fonts: " + kind + " programs");
            }
        }
        if (type == ASAtomFromString("Font"))
            for (const char* key : {"ToUnicode", "Widths", "W", "CIDToGIDMap", "Encoding", "FontDescriptor"})
                mark(CosDictGet(o, ASAtomFromString(key)), "fonts: dictionaries and maps");
    }
    return roles;
}

std::string SizeKind(CosObj o, long num, const std::map<long, std::string>& roles) {
    if (auto it = roles.find(num); it != roles.end()) return it->second;
    const CosType t = CosObjGetType(o);
    const CosObj dict = t == kCosStream ? CosStreamDict(o) : o;
    if (t != kCosStream && t != kCosDict) return "other objects";
    const ASAtom type = CosDictGetName(dict, ASAtomFromString("Type"));
    const ASAtom sub = CosDictGetName(dict, ASAtomFromString("Subtype"));
    if (type == ASAtomFromString("Font") || type == ASAtomFromString("FontDescriptor")) return "fonts: dictionaries and maps";
    if (t == kCosStream && sub == ASAtomFromString("Form")) return "forms";
    if (t == kCosStream && sub == ASAtomFromString("Image")) {
        CosObj f = CosDictGet(dict, ASAtomFromString("Filter"));
        if (CosObjGetType(f) == kCosArray && CosArrayLength(f) > 0) f = CosArrayGet(f, CosArrayLength(f) - 1);
        return std::string("images: ") + (CosObjGetType(f) == kCosName ? ASAtomGetString(CosNameValue(f)) : "unfiltered");
    }
    if (type == ASAtomFromString("XRef")) return "cross-reference";
    return t == kCosStream ? "other streams" : "other objects";
}

SizeTable Sizes(PDDoc pd, const std::string& path) {
    CosDoc cos = PDDocGetCosDoc(pd);
    const uint64_t fileLength = uint64_t(CosDocGetFileInfo(cos).fileLength);
    const std::map<long, std::string> roles = StreamRoles(pd);
    SizeTable table;
    std::vector<std::pair<uint64_t, long>> inFile;
    std::map<long, std::vector<long>> streams;
    const ASInt32 size = CosDocGetObjTableSize(cos);
    for (ASInt32 n = 1; n < size; ++n) {
        CosObjLocation loc = CosDocGetObjLocation(cos, n);
        if (loc.where == CosObjLocation::kInFile && loc.offset < fileLength) inFile.emplace_back(loc.offset, n);
        if (loc.where == CosObjLocation::kInObjStm) streams[long(loc.offset)].push_back(n);
    }
    std::sort(inFile.begin(), inFile.end());
    const uint64_t xref = StartXref(path, fileLength);
    table["header"] = inFile.empty() ? std::min(xref, fileLength) : inFile.front().first;
    for (size_t i = 0; i < inFile.size(); ++i) {
        const uint64_t at = inFile[i].first;
        // The last object ends where the cross-reference data begins (a
        // cross-reference stream is an object of its own, to the end).
        uint64_t next = i + 1 < inFile.size() ? inFile[i + 1].first : (xref > at ? xref : fileLength);
        const uint64_t span = next - at;
        const long num = inFile[i].second;
        CosObj o = CosDocGetObjByID(cos, ASInt32(num));
        if (!streams.count(num)) {
            table[SizeKind(o, num, roles)] += span;
            continue;
        }
        // An object stream: its members share its bytes by decoded size.
        std::vector<uint8_t> data = CosStreamDecodedData(o);
        size_t first = 0;
        auto members = StreamMembers(o, data, &first);
        std::vector<size_t> starts;
        for (const auto& m : members) starts.push_back(m.second);
        std::sort(starts.begin(), starts.end());
        const uint64_t decoded = std::max<uint64_t>(1, data.size());
        uint64_t given = 0;
        for (const auto& [obj, off] : members) {
            auto it = std::upper_bound(starts.begin(), starts.end(), off);
            const size_t stop = it == starts.end() ? data.size() - first : *it;
            const uint64_t part = stop > off ? span * (stop - off) / decoded : 0;
            table[SizeKind(CosDocGetObjByID(cos, ASInt32(obj)), obj, roles)] += part;
            given += part;
        }
        table["object streams (index and overhead)"] += span - std::min(span, given);
    }
    const uint64_t objectsEnd = inFile.empty() ? table["header"] : std::max(inFile.back().first, std::min(xref, fileLength));
    if (fileLength > objectsEnd && (inFile.empty() || xref > inFile.back().first))
        table["cross-reference"] += fileLength - objectsEnd;
    return table;
}

int RunSizes(const Options& o) {
    std::vector<std::string> files{o.file};
    if (!o.output.empty()) files.push_back(o.output);
    std::vector<SizeTable> tables;
    for (const std::string& f : files) {
        PDDoc pd = PDDocOpen(f, o.password);
        try {
            tables.push_back(Sizes(pd, f));
        } catch (...) {
            PDDocClose(pd);
            throw;
        }
        PDDocClose(pd);
    }
    std::map<std::string, int> kinds;
    for (const SizeTable& t : tables)
        for (const auto& entry : t) kinds[entry.first] = 1;
    auto name = [](const std::string& f) { return f.substr(f.find_last_of('/') == std::string::npos ? 0 : f.find_last_of('/') + 1); };
    std::printf("%-38s %12s", "kind", name(files[0]).substr(0, 12).c_str());
    if (tables.size() == 2) std::printf(" %12s %12s", name(files[1]).substr(0, 12).c_str(), "difference");
    std::printf("\n");
    std::vector<uint64_t> totals(tables.size(), 0);
    auto row = [&](const std::string& kind, const std::vector<uint64_t>& v) {
        std::printf("%-38s %12llu", kind.c_str(), (unsigned long long)v[0]);
        if (v.size() == 2) std::printf(" %12llu %+12lld", (unsigned long long)v[1], (long long)v[1] - (long long)v[0]);
        std::printf("\n");
    };
    for (const auto& [kind, _] : kinds) {
        std::vector<uint64_t> v;
        for (size_t i = 0; i < tables.size(); ++i) {
            auto it = tables[i].find(kind);
            v.push_back(it == tables[i].end() ? 0 : it->second);
            totals[i] += v.back();
        }
        row(kind, v);
    }
    row("total", totals);
    return 0;
}

int RunRewrite(PDDoc pd, const Options& o) {
    CosSaveParams params;  // a full save to a new file
    params.path = o.output;
    if (o.objectStreams) params.flags |= kCosSaveObjectStreams;
    params.objectsPerStream = static_cast<ASInt32>(o.perStream);
    int64_t written = CosDocSave(PDDocGetCosDoc(pd), params);
    std::printf("wrote %lld bytes to %s\n", static_cast<long long>(written), o.output.c_str());
    return 0;
}

// Counts the operators a stream draws with, as the parser reads them (F
// counted as f, which it becomes on purpose).
class OperatorCounter : public ContentHandler {
public:
    OperatorCounter() { m_out.SetEnabled(false); }
    void Operator(std::string_view op) override { ++counts[op == "F" ? std::string("f") : std::string(op)]; }
    std::map<std::string, long> counts;
};

std::map<std::string, long> CountOperators(std::span<const uint8_t> data) {
    OperatorCounter c;
    c.RunContent(data);
    return c.counts;
}

// "xyz 2, PS 1": the operators of `before` missing from `after`.
std::string Lost(const std::map<std::string, long>& before, const std::map<std::string, long>& after) {
    std::string out;
    for (const auto& [op, n] : before) {
        auto it = after.find(op);
        long left = it == after.end() ? 0 : it->second;
        if (left >= n) continue;
        if (!out.empty()) out += ", ";
        out += op + " " + std::to_string(n - left);
    }
    return out;
}

int RunContent(PDDoc pd, const Options& o) {
    if (o.pageNum > PDDocGetNumPages(pd)) {
        std::fprintf(stderr, "tminspect: the document has %d pages\n", PDDocGetNumPages(pd));
        return 1;
    }
    Log log;
    log.SetFileLoggingAllowed(false);
    ContentHandler h(&log);
    h.RunPage(PDDocGetPageObj(pd, static_cast<ASInt32>(o.pageNum - 1)));
    std::fwrite(h.Out().Text().data(), 1, h.Out().Size(), stdout);
    std::printf("\n");
    return 0;
}

// Rewrites one stream through the base handler with `resources`; returns
// the operators it lost.
std::string RewriteStream(CosObj stream, CosObj resources, Log& log, const Options& o) {
    std::vector<uint8_t> data = CosStreamDecodedData(stream);
    ContentHandler h(&log);
    h.SetResources(resources);
    h.RunContent(data);
    const std::string& text = h.Out().Text();
    std::span<const uint8_t> out(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    std::string lost = o.check ? Lost(CountOperators(data), CountOperators(out)) : std::string();
    CosStreamSetDecodedData(stream, out, o.flate);
    return lost;
}

int RunRewriteContent(PDDoc pd, const Options& o) {
    static const ASAtom kSubtype = ASAtomFromString("Subtype");
    static const ASAtom kForm = ASAtomFromString("Form");
    static const ASAtom kType3 = ASAtomFromString("Type3");
    static const ASAtom kCharProcs = ASAtomFromString("CharProcs");
    static const ASAtom kPatternType = ASAtomFromString("PatternType");
    CosDoc cos = PDDocGetCosDoc(pd);
    Log log;
    log.SetFileLoggingAllowed(false);
    log.SetChannelOff(Log::kInfo, true);
    log.SetChannelOff(Log::kWarning, true);
    int pages = PDDocGetNumPages(pd), forms = 0, patterns = 0, glyphs = 0, failed = 0;
    for (int p = 0; p < pages; ++p) {
        CosObj page = PDDocGetPageObj(pd, p);
        try {
            std::vector<uint8_t> data = o.check ? PageContentBytes(page, &log) : std::vector<uint8_t>();
            ContentHandler h(&log);
            h.RunPage(page);
            const std::string& text = h.Out().Text();
            std::span<const uint8_t> out(reinterpret_cast<const uint8_t*>(text.data()), text.size());
            std::string lost = o.check ? Lost(CountOperators(data), CountOperators(out)) : std::string();
            if (!lost.empty()) std::printf("page %d lost: %s\n", p + 1, lost.c_str());
            CosObj contents = CosDictGet(page, cosnames::Contents);
            if (CosObjGetType(contents) == kCosStream) {
                CosStreamSetDecodedData(contents, out, o.flate);
            } else if (CosObjGetType(contents) == kCosArray) {
                CosObj stream = CosNewStream(cos, CosNewNull(), {});
                CosStreamSetDecodedData(stream, out, o.flate);
                CosDictPut(page, cosnames::Contents, stream);
            }
        } catch (const CVellumError& e) {
            std::printf("page %d not rewritten: %s\n", p + 1, e.what());
            ++failed;
        }
    }
    // Every form, tiling pattern and Type 3 glyph procedure of the file,
    // whether or not a page draws it.
    ASInt32 n = CosDocGetObjTableSize(cos);
    for (ASInt32 i = 1; i < n; ++i) {
        try {
            CosObj obj = CosDocGetObjByID(cos, i);
            CosType t = CosObjGetType(obj);
            if (t == kCosStream && (CosDictGetName(obj, kSubtype) == kForm || CosDictGetInt(obj, kPatternType, 0) == 1)) {
                bool form = CosDictGetName(obj, kSubtype) == kForm;
                std::string lost = RewriteStream(obj, CosDictGet(obj, cosnames::Resources), log, o);
                if (!lost.empty()) std::printf("%s %d lost: %s\n", form ? "form" : "pattern", i, lost.c_str());
                ++(form ? forms : patterns);
            } else if (t == kCosDict && CosDictGetName(obj, kSubtype) == kType3) {
                CosObj procs = CosDictGet(obj, kCharProcs);
                if (CosObjGetType(procs) != kCosDict) continue;
                for (ASInt32 k = 0; k < CosDictCount(procs); ++k) {
                    CosObj proc = CosDictValueAt(procs, k);
                    if (CosObjGetType(proc) != kCosStream) continue;
                    std::string lost = RewriteStream(proc, CosDictGet(obj, cosnames::Resources), log, o);
                    if (!lost.empty()) std::printf("glyph %d/%d lost: %s\n", i, k, lost.c_str());
                    ++glyphs;
                }
            }
        } catch (const CVellumError& e) {
            std::printf("object %d not rewritten: %s\n", i, e.what());
            ++failed;
        }
    }
    CosSaveParams params;
    params.path = o.output;
    int64_t written = CosDocSave(cos, params);
    std::printf("rewrote %d pages, %d forms, %d patterns, %d glyphs (%d failed); wrote %lld bytes\n", pages,
                forms, patterns, glyphs, failed, static_cast<long long>(written));
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
        if (o.mode == Mode::Sizes) {
            rc = RunSizes(o);
            VellumTerm();
            return rc;
        }
        pd = PDDocOpen(o.file, o.password);
        switch (o.mode) {
        case Mode::Summary: rc = RunSummary(pd); break;
        case Mode::Object: rc = RunObject(pd, o); break;
        case Mode::LoadAll: rc = RunLoadAll(pd); break;
        case Mode::Packing: rc = RunPacking(pd, o); break;
        case Mode::Rewrite: rc = RunRewrite(pd, o); break;
        case Mode::Content: rc = RunContent(pd, o); break;
        case Mode::RewriteContent: rc = RunRewriteContent(pd, o); break;
        case Mode::Sizes: break;
        }
    } catch (const CVellumError& e) {
        std::fprintf(stderr, "tminspect: %s: %s\n", o.file.c_str(), e.what());
        rc = 2;
    }
    if (pd) PDDocClose(pd);
    VellumTerm();
    return rc;
}
