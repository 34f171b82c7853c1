#include "content/ContentTokenizer.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace {

using CosSyntax::HexValue;

bool IsPrintable(uint8_t c) { return (c >= 0x20 && c < 0x7F) || (c >= 9 && c <= 13) || c == 0; }

// Strict number syntax: an optional sign, digits with at most one point,
// at least one digit.  `isReal` tells whether a point was seen.
bool StrictNumber(std::string_view s, bool& isReal) {
    size_t i = 0, digits = 0;
    isReal = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    for (; i < s.size(); ++i) {
        char c = s[i];
        if (c >= '0' && c <= '9') {
            ++digits;
        } else if (c == '.' && !isReal) {
            isReal = true;
        } else {
            return false;
        }
    }
    return digits > 0;
}

double ParseValue(std::string_view s) {
    bool negative = false;
    size_t i = 0;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
        negative = s[i] == '-';
        ++i;
    }
    // The common short numbers exactly: an integer of the digits divided by
    // a power of ten is correctly rounded while both are exact doubles.
    static const double kPow10[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10,
                                    1e11, 1e12, 1e13, 1e14, 1e15};
    uint64_t digits = 0;
    int count = 0, fraction = -1;
    bool fast = true;
    for (; i < s.size(); ++i) {
        char c = s[i];
        if (c == '.') {
            fraction = 0;
            continue;
        }
        if (count == 15) {
            fast = false;
            break;
        }
        digits = digits * 10 + static_cast<uint64_t>(c - '0');
        ++count;
        if (fraction >= 0) ++fraction;
    }
    double v;
    if (fast) {
        v = static_cast<double>(digits) / kPow10[fraction > 0 ? fraction : 0];
    } else {
        // Long numbers: the library's correctly rounded reading.
        std::string tmp = "0";
        for (char c : s)
            if (c != '+' && c != '-') tmp.push_back(c);
        v = 0;
        auto r = std::from_chars(tmp.data(), tmp.data() + tmp.size(), v);
        if (r.ec != std::errc() || !std::isfinite(v)) v = 0;
    }
    return negative ? -v : v;
}

}  // namespace

bool ContentTokenizer::IsKnownKeyword(std::string_view w) {
    static const char* const kWords[] = {
        "d", "gs", "i", "j", "J", "M", "w", "q", "Q", "cm", "g", "G", "k", "K", "rg", "RG", "sc", "SC",
        "scn", "SCN", "cs", "CS", "sh", "Tc", "Tf", "TL", "Tr", "Ts", "Tw", "Tz", "BT", "ET", "Tj", "TJ",
        "'", "\"", "Td", "TD", "Tm", "T*", "d0", "d1", "c", "m", "re", "v", "y", "l", "f", "F", "f*", "n",
        "s", "S", "b", "b*", "B", "B*", "h", "W", "W*", "BMC", "BDC", "EMC", "MP", "DP", "ri", "Do", "PS",
        "BX", "EX", "BI", "ID", "EI", "true", "false", "null"};
    for (const char* k : kWords)
        if (w == k) return true;
    return false;
}

void ContentTokenizer::SkipWhite() { m_pos = CosSyntax::SkipWhite(m_data, m_pos); }

std::string_view ContentTokenizer::ReadRegular() {
    size_t start = m_pos;
    const size_t n = m_data.size();
    while (m_pos < n && !IsWhite(m_data[m_pos]) && !IsDelim(m_data[m_pos])) {
        if (m_pos - start >= kMaxTokenBytes) {
            ++m_warn.longTokens;
            break;
        }
        ++m_pos;
    }
    return {reinterpret_cast<const char*>(m_data.data()) + start, m_pos - start};
}

void ContentTokenizer::ReadName(std::string& out) {
    ++m_pos;  // the slash
    std::string_view raw = ReadRegular();
    out.clear();
    if (raw.find('#') == std::string_view::npos) {
        out.assign(raw);
        return;
    }
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '#') {
            int h = i + 1 < raw.size() ? HexValue(static_cast<uint8_t>(raw[i + 1])) : -1;
            int l = i + 2 < raw.size() ? HexValue(static_cast<uint8_t>(raw[i + 2])) : -1;
            if (h >= 0 && l >= 0) {
                out.push_back(static_cast<char>(h * 16 + l));
                i += 2;
                continue;
            }
        }
        out.push_back(raw[i]);
    }
}

