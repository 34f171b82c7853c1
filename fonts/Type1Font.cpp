#include "fonts/Type1Font.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>
#include <unordered_map>

#include "fonts/StandardEncodings.h"

namespace fonts {

namespace {

// Limits on what a program may declare.  Real Type 1 fonts stay far below
// them; a count past them is taken as hostile rather than allocated.
constexpr long kMaxSubrs = 65536;
constexpr long kMaxGlyphs = 65536;
constexpr long kMaxLenIV = 255;
// Subroutine nesting in charstrings (the format allows 10; be lenient).
constexpr int kMaxCallDepth = 16;
// Interpreter steps for one glyph and for one whole walk: charstrings that
// call their subroutines in exponential trees end here.
constexpr size_t kMaxGlyphSteps = 20000;
constexpr size_t kMaxWalkSteps = 8u << 20;
// The charstring operand stacks (the format allows 24 entries).
constexpr size_t kMaxStack = 48;

// The bytes that stand for the random leading bytes when writing: fixed so
// that output is identical run to run.  A zero first plain byte gives 0xD9
// as the first eexec byte, which is neither whitespace nor a hexadecimal
// digit, as readers telling binary from hexadecimal need.
constexpr char kEexecLead[4] = {0, 0, 0, 0};

bool IsWhite(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\0'; }

bool IsDelim(char c) {
    return c == '(' || c == ')' || c == '<' || c == '>' || c == '[' || c == ']' || c == '{' || c == '}' || c == '/' ||
           c == '%';
}

bool IsRegular(char c) { return !IsWhite(c) && !IsDelim(c); }

bool IsHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c - 'A' + 10;
}

// ---------------------------------------------------------------------------
// A PostScript tokenizer, enough for the font programs' dictionaries.  It
// never reads binary data: the charstring readers skip it by length.

enum class Tok { End, Name, Exec, Number, String, HexString, ProcOpen, ProcClose, ArrayOpen, ArrayClose, DictOpen, DictClose };

struct Token {
    Tok kind = Tok::End;
    size_t begin = 0, end = 0;  // the token's bytes in the text
    std::string_view text;      // a name without '/', a string without its delimiters, else the bytes
    double number = 0;
};

// A PostScript number: integer, real or radix ("8#777").
bool ParseNumber(std::string_view s, double& v) {
    if (s.empty()) return false;
    size_t hash = s.find('#');
    if (hash != std::string_view::npos) {
        int base = 0;
        if (hash == 0 || hash > 2) return false;
        for (size_t i = 0; i < hash; ++i) {
            if (s[i] < '0' || s[i] > '9') return false;
            base = base * 10 + (s[i] - '0');
        }
        if (base < 2 || base > 36 || hash + 1 == s.size() || s.size() - hash > 33) return false;
        double r = 0;
        for (size_t i = hash + 1; i < s.size(); ++i) {
            char c = s[i];
            int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'z' ? c - 'a' + 10 : c >= 'A' && c <= 'Z' ? c - 'A' + 10 : 99;
            if (d >= base) return false;
            r = r * base + d;
        }
        v = r;
        return true;
    }
    char c0 = s[0];
    if (!((c0 >= '0' && c0 <= '9') || c0 == '.' || c0 == '-' || c0 == '+')) return false;
    if (c0 == '+') s.remove_prefix(1);
    if (s.empty() || s[0] == '+' || (s[0] == '-' && s.size() > 1 && s[1] == '+')) return false;
    auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && p == s.data() + s.size() && std::isfinite(v);
}

class Lexer {
public:
    explicit Lexer(std::string_view s, size_t pos = 0) : s_(s), pos_(std::min(pos, s.size())) {}
    size_t Pos() const { return pos_; }
    void Seek(size_t p) { pos_ = std::min(p, s_.size()); }

