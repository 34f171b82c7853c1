// Object streams (/Type /ObjStm): objects stored compressed inside a
// stream.  Each stream is decoded once, on the first request for one of its
// objects, and kept with its table of (object number, offset) pairs.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "pdfcore/CosInternal.h"

class CosObjStmCache {
public:
    struct Stream {
        std::vector<uint8_t> data;
        size_t first = 0;                                    // offset of the first object
        std::vector<std::pair<ASInt32, size_t>> members;     // (number, offset from first)
        ASInt32 extends = 0;                                 // 0: none
    };

    // Object `objNum`, element `index` of stream `stmNum` (its number is
    // also looked up when the index is wrong, then along Extends).  A fresh
    // direct object, or null when it is not there.  Raises on broken data.
    CosObj Load(CosDoc doc, ASInt32 stmNum, ASUns32 index, ASInt32 objNum);

    // The decoded stream `stmNum`; raises when it is not an object stream
    // or is being decoded already (a stream that contains itself).
    const Stream& Get(CosDoc doc, ASInt32 stmNum);

    void Clear() { m_cache.clear(); }

private:
    std::map<ASInt32, std::unique_ptr<Stream>> m_cache;
    std::set<ASInt32> m_inProgress;
};