void ContentTokenizer::ReadLiteral(std::string& out) {
    ++m_pos;  // the opening parenthesis
    if (CosSyntax::ReadLiteralBody(m_data, m_pos, out) != CosSyntax::LiteralEnd::Closed) ++m_warn.unterminatedStrings;
}

void ContentTokenizer::ReadHex(std::string& out) {
    ++m_pos;  // '<'
    out.clear();
    const size_t n = m_data.size();
    int high = -1;
    while (m_pos < n) {
        uint8_t c = m_data[m_pos++];
        if (c == '>') {
            if (high >= 0) out.push_back(static_cast<char>(high << 4));
            return;
        }
        int v = HexValue(c);
        if (v < 0) {
            if (!IsWhite(c)) ++m_warn.strayBytes;
            continue;
        }
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<char>(high * 16 + v));
            high = -1;
        }
    }
    if (high >= 0) out.push_back(static_cast<char>(high << 4));
    ++m_warn.unterminatedStrings;
}

void ContentTokenizer::ReadContainer(ContentToken& out, bool dict, size_t depth) {
    out.kind = dict ? ContentTokenKind::Dictionary : ContentTokenKind::Array;
    out.elements.clear();
    out.text.clear();
    ContentToken child;
    std::string_view op;
    for (;;) {
        size_t before = m_pos;
        Raw r = ReadOne(child, op, depth + 1);
        if (r == Raw::Close) break;
        if (r == Raw::End) {
            ++m_warn.unterminatedArrays;
            break;
        }
        if (r == Raw::Operator) {
            // An operator inside an array or dictionary means the closing
            // bracket is missing: end the container here and let the
            // operator be read again, so the rest of the stream survives.
            ++m_warn.unterminatedArrays;
            m_pos = before;
            break;
        }
        if (m_tokensHeld > kMaxOperandTokens) {
            ++m_warn.droppedOperands;
            continue;
        }
        out.elements.push_back(std::move(child));
        child = ContentToken();
    }
    if (dict && out.elements.size() % 2 != 0) out.elements.pop_back();
}

ContentTokenizer::Raw ContentTokenizer::ReadOne(ContentToken& out, std::string_view& op, size_t depth) {
    const size_t n = m_data.size();
    for (;;) {
        SkipWhite();
        if (m_pos >= n) return Raw::End;
        uint8_t c = m_data[m_pos];
        switch (c) {
            case '(':
                ++m_tokensHeld;
                out.kind = ContentTokenKind::String;
                out.hex = false;
                out.elements.clear();
                ReadLiteral(out.text);
                return Raw::Operand;
            case '<':
                if (m_pos + 1 < n && m_data[m_pos + 1] == '<') {
                    if (depth >= kMaxNesting) {
                        ++m_warn.tooDeep;
                        m_pos += 2;
                        continue;
                    }
                    m_pos += 2;
                    ++m_tokensHeld;
                    ReadContainer(out, true, depth);
                    return Raw::Operand;
                }
                ++m_tokensHeld;
                out.kind = ContentTokenKind::String;
                out.hex = true;
                out.elements.clear();
                ReadHex(out.text);
                return Raw::Operand;
            case '[':
                ++m_pos;
                if (depth >= kMaxNesting) {
                    ++m_warn.tooDeep;
                    continue;
                }
                ++m_tokensHeld;
                ReadContainer(out, false, depth);
                return Raw::Operand;
            case ']':
                ++m_pos;
                if (depth > 0) return Raw::Close;
                ++m_warn.strayBytes;
                continue;
            case '>':
                if (m_pos + 1 < n && m_data[m_pos + 1] == '>') {
                    m_pos += 2;
                    if (depth > 0) return Raw::Close;
                } else {
                    ++m_pos;
                }
                ++m_warn.strayBytes;
                continue;
            case ')':
            case '{':
            case '}':
                ++m_pos;
                ++m_warn.strayBytes;
                continue;
            case '/':
                ++m_tokensHeld;
                out.kind = ContentTokenKind::Name;
                out.elements.clear();
                ReadName(out.text);
                return Raw::Operand;
            default:
                break;
        }
        std::string_view word = ReadRegular();
        if (word.empty()) {  // cannot happen with the cases above, but never loop
            ++m_pos;
            continue;
        }
        char f = word[0];
        if ((f >= '0' && f <= '9') || f == '+' || f == '-' || f == '.') {
            ++m_tokensHeld;
            out.elements.clear();
            bool isReal = false;
            if (StrictNumber(word, isReal)) {
                out.kind = isReal ? ContentTokenKind::Real : ContentTokenKind::Integer;
                out.text.assign(word);
                out.number = ParseValue(word);
            } else {
                // A malformed number ("--5", "1.2.3") is worth what its
                // leading well-formed part spells; it is written back in
                // that clean form.
                size_t len = 0;
                bool seenPoint = false, seenDigit = false;
                if (len < word.size() && (word[len] == '+' || word[len] == '-')) ++len;
                while (len < word.size()) {
                    if (word[len] >= '0' && word[len] <= '9') {
                        seenDigit = true;
                    } else if (word[len] == '.' && !seenPoint) {
                        seenPoint = true;
                    } else {
                        break;
                    }
                    ++len;
                }
                double v = seenDigit ? ParseValue(word.substr(0, len)) : 0.0;
                out = ContentToken::MakeNumber(v);
            }
            return Raw::Operand;
        }
        if (word == "true" || word == "TRUE" || word == "false" || word == "FALSE") {
            ++m_tokensHeld;
            out.kind = ContentTokenKind::Boolean;
            out.elements.clear();
            out.boolValue = word[0] == 't' || word[0] == 'T';
            out.text = out.boolValue ? "true" : "false";
            return Raw::Operand;
        }
        if (word == "null") {
            ++m_tokensHeld;
            out.kind = ContentTokenKind::Null;
            out.elements.clear();
            out.text.clear();
            return Raw::Operand;
        }
        op = word;
        return Raw::Operator;
    }
}

