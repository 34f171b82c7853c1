// The counters every optimisation step keeps about what it did.
//
// The counters live in one dictionary of the object model, keyed by name
// atoms.  Reset() creates every known key: the counters as integer 0 and the
// document-level results (see kStatisticsFlagKeys) as boolean false.  An
// increment only ever touches a key that already holds an integer, so a
// misspelt key in some operation can never grow the dictionary or turn a
// flag into a number.
//
// ContentStreams_Combined counts the pages the combining step ran on, one
// each: a page whose three streams became one adds 1, and so does a page
// that held one stream already.  The report takes it as the number of
// streams after combining.
#pragma once

#include <span>
#include <string_view>

#include "pdfcore/CosObj.h"

namespace pipeline {

// Every integer counter, grouped as the operations that increment them.
std::span<const char* const> StatisticsCounterKeys();
// The document-level results, held as booleans.
std::span<const char* const> StatisticsFlagKeys();

class Statistics {
public:
    // Wraps `dict` (a direct or indirect dictionary of some document); the
    // dictionary stays owned by its document.  A null `dict` gives a
    // statistics object that ignores writes and reads 0.
    explicit Statistics(CosObj dict);

    CosObj Dict() const { return m_dict; }

    // Every counter 0, every flag false; nothing else is left in the dictionary.
    void Reset();

    // Adds `by` to an integer counter; any other key is left alone.
    void Increment(ASAtom key, ASInt32 by = 1);
    void Increment(std::string_view key, ASInt32 by = 1);

    // An integer counter's value; a flag reads as 0 or 1; a missing key as 0.
    ASInt32 Get(ASAtom key) const;
    ASInt32 Get(std::string_view key) const;
    bool GetFlag(std::string_view key) const { return Get(key) != 0; }

    // Sets a key: flags keep their boolean kind (any non-zero is true),
    // counters their integer kind.  Keys outside both lists are ignored.
    void Set(ASAtom key, ASInt32 value);
    void Set(std::string_view key, ASInt32 value);
    void SetFlag(std::string_view key, bool value) { Set(key, value ? 1 : 0); }

    static bool IsCounterKey(ASAtom key);
    static bool IsFlagKey(ASAtom key);

private:
    CosObj m_dict;
};

}  // namespace pipeline
