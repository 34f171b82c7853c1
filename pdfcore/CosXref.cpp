#include "pdfcore/CosXref.h"

#include <zlib.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <set>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosParser.h"

namespace {

constexpr size_t kHeaderWindow = 1024;
constexpr size_t kMaxSections = 4096;
constexpr size_t kMaxStructureStream = size_t(256) << 20;

// Which rows an older section may still fill.
struct TableBuilder {
    CosObjTable& table;
    std::vector<bool> taken;  // set by a newer section (or earlier in this one)

    void Grow(size_t n) {
        if (table.size() < n) table.resize(n);
        if (taken.size() < n) taken.resize(n, false);
    }
    bool Free(int64_t num) const {
        return num > 0 && num < kCosMaxObjNum &&
               (static_cast<size_t>(num) >= taken.size() || !taken[static_cast<size_t>(num)]);
    }
    void Set(int64_t num, const CosXrefEntry& e) {
        if (!Free(num)) return;
        Grow(static_cast<size_t>(num) + 1);
        table[static_cast<size_t>(num)] = e;
        taken[static_cast<size_t>(num)] = true;
    }
    void Block(int64_t num) {
        if (!Free(num)) return;
        Grow(static_cast<size_t>(num) + 1);
        taken[static_cast<size_t>(num)] = true;
    }
};

// Reads a decimal integer the way scanf's "%ld" does (white space, one
// optional sign, digits) but saturates instead of overflowing: the digits
// come from the file, and scanf leaves an out-of-range value undefined.
bool ScanLong(const char*& p, long& out) {
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n' || *p == '\f' || *p == '\v') ++p;
    const char* q = p;
    bool negative = false;
    if (*q == '+' || *q == '-') negative = *q++ == '-';
    if (!(*q >= '0' && *q <= '9')) return false;
    long v = 0;
    for (; *q >= '0' && *q <= '9'; ++q) {
        const int d = *q - '0';
        v = v > (LONG_MAX - d) / 10 ? LONG_MAX : v * 10 + d;
    }
    out = negative ? -v : v;
    p = q;
    return true;
}

// How many of `count` integers the text starts with (like sscanf with
// "%ld %ld"), stored in `out`.
int ScanLongs(const std::string& text, long* out, int count) {
    const char* p = text.c_str();
    int got = 0;
    while (got < count && ScanLong(p, out[got])) ++got;
    return got;
}

std::string Trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && CosLexer::IsWhite(static_cast<uint8_t>(s[b]))) ++b;
    while (e > b && CosLexer::IsWhite(static_cast<uint8_t>(s[e - 1]))) --e;
    return s.substr(b, e - b);
}

// The integer under `key`, or `dflt`.
int64_t DictInt(CosObj dict, ASAtom key, int64_t dflt) {
    CosObj v = CosParser::DictGetRaw(dict, key);
    CosType t = CosRawType(v);
    return (t == kCosInteger || t == kCosFixed) ? CosInteger64Value(v) : dflt;
}

void FreeDirect(CosObj obj) {
    // The raw kind: a reference that names nothing resolves to null but its
    // record still has to be freed.
    if (obj && CosRawType(obj) != kCosNull && !CosObjIsIndirect(obj)) CosObjDestroy(obj);
}