ContentTokenizer::Result ContentTokenizer::Next(ContentToken& operand, std::string_view& op) {
    for (;;) {
        Raw r = ReadOne(operand, op, 0);
        switch (r) {
            case Raw::Operand: return Result::Operand;
            case Raw::Operator: return Result::Operator;
            case Raw::End: return Result::End;
            case Raw::Close: continue;  // not produced at depth 0
        }
    }
}

// ---------------------------------------------------------------- inline images

int ContentTokenizer::ComponentsOf(const ContentToken* cs) const {
    if (!cs) return 0;
    if (cs->IsArray()) {
        if (!cs->elements.empty() && (cs->elements[0].IsName("I") || cs->elements[0].IsName("Indexed")))
            return 1;
        return 0;
    }
    if (!cs->IsName()) return 0;
    const std::string& n = cs->text;
    if (n == "G" || n == "DeviceGray" || n == "CalGray") return 1;
    if (n == "RGB" || n == "DeviceRGB" || n == "CalRGB") return 3;
    if (n == "CMYK" || n == "DeviceCMYK") return 4;
    if (n == "I" || n == "Indexed") return 1;
    return m_csResolver ? m_csResolver(n) : 0;
}

bool ContentTokenizer::PlausibleContentAfter(size_t pos) const {
    // Look at a short window only, so that many false candidates inside a
    // large image cost linear time in all.
    constexpr size_t kWindow = 256;
    constexpr int kTokens = 8;
    size_t end = pos + kWindow < m_data.size() ? pos + kWindow : m_data.size();
    ContentTokenizer probe(m_data.subspan(0, end));
    probe.m_pos = pos;
    ContentToken tok;
    std::string_view op;
    for (int i = 0; i < kTokens; ++i) {
        size_t before = probe.m_pos;
        probe.SkipWhite();
        before = probe.m_pos;
        Result r = probe.Next(tok, op);
        if (r == Result::End) return true;
        bool checkBytes = r == Result::Operator || tok.IsName() || tok.IsNumber() ||
                          tok.kind == ContentTokenKind::Boolean || tok.kind == ContentTokenKind::Null;
        if (checkBytes) {
            for (size_t p = before; p < probe.m_pos; ++p)
                if (!IsPrintable(m_data[p])) return false;
        }
        if (r == Result::Operator) {
            if (!IsKnownKeyword(op)) return false;
            if (op == "ID") return true;  // the next inline image's data follows
            // An EI right after the end of an image cannot be content: this
            // EI lies inside the data and the later one ends it.
            if (op == "EI") return false;
        }
        if (probe.m_warn.strayBytes > 0) return false;
    }
    return true;
}

// 'E' 'I' at `p` followed by white space, a delimiter or the end: a place
// where a reader searching for the end of inline image data may stop.
static bool EndMarkerAt(std::string_view all, size_t p) {
    const size_t n = all.size();
    return p + 2 <= n && all[p] == 'E' && all[p + 1] == 'I' &&
           (p + 2 == n || ContentTokenizer::IsWhite(static_cast<uint8_t>(all[p + 2])) ||
            ContentTokenizer::IsDelim(static_cast<uint8_t>(all[p + 2])));
}

