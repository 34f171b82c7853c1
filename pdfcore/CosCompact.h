// The compact form of a written file (PDF 1.5): objects packed into object
// streams and a cross-reference stream in place of the classic table.
//
// The pieces here know nothing of files: which objects may be packed, how
// packed objects are split into streams, the byte form of one object stream
// and of the cross-reference stream's rows.  The save (CosSave.cpp) puts
// them together.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pdfcore/CosObj.h"

// ---------------------------------------------------------------- packing
// True when `obj`, written as object number N generation `gen`, may live in
// an object stream: never a stream, never an object of a generation other
// than 0, never the encryption dictionary, and not the catalog of a file
// that is to be linearised (a linearised reader finds the catalog before
// any object stream).
bool CosMayPackInObjStm(CosObj obj, ASUns16 gen, bool isEncryptDict, bool isCatalog, bool linearizing);

// How packed objects are cut into object streams.  Reading one packed object
// means inflating its whole stream, so streams are kept short: 200 small
// objects (about 22 KB, under 0.1 ms to inflate) is where doubling stops
// paying (see bench/objstm.sh and docs/writer.md).
struct CosObjStmLimits {
    size_t maxObjects = 200;                 // objects per stream
    size_t maxBytes = size_t(256) << 10;     // uncompressed bytes per stream
};

// Plans the stream breaks for packable objects that come in groups (the
// objects a page is the first to use form one group, in write order).
// `groupSizes` gives the number of packable objects of each group; the
// result has one flag per object (in order) that is true when a new stream
// starts at that object.  A group that fits in what is left of the current
// stream joins it; one that does not, but fits in a stream of its own,
// starts a new stream, so reading one page touches one stream.  A group
// larger than the limit continues the current stream and fills as many
// more as it needs.
std::vector<bool> CosPlanObjStmBreaks(const std::vector<size_t>& groupSizes, size_t maxObjects);

// One object stream being filled: bodies in compact form, separated only
// where two tokens would otherwise join.
class CosObjStmBuilder {
public:
    void Add(ASInt32 objNum, std::string_view body);
    size_t Count() const { return m_members.size(); }
    // Bytes of the object bodies so far (the header comes on top).
    size_t BodyBytes() const { return m_bodies.size(); }
    const std::vector<ASInt32>& Members() const { return m_members; }
    // The stream's decoded data: the header of "number offset" pairs, then
    // the bodies.  `*first` receives the offset of the first body (First).
    std::string Build(size_t* first) const;
    void Clear();

private:
    std::vector<ASInt32> m_members;
    std::vector<size_t> m_offsets;  // of each body within m_bodies
    std::string m_bodies;
};

// "num 0 obj\r", the dictionary text, "\rstream\n", the data, a CR when the
// data does not end in CR or LF, "endstream\rendobj\r": a stream object the
// save builds itself (object streams, the cross-reference stream).
void CosWriteStreamObject(std::string& out, ASInt32 objNum, std::string_view dictText,
                          std::span<const uint8_t> data);

// ---------------------------------------------------------------- xref stream
// One row of a cross-reference stream: type 0 (free: next free object,
// generation), 1 (in the file: offset, generation) or 2 (packed: object
// stream number, index in it).
struct CosXrefStreamRow {
    ASInt32 objNum = 0;
    uint8_t type = 1;
    uint64_t field2 = 0;
    uint64_t field3 = 0;
};

struct CosXrefStreamData {
    int widths[3] = {0, 0, 0};                         // W
    std::vector<std::pair<ASInt32, ASInt32>> index;   // subsections (first, count)
    bool indexIsDefault = false;                       // index == [0 Size]: Index may be left out
    ASInt32 size = 0;                                  // Size: one past the highest number
    std::vector<uint8_t> rows;                         // the rows, big-endian fields
    std::vector<uint8_t> predicted;                    // rows with the PNG Up predictor
};

// The number of bytes that hold `value` (0 for 0).
int CosFieldWidth(uint64_t value);

// Sorts the rows by object number, takes the smallest widths that hold every
// field (the type field is left out, width 0, when every row is type 1),
// groups consecutive numbers into Index subsections and predicts the rows
// with the PNG Up filter (a tag byte 2 before each row, Predictor 12).
// Object 0 may only be free; its generation (65535 in a classic table) is
// cut to what the third field's width holds rather than widening every row.
// Duplicate or negative object numbers, a used object 0 and types above 2
// raise "bad parameter".
CosXrefStreamData CosEncodeXrefStream(std::vector<CosXrefStreamRow> rows);

// The dictionary text of the cross-reference stream (compact form):
// Type, Size, Index (unless default), W, Filter, DecodeParms, then the
// caller's `trailerEntries` text (Root, Info, Encrypt, ID), then Length.
std::string CosXrefStreamDictText(const CosXrefStreamData& data, size_t encodedLength,
                                  std::string_view trailerEntries);