// Reads a classic section at the lexer's position (just past "xref").
// Fills `classic` with (number, entry) pairs in file order and returns the
// trailer dictionary.
CosObj ReadClassicSection(CosParser& parser, std::vector<std::pair<int64_t, CosXrefEntry>>& classic) {
    CosLexer& lex = parser.Lexer();
    std::string line;
    while (true) {
        size_t lineStart = lex.Pos();
        if (!lex.ReadLine(line)) ASRaiseParse(kErrMissingXref);
        std::string t = Trim(line);
        if (t.empty()) continue;
        if (t.compare(0, 7, "trailer") == 0) {
            size_t at = CosFindBytes(lex.Data(), lineStart, lex.Size(), "trailer");
            lex.Seek(at + 7);
            break;
        }
        long header[2] = {0, 0};
        int got = ScanLongs(t, header, 2);
        long first = header[0], count = header[1];
        if (got == 1) {
            // The count stands on the next line.
            std::string more;
            do {
                if (!lex.ReadLine(more)) ASRaiseParse(kErrXrefHeader);
                more = Trim(more);
            } while (more.empty());
            if (ScanLongs(more, &count, 1) != 1) ASRaiseParse(kErrXrefHeader);
        } else if (got != 2) {
            ASRaiseParse(kErrXrefHeader);
        }
        if (first < 0 || count < 0) ASRaiseParse(kErrXrefHeader);
        for (long i = 0; i < count; ++i) {
            std::string el;
            do {
                if (!lex.ReadLine(el, 256)) ASRaiseParse(kErrXrefEntry);
                el = Trim(el);
            } while (el.empty());
            long fields[2] = {0, 0};
            const char* rest = el.c_str();
            if (!ScanLong(rest, fields[0]) || !ScanLong(rest, fields[1])) ASRaiseParse(kErrXrefEntry);
            while (*rest == ' ' || *rest == '\t') ++rest;
            if (*rest == '\0') ASRaiseParse(kErrXrefEntry);
            long off = fields[0], gen = fields[1];
            const char kind = *rest;
            CosXrefEntry e;
            if (kind == 'n') {
                e.kind = CosXrefEntry::kInFile;
            } else if (kind == 'f') {
                e.kind = CosXrefEntry::kFree;
            } else {
                ASRaiseParse(kErrXrefEntry);
            }
            if (off < 0) off = 0;
            e.offset = static_cast<uint64_t>(off);
            e.gen = static_cast<ASUns16>(gen < 0 || gen > 0xFFFF ? 0 : gen);
            // Numbers come from the file: refuse huge ones before adding,
            // so that the sum cannot overflow.
            if (first >= kCosMaxObjNum || i >= kCosMaxObjNum - first) continue;
            int64_t num = static_cast<int64_t>(first) + i;
            // An in-use entry at offset 0 points nowhere: treat it as free.
            if (e.kind == CosXrefEntry::kInFile && off == 0) e.kind = CosXrefEntry::kFree;
            classic.emplace_back(num, e);
        }
    }
    CosObj trailer = parser.ReadObject();
    if (CosObjGetType(trailer) != kCosDict) {
        FreeDirect(trailer);
        ASRaiseParse(kErrExpectedDict);
    }
    return trailer;
}

// Reads a cross-reference stream at `pos` (absolute) into the builder and
// returns its dictionary.
CosObj ReadXrefStream(CosDoc doc, std::span<const uint8_t> file, size_t pos, TableBuilder& tb) {
    CosParser parser(doc, file, pos);
    ASInt32 num = 0, gen = 0;
    if (!parser.ReadObjLabel(num, gen)) ASRaiseParse(kErrMissingXref);
    CosObj dict = parser.ReadObject();
    try {
        // (Reading the keyword may raise too: the dictionary must not leak.)
        if (CosObjGetType(dict) != kCosDict || !parser.Lexer().Next().IsKeyword("stream"))
            ASRaiseParse(kErrExpectedStream);
        size_t p = parser.Lexer().Pos();
        if (p < file.size() && file[p] == '\r') ++p;
        if (p < file.size() && file[p] == '\n') ++p;
        size_t length = 0;
        CosParser::FindStreamExtent(file, p, DictInt(dict, cosnames::Length, -1), length);
        std::vector<uint8_t> data;
        if (!CosDecodeStructureStream(dict, file.subspan(p, length), data))
            ASRaiseErr(ErrSysCos, kErrUnknownFilter);

        CosObj w = CosParser::DictGetRaw(dict, cosnames::W);
        if (CosObjGetType(w) != kCosArray || CosArrayLength(w) < 3) ASRaiseParse(kErrXrefEntry);
        int widths[3];
        size_t rowLen = 0;
        for (int i = 0; i < 3; ++i) {
            CosObj wi = CosArrayGet(w, i);
            CosType t = CosObjGetType(wi);
            int64_t v = (t == kCosInteger || t == kCosFixed) ? CosInteger64Value(wi) : -1;
            if (v < 0 || v > 8) ASRaiseParse(kErrXrefEntry);
            widths[i] = static_cast<int>(v);
            rowLen += static_cast<size_t>(v);
        }
        if (rowLen == 0) ASRaiseParse(kErrXrefEntry);
        int64_t size = DictInt(dict, cosnames::Size, 0);
        std::vector<std::pair<int64_t, int64_t>> ranges;
        CosObj index = CosParser::DictGetRaw(dict, cosnames::Index);
        if (CosObjGetType(index) == kCosArray) {
            for (ASInt32 i = 0; i + 1 < CosArrayLength(index); i += 2) {
                CosObj a = CosArrayGet(index, i), b = CosArrayGet(index, i + 1);
                if (CosObjGetType(a) != kCosInteger || CosObjGetType(b) != kCosInteger) break;
                ranges.emplace_back(CosInteger64Value(a), CosInteger64Value(b));
            }
        } else {
            ranges.emplace_back(0, size);
        }
        size_t row = 0;
        const size_t rows = data.size() / rowLen;
        for (auto [first, count] : ranges) {
            if (first < 0 || count < 0) continue;
            for (int64_t i = 0; i < count && row < rows; ++i, ++row) {
                const uint8_t* r = data.data() + row * rowLen;
                uint64_t f[3];
                for (int k = 0; k < 3; ++k) {
                    uint64_t v = 0;
                    for (int j = 0; j < widths[k]; ++j) v = (v << 8) | *r++;
                    f[k] = v;
                }
                // A missing type field means type 1; the other fields default to 0.
                if (widths[0] == 0) f[0] = 1;
                int64_t objNum = first + i;
                CosXrefEntry e;
                switch (f[0]) {
                case 0:
                    tb.Block(objNum);
                    continue;
                case 1:
                    e.kind = f[1] == 0 ? CosXrefEntry::kFree : CosXrefEntry::kInFile;
                    e.offset = f[1];
                    e.gen = static_cast<ASUns16>(f[2] > 0xFFFF ? 0 : f[2]);
                    break;
                case 2:
                    e.kind = CosXrefEntry::kInObjStm;
                    e.offset = f[1];
                    e.index = static_cast<ASUns32>(f[2] > 0xFFFFFFFFu ? 0 : f[2]);
                    if (f[1] == 0 || f[1] >= static_cast<uint64_t>(kCosMaxObjNum) ||
                        static_cast<int64_t>(f[1]) == objNum)
                        e.kind = CosXrefEntry::kFree;
                    break;
                default:
                    continue;  // unknown types read as null references
                }
                tb.Set(objNum, e);
            }
        }
    } catch (...) {
        FreeDirect(dict);
        throw;
    }
    return dict;
}

}  // namespace