double ContentTokenizer::ImpliedDataLength(const ContentToken& dict) const {
    const ContentToken* filter = dict.Find("F", "Filter");
    bool filtered = filter && !(filter->IsArray() && filter->elements.empty()) &&
                    filter->kind != ContentTokenKind::Null;
    if (filtered) return -1;
    const ContentToken* w = dict.Find("W", "Width");
    const ContentToken* h = dict.Find("H", "Height");
    const ContentToken* bpc = dict.Find("BPC", "BitsPerComponent");
    const ContentToken* im = dict.Find("IM", "ImageMask");
    bool mask = im && im->kind == ContentTokenKind::Boolean && im->boolValue;
    int comps = mask ? 1 : ComponentsOf(dict.Find("CS", "ColorSpace"));
    double bits = mask ? 1 : (bpc && bpc->IsNumber() ? bpc->number : 0);
    if (!(w && h && w->IsNumber() && h->IsNumber() && comps > 0 && bits > 0 && w->number > 0 &&
          h->number > 0 && w->number < 1e6 && h->number < 1e6 && bits <= 16))
        return -1;
    double rowBytes = std::floor((w->number * bits * comps + 7) / 8);
    return rowBytes * h->number;
}

bool ContentTokenizer::EndIsAmbiguous(const ContentToken& dict, std::string_view data) const {
    // A length the dictionary implies wins over any EI inside the data, as
    // long as only white space follows it up to the written end marker.
    double len = ImpliedDataLength(dict);
    if (len >= 0 && len <= static_cast<double>(data.size())) {
        size_t q = static_cast<size_t>(len);
        while (q < data.size() && IsWhite(static_cast<uint8_t>(data[q]))) ++q;
        if (q == data.size()) return false;
    }
    for (size_t p = data.find("EI"); p != std::string_view::npos; p = data.find("EI", p + 1))
        if (EndMarkerAt(data, p)) return true;
    return false;
}

size_t ContentTokenizer::FindImageEnd(size_t start, const ContentToken& dict, size_t& dataEnd) {
    const size_t n = m_data.size();
    std::string_view all(reinterpret_cast<const char*>(m_data.data()), n);
    auto endsHere = [&](size_t p) { return EndMarkerAt(all, p); };

    // Unfiltered data has a known length: trust it when EI follows.
    double len = ImpliedDataLength(dict);
    if (len >= 0 && start + len <= static_cast<double>(n)) {
        size_t p = start + static_cast<size_t>(len);
        size_t q = p;
        while (q < n && IsWhite(m_data[q])) ++q;
        if (endsHere(q)) {
            dataEnd = p;
            return q + 2;
        }
    }

    // Otherwise the first EI that is followed by white space and by what
    // reads as content ends the data.  One pass, as viewers search: a
    // preference for an EI preceded by white space would have to look at
    // the rest of the stream for every image.
    size_t p = start;
    while ((p = all.find("EI", p)) != std::string_view::npos) {
        if (endsHere(p) && PlausibleContentAfter(p + 2)) {
            dataEnd = p;
            return p + 2;
        }
        ++p;
    }
    ++m_warn.missingEI;
    dataEnd = n;
    return n;
}

bool ContentTokenizer::ReadInlineImage(ContentToken& dict, std::string& data) {
    dict = ContentToken();
    dict.kind = ContentTokenKind::Dictionary;
    ContentToken tok;
    std::string_view op;
    for (;;) {
        size_t before = m_pos;
        Result r = Next(tok, op);
        if (r == Result::End) {
            ++m_warn.missingEI;
            return false;
        }
        if (r == Result::Operator) {
            if (op == "ID") break;
            // A dictionary without ID: drop it and read on from the operator.
            if (op != "EI") m_pos = before;
            return false;
        }
        if (dict.elements.size() < 2 * 64) dict.elements.push_back(std::move(tok));
        tok = ContentToken();
    }
    if (dict.elements.size() % 2 != 0) dict.elements.pop_back();
    if (m_pos < m_data.size() && IsWhite(m_data[m_pos])) ++m_pos;
    size_t start = m_pos;
    size_t dataEnd = start;
    size_t after = FindImageEnd(start, dict, dataEnd);
    data.assign(reinterpret_cast<const char*>(m_data.data()) + start, dataEnd - start);
    m_pos = after;
    return true;
}
