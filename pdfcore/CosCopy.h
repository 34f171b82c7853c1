// Deep copying of objects within or between documents.
#pragma once

#include <functional>
#include <unordered_map>
#include <vector>

#include "pdfcore/CosObj.h"

// Copies objects into `dest`, copying each indirect object of the source
// once (the map remembers source object number -> new object number), so
// shared objects stay shared and reference cycles terminate.
class CosCopier {
public:
    explicit CosCopier(CosDoc dest) : m_dest(dest) {}

    // Decides what an indirect source object becomes before it is copied:
    // return true to copy it, false to write null in its place.  Used to stop
    // a page copy from dragging in the source's page tree.
    std::function<bool(CosObj source)> shouldCopy;
    // Within one document: leave references to indirect objects as they are.
    bool keepReferences = false;
    // Keys left out when copying a dictionary (e.g. Parent of pages).
    std::function<bool(CosObj sourceDict, ASAtom key)> skipKey;

    // Reserves the new number for an indirect source object without copying
    // it yet, so references to it can be written before it exists.
    ASInt32 Reserve(CosObj source);
    // Copies `obj`; an indirect source gives the new indirect object.
    CosObj Copy(CosObj obj);
    // The copy of an indirect source object made so far (null when none).
    CosObj CopyOf(CosObj source);

private:
    CosObj CopyDirect(CosObj obj, int depth);
    CosObj CopyValue(CosObj raw, int depth);
    CosObj CopyIndirect(CosObj src, int depth);

    CosDoc m_dest;
    std::unordered_map<ASInt32, ASInt32> m_map;  // source objNum -> dest objNum
    std::unordered_map<ASInt32, bool> m_done;
    std::vector<CosObj> m_pending;  // reserved, still to be copied
};