size_t CosFindHeader(std::span<const uint8_t> file, const std::string& header) {
    if (header.empty()) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    for (size_t pos = 0; pos < kHeaderWindow; ++pos) {
        if (pos + header.size() > file.size()) break;
        if (std::memcmp(file.data() + pos, header.data(), header.size()) == 0) return pos;
    }
    ASRaiseParse(kErrBadHeader);
}

void CosReadVersion(std::span<const uint8_t> file, size_t versionPos, ASInt16& major, ASInt16& minor) {
    if (versionPos + 3 > file.size()) ASRaiseParse(kErrBadHeader);
    major = static_cast<ASInt16>(file[versionPos] - '0');
    minor = static_cast<ASInt16>(file[versionPos + 2] - '0');
}

size_t CosFindEOFMarker(std::span<const uint8_t> file) {
    const size_t len = file.size();
    if (len < 5) ASRaiseParse(kErrMissingEOF);
    for (size_t back = 5; back <= 8 && back <= len; ++back) {
        if (std::memcmp(file.data() + len - back, "%%EOF", 5) == 0) return len - back;
    }
    // Block search over the tail, zero bytes read as 0xFF so that the text
    // search passes over binary data.
    size_t n = len < kHeaderWindow ? len : kHeaderWindow;
    std::vector<uint8_t> block(file.end() - static_cast<ptrdiff_t>(n), file.end());
    for (uint8_t& c : block)
        if (c == 0) c = 0xFF;
    size_t at = CosFindBytesBackward(block, 0, block.size(), "%%EOF");
    if (at == SIZE_MAX) ASRaiseParse(kErrMissingEOF);
    return len - n + at;
}

int64_t CosReadStartxref(std::span<const uint8_t> file, size_t eofPos) {
    if (eofPos < 9) ASRaiseParse(kErrNoStartxref);
    size_t kw = SIZE_MAX;
    for (size_t p = eofPos - 9 + 1; p-- > 0;) {
        if (std::memcmp(file.data() + p, "startxref", 9) == 0) {
            kw = p;
            break;
        }
    }
    if (kw == SIZE_MAX) ASRaiseParse(kErrNoStartxref);
    size_t b = kw + 9, e = eofPos;
    while (b < e && !(file[b] >= '0' && file[b] <= '9')) ++b;
    if (b == e) ASRaiseParse(kErrNoStartxref);
    while (e > b && !(file[e - 1] >= '0' && file[e - 1] <= '9')) --e;
    int64_t v = 0;
    for (size_t p = b; p < e; ++p) {
        if (!(file[p] >= '0' && file[p] <= '9')) ASRaiseParse(kErrStartxrefNotInt);
        if (v > (INT64_MAX - 9) / 10) ASRaiseParse(kErrStartxrefNotInt);
        v = v * 10 + (file[p] - '0');
    }
    return v;
}

