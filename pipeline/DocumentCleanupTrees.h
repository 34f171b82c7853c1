// Reading the catalog's trees for the document clean-up: name trees and
// number trees held as Kids trees, the named destinations they define, and
// pointing every use of a named destination at the explicit destination it
// stands for, so that removing the names leaves no link or bookmark behind
// that points nowhere.
#pragma once

#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "pdfcore/CosObj.h"

namespace pipeline {

// How deep a name or number tree may nest.  Real trees are balanced and a
// handful of levels deep; anything deeper is damage or a loop in disguise.
constexpr int kMaxTreeDepth = 32;

enum class TreeKind {
    Names,    // keys are strings, leaves hold `Names`
    Numbers,  // keys are integers, leaves hold `Nums`
};

struct TreeEntry {
    CosObj key = nullptr;
    CosObj value = nullptr;
};

// What a walk found: the entries in the order met, the tree's nodes (the
// root included) and the first problem, empty when the tree is sound.
// Entries of malformed nodes that can still be read are kept; a node
// reached a second time, a node deeper than kMaxTreeDepth and a node that
// is not a dictionary are skipped.
struct TreeContents {
    std::vector<TreeEntry> entries;
    std::unordered_set<CosObj> nodes;
    std::string problem;
};

TreeContents ReadTree(CosObj root, TreeKind kind);

// The named destinations of a document: the catalog's `Dests` dictionary
// (keys are names) and the `Dests` name tree in `Names` (keys are strings).
class NamedDestinations {
public:
    // Reads both; `problems` receives one line for each that is malformed.
    explicit NamedDestinations(CosObj catalog, std::vector<std::string>* problems = nullptr);

    // The explicit destination (an array) that a `Dest` or `D` value names:
    // a name is looked up in the dictionary first, a string in the tree
    // first, each falling back to the other; a value that is a dictionary
    // gives its `D`.  Null when the name is unknown or not a destination.
    CosObj Resolve(CosObj nameOrString) const;

    // The objects holding the destinations (for skipping them in a scan).
    const std::unordered_set<CosObj>& Containers() const { return m_containers; }
    size_t Size() const { return m_byText.size(); }

private:
    // Keyed by the name's text or the string's bytes, with the source.
    std::map<std::string, CosObj> m_byText;
    std::map<std::string, CosObj> m_byNameKey;
    std::unordered_set<CosObj> m_containers;
};

struct DestinationRewrite {
    size_t replaced = 0;    // Dest and D entries pointed at explicit destinations
    size_t unresolved = 0;  // names that no destination answers (left as they are)
};

// Every `Dest` entry whose value is a name or string, every GoTo action's
// `D` of that kind, and a catalog `OpenAction` given as a bare name or
// string, anywhere in the document's reachable objects, replaced by the
// explicit destination.  Remote and embedded go-to actions name
// destinations of other files and are left alone.
DestinationRewrite ReplaceNamedDestinations(CosDoc doc, const NamedDestinations& dests);

}  // namespace pipeline
