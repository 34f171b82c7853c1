// The byte form of written PDF: object bodies, numbers, names, strings,
// indirect-object framing, the cross-reference table, the trailer and the end
// marker, plus the output file that a save writes through.
//
// Everything here appends to a std::string so that one indirect object can be
// assembled in memory and handed to the file in one piece.  The line end is a
// carriage return everywhere except the 20-byte cross-reference entries.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pdfcore/CosDoc.h"

// ---------------------------------------------------------------- scalars
// Fixed-point text of `value` with at most `precision` decimals, trailing
// zeros and a trailing '.' removed.  The sign is taken before rounding, so a
// small negative value that rounds to zero is written "-0".  A precision
// outside 0..9 raises "bad parameter".
void CosWriteFixed(std::string& out, double value, int precision);
// "%ld" of the value.
void CosWriteInteger(std::string& out, int64_t value);
// "/" and the name's bytes; delimiters, white space, '#' and bytes outside
// the printable ASCII range are written as #xx.
void CosWriteName(std::string& out, std::string_view name);
// A literal string in parentheses.  Bytes of 128 and above are written as
// octal escapes unless `encrypted` (encrypted bytes are written as they are).
void CosWriteLiteralString(std::string& out, std::span<const uint8_t> bytes, bool encrypted);
// "<" two hex digits per byte ">".
void CosWriteHexString(std::string& out, std::span<const uint8_t> bytes);

// ---------------------------------------------------------------- bodies
// Writes object bodies for one save.  References are written as "%ld %ld R";
// when a renumbering table is set, an indirect object's old number selects
// its new number (generation 0) and a reference to an object outside the
// table (missing, free, or dropped) is written as null.
class CosObjWriter {
public:
    explicit CosObjWriter(bool compact = false) : m_compact(compact) {}

    void SetCompact(bool compact) { m_compact = compact; }
    bool Compact() const { return m_compact; }
    // The document precision; values above 9 are used as 9.
    void SetPrecision(int precision) { m_precision = precision < 0 ? 0 : (precision > 9 ? 9 : precision); }
    int Precision() const { return m_precision; }
    // Old object number -> new object number (0: not written).  The vector
    // must outlive the writer's use.  Null writes references unchanged.
    void SetRenumbering(const std::vector<ASInt32>* newNumbers) { m_renumber = newNumbers; }
    // Strings and stream data of the object being written are encrypted
    // with this filter under (objNum, gen).  Null writes them as stored.
    void SetCrypt(CosCryptFilter* crypt, ASUns32 objNum, ASUns16 gen) {
        m_crypt = crypt;
        m_cryptNum = objNum;
        m_cryptGen = gen;
    }

    // Appends the body of `obj` (a reference for an indirect object met as
    // a value inside a container, the full body for the top object).
    void WriteBody(std::string& out, CosObj obj);
    // Appends "%ld %ld obj\r", the body of `obj`, "\rendobj\r" and clears the
    // object's changed mark.
    void WriteIndirect(std::string& out, ASInt32 objNum, ASUns16 gen, CosObj obj);
    // The value part of a dictionary entry or array element (resolving
    // references as described above).
    void WriteValue(std::string& out, CosObj value);

    // Dictionary pieces for callers that build a dictionary from parts
    // (the trailer): "<<" / "<<\r", one entry, ">>".
    void BeginDict(std::string& out) const { out += m_compact ? "<<" : "<<\r"; }
    void WriteDictEntry(std::string& out, ASAtom key, CosObj value);
    void WriteDictEntryText(std::string& out, ASAtom key, std::string_view valueText);
    void EndDict(std::string& out) const { out += ">>"; }

    // The highest PDF minor version (of 1.x) that the written objects need,
    // as far as the writer can tell from the names it wrote (0 when none).
    int RequiredMinorVersion() const { return m_needMinor; }

private:
    void WriteDirect(std::string& out, CosObj obj, int depth);
    void WriteValueAt(std::string& out, CosObj value, int depth);
    void WriteDict(std::string& out, CosObj dict, int depth);
    void WriteArray(std::string& out, CosObj array, int depth);
    void WriteStream(std::string& out, CosObj stream, int depth);
    void WriteString(std::string& out, CosObj str);
    void WriteReference(std::string& out, ASInt32 objNum, ASUns16 gen);
    void NoteName(ASAtom key, ASAtom value);
    void Need(int minor) {
        if (minor > m_needMinor) m_needMinor = minor;
    }

    bool m_compact = false;
    int m_precision = 9;
    const std::vector<ASInt32>* m_renumber = nullptr;
    CosCryptFilter* m_crypt = nullptr;
    ASUns32 m_cryptNum = 0;
    ASUns16 m_cryptGen = 0;
    int m_needMinor = 0;
    std::vector<uint8_t> m_scratch;
};