CosXrefChain CosReadXrefChain(CosDoc doc, std::span<const uint8_t> file, size_t headerOffset,
                              int64_t startxref, CosObjTable& table) {
    CosXrefChain chain;
    TableBuilder tb{table, {}};
    tb.taken.assign(table.size(), false);
    std::set<int64_t> visited;
    int64_t offset = startxref;
    try {
        while (true) {
            if (!visited.insert(offset).second || visited.size() > kMaxSections) {
                // A Prev loop: every section of it has been read once.
                chain.prevLoop = true;
                break;
            }
            if (offset < 0 || static_cast<uint64_t>(offset) >= file.size() - headerOffset)
                ASRaiseParse(kErrMissingXref);
            chain.sectionOffsets.push_back(offset);
            size_t pos = headerOffset + static_cast<size_t>(offset);
            CosParser parser(doc, file, pos);
            parser.Lexer().SkipWhite();
            if (parser.Lexer().AtEnd()) ASRaiseParse(kErrMissingXref);
            CosObj trailer;
            size_t p = parser.Lexer().Pos();
            if (file.size() - p >= 4 && std::memcmp(file.data() + p, "xref", 4) == 0) {
                parser.Lexer().Seek(p + 4);
                std::vector<std::pair<int64_t, CosXrefEntry>> classic;
                trailer = ReadClassicSection(parser, classic);
                // In-use entries of the table come first; free ones must not
                // hide objects that only the XRefStm stream lists.
                for (auto& [num, e] : classic)
                    if (e.kind != CosXrefEntry::kFree) tb.Set(num, e);
                int64_t stm = DictInt(trailer, cosnames::XRefStm, -1);
                if (stm > 0 && static_cast<uint64_t>(stm) < file.size() - headerOffset) {
                    try {
                        FreeDirect(ReadXrefStream(doc, file, headerOffset + static_cast<size_t>(stm), tb));
                    } catch (const CVellumError&) {
                        // A broken hidden stream leaves the table as it is.
                    }
                }
                for (auto& [num, e] : classic)
                    if (e.kind == CosXrefEntry::kFree) tb.Block(num);
            } else {
                trailer = ReadXrefStream(doc, file, pos, tb);
            }
            CosObj prev = CosParser::DictGetRaw(trailer, cosnames::Prev);
            CosType pt = CosRawType(prev);
            int64_t next = -1;
            if (pt != kCosNull) {
                if (pt != kCosInteger && pt != kCosFixed) {
                    FreeDirect(trailer);
                    ASRaiseParse(kErrExpectedNumber);
                }
                // The offset is the number truncated, not rounded.
                double v = CosFixedValue(prev);
                next = v >= 9.2e18 ? INT64_MAX : (v <= -9.2e18 ? INT64_MIN : static_cast<int64_t>(v));
            }
            if (!chain.trailer) {
                chain.trailer = trailer;
            } else {
                FreeDirect(trailer);
            }
            if (pt == kCosNull) break;
            offset = next;
        }
    } catch (...) {
        FreeDirect(chain.trailer);
        throw;
    }
    return chain;
}

bool CosIsLinearized(std::span<const uint8_t> file, const std::vector<int64_t>& sectionOffsets) {
    if (sectionOffsets.size() != 2) return false;
    if (!(sectionOffsets[0] < sectionOffsets[1] && sectionOffsets[0] < 1024)) return false;
    size_t n = file.size() < 1025 ? file.size() : 1025;
    std::vector<uint8_t> head(file.begin(), file.begin() + static_cast<ptrdiff_t>(n));
    for (uint8_t& c : head)
        if (c == 0) c = 0xFF;
    size_t at = CosFindBytes(head, 0, head.size(), "/Linearized");
    if (at == SIZE_MAX) return false;
    size_t l = CosFindBytes(head, at + 11, head.size(), "/L");
    if (l == SIZE_MAX) return false;
    size_t p = l + 2;
    while (p < head.size() && !(head[p] >= '0' && head[p] <= '9')) ++p;
    if (p >= head.size()) return false;
    uint64_t v = 0;
    while (p < head.size() && head[p] >= '0' && head[p] <= '9') {
        if (v > (UINT64_MAX - 9) / 10) return false;
        v = v * 10 + (head[p++] - '0');
    }
    return v == file.size();
}

