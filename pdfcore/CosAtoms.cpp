// The name-atom table: one process-wide table mapping texts to small
// integers.  It is built on first use so that atoms can be created from
// static initialisers in any translation unit.
#include <deque>
#include <string>
#include <unordered_map>

#include "pdfcore/CosObj.h"

namespace {

struct AtomTable {
    // A deque keeps the strings in place, so the map can key on views of them.
    std::deque<std::string> texts;
    std::unordered_map<std::string_view, ASAtom> index;
    AtomTable() { texts.emplace_back(); }  // atom 0: ASAtomNull, never looked up
};

AtomTable& Table() {
    static AtomTable table;
    return table;
}

std::string_view TrimBlanks(std::string_view t) {
    if (t.size() <= 1) return t;
    size_t b = 0, e = t.size();
    while (b < e && t[b] == ' ') ++b;
    while (e > b && t[e - 1] == ' ') --e;
    return t.substr(b, e - b);
}

}  // namespace

ASAtom ASAtomFind(std::string_view text) {
    AtomTable& t = Table();
    auto it = t.index.find(text);
    return it == t.index.end() ? ASAtomNull : it->second;
}

ASAtom ASAtomFromString(std::string_view text) {
    text = TrimBlanks(text);
    AtomTable& t = Table();
    auto it = t.index.find(text);
    if (it != t.index.end()) return it->second;
    ASAtom atom = static_cast<ASAtom>(t.texts.size());
    t.texts.emplace_back(text);
    t.index.emplace(std::string_view(t.texts.back()), atom);
    return atom;
}

const char* ASAtomGetString(ASAtom atom) {
    AtomTable& t = Table();
    if (atom >= t.texts.size()) return "";
    return t.texts[atom].c_str();
}

ASUns32 ASAtomCount() { return static_cast<ASUns32>(Table().texts.size()); }
