// Internals shared by the pieces of the core (object model, parser, writer,
// security).  Program code outside pdfcore/ never includes this.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "pdfcore/CosDoc.h"

// The bytes of an opened file.  Stream data read from the file stays here
// (streams keep an offset and a length) until an operation replaces it.
class CosFileSource {
public:
    virtual ~CosFileSource() = default;
    virtual const uint8_t* Data() const = 0;
    virtual size_t Size() const = 0;
    std::span<const uint8_t> Span() const { return {Data(), Size()}; }
};
// A source over a whole file read into memory (or mapped).
std::unique_ptr<CosFileSource> CosFileSourceFromPath(const std::string& path);
std::unique_ptr<CosFileSource> CosFileSourceFromBytes(std::span<const uint8_t> bytes);

// One row of the object table.
struct CosXrefEntry {
    enum Kind : uint8_t {
        kFree = 0,      // no object (reads as null)
        kInFile = 1,    // at `offset` in the file (relative to the header offset)
        kInObjStm = 2,  // element `index` of object stream number `offset`
        kNew = 3,       // made in memory; `obj` holds it
    };
    Kind kind = kFree;
    ASUns16 gen = 0;
    bool loading = false;  // guards against reference cycles while loading
    bool loadFailed = false;
    uint64_t offset = 0;
    ASUns32 index = 0;
    CosObjRec* obj = nullptr;  // the loaded (or new) object, owned by the document
};

// The object table: one entry per object number, below `size()`.  Entries
// live in blocks of 4096 that are made on first write, so a damaged file
// that names a few objects with numbers in the millions costs a few blocks
// rather than an array as long as the highest number.  Reads through
// `Find` never make a block: a missing block reads as free entries.
class CosObjTable {
public:
    static constexpr size_t kBlockBits = 12;
    static constexpr size_t kBlockSize = size_t(1) << kBlockBits;

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    void clear() {
        m_blocks.clear();
        m_size = 0;
    }
    // Growing adds free entries; shrinking drops the entries past `n`.
    void resize(size_t n);
    void emplace_back() { resize(m_size + 1); }
    void pop_back() {
        if (m_size > 0) resize(m_size - 1);
    }

    // Entry `n` (below `size()`), its block made when missing.
    CosXrefEntry& operator[](size_t n) {
        std::unique_ptr<CosXrefEntry[]>& b = m_blocks[n >> kBlockBits];
        if (!b) b = std::make_unique<CosXrefEntry[]>(kBlockSize);
        return b[n & (kBlockSize - 1)];
    }
    // Entry `n` when it is below `size()` and its block exists, else null.
    CosXrefEntry* Find(size_t n) {
        if (n >= m_size) return nullptr;
        const std::unique_ptr<CosXrefEntry[]>& b = m_blocks[n >> kBlockBits];
        return b ? &b[n & (kBlockSize - 1)] : nullptr;
    }
    const CosXrefEntry* Find(size_t n) const { return const_cast<CosObjTable*>(this)->Find(n); }

    // The first number at or after `n` whose block exists (`size()` when
    // none): loops over all numbers skip the empty stretches with it.
    size_t NextMade(size_t n) const {
        for (size_t b = n >> kBlockBits; b < m_blocks.size(); ++b) {
            if (!m_blocks[b]) continue;
            size_t first = std::max(n, b << kBlockBits);
            return std::min(first, m_size);
        }
        return m_size;
    }

    // Blocks made so far (each holds kBlockSize entries).
    size_t BlocksMade() const {
        return static_cast<size_t>(std::count_if(m_blocks.begin(), m_blocks.end(), [](const auto& b) { return b != nullptr; }));
    }

    // Calls `f(number, entry)` for every entry of the existing blocks, in
    // number order.
    template <class F>
    void ForEach(F&& f) {
        for (size_t b = 0; b < m_blocks.size(); ++b) {
            if (!m_blocks[b]) continue;
            size_t first = b << kBlockBits;
            size_t end = std::min(m_size, first + kBlockSize);
            for (size_t n = first; n < end; ++n) f(n, m_blocks[b][n - first]);
        }
    }
    template <class F>
    void ForEach(F&& f) const {
        const_cast<CosObjTable*>(this)->ForEach([&f](size_t n, const CosXrefEntry& e) { f(n, e); });
    }

private:
    std::vector<std::unique_ptr<CosXrefEntry[]>> m_blocks;
    size_t m_size = 0;
};

// Loads objects on demand; implemented by the parser.  `Load` returns the
// object for the entry (a fresh object of the document, not yet installed),
// or null when it cannot be read (the entry then reads as null).
class CosObjectLoader {
public:
    virtual ~CosObjectLoader() = default;
    virtual CosObj Load(CosDoc doc, ASInt32 objNum, CosXrefEntry& entry) = 0;
};

// -------------------------------------------------- document internals
CosObjTable& CosDocXref(CosDoc doc);
CosDocFileInfo& CosDocMutableFileInfo(CosDoc doc);
void CosDocSetTrailer(CosDoc doc, CosObj trailerDict);
void CosDocSetSource(CosDoc doc, std::unique_ptr<CosFileSource> source);
CosFileSource* CosDocGetSource(CosDoc doc);
void CosDocSetLoader(CosDoc doc, std::unique_ptr<CosObjectLoader> loader);
void CosDocSetReadCrypt(CosDoc doc, std::unique_ptr<CosCryptFilter> crypt);

// Makes `obj` (direct, without a container) the indirect object `objNum`
// generation `gen`, replacing the table entry's object.
void CosDocInstallObject(CosDoc doc, ASInt32 objNum, ASUns16 gen, CosObj obj);

// -------------------------------------------------- object internals
// A reference read from a file; resolved through the object table when a
// getter reaches it.  Owned by its container like a direct object.
CosObj CosNewRef(CosDoc doc, ASInt32 objNum, ASUns16 gen);
// For code that must see references unresolved (the writer's reachability
// walk resolves through these too, but the parser never resolves).
CosObj CosDictValueAtRaw(CosObj dict, ASInt32 index);
CosObj CosArrayGetRaw(CosObj array, ASInt32 index);
// Resolves a value that may be a reference (null for a free entry).
CosObj CosResolve(CosObj obj);
// The number and generation a reference points at.
ASInt32 CosRefGetID(CosObj ref);
ASUns16 CosRefGetGeneration(CosObj ref);

// A stream whose data lies in the document's file source at
// [offset, offset + length) (absolute file offsets).  When `encrypted`, the
// bytes are decrypted with the read filter under `objNum`/`gen` on first use.
CosObj CosNewStreamFromFile(CosDoc doc, CosObj dict, uint64_t offset, uint64_t length,
                            bool encrypted);
// Tells the stream its own number for decryption (set when installed).
void CosStreamSetCryptID(CosObj stream, ASInt32 objNum, ASUns16 gen);