// ---------------------------------------------------------------- decoding

namespace {

bool Inflate(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    z_stream zs{};
    if (inflateInit(&zs) != Z_OK) return false;
    out.clear();
    uint8_t buf[16384];
    zs.next_in = const_cast<Bytef*>(in.data());
    zs.avail_in = static_cast<uInt>(in.size());
    int rc = Z_OK;
    while (rc == Z_OK) {
        zs.next_out = buf;
        zs.avail_out = sizeof buf;
        rc = inflate(&zs, Z_NO_FLUSH);
        out.insert(out.end(), buf, buf + (sizeof buf - zs.avail_out));
        if (out.size() > kMaxStructureStream) break;
        if (rc == Z_BUF_ERROR && zs.avail_in == 0) break;  // truncated: keep what decoded
    }
    inflateEnd(&zs);
    return true;
}

void UndoPNG(std::vector<uint8_t>& data, size_t colors, size_t bpc, size_t columns) {
    size_t bpp = (colors * bpc + 7) / 8;
    size_t rowLen = (colors * bpc * columns + 7) / 8;
    if (bpp == 0 || rowLen == 0) return;
    std::vector<uint8_t> out, prev(rowLen, 0), cur(rowLen);
    for (size_t pos = 0; pos + 1 <= data.size();) {
        uint8_t type = data[pos++];
        size_t n = std::min(rowLen, data.size() - pos);
        std::fill(cur.begin(), cur.end(), 0);
        std::memcpy(cur.data(), data.data() + pos, n);
        pos += n;
        for (size_t i = 0; i < rowLen; ++i) {
            int a = i >= bpp ? cur[i - bpp] : 0, b = prev[i], c = i >= bpp ? prev[i - bpp] : 0;
            int x = cur[i];
            switch (type) {
            case 1: x += a; break;
            case 2: x += b; break;
            case 3: x += (a + b) / 2; break;
            case 4: {
                int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
                x += (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
                break;
            }
            default: break;
            }
            cur[i] = static_cast<uint8_t>(x);
        }
        out.insert(out.end(), cur.begin(), cur.begin() + static_cast<ptrdiff_t>(n));
        prev = cur;
    }
    data.swap(out);
}

}  // namespace

bool CosDecodeStructureStream(CosObj dict, std::span<const uint8_t> raw, std::vector<uint8_t>& out) {
    CosObj filter = CosParser::DictGetRaw(dict, cosnames::Filter);
    CosObj parms = CosParser::DictGetRaw(dict, cosnames::DecodeParms);
    if (CosObjGetType(filter) == kCosArray) {
        if (CosArrayLength(filter) == 0) filter = CosNewNull();
        else if (CosArrayLength(filter) == 1) filter = CosArrayGetRaw(filter, 0);
        else return false;
        if (CosObjGetType(parms) == kCosArray) parms = CosArrayGetRaw(parms, 0);
    }
    if (CosObjGetType(filter) == kCosNull) {
        out.assign(raw.begin(), raw.end());
        return true;
    }
    if (CosObjGetType(filter) != kCosName) return false;
    std::string name = ASAtomGetString(CosNameValue(filter));
    if (name != "FlateDecode" && name != "Fl") return false;
    if (!Inflate(raw, out)) return false;
    if (CosObjGetType(parms) == kCosDict) {
        int64_t pred = DictInt(parms, cosnames::Predictor, 1);
        int64_t colors = DictInt(parms, cosnames::Colors, 1);
        int64_t bpc = DictInt(parms, cosnames::BitsPerComponent, 8);
        int64_t columns = DictInt(parms, cosnames::Columns, 1);
        if (colors < 1 || colors > 32 || bpc < 1 || bpc > 16 || columns < 1 || columns > 1 << 20)
            return false;
        if (pred >= 10) {
            UndoPNG(out, static_cast<size_t>(colors), static_cast<size_t>(bpc), static_cast<size_t>(columns));
        } else if (pred == 2 && bpc == 8) {
            size_t rowLen = static_cast<size_t>(colors * columns);
            for (size_t r = 0; r + rowLen <= out.size(); r += rowLen)
                for (size_t i = static_cast<size_t>(colors); i < rowLen; ++i)
                    out[r + i] = static_cast<uint8_t>(out[r + i] + out[r + i - static_cast<size_t>(colors)]);
        }
    }
    return true;
}