// ---------------------------------------------------------------- save modes
// Object-level save mode from the document-level flags word: bit 0 gives
// mode 2 (full save), bits 0 and 1 mode 3 (full save to a copy); bits 0 and 3
// add kCosSaveModeForceFull, bit 12 adds kCosSaveModeCompact, bit 13 adds
// kCosSaveModeObjectStreams (and kCosSaveModeCompact); bit 2 is
// handed back as the linearize request.  Mode 0 is an incremental save.
enum : ASUns32 {
    kCosSaveModeFull = 2,
    kCosSaveModeFullCopy = 3,
    kCosSaveModeForceFull = 0x10000000,
    kCosSaveModeCompact = 0x20000000,
    kCosSaveModeObjectStreams = 0x40000000,  // from flag bit 13 (0x2000)
};
ASUns32 CosSaveModeFromFlags(ASUns32 flags, bool* linearize);

// ---------------------------------------------------------------- file parts
// "trailer\r", the dictionary text, "\r".
void CosWriteTrailer(std::string& out, std::string_view dictText);
// "startxref\r%ld\r%%EOF\r" when `xrefOffset` >= 0, else "\r%%EOF\r".
void CosWriteEnd(std::string& out, int64_t xrefOffset);

// The cross-reference table of one save: subsections of (first, count),
// merged when adjacent or overlapping.  Adding a subsection whose first
// object number does not follow the previous one's raises "bad parameter".
class CosXrefTable {
public:
    struct Entry {
        int64_t offset = 0;
        ASUns16 gen = 0;
    };
    void AddSubsection(ASInt32 first, ASInt32 count);
    // The merged runs, sorted (validates as AddSubsection describes).
    std::vector<std::pair<ASInt32, ASInt32>> Runs() const;
    // Appends "xref\r" and every run with its entries.  `entryOf(objNum)`
    // gives each object's offset and generation.  For a full save the first
    // run starts at object 0 with the free entry.
    template <typename EntryOf>
    void Write(std::string& out, bool fullSave, EntryOf entryOf) const {
        out += "xref\r";
        bool first = true;
        for (const auto& [start, count] : Runs()) {
            if (first && fullSave) {
                AppendRunHeader(out, 0, start + count);
                out += "0000000000 65535 f\r\n";
                for (ASInt32 n = 1; n < start; ++n) out += "0000000000 65535 f\r\n";
            } else {
                AppendRunHeader(out, start, count);
            }
            first = false;
            for (ASInt32 n = start; n < start + count; ++n) {
                Entry e = entryOf(n);
                AppendEntry(out, e.offset, e.gen);
            }
        }
    }
    static void AppendRunHeader(std::string& out, ASInt32 first, ASInt32 count);
    static void AppendEntry(std::string& out, int64_t offset, ASUns16 gen);

private:
    std::vector<std::pair<ASInt32, ASInt32>> m_subsections;
};

// ---------------------------------------------------------------- output file
// A file written atomically: the bytes go to a temporary file in the
// target's folder (see pdfcore/AtomicFile.h), and Commit() flushes, syncs
// and renames it over the target.  Until then (and after any failure) the
// target is untouched; the destructor removes an uncommitted temporary.
class CosTempFile;

class CosOutputFile {
public:
    explicit CosOutputFile(const std::string& targetPath);
    ~CosOutputFile();
    CosOutputFile(const CosOutputFile&) = delete;
    CosOutputFile& operator=(const CosOutputFile&) = delete;

    void Write(const void* data, size_t length);
    void Write(std::string_view text) { Write(text.data(), text.size()); }
    int64_t Tell() const { return m_written; }
    // Overwrites a field written earlier at `offset`: `text` padded with
    // blanks to the width of the decimal form of `widthNumber` ("%ld").
    void PatchField(int64_t offset, long widthNumber, std::string_view text);
    void Commit();
    // Removes the temporary file (also done by the destructor).
    void Abandon();
    // The temporary's name; empty while it has none (an unnamed temporary).
    const std::string& TempPath() const;

private:
    void Flush();
    void RawWrite(const void* data, size_t length);
    void RawPwrite(const void* data, size_t length, int64_t offset);

    std::unique_ptr<CosTempFile> m_temp;
    int m_fd = -1;
    std::vector<char> m_buffer;
    size_t m_used = 0;
    int64_t m_written = 0;
    bool m_committed = false;
};

// Test hook: when set to N >= 0, every output file fails with "a file write
// error has occurred" once N bytes have been written to it (-1: off).
void CosOutputFileSetFailAfterForTesting(int64_t bytes);
// Test hook: every write to an output file first waits this many
// milliseconds (0: off), so that a save can be interrupted part-way.
void CosOutputFileSetDelayForTesting(int milliseconds);
