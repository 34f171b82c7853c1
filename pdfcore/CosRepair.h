// Rebuilding the object table of a file whose cross-reference data is
// missing or broken, by scanning the whole file for "n g obj" labels and
// trailer dictionaries.
#pragma once

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "pdfcore/CosInternal.h"

class CosObjStmCache;

class CosRepairer {
public:
    CosRepairer(CosDoc doc, std::span<const uint8_t> file, size_t headerOffset)
        : m_doc(doc), m_file(file), m_header(headerOffset) {}

    // First pass: finds every labelled object (the last definition of a
    // number wins) and fills the document's table with them, keeping rows
    // whose objects are loaded already.  Returns a new trailer dictionary
    // built from the trailers found ("trailer" dictionaries and the
    // dictionaries of cross-reference streams, newest first), or null when
    // `wantTrailer` is false.  Raises "could not repair file" when the file
    // holds no object at all.
    CosObj ScanObjects(bool wantTrailer);

    // Second pass (after decryption is set up): adds the members of the
    // object streams found, and finds the catalog for a trailer without a
    // usable Root.  Raises "could not repair file" when there is neither a
    // catalog nor a page; pages without a catalog get a new, empty catalog
    // (the document layer then finds their page tree).
    void AddObjectStreamMembers(CosObjStmCache& cache);
    void EnsureRoot(CosObj trailer);

    // Number of labelled objects found by ScanObjects.
    size_t FoundCount() const { return m_found.size(); }

private:
    struct Found {
        ASInt32 num;
        ASInt32 gen;
        size_t pos;  // absolute position of the label
    };
    bool HeadHas(size_t labelPos, std::string_view needle) const;

    CosDoc m_doc;
    std::span<const uint8_t> m_file;
    size_t m_header;
    std::vector<Found> m_found;          // in file order
    // Per number: the position of the winning label (SIZE_MAX: none).  A
    // map, since damaged files may name a few numbers in the millions.
    std::unordered_map<size_t, size_t> m_definedAt;
    size_t DefinedAt(size_t num) const {
        auto it = m_definedAt.find(num);
        return it == m_definedAt.end() ? SIZE_MAX : it->second;
    }
};

// The page tree root of a document whose catalog does not lead to one,
// looked for among all its objects (damaged files only): the root of
// another catalog (not `catalog`) that has a usable tree, else the Pages
// node that no other node lists (the one with the largest Count when there
// are several), else a new root over every page object in object order.
// Null when the document has no page at all.  When the answer is another
// catalog, that catalog is returned rather than its root.
CosObj CosFindPageTreeRoot(CosDoc doc, CosObj catalog);
