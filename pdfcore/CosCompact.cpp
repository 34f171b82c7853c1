#include "pdfcore/CosCompact.h"

#include <algorithm>

#include "pdfcore/CosInternal.h"
#include "pdfcore/CosSyntax.h"
#include "pdfcore/CosWriter.h"
#include "pdfcore/CosXref.h"

namespace {

[[noreturn]] void BadParm() { ASRaiseErr(ErrSysGeneral, kErrBadParm); }

// Characters that end a token; two regular characters in a row would merge
// two tokens into one.
bool IsRegular(char ch) { return CosSyntax::IsRegular(static_cast<uint8_t>(ch)); }

void AppendBigEndian(std::vector<uint8_t>& out, uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

// ================================================================ packing

bool CosMayPackInObjStm(CosObj obj, ASUns16 gen, bool isEncryptDict, bool isCatalog, bool linearizing) {
    if (obj == nullptr || gen != 0 || isEncryptDict) return false;
    if (isCatalog && linearizing) return false;
    return CosObjGetType(obj) != kCosStream;
}

std::vector<bool> CosPlanObjStmBreaks(const std::vector<size_t>& groupSizes, size_t maxObjects) {
    if (maxObjects == 0) BadParm();
    std::vector<bool> breaks;
    size_t inStream = 0;  // objects in the current stream
    for (size_t size : groupSizes) {
        if (size == 0) continue;
        // A group that does not fit in what is left but fits in a stream of
        // its own starts afresh, so its page reads one stream.  A group too
        // large for one stream spans several anyway: it fills the current one.
        if (inStream > 0 && inStream + size > maxObjects && size <= maxObjects) inStream = maxObjects;
        for (size_t i = 0; i < size; ++i) {
            const bool start = breaks.empty() || inStream == maxObjects;
            if (start) inStream = 0;
            breaks.push_back(start);
            ++inStream;
        }
    }
    return breaks;
}

void CosObjStmBuilder::Add(ASInt32 objNum, std::string_view body) {
    if (objNum <= 0 || body.empty()) BadParm();
    if (!m_bodies.empty() && IsRegular(m_bodies.back()) && IsRegular(body.front())) m_bodies += ' ';
    m_members.push_back(objNum);
    m_offsets.push_back(m_bodies.size());
    m_bodies += body;
}

std::string CosObjStmBuilder::Build(size_t* first) const {
    std::string out;
    for (size_t i = 0; i < m_members.size(); ++i) {
        if (i > 0) out += ' ';
        CosWriteInteger(out, m_members[i]);
        out += ' ';
        CosWriteInteger(out, static_cast<int64_t>(m_offsets[i]));
    }
    if (!out.empty() && !m_bodies.empty() && IsRegular(out.back()) && IsRegular(m_bodies.front())) out += ' ';
    if (first) *first = out.size();
    out += m_bodies;
    return out;
}

void CosObjStmBuilder::Clear() {
    m_members.clear();
    m_offsets.clear();
    m_bodies.clear();
}

void CosWriteStreamObject(std::string& out, ASInt32 objNum, std::string_view dictText,
                          std::span<const uint8_t> data) {
    CosWriteInteger(out, objNum);
    out += " 0 obj\r";
    out += dictText;
    out += "\rstream\n";
    out.append(reinterpret_cast<const char*>(data.data()), data.size());
    if (!data.empty() && data.back() != '\r' && data.back() != '\n') out += '\r';
    out += "endstream\rendobj\r";
}

// ================================================================ xref stream

int CosFieldWidth(uint64_t value) {
    int w = 0;
    while (value != 0) {
        ++w;
        value >>= 8;
    }
    return w;
}

CosXrefStreamData CosEncodeXrefStream(std::vector<CosXrefStreamRow> rows) {
    std::sort(rows.begin(), rows.end(),
              [](const CosXrefStreamRow& a, const CosXrefStreamRow& b) { return a.objNum < b.objNum; });
    CosXrefStreamData d;
    bool allInFile = true;
    uint64_t max2 = 0, max3 = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        const CosXrefStreamRow& r = rows[i];
        if (r.type > 2 || r.objNum < 0 || (r.objNum == 0 && r.type != 0)) BadParm();
        if (i > 0 && rows[i - 1].objNum == r.objNum) BadParm();
        if (r.objNum >= kCosMaxObjNum) BadParm();
        allInFile = allInFile && r.type == 1;
        max2 = std::max(max2, r.field2);
        // Object 0 heads the free list and is never reused: its generation
        // is as large as the field allows, whatever width the others need.
        if (r.objNum != 0) max3 = std::max(max3, r.field3);
        if (d.index.empty() || d.index.back().first + d.index.back().second != r.objNum)
            d.index.emplace_back(r.objNum, 0);
        ++d.index.back().second;
    }
    d.widths[0] = allInFile ? 0 : 1;
    d.widths[1] = CosFieldWidth(max2);
    d.widths[2] = CosFieldWidth(max3);
    // A row needs at least one byte: an all-zero table still says "type 1
    // at offset 0" in one byte rather than in nothing.
    if (d.widths[0] + d.widths[1] + d.widths[2] == 0) d.widths[1] = 1;
    d.size = rows.empty() ? 1 : rows.back().objNum + 1;
    d.indexIsDefault = d.index.size() == 1 && d.index[0].first == 0;

    const size_t rowLen = size_t(d.widths[0] + d.widths[1] + d.widths[2]);
    d.rows.reserve(rows.size() * rowLen);
    const uint64_t max3Width = d.widths[2] >= 8 ? UINT64_MAX : (uint64_t(1) << (8 * d.widths[2])) - 1;
    for (const CosXrefStreamRow& r : rows) {
        AppendBigEndian(d.rows, r.type, d.widths[0]);
        AppendBigEndian(d.rows, r.field2, d.widths[1]);
        AppendBigEndian(d.rows, r.objNum == 0 ? std::min(r.field3, max3Width) : r.field3, d.widths[2]);
    }
    // PNG Up: each byte minus the byte above it.  Offsets grow slowly and
    // packed entries repeat their stream number, so most bytes become zero.
    d.predicted.reserve(rows.size() * (rowLen + 1));
    for (size_t r = 0; r < rows.size(); ++r) {
        d.predicted.push_back(2);
        for (size_t c = 0; c < rowLen; ++c) {
            const uint8_t above = r > 0 ? d.rows[(r - 1) * rowLen + c] : 0;
            d.predicted.push_back(static_cast<uint8_t>(d.rows[r * rowLen + c] - above));
        }
    }
    return d;
}

std::string CosXrefStreamDictText(const CosXrefStreamData& data, size_t encodedLength,
                                  std::string_view trailerEntries) {
    std::string out = "<</Type/XRef/Size ";
    CosWriteInteger(out, data.size);
    if (!data.indexIsDefault) {
        out += "/Index[";
        for (size_t i = 0; i < data.index.size(); ++i) {
            if (i > 0) out += ' ';
            CosWriteInteger(out, data.index[i].first);
            out += ' ';
            CosWriteInteger(out, data.index[i].second);
        }
        out += ']';
    }
    out += "/W[";
    for (int i = 0; i < 3; ++i) {
        if (i > 0) out += ' ';
        CosWriteInteger(out, data.widths[i]);
    }
    out += "]/Filter/FlateDecode/DecodeParms<</Columns ";
    CosWriteInteger(out, data.widths[0] + data.widths[1] + data.widths[2]);
    out += "/Predictor 12>>";
    out += trailerEntries;
    out += "/Length ";
    CosWriteInteger(out, static_cast<int64_t>(encodedLength));
    out += ">>";
    return out;
}
