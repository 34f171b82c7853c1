// Reading objects in PDF syntax: direct objects, "n g obj" labels,
// indirect objects and their stream data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pdfcore/CosInternal.h"
#include "pdfcore/CosLexer.h"

class CosParser {
public:
    // Arrays and dictionaries nested deeper than this raise "operation or
    // data is too complex" instead of exhausting the stack.
    static constexpr int kMaxDepth = 512;

    // `data` is the whole buffer that offsets refer to (the file for objects
    // read from a file, so stream data offsets are absolute).
    CosParser(CosDoc doc, std::span<const uint8_t> data, size_t pos = 0)
        : m_doc(doc), m_lex(data, pos) {}

    CosLexer& Lexer() { return m_lex; }

    // Strings read from now on are decrypted with `crypt` under the object's
    // number and generation (null: strings are taken as they are).
    void SetStringCrypt(CosCryptFilter* crypt, ASInt32 num, ASUns16 gen) {
        m_crypt = crypt;
        m_cryptNum = num;
        m_cryptGen = gen;
    }

    // One object at the current position, as a direct object of the document
    // (references become unresolved references).  Raises the parser errors.
    CosObj ReadObject();

    // Reads "num gen obj" at the current position; false (position
    // unchanged) when the bytes there are not such a label.
    bool ReadObjLabel(ASInt32& num, ASInt32& gen);

    struct StreamOptions {
        bool allowStreams = true;
        // Resolve an indirect Length through the object table; when false an
        // indirect Length is treated as missing.
        bool resolveLength = true;
        // Stream data still needs decrypting on first use.
        bool encrypted = false;
    };
    // Reads "num gen obj", the object, and the stream data when the object is
    // a dictionary followed by "stream".  Raises "object label badly
    // formatted" when the label is wrong, and the stream errors.
    CosObj ReadIndirect(ASInt32& num, ASInt32& gen, const StreamOptions& opts);

    // The byte range of a stream's data that starts right after "stream";
    // `declared` is the Length (negative when unknown).  A wrong Length is
    // recovered by searching "endstream".
    static void FindStreamExtent(std::span<const uint8_t> data, size_t dataStart, int64_t declared,
                                 size_t& outLength);

    // The value under `key` without resolving a reference.
    static CosObj DictGetRaw(CosObj dict, ASAtom key);

private:
    CosObj ReadValue(int depth);
    CosObj MakeFromToken(CosToken& tok, int depth);
    CosObj ReadArray(int depth);
    CosObj ReadDict(int depth);
    CosObj MakeString(std::string& bytes, bool hex);
    CosObj ReadStreamBody(CosObj dict, const StreamOptions& opts);

    CosDoc m_doc;
    CosLexer m_lex;
    CosCryptFilter* m_crypt = nullptr;
    ASInt32 m_cryptNum = 0;
    ASUns16 m_cryptGen = 0;
};

// The kind of `obj` itself, kCosIndirect for an unresolved reference
// (CosObjGetType looks through references).
CosType CosRawType(CosObj obj);

// Finds `needle` in data[from, to); returns the offset or SIZE_MAX.
size_t CosFindBytes(std::span<const uint8_t> data, size_t from, size_t to, std::string_view needle);
// Finds the last occurrence of `needle` in data[from, to); SIZE_MAX when none.
size_t CosFindBytesBackward(std::span<const uint8_t> data, size_t from, size_t to,
                            std::string_view needle);