    Token Next() {
        Token t;
        for (;;) {
            while (pos_ < s_.size() && IsWhite(s_[pos_])) ++pos_;
            if (pos_ >= s_.size()) {
                t.begin = t.end = s_.size();
                return t;
            }
            if (s_[pos_] != '%') break;
            while (pos_ < s_.size() && s_[pos_] != '\r' && s_[pos_] != '\n') ++pos_;
        }
        t.begin = pos_;
        char c = s_[pos_++];
        switch (c) {
        case '(': {
            int depth = 1;
            while (pos_ < s_.size() && depth > 0) {
                char ch = s_[pos_++];
                if (ch == '\\') ++pos_;
                else if (ch == '(') ++depth;
                else if (ch == ')') --depth;
            }
            if (depth > 0) {  // unterminated: nothing sensible follows
                pos_ = s_.size();
                t.begin = t.end = s_.size();
                return t;
            }
            t.kind = Tok::String;
            t.end = pos_;
            t.text = s_.substr(t.begin + 1, t.end - t.begin - 2);
            return t;
        }
        case '<':
            if (pos_ < s_.size() && s_[pos_] == '<') {
                ++pos_;
                t.kind = Tok::DictOpen;
            } else {
                size_t close = s_.find(pos_ < s_.size() && s_[pos_] == '~' ? "~>" : ">", pos_);
                if (close == std::string_view::npos) {
                    pos_ = s_.size();
                    t.begin = t.end = s_.size();
                    return t;
                }
                t.kind = Tok::HexString;
                t.text = s_.substr(pos_, close - pos_);
                pos_ = close + (s_[close] == '~' ? 2 : 1);
            }
            break;
        case '>':
            if (pos_ < s_.size() && s_[pos_] == '>') ++pos_, t.kind = Tok::DictClose;
            else t.kind = Tok::Exec;
            break;
        case '[': t.kind = Tok::ArrayOpen; break;
        case ']': t.kind = Tok::ArrayClose; break;
        case '{': t.kind = Tok::ProcOpen; break;
        case '}': t.kind = Tok::ProcClose; break;
        case ')': t.kind = Tok::Exec; break;
        case '/': {
            if (pos_ < s_.size() && s_[pos_] == '/') ++pos_;
            size_t start = pos_;
            while (pos_ < s_.size() && !IsWhite(s_[pos_]) && !IsDelim(s_[pos_])) ++pos_;
            t.kind = Tok::Name;
            t.end = pos_;
            t.text = s_.substr(start, pos_ - start);
            return t;
        }
        default:
            while (pos_ < s_.size() && !IsWhite(s_[pos_]) && !IsDelim(s_[pos_])) ++pos_;
            t.kind = Tok::Exec;
            break;
        }
        t.end = pos_;
        if (t.kind != Tok::HexString) t.text = s_.substr(t.begin, t.end - t.begin);
        if (t.kind == Tok::Exec && ParseNumber(t.text, t.number)) t.kind = Tok::Number;
        return t;
    }

private:
    std::string_view s_;
    size_t pos_;
};

bool IsExec(const Token& t, std::string_view word) { return t.kind == Tok::Exec && t.text == word; }

bool AsInt(const Token& t, long& v) {
    if (t.kind != Tok::Number || t.number != std::floor(t.number) || t.number < -2147483648.0 ||
        t.number > 2147483647.0)
        return false;
    v = static_cast<long>(t.number);
    return true;
}

// Reads "[n n ...]" or "{n n ...}" of numbers only; on anything else the
// lexer is put back and false returned.
bool ReadNumbers(Lexer& lx, std::vector<double>& out) {
    size_t save = lx.Pos();
    Token open = lx.Next();
    if (open.kind != Tok::ArrayOpen && open.kind != Tok::ProcOpen) {
        lx.Seek(save);
        return false;
    }
    Tok close = open.kind == Tok::ArrayOpen ? Tok::ArrayClose : Tok::ProcClose;
    out.clear();
    for (;;) {
        Token t = lx.Next();
        if (t.kind == close) return true;
        if (t.kind != Tok::Number || out.size() >= 256) break;
        out.push_back(t.number);
    }
    lx.Seek(save);
    return false;
}

// A value after a key in a dictionary: a number, a boolean or an array of
// numbers.  The lexer is put back when it is something else.
bool ReadNumericValue(Lexer& lx, std::vector<double>& out) {
    size_t save = lx.Pos();
    Token v = lx.Next();
    if (v.kind == Tok::Number) {
        out = {v.number};
        return true;
    }
    if (IsExec(v, "true") || IsExec(v, "false")) {
        out = {v.text == "true" ? 1.0 : 0.0};
        return true;
    }
    lx.Seek(save);
    return ReadNumbers(lx, out);
}

// Keeps the nesting of procedures and arrays, so that only the
// dictionary's own keys are read (not names inside procedures).
void TrackDepth(const Token& t, int& depth) {
    if (t.kind == Tok::ProcOpen || t.kind == Tok::ArrayOpen || t.kind == Tok::DictOpen) ++depth;
    else if ((t.kind == Tok::ProcClose || t.kind == Tok::ArrayClose || t.kind == Tok::DictClose) && depth > 0) --depth;
}

// ---------------------------------------------------------------------------
// The clear-text part.

// The "dup code /name put" lines of a built-in encoding, up to its "def".
void ReadEncoding(Lexer& lx, std::array<std::string, 256>& enc) {
    Token prev[3];
    int depth = 0;
    for (;;) {
        Token t = lx.Next();
        if (t.kind == Tok::End) return;
        TrackDepth(t, depth);
        if (depth == 0 && (IsExec(t, "def") || IsExec(t, "readonly"))) return;
        long code = 0;
        if (IsExec(t, "put") && IsExec(prev[0], "dup") && AsInt(prev[1], code) && prev[2].kind == Tok::Name &&
            code >= 0 && code < 256)
            enc[static_cast<size_t>(code)] = std::string(prev[2].text);
        prev[0] = prev[1];
        prev[1] = prev[2];
        prev[2] = t;
    }
}

// Reads the top-level values into `out` (when not null) and finds the
// /FontName value's bytes, [nameBegin, nameEnd) (both 0 when absent).
void ReadClearText(std::string_view text, Type1Font* out, size_t& nameBegin, size_t& nameEnd) {
    nameBegin = nameEnd = 0;
    Lexer lx(text);
    int depth = 0;
    bool inFontInfo = false;
    for (;;) {
        Token t = lx.Next();
        if (t.kind == Tok::End || IsExec(t, "eexec")) return;
        TrackDepth(t, depth);
        if (IsExec(t, "end") && depth == 0) inFontInfo = false;
        if (t.kind != Tok::Name || depth != 0) continue;
        std::string_view key = t.text;
        if (key == "FontInfo") {
            inFontInfo = true;
            continue;
        }
        size_t save = lx.Pos();
        Token v = lx.Next();
        if (inFontInfo) {
            if (out && (v.kind == Tok::String || v.kind == Tok::Number || IsExec(v, "true") || IsExec(v, "false")))
                out->fontInfo[std::string(key)] = std::string(v.text);
            else lx.Seek(save);
            continue;
        }
        if (key == "FontName" && v.kind == Tok::Name) {
            if (nameEnd == 0) {
                nameBegin = v.begin;
                nameEnd = v.end;
                if (out) out->fontName = std::string(v.text);
            }
            continue;
        }
        lx.Seek(save);
        if (!out) continue;
        std::vector<double> nums;
        long n = 0;
        if (key == "Encoding") {
            if (IsExec(v, "StandardEncoding")) {
                out->standardEncoding = true;
                lx.Next();
            } else {
                ReadEncoding(lx, out->encoding);
            }
        } else if (key == "FontMatrix" && ReadNumbers(lx, nums) && nums.size() == 6) {
            std::copy(nums.begin(), nums.end(), out->fontMatrix.begin());
        } else if (key == "FontBBox" && ReadNumbers(lx, nums) && nums.size() == 4) {
            std::copy(nums.begin(), nums.end(), out->fontBBox.begin());
        } else if (key == "PaintType" && AsInt(v, n)) {
            out->paintType = static_cast<int>(n);
        } else if (key == "StrokeWidth" && v.kind == Tok::Number) {
            out->strokeWidth = v.number;
        } else if (key == "UniqueID" && AsInt(v, n)) {
            out->uniqueID = n;
        }
    }
}

// ---------------------------------------------------------------------------
// The private part: its values, and where its Subrs and CharStrings are, so
// that a writer can replace those and copy the rest.

struct Section {
    bool present = false;
    size_t countBegin = 0, countEnd = 0;      // the declared count's bytes
    size_t entriesBegin = 0, entriesEnd = 0;  // from the first entry to the end of the last
    std::string rd = "RD";                    // the operator that reads the binary data, as written
    std::string put = " NP";                  // what follows an entry's data, as written
};

struct RawEntry {
    std::string_view name;  // glyph name (CharStrings)
    long index = 0;         // subroutine number (Subrs)
    std::string_view data;  // encrypted charstring
};

struct PrivateScan {
    Section subrs, chars;
    std::vector<RawEntry> subrEntries, charEntries;
    std::map<std::string, std::vector<double>> values;
    size_t closefileEnd = 0;  // after "closefile" and its line end; 0 when none
    size_t used = 0;          // the end of the last entry or value read
};

// Reads "<len> RD <len bytes> <end>" of one entry: the data is taken by
// length, never tokenised.  The end is one word ("NP" or "|" for Subrs,
// "ND" or "|-" for CharStrings, whatever the font named them) or
// "noaccess" and `closing` ("put" or "def").
bool ReadEntryData(Lexer& lx, std::string_view text, std::string_view what, std::string_view closing, RawEntry& e,
                   std::string& rd, size_t& dataEnd, size_t& entryEnd, std::string& error) {
    Token lenTok = lx.Next();
    long len = 0;
    if (!AsInt(lenTok, len) || len < 0) {
        error = std::string(what) + " entry has no valid length";
        return false;
    }
    Token rdTok = lx.Next();
    if (rdTok.kind != Tok::Exec || rdTok.end >= text.size() || !IsWhite(text[rdTok.end])) {
        error = std::string(what) + " entry has no data-reading operator";
        return false;
    }
    size_t start = rdTok.end + 1;
    if (static_cast<unsigned long>(len) > text.size() - start) {
        error = std::string(what) + " entry data runs past the end";
        return false;
    }
    e.data = text.substr(start, static_cast<size_t>(len));
    rd = std::string(rdTok.text);
    dataEnd = start + static_cast<size_t>(len);
    lx.Seek(dataEnd);
    Token putTok = lx.Next();
    if (putTok.kind != Tok::Exec || putTok.text == "dup") {
        error = std::string(what) + " entry is not closed";
        return false;
    }
    if (putTok.text == "noaccess" || putTok.text == "readonly" || putTok.text == "executeonly") {
        putTok = lx.Next();
        if (!IsExec(putTok, closing)) {
            error = std::string(what) + " entry is not closed";
            return false;
        }
    }
    entryEnd = putTok.end;
    return true;
}

bool ReadSubrs(Lexer& lx, std::string_view text, PrivateScan& scan, std::string& error) {
    Section& s = scan.subrs;
    s.present = true;
    Token countTok = lx.Next();
    long count = 0;
    if (!AsInt(countTok, count) || count < 0 || count > kMaxSubrs) {
        error = "Subrs count is missing, negative or too large";
        return false;
    }
    s.countBegin = countTok.begin;
    s.countEnd = countTok.end;
    Token arr = lx.Next();
    if (!IsExec(arr, "array")) {
        error = "Subrs is not an array";
        return false;
    }
    s.entriesBegin = s.entriesEnd = arr.end;
    for (;;) {
        size_t save = lx.Pos();
        Token dup = lx.Next();
        if (!IsExec(dup, "dup")) {
            lx.Seek(save);
            return true;
        }
        RawEntry e;
        if (!AsInt(lx.Next(), e.index) || e.index < 0 || e.index >= count) {
            error = "Subrs index outside the declared count";
            return false;
        }
        std::string rd;
        size_t dataEnd = 0, entryEnd = 0;
        if (!ReadEntryData(lx, text, "Subrs", "put", e, rd, dataEnd, entryEnd, error)) return false;
        if (scan.subrEntries.empty()) {
            s.entriesBegin = dup.begin;
            s.rd = rd;
            s.put = std::string(text.substr(dataEnd, entryEnd - dataEnd));
        }
        s.entriesEnd = entryEnd;
        scan.subrEntries.push_back(e);
    }
}

bool ReadCharStrings(Lexer& lx, std::string_view text, PrivateScan& scan, std::string& error) {
    Section& s = scan.chars;
    s.present = true;
    s.rd = "RD";
    s.put = " ND";
    Token countTok = lx.Next();
    long count = 0;
    if (!AsInt(countTok, count) || count < 0 || count > kMaxGlyphs) {
        error = "CharStrings count is missing, negative or too large";
        return false;
    }
    s.countBegin = countTok.begin;
    s.countEnd = countTok.end;
    // "dict dup begin"
    Token t;
    for (int i = 0; i < 4 && !IsExec(t, "begin"); ++i) t = lx.Next();
    if (!IsExec(t, "begin")) {
        error = "CharStrings is not an open dictionary";
        return false;
    }
    s.entriesBegin = s.entriesEnd = t.end;
    for (;;) {
        size_t save = lx.Pos();
        Token name = lx.Next();
        if (name.kind != Tok::Name) {
            lx.Seek(save);
            return true;
        }
        if (scan.charEntries.size() >= static_cast<size_t>(kMaxGlyphs)) {
            error = "too many glyphs";
            return false;
        }
        RawEntry e;
        e.name = name.text;
        std::string rd;
        size_t dataEnd = 0, entryEnd = 0;
        if (!ReadEntryData(lx, text, "CharStrings", "def", e, rd, dataEnd, entryEnd, error)) return false;
        if (scan.charEntries.empty()) {
            s.entriesBegin = name.begin;
            s.rd = rd;
            s.put = std::string(text.substr(dataEnd, entryEnd - dataEnd));
        }
        s.entriesEnd = entryEnd;
        scan.charEntries.push_back(e);
    }
}

bool ScanPrivate(std::string_view text, PrivateScan& scan, std::string& error) {
    Lexer lx(text);
    int depth = 0;
    for (;;) {
        Token t = lx.Next();
        if (t.kind == Tok::End) break;
        TrackDepth(t, depth);
        if (IsExec(t, "closefile") && depth == 0) {
            size_t e = t.end;
            if (e < text.size() && text[e] == '\r') ++e;
            if (e < text.size() && text[e] == '\n') ++e;
            scan.closefileEnd = e;
            break;
        }
        if (t.kind != Tok::Name || depth != 0) continue;
        if (t.text == "Subrs" || t.text == "CharStrings") {
            bool subrs = t.text == "Subrs";
            if ((subrs ? scan.subrs : scan.chars).present) {
                error = "two " + std::string(t.text) + " definitions";
                return false;
            }
            if (!(subrs ? ReadSubrs(lx, text, scan, error) : ReadCharStrings(lx, text, scan, error))) return false;
            scan.used = lx.Pos();
        } else if (t.text != "Private") {
            std::vector<double> v;
            if (ReadNumericValue(lx, v)) {
                scan.values[std::string(t.text)] = std::move(v);
                scan.used = lx.Pos();
            }
        }
    }
    if (!scan.chars.present) {
        error = "no CharStrings dictionary";
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Locating the encrypted part.

// The end of the "eexec" that starts the encrypted part, or npos.
size_t FindEexec(std::string_view s) {
    for (std::string_view word : {"currentfile eexec", "eexec"}) {
        for (size_t p = s.find(word); p != std::string_view::npos; p = s.find(word, p + 1)) {
            size_t e = p + word.size();
            bool before = p == 0 || IsWhite(s[p - 1]) || (IsDelim(s[p - 1]) && s[p - 1] != '/');  // not the name /eexec
            if (before && (e == s.size() || IsWhite(s[e]))) return e;
        }
    }
    return std::string_view::npos;
}

// The clear-text part ends after "eexec" and its line end.
size_t ClearTextEnd(std::string_view s, size_t eexecEnd) {
    size_t e = eexecEnd;
    if (e < s.size() && s[e] == '\r') ++e;
    if (e < s.size() && s[e] == '\n') ++e;
    if (e == eexecEnd && e < s.size() && IsWhite(s[e])) ++e;
    return e;
}

bool DecryptsToPrivate(std::string_view cipher) {
    std::string head = Type1Decrypt(cipher.substr(0, std::min<size_t>(cipher.size(), 4 + 4096)), kEexecKey);
    return head.size() > 4 && head.find("Private", 4) != std::string::npos;
}

// PFB: segments of 0x80 <type> <32-bit little-endian length>; type 1 is
// text, 2 binary, 3 the end.
bool ReadPfb(std::string_view s, std::string& text, std::string& binary, std::string& trailer, std::string& error) {
    size_t pos = 0;
    while (pos < s.size()) {
        if (static_cast<uint8_t>(s[pos]) != 0x80 || pos + 2 > s.size()) {
            error = "PFB segment header damaged";
            return false;
        }
        uint8_t type = static_cast<uint8_t>(s[pos + 1]);
        if (type == 3) return true;
        if ((type != 1 && type != 2) || s.size() - pos < 6) {
            error = "PFB segment header damaged";
            return false;
        }
        uint32_t len = 0;
        for (int i = 3; i >= 0; --i) len = len << 8 | static_cast<uint8_t>(s[pos + 2 + static_cast<size_t>(i)]);
        pos += 6;
        if (len > s.size() - pos) {
            error = "PFB segment runs past the end";
            return false;
        }
        std::string_view body = s.substr(pos, len);
        if (type == 2) binary.append(body);
        else (binary.empty() ? text : trailer).append(body);
        pos += len;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Walking charstrings for the subroutines they call and the accents they
// compose.  Only what decides control flow is modelled: numbers, callsubr,
// return, endchar, seac, callothersubr/pop (whose values come back, as the
// hint-replacement idiom "subr 1 3 callothersubr pop callsubr" needs) and
// div; every other operator clears the stack.

struct Value {
    double v = 0;
    bool known = true;
};

class CharStringWalker {
public:
    explicit CharStringWalker(const Type1Font& font) : font_(font) {}

    void Walk(const std::string& cs) {
        stack_.clear();
        psStack_.clear();
        glyphSteps_ = 0;
        Run(cs, 0);
    }

    std::set<size_t> subrs;                  // every Subrs number called
    std::vector<std::pair<int, int>> seacs;  // (base, accent) character codes
    bool complete = true;                    // false: some call could not be followed

private:
    enum class Flow { Return, Stop };

    Flow Fail() {
        complete = false;
        return Flow::Stop;
    }

    bool Push(Value v) {
        if (stack_.size() >= kMaxStack) return false;
        stack_.push_back(v);
        return true;
    }

    static bool AsIndex(const Value& v, size_t limit, size_t& out) {
        if (!v.known || v.v != std::floor(v.v) || v.v < 0 || v.v >= static_cast<double>(limit)) return false;
        out = static_cast<size_t>(v.v);
        return true;
    }

    Flow Run(std::string_view cs, int depth) {
        size_t i = 0;
        while (i < cs.size()) {
            if (++glyphSteps_ > kMaxGlyphSteps || ++walkSteps_ > kMaxWalkSteps) return Fail();
            uint8_t b = static_cast<uint8_t>(cs[i++]);
            if (b >= 32) {
                int32_t n = 0;
                if (b <= 246) {
                    n = b - 139;
                } else if (b <= 254) {
                    if (i >= cs.size()) return Flow::Stop;
                    int w = static_cast<uint8_t>(cs[i++]);
                    n = b <= 250 ? (b - 247) * 256 + w + 108 : -(b - 251) * 256 - w - 108;
                } else {
                    if (cs.size() - i < 4) return Flow::Stop;
                    uint32_t u = 0;
                    for (int k = 0; k < 4; ++k) u = u << 8 | static_cast<uint8_t>(cs[i++]);
                    n = static_cast<int32_t>(u);
                }
                if (!Push({static_cast<double>(n), true})) return Fail();
                continue;
            }
            switch (b) {
            case 10: {  // callsubr
                size_t idx = 0;
                if (stack_.empty() || !AsIndex(stack_.back(), font_.subrs.size(), idx)) return Fail();
                stack_.pop_back();
                subrs.insert(idx);
                if (depth + 1 > kMaxCallDepth) return Fail();
                if (Run(font_.subrs[idx], depth + 1) == Flow::Stop) return Flow::Stop;
                break;
            }
            case 11:  // return
                return Flow::Return;
            case 14:  // endchar
                return Flow::Stop;
            case 12: {
                if (i >= cs.size()) return Flow::Stop;
                uint8_t e = static_cast<uint8_t>(cs[i++]);
                if (e == 6) {  // seac: asb adx ady bchar achar
                    size_t bchar = 0, achar = 0;
                    if (stack_.size() >= 2 && AsIndex(stack_[stack_.size() - 2], 256, bchar) &&
                        AsIndex(stack_.back(), 256, achar))
                        seacs.emplace_back(static_cast<int>(bchar), static_cast<int>(achar));
                    return Flow::Stop;
                }
                if (e == 16) {  // callothersubr: args n othersubr#
                    size_t n = 0;
                    if (stack_.size() < 2 || !AsIndex(stack_[stack_.size() - 2], stack_.size() - 1, n)) {
                        stack_.clear();
                        break;
                    }
                    stack_.resize(stack_.size() - 2);
                    if (psStack_.size() + n > kMaxStack) return Fail();
                    psStack_.insert(psStack_.end(), stack_.end() - static_cast<std::ptrdiff_t>(n), stack_.end());
                    stack_.resize(stack_.size() - n);
                } else if (e == 17) {  // pop
                    Value v{0, false};
                    if (!psStack_.empty()) {
                        v = psStack_.back();
                        psStack_.pop_back();
                    }
                    if (!Push(v)) return Fail();
                } else if (e == 12) {  // div
                    if (stack_.size() < 2) {
                        stack_.clear();
                        break;
                    }
                    Value d = stack_.back();
                    stack_.pop_back();
                    Value& a = stack_.back();
                    a.known = a.known && d.known && d.v != 0;
                    a.v = a.known ? a.v / d.v : 0;
                } else {
                    stack_.clear();
                }
                break;
            }
            default:
                stack_.clear();
                break;
            }
        }
        return Flow::Return;
    }

    const Type1Font& font_;
    std::vector<Value> stack_, psStack_;
    size_t glyphSteps_ = 0, walkSteps_ = 0;
};

std::string EncryptCharString(const std::string& cs, int lenIV) {
    if (lenIV < 0) return cs;
    std::string plain(static_cast<size_t>(lenIV), '\0');
    plain += cs;
    return Type1Encrypt(plain, kCharStringKey);
}

}  // namespace

std::string Type1Decrypt(std::string_view cipher, uint16_t key) {
    std::string out(cipher.size(), '\0');
    uint32_t r = key;
    for (size_t i = 0; i < cipher.size(); ++i) {
        uint32_t c = static_cast<uint8_t>(cipher[i]);
        out[i] = static_cast<char>(c ^ (r >> 8));
        r = ((c + r) * 52845u + 22719u) & 0xFFFFu;
    }
    return out;
}

std::string Type1Encrypt(std::string_view plain, uint16_t key) {
    std::string out(plain.size(), '\0');
    uint32_t r = key;
    for (size_t i = 0; i < plain.size(); ++i) {
        uint32_t c = (static_cast<uint8_t>(plain[i]) ^ (r >> 8)) & 0xFFu;
        out[i] = static_cast<char>(c);
        r = ((c + r) * 52845u + 22719u) & 0xFFFFu;
    }
    return out;
}

bool ReadType1(std::span<const uint8_t> program, size_t length1, Type1Font& out, std::string& error) {
    (void)length1;  // a hint only: producers get it wrong, "eexec" is searched instead
    out = Type1Font{};
    std::string_view data(reinterpret_cast<const char*>(program.data()), program.size());

    // The clear text, and the candidate starts of the encrypted bytes in
    // `rest` (more than one when binary data may begin with whitespace).
    std::string pfbText, pfbBinary, pfbTrailer;
    std::string_view text = data, rest;
    std::string hexDecoded;
    std::vector<size_t> starts;
    size_t trailerStart = std::string_view::npos;  // in `rest`, when known
    if (data.size() >= 2 && static_cast<uint8_t>(data[0]) == 0x80) {
        if (!ReadPfb(data, pfbText, pfbBinary, pfbTrailer, error)) return false;
        text = pfbText;
        if (pfbBinary.empty()) {  // all text: read it as the plain form
            pfbText += pfbTrailer;
            text = pfbText;
        }
    }
    size_t eexecEnd = FindEexec(text);
    if (eexecEnd == std::string_view::npos) {
        error = "no eexec";
        return false;
    }
    size_t clearEnd = ClearTextEnd(text, eexecEnd);
    out.cleartext = std::string(text.substr(0, clearEnd));
    if (clearEnd == eexecEnd) out.cleartext += '\n';

    if (!pfbBinary.empty()) {
        rest = pfbBinary;
        starts.push_back(0);
    } else {
        rest = text.substr(eexecEnd);
        size_t p = 0;
        while (p < rest.size() && (rest[p] == ' ' || rest[p] == '\t' || rest[p] == '\r' || rest[p] == '\n')) ++p;
        if (rest.size() - p >= 4 && IsHex(rest[p]) && IsHex(rest[p + 1]) && IsHex(rest[p + 2]) && IsHex(rest[p + 3])) {
            int hi = -1;
            for (size_t i = p; i < rest.size(); ++i) {
                char c = rest[i];
                if (IsWhite(c)) continue;
                if (!IsHex(c)) break;
                if (hi < 0) hi = HexValue(c);
                else hexDecoded.push_back(static_cast<char>(hi << 4 | HexValue(c))), hi = -1;
            }
            rest = hexDecoded;
            starts.push_back(0);
        } else {
            // The standard start first, then up to three of the whitespace
            // bytes it skipped, in case the encrypted data begins with them.
            for (size_t s = p + 1; s-- > 1 && starts.size() < 4;) starts.push_back(s);
        }
        // The zeros-and-cleartomark trailer is not encrypted data; what
        // decrypting it gives is cut off after "closefile" below.
        size_t mark = rest.rfind("cleartomark");
        if (hexDecoded.empty() && mark != std::string_view::npos) {
            trailerStart = mark;
            while (trailerStart > 0 && (rest[trailerStart - 1] == '0' || IsWhite(rest[trailerStart - 1]))) --trailerStart;
            rest = rest.substr(0, mark);
        }
    }
    // The start whose text names the Private dictionary early on; failing
    // that, the standard start, and the scan below decides.
    size_t start = std::string_view::npos;
    for (size_t s : starts)
        if (s < rest.size() && DecryptsToPrivate(rest.substr(s))) {
            start = s;
            break;
        }
    bool recognised = start != std::string_view::npos;
    if (!recognised) start = starts.empty() ? rest.size() : starts.front();
    std::string plain = start < rest.size() ? Type1Decrypt(rest.substr(start), kEexecKey) : std::string();
    out.privateText = plain.size() > 4 ? plain.substr(4) : std::string();

    PrivateScan scan;
    if (!ScanPrivate(out.privateText, scan, error)) {
        if (!recognised) error = "the encrypted part does not decrypt to a private dictionary (" + error + ")";
        return false;
    }

    auto lenIV = scan.values.find("lenIV");
    if (lenIV != scan.values.end()) {
        double v = lenIV->second.empty() ? -2 : lenIV->second[0];
        if (lenIV->second.size() != 1 || v != std::floor(v) || v < -1 || v > kMaxLenIV) {
            error = "lenIV out of range";
            return false;
        }
        out.lenIV = static_cast<int>(v);
    }
    auto decrypt = [&](std::string_view raw, std::string& cs) {
        if (out.lenIV < 0) {
            cs = std::string(raw);
            return true;
        }
        if (raw.size() < static_cast<size_t>(out.lenIV)) {
            error = "charstring shorter than lenIV";
            return false;
        }
        cs = Type1Decrypt(raw, kCharStringKey).substr(static_cast<size_t>(out.lenIV));
        return true;
    };
    for (const RawEntry& e : scan.subrEntries) {
        size_t idx = static_cast<size_t>(e.index);
        if (idx >= out.subrs.size()) out.subrs.resize(idx + 1);
        if (!decrypt(e.data, out.subrs[idx])) return false;
    }
    std::unordered_map<std::string_view, size_t> seen;
    for (const RawEntry& e : scan.charEntries) {
        auto [it, fresh] = seen.emplace(e.name, out.charStrings.size());
        if (fresh) out.charStrings.emplace_back(std::string(e.name), std::string());
        if (!decrypt(e.data, out.charStrings[it->second].second)) return false;  // a later definition wins
    }
    out.privateValues = std::move(scan.values);

    // Whatever follows "closefile" is decrypted trailer, not program.
    // Without it, the zeros before "cleartomark" are taken as the trailer,
    // though encrypted bytes may happen to be zeros too: never cut into
    // what was read.
    size_t cut = scan.closefileEnd;
    if (!cut && trailerStart != std::string_view::npos && trailerStart >= start + 4) cut = trailerStart - start - 4;
    if (cut >= scan.used && cut < out.privateText.size()) out.privateText.resize(cut);

    size_t nameBegin = 0, nameEnd = 0;
    ReadClearText(out.cleartext, &out, nameBegin, nameEnd);
    return true;
}

void Type1GlyphClosure(const Type1Font& font, std::set<std::string>& glyphs) {
    glyphs.insert(".notdef");
    std::unordered_map<std::string_view, const std::string*> byName;
    for (const auto& [name, cs] : font.charStrings) byName.emplace(name, &cs);
    std::vector<std::string> work(glyphs.begin(), glyphs.end());
    CharStringWalker walker(font);
    while (!work.empty()) {
        std::string name = std::move(work.back());
        work.pop_back();
        auto it = byName.find(name);
        if (it == byName.end()) continue;
        walker.seacs.clear();
        walker.Walk(*it->second);
        for (auto [base, accent] : walker.seacs)
            for (int code : {base, accent}) {
                const char* component = kStandardEncoding[code];
                if (component && glyphs.insert(component).second) work.emplace_back(component);
            }
    }
}

namespace {

// Where the clear text's /Encoding entry lies: from its key to the end of
// the "def" that closes it.
bool FindEncodingEntry(std::string_view text, size_t& begin, size_t& end) {
    Lexer lx(text);
    int depth = 0;
    bool inFontInfo = false;
    for (;;) {
        Token t = lx.Next();
        if (t.kind == Tok::End || IsExec(t, "eexec")) return false;
        TrackDepth(t, depth);
        if (IsExec(t, "end") && depth == 0) inFontInfo = false;
        if (t.kind != Tok::Name || depth != 0) continue;
        if (t.text == "FontInfo") inFontInfo = true;
        if (inFontInfo || t.text != "Encoding") continue;
        begin = t.begin;
        int d = 0;
        for (;;) {
            Token u = lx.Next();
            if (u.kind == Tok::End || IsExec(u, "eexec")) return false;
            TrackDepth(u, d);
            if (d == 0 && IsExec(u, "def")) {
                end = u.end;
                return true;
            }
        }
    }
}

}  // namespace

std::array<std::string, 256> Type1BuiltinNames(const Type1Font& font) {
    if (!font.standardEncoding) return font.encoding;
    std::array<std::string, 256> names;
    for (int c = 0; c < 256; ++c)
        if (kStandardEncoding[c]) names[c] = kStandardEncoding[c];
    return names;
}

bool SetType1Encoding(Type1Font& font, const std::array<std::string, 256>& names) {
    size_t begin = 0, end = 0;
    if (!FindEncodingEntry(font.cleartext, begin, end)) return false;
    bool standard = true;
    for (int c = 0; c < 256 && standard; ++c)
        standard = names[c] == (kStandardEncoding[c] ? kStandardEncoding[c] : "");
    std::string text;
    if (standard) {
        text = "/Encoding StandardEncoding def";
    } else {
        text = "/Encoding 256 array\n0 1 255 {1 index exch /.notdef put} for\n";
        for (int c = 0; c < 256; ++c)
            if (!names[c].empty()) text += "dup " + std::to_string(c) + " /" + names[c] + " put\n";
        text += "readonly def";
    }
    font.cleartext.replace(begin, end - begin, text);
    font.standardEncoding = standard;
    font.encoding = standard ? std::array<std::string, 256>{} : names;
    return true;
}

Type1Program SubsetType1(const Type1Font& font, const std::set<std::string>& glyphs, const std::string& renameTo) {
    Type1Program result;
    PrivateScan scan;
    std::string error;
    if (font.cleartext.empty() || !ScanPrivate(font.privateText, scan, error)) return result;

    std::set<std::string> keep = glyphs;
    Type1GlyphClosure(font, keep);
    CharStringWalker walker(font);
    std::vector<const std::pair<std::string, std::string>*> kept;
    for (const auto& entry : font.charStrings)
        if (keep.count(entry.first)) {
            kept.push_back(&entry);
            walker.Walk(entry.second);
        }

    // Subrs: those called, and 0-3 (flex and hint replacement) always;
    // the others become "return" so numbers stay valid, and the unused
    // tail is cut off.
    std::vector<bool> keepSubr(font.subrs.size(), !walker.complete);
    for (size_t i = 0; i < keepSubr.size() && i < 4; ++i) keepSubr[i] = true;
    for (size_t i : walker.subrs) keepSubr[i] = true;
    size_t subrCount = keepSubr.size();
    while (subrCount > 0 && !keepSubr[subrCount - 1]) --subrCount;

    struct Edit {
        size_t begin, end;
        std::string text;
    };
    std::vector<Edit> edits;
    // New entries must not run into the words around them: where the
    // program has no space there, a line end goes in.
    auto entriesEdit = [&](const Section& s, std::string text) {
        const std::string& src = font.privateText;
        bool wordBefore = s.entriesBegin > 0 && IsRegular(src[s.entriesBegin - 1]);
        bool wordAfter = s.entriesEnd < src.size() && IsRegular(src[s.entriesEnd]);
        if (!text.empty()) {
            if (wordBefore) text.insert(0, "\n");
            if (wordAfter) text += '\n';
        } else if (s.entriesBegin != s.entriesEnd && wordBefore && wordAfter) {
            text = "\n";
        }
        edits.push_back({s.entriesBegin, s.entriesEnd, std::move(text)});
    };
    if (scan.subrs.present) {
        std::string text;
        for (size_t i = 0; i < subrCount; ++i) {
            std::string cs = EncryptCharString(keepSubr[i] ? font.subrs[i] : std::string("\x0b"), font.lenIV);
            if (i) text += '\n';
            text += "dup " + std::to_string(i) + ' ' + std::to_string(cs.size()) + ' ' + scan.subrs.rd + ' ' + cs +
                    scan.subrs.put;
        }
        edits.push_back({scan.subrs.countBegin, scan.subrs.countEnd, std::to_string(subrCount)});
        entriesEdit(scan.subrs, std::move(text));
    }
    std::string text;
    for (const auto* entry : kept) {
        std::string cs = EncryptCharString(entry->second, font.lenIV);
        if (!text.empty()) text += '\n';
        text += '/' + entry->first + ' ' + std::to_string(cs.size()) + ' ' + scan.chars.rd + ' ' + cs + scan.chars.put;
    }
    edits.push_back({scan.chars.countBegin, scan.chars.countEnd, std::to_string(kept.size())});
    entriesEdit(scan.chars, std::move(text));

    std::sort(edits.begin(), edits.end(), [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
    std::string priv(kEexecLead, sizeof kEexecLead);
    size_t pos = 0;
    for (const Edit& e : edits) {
        if (e.begin < pos) return result;  // overlapping sections: not a layout this writer knows
        priv.append(font.privateText, pos, e.begin - pos);
        priv += e.text;
        pos = e.end;
    }
    priv.append(font.privateText, pos);

    std::string clear = font.cleartext;
    size_t nameBegin = 0, nameEnd = 0;
    ReadClearText(clear, nullptr, nameBegin, nameEnd);
    if (!renameTo.empty() && nameEnd > nameBegin) clear.replace(nameBegin, nameEnd - nameBegin, '/' + renameTo);

    std::string cipher = Type1Encrypt(priv, kEexecKey);
    result.bytes.reserve(clear.size() + cipher.size());
    result.bytes.insert(result.bytes.end(), clear.begin(), clear.end());
    result.bytes.insert(result.bytes.end(), cipher.begin(), cipher.end());
    result.length1 = clear.size();
    result.length2 = cipher.size();
    result.length3 = 0;
    return result;
}

}  // namespace fonts
