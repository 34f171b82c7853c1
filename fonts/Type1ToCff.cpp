// Type 1 to bare CFF conversion.
//
// Each Type 1 charstring is run through a small interpreter that inlines
// the Subrs, follows the OtherSubrs protocol for flex (0-2) and hint
// replacement (3), computes div, and records the outline as absolute
// points with its stem hints grouped by replacement.  The CFF writer then
// chooses the Type 2 operators.  Since every coordinate is kept in 16.16
// fixed point and the Type 2 deltas are differences of those points, a
// renderer adding the deltas up lands on exactly the points it would have
// reached from the Type 1 charstring.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "fonts/CffTables.h"
#include "fonts/CffWriter.h"
#include "fonts/Type1Font.h"

namespace fonts {
namespace {

using cff::Bytes;
using cff::Fixed;
using cff::HintGroup;
using cff::PathOp;
using cff::PathOpKind;
using cff::Point;
using cff::Stem;
using cff::Type2Glyph;
constexpr Fixed kOne = cff::kFixedOne;

// Bounds against hostile charstrings.
constexpr size_t kMaxStack = 48;            // Type 1 asks for 24; leave room
constexpr int kMaxSubrDepth = 16;           // nested callsubr
constexpr size_t kMaxGlyphSteps = 1 << 20;  // operators and numbers run for one glyph
constexpr size_t kMaxFontSteps = size_t(1) << 27;
constexpr size_t kMaxPathOps = 1 << 16;
constexpr size_t kMaxStemDeclarations = 1 << 14;  // over all hint groups
constexpr Fixed kMaxCoordinate = Fixed(1) << 40;
constexpr size_t kMaxGlyphs = 65535;
constexpr size_t kMaxSid = 64999;

// ---------------------------------------------------------------------------
// Type 1 charstring interpretation

class Type1Interpreter {
public:
    Type1Interpreter(const std::vector<std::string>& subrs, size_t& fontSteps)
        : m_subrs(subrs), m_fontSteps(fontSteps) {}

    bool Run(std::string_view charstring, Type2Glyph& out, std::string& error) {
        m_glyph = &out;
        out = Type2Glyph{};
        out.groups.emplace_back();
        bool ok = Exec(charstring, 0);
        if (ok && !m_ended) Fail("charstring ends without endchar");
        if (!m_error.empty()) {
            error = m_error;
            return false;
        }
        return true;
    }

private:
    bool Fail(std::string why) {
        if (m_error.empty()) m_error = std::move(why);
        return false;
    }

    bool Exec(std::string_view cs, int depth) {
        if (depth > kMaxSubrDepth) return Fail("subroutines nested too deeply");
        size_t i = 0;
        while (i < cs.size()) {
            if (++m_steps > kMaxGlyphSteps || ++m_fontSteps > kMaxFontSteps)
                return Fail("charstring runs too long");
            uint8_t b = uint8_t(cs[i++]);
            if (b >= 32) {
                int64_t v;
                if (b <= 246) {
                    v = int64_t(b) - 139;
                } else if (b <= 254) {
                    if (i >= cs.size()) return Fail("truncated number");
                    int64_t w = uint8_t(cs[i++]);
                    v = b <= 250 ? (int64_t(b) - 247) * 256 + w + 108 : -(int64_t(b) - 251) * 256 - w - 108;
                } else {
                    if (cs.size() - i < 4) return Fail("truncated number");
                    uint32_t u = 0;
                    for (int k = 0; k < 4; ++k) u = u << 8 | uint8_t(cs[i++]);
                    v = int32_t(u);
                }
                if (!Push(v * kOne)) return false;
                continue;
            }
            unsigned op = b;
            if (b == 12) {
                if (i >= cs.size()) return Fail("truncated escape operator");
                op = 0x0c00 | uint8_t(cs[i++]);
            }
            if (op == 10) {  // callsubr
                int64_t n;
                if (!PopInt(n)) return false;
                if (n < 0 || size_t(n) >= m_subrs.size()) return Fail("callsubr to a missing subroutine");
                if (!Exec(m_subrs[size_t(n)], depth + 1)) return false;
                if (m_ended) return true;
                continue;
            }
            if (op == 11) {  // return
                if (depth == 0) return Fail("return outside a subroutine");
                return true;
            }
            if (!Operator(op)) return false;
            if (m_ended) return true;
        }
        // A subroutine may end without return; Run() reports a charstring
        // that ends without endchar.
        return true;
    }

    bool Push(Fixed v) {
        if (m_stack.size() >= kMaxStack) return Fail("argument stack overflow");
        m_stack.push_back(v);
        return true;
    }
    bool PopInt(int64_t& n) {
        if (m_stack.empty()) return Fail("argument stack underflow");
        Fixed v = m_stack.back();
        m_stack.pop_back();
        if (v % kOne != 0) return Fail("non-integer where an integer is needed");
        n = v / kOne;
        return true;
    }
    // Takes the top `n` operands for an operator that clears the stack.
    bool Args(size_t n, std::array<Fixed, 6>& a) {
        if (m_stack.size() < n) return Fail("argument stack underflow");
        std::copy(m_stack.end() - ptrdiff_t(n), m_stack.end(), a.begin());
        m_stack.clear();
        return true;
    }
    bool NeedWidth() {
        if (!m_haveWidth) return Fail("outline or hint before hsbw");
        return true;
    }
    bool Move(Fixed& coord, Fixed d) {
        coord += d;
        if (coord > kMaxCoordinate || coord < -kMaxCoordinate) return Fail("coordinate out of range");
        return true;
    }
    bool AddOp(const PathOp& op) {
        if (m_glyph->ops.size() >= kMaxPathOps) return Fail("too many path operators");
        m_glyph->ops.push_back(op);
        return true;
    }
    // Drawing needs a contour started by a moveto.  Type 1 renderers
    // disagree on where a path starts without one (the sidebearing point,
    // the origin, the start of the contour closed before), so such a
    // charstring is not converted.
    bool BeginDrawing() {
        m_drewInGroup = true;
        if (m_open) return true;
        if (!m_moved) return Fail("line or curve without a moveto");
        m_open = true;
        return true;
    }
    bool MoveTo(Fixed dx, Fixed dy) {
        if (!Move(m_cur.x, dx) || !Move(m_cur.y, dy)) return false;
        if (m_flexing) return true;  // a flex point, collected by OtherSubr 2
        // The renderer fixes the hints for a contour's first point at its
        // moveto, so a later hint replacement must not move before it.
        m_drewInGroup = true;
        PathOp op;
        op.pts[0] = m_cur;
        m_moved = true;
        m_open = false;
        return AddOp(op);
    }
    bool LineTo(Fixed dx, Fixed dy) {
        if (m_flexing) return Fail("line inside a flex");
        if (!BeginDrawing() || !Move(m_cur.x, dx) || !Move(m_cur.y, dy)) return false;
        PathOp op;
        op.kind = PathOpKind::Line;
        op.pts[0] = m_cur;
        return AddOp(op);
    }
    bool CurveTo(Fixed dx1, Fixed dy1, Fixed dx2, Fixed dy2, Fixed dx3, Fixed dy3) {
        if (m_flexing) return Fail("curve inside a flex");
        if (!BeginDrawing()) return false;
        PathOp op;
        op.kind = PathOpKind::Curve;
        const Fixed d[6] = {dx1, dy1, dx2, dy2, dx3, dy3};
        for (int k = 0; k < 3; ++k) {
            if (!Move(m_cur.x, d[2 * k]) || !Move(m_cur.y, d[2 * k + 1])) return false;
            op.pts[size_t(k)] = m_cur;
        }
        return AddOp(op);
    }
    bool AddStem(bool vertical, Fixed pos, Fixed width) {
        if (++m_stems > kMaxStemDeclarations) return Fail("too many stem hints");
        auto& g = m_glyph->groups.back();
        (vertical ? g.v : g.h).push_back(Stem{pos, width});
        return true;
    }
    // Division as the 16.16 renderers compute it: rounded to nearest.
    bool Divide(Fixed a, Fixed b, Fixed& q) {
        if (b == 0) return Fail("division by zero");
        bool negative = (a < 0) != (b < 0);
        __int128 ua = a < 0 ? -__int128(a) : __int128(a);
        __int128 ub = b < 0 ? -__int128(b) : __int128(b);
        __int128 r = (ua * kOne + ub / 2) / ub;
        if (r > kMaxCoordinate) return Fail("division result out of range");
        q = negative ? -Fixed(r) : Fixed(r);
        return true;
    }

    bool OtherSubr() {
        int64_t index, count;
        if (!PopInt(index) || !PopInt(count)) return false;
        if (count < 0 || size_t(count) > m_stack.size()) return Fail("callothersubr with missing arguments");
        std::vector<Fixed> args(m_stack.end() - ptrdiff_t(count), m_stack.end());
        m_stack.resize(m_stack.size() - size_t(count));
        m_ps.clear();
        switch (index) {
        case 0: {  // end of flex: two curves through the collected points
            if (count != 3 || !m_flexing || m_flex.size() != 7) return Fail("malformed flex");
            m_flexing = false;
            if (!BeginDrawing()) return false;
            PathOp op;
            op.kind = PathOpKind::Flex;
            std::copy(m_flex.begin() + 1, m_flex.end(), op.pts.begin());
            op.flexDepth = args[0];
            if (!AddOp(op)) return false;
            m_afterFlex = true;
            m_ps = {args[2], args[1]};  // popped back as x, y for setcurrentpoint
            return true;
        }
        case 1:  // start of flex
            if (count != 0 || m_flexing) return Fail("malformed flex");
            m_flexing = true;
            m_flex.clear();
            return true;
        case 2:  // a flex point
            if (count != 0 || !m_flexing || m_flex.size() >= 7) return Fail("malformed flex");
            m_flex.push_back(m_cur);
            return true;
        case 3: {  // hint replacement: the stems that follow replace the current ones
            if (count != 1 || m_flexing) return Fail("malformed hint replacement");
            if (m_drewInGroup) {
                PathOp op;
                op.kind = PathOpKind::Mask;
                op.group = uint32_t(m_glyph->groups.size());
                m_glyph->groups.emplace_back();
                if (!AddOp(op)) return false;
                m_drewInGroup = false;
            } else {
                m_glyph->groups.back() = HintGroup{};
            }
            m_ps = {args[0]};  // the subroutine to call next
            return true;
        }
        default:
            return Fail("OtherSubr " + std::to_string(index) + " has no CFF equivalent");
        }
    }

    bool Operator(unsigned op) {
        std::array<Fixed, 6> a{};
        switch (op) {
        case 13:  // hsbw: sbx wx
            if (m_haveWidth) return Fail("hsbw after the start");
            if (!Args(2, a)) return false;
            m_sb = {a[0], 0};
            m_glyph->width = a[1];
            m_haveWidth = true;
            m_cur = m_sb;
            return true;
        case 0x0c00 | 7:  // sbw: sbx sby wx wy
            if (m_haveWidth) return Fail("sbw after the start");
            if (!Args(4, a)) return false;
            m_sb = {a[0], a[1]};
            m_glyph->width = a[2];
            m_haveWidth = true;
            m_cur = m_sb;
            return true;
        case 14:  // endchar
            if (!NeedWidth()) return false;
            if (m_flexing) return Fail("endchar inside a flex");
            m_stack.clear();
            m_ended = true;
            return true;
        case 0x0c00 | 6: {  // seac: asb adx ady bchar achar
            if (!NeedWidth() || !Args(5, a)) return false;
            for (const auto& o : m_glyph->ops)
                if (o.kind != PathOpKind::Mask && o.kind != PathOpKind::Move)
                    return Fail("seac after an outline");
            if (a[3] % kOne || a[4] % kOne) return Fail("seac with non-integer codes");
            Fixed base = a[3] / kOne, accent = a[4] / kOne;
            if (base < 0 || base > 255 || accent < 0 || accent > 255 || !cff::kStandardEncoding[base] ||
                !cff::kStandardEncoding[accent])
                return Fail("seac code outside StandardEncoding");
            // The Type 1 accent offset is from the left sidebearing point
            // and assumes the accent's own sidebearing `asb`; a Type 2
            // accent is placed from the origin with its sidebearing built in.
            m_glyph->seac = true;
            m_glyph->seacAdx = a[1] - a[0] + m_sb.x;
            m_glyph->seacAdy = a[2];
            m_glyph->seacBase = int(base);
            m_glyph->seacAccent = int(accent);
            m_glyph->ops.clear();
            m_glyph->groups.assign(1, HintGroup{});
            m_ended = true;
            return true;
        }
        case 1:            // hstem: y dy
        case 3:            // vstem: x dx
        case 0x0c00 | 2:   // hstem3
        case 0x0c00 | 1: { // vstem3
            bool vertical = op == 3 || op == (0x0c00 | 1);
            size_t n = op < 0x100 ? 2 : 6;
            if (!NeedWidth() || !Args(n, a)) return false;
            // Type 1 stems are relative to the sidebearing point, Type 2
            // ones to the origin.  (One Type 1 rasteriser adds sby twice to
            // horizontal stems; sbw with a nonzero sby is too rare to copy
            // that.)
            for (size_t k = 0; k < n; k += 2)
                if (!AddStem(vertical, a[k] + (vertical ? m_sb.x : m_sb.y), a[k + 1])) return false;
            return true;
        }
        case 21:  // rmoveto
            return NeedWidth() && Args(2, a) && MoveTo(a[0], a[1]);
        case 22:  // hmoveto
            return NeedWidth() && Args(1, a) && MoveTo(a[0], 0);
        case 4:  // vmoveto
            return NeedWidth() && Args(1, a) && MoveTo(0, a[0]);
        case 5:  // rlineto
            return NeedWidth() && Args(2, a) && LineTo(a[0], a[1]);
        case 6:  // hlineto
            return NeedWidth() && Args(1, a) && LineTo(a[0], 0);
        case 7:  // vlineto
            return NeedWidth() && Args(1, a) && LineTo(0, a[0]);
        case 8:  // rrcurveto
            return NeedWidth() && Args(6, a) && CurveTo(a[0], a[1], a[2], a[3], a[4], a[5]);
        case 30:  // vhcurveto: dy1 dx2 dy2 dx3
            return NeedWidth() && Args(4, a) && CurveTo(0, a[0], a[1], a[2], a[3], 0);
        case 31:  // hvcurveto: dx1 dx2 dy2 dy3
            return NeedWidth() && Args(4, a) && CurveTo(a[0], 0, a[1], a[2], 0, a[3]);
        case 9:  // closepath: the next moveto or endchar closes in Type 2
            if (!NeedWidth()) return false;
            m_stack.clear();
            m_open = m_moved = false;
            return true;
        case 0x0c00 | 0:  // dotsection: no Type 2 equivalent, hint-only
            m_stack.clear();
            return true;
        case 0x0c00 | 12: {  // div
            if (m_stack.size() < 2) return Fail("argument stack underflow");
            Fixed b = m_stack.back();
            m_stack.pop_back();
            Fixed q;
            if (!Divide(m_stack.back(), b, q)) return false;
            m_stack.back() = q;
            return true;
        }
        case 0x0c00 | 16:  // callothersubr
            return OtherSubr();
        case 0x0c00 | 17:  // pop: a result of the last OtherSubr
            if (m_ps.empty()) return Fail("pop without an OtherSubr result");
            if (!Push(m_ps.back())) return false;
            m_ps.pop_back();
            return true;
        case 0x0c00 | 33:  // setcurrentpoint
            if (!Args(2, a)) return false;
            // After a flex the point is where the flex ended already.
            if (m_afterFlex || (a[0] == m_cur.x && a[1] == m_cur.y)) {
                m_afterFlex = false;
                return true;
            }
            return Fail("setcurrentpoint outside a flex");
        default:
            return Fail("unknown charstring operator " + std::to_string(op > 0xff ? 1200 + (op & 0xff) : op));
        }
    }

    const std::vector<std::string>& m_subrs;
    size_t& m_fontSteps;
    Type2Glyph* m_glyph = nullptr;
    std::string m_error;
    std::vector<Fixed> m_stack;
    std::vector<Fixed> m_ps;  // OtherSubr results waiting for pop
    size_t m_steps = 0, m_stems = 0;
    bool m_haveWidth = false, m_ended = false;
    Point m_sb, m_cur;
    bool m_moved = false, m_open = false, m_drewInGroup = false;
    bool m_flexing = false, m_afterFlex = false;
    std::vector<Point> m_flex;
};

// ---------------------------------------------------------------------------
// Font assembly

// PostScript string escapes in FontInfo texts: \n \r \t \b \f \\ \( \)
// \ddd, and a backslash before a line end continues the line.
std::string Unescape(std::string_view s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        char c = s[++i];
        switch (c) {
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case '\r':
            if (i + 1 < s.size() && s[i + 1] == '\n') ++i;
            break;
        case '\n': break;
        default:
            if (c >= '0' && c <= '7') {
                int v = 0;
                for (int k = 0; k < 3 && i < s.size() && s[i] >= '0' && s[i] <= '7'; ++k, ++i) v = v * 8 + (s[i] - '0');
                --i;
                out += char(v & 0xff);
            } else {
                out += c;
            }
        }
    }
    return out;
}

std::optional<double> ParseNumber(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    double v = 0;
    auto res = std::from_chars(s.data(), s.data() + s.size(), v);
    if (res.ec != std::errc() || res.ptr != s.data() + s.size() || !std::isfinite(v)) return std::nullopt;
    return v;
}

// Strings get standard SIDs where they can, else places in the String
// INDEX, each once.
class Strings {
public:
    // nullopt once the SID space is exhausted.
    std::optional<unsigned> Sid(const std::string& s) {
        int standard = cff::StandardSid(s);
        if (standard >= 0) return unsigned(standard);
        auto it = m_custom.find(s);
        if (it != m_custom.end()) return it->second;
        unsigned sid = unsigned(cff::kStandardStringCount + m_items.size());
        if (sid > kMaxSid) return std::nullopt;
        m_custom.emplace(s, sid);
        m_items.push_back(s);
        return sid;
    }
    const std::vector<std::string>& Items() const { return m_items; }

private:
    std::unordered_map<std::string, unsigned> m_custom;
    std::vector<std::string> m_items;
};

// The charset in its smallest form; empty for the predefined charset 0.
Bytes BuildCharset(const std::vector<unsigned>& sids) {
    bool charset0 = sids.size() - 1 <= cff::kCharset0LastSid;
    for (size_t g = 1; g < sids.size() && charset0; ++g) charset0 = sids[g] == g;
    if (charset0) return {};
    Bytes f0{0}, f1{1}, f2{2};
    for (size_t g = 1; g < sids.size(); ++g) cff::PutCard16(f0, sids[g]);
    for (size_t g = 1; g < sids.size();) {
        size_t end = g + 1;
        while (end < sids.size() && sids[end] == sids[end - 1] + 1) ++end;
        for (size_t start = g; start < end;) {  // ranges of at most 256 (format 1) or 65536 (format 2)
            size_t n1 = std::min<size_t>(end - start, 256);
            cff::PutCard16(f1, sids[start]);
            f1.push_back(uint8_t(n1 - 1));
            start += n1;
        }
        cff::PutCard16(f2, sids[g]);
        cff::PutCard16(f2, unsigned(end - g - 1));
        g = end;
    }
    Bytes* best = &f0;
    if (f1.size() < best->size()) best = &f1;
    if (f2.size() < best->size()) best = &f2;
    return *best;
}

// A custom encoding: the glyphs with codes are GIDs 1..n in code order, so
// `primary[g]` is glyph g's lowest code; other codes of a glyph go into
// supplements.
Bytes BuildEncoding(const std::vector<int>& primary, const std::vector<std::pair<unsigned, unsigned>>& supplements) {
    Bytes f0{0, uint8_t(primary.size())};
    for (int c : primary) f0.push_back(uint8_t(c));
    Bytes ranges;
    unsigned nRanges = 0;
    for (size_t i = 0; i < primary.size();) {
        size_t end = i + 1;
        while (end < primary.size() && primary[end] == primary[end - 1] + 1 && end - i < 256) ++end;
        ranges.push_back(uint8_t(primary[i]));
        ranges.push_back(uint8_t(end - i - 1));
        ++nRanges;
        i = end;
    }
    Bytes f1{1, uint8_t(nRanges)};
    f1.insert(f1.end(), ranges.begin(), ranges.end());
    Bytes out = f1.size() < f0.size() ? f1 : f0;
    if (!supplements.empty()) {
        out[0] |= 0x80;
        out.push_back(uint8_t(supplements.size()));
        for (auto [code, sid] : supplements) {
            out.push_back(uint8_t(code));
            cff::PutCard16(out, sid);
        }
    }
    return out;
}

// defaultWidthX is the commonest width (its glyphs then carry none);
// nominalWidthX the value that makes the remaining widths cheapest.
void ChooseWidths(const std::vector<Type2Glyph>& glyphs, Fixed& defaultWidth, Fixed& nominalWidth) {
    std::map<Fixed, size_t> counts;
    for (const auto& g : glyphs) ++counts[g.width];
    defaultWidth = 0;
    size_t bestCount = 0;
    for (auto [w, n] : counts)
        if (n > bestCount) {
            bestCount = n;
            defaultWidth = w;
        }
    std::vector<std::pair<Fixed, size_t>> others;
    for (auto [w, n] : counts)
        if (w != defaultWidth) others.push_back({w, n});
    auto dictCost = [](Fixed v) -> uint64_t {
        if (v == 0) return 0;
        cff::DictWriter d;
        d.Real(double(v) / kOne);
        return d.bytes().size() + 1;
    };
    auto cost = [&](Fixed nominal) {
        uint64_t total = dictCost(nominal);
        for (auto [w, n] : others) {
            unsigned s = cff::Type2NumberSize(w - nominal);
            total += uint64_t(s ? s : 1000) * n;
        }
        return total;
    };
    // The cost only changes where some width crosses an encoding boundary,
    // so the widths shifted by those boundaries are the candidates.
    nominalWidth = 0;
    uint64_t best = cost(0);
    if (others.size() > 1024) return;  // not worth the search
    for (auto [w, n] : others) {
        if (w % kOne) continue;
        for (Fixed shift : {0, 107, -107, 1131, -1131}) {
            Fixed candidate = w + shift * kOne;
            uint64_t c = cost(candidate);
            if (c < best) {
                best = c;
                nominalWidth = candidate;
            }
        }
    }
}

void PutDeltaArray(cff::DictWriter& d, const std::vector<double>& values, size_t maxValues, unsigned op) {
    if (values.empty()) return;
    size_t n = std::min(values.size(), maxValues);
    double previous = 0;
    for (size_t i = 0; i < n; ++i) {
        d.Real(values[i] - previous);
        previous = values[i];
    }
    d.Op(op);
}

Bytes BuildPrivate(const Type1Font& font, Fixed defaultWidth, Fixed nominalWidth) {
    cff::DictWriter d;
    auto values = [&](const char* key) -> const std::vector<double>* {
        auto it = font.privateValues.find(key);
        return it == font.privateValues.end() || it->second.empty() ? nullptr : &it->second;
    };
    // Blue zones come in pairs; renderers read at most 14 (10 for the others).
    auto blues = [&](const char* key, size_t maxValues, unsigned op) {
        if (const auto* v = values(key)) {
            std::vector<double> pairs(v->begin(), v->begin() + ptrdiff_t(std::min(v->size(), maxValues) & ~size_t(1)));
            PutDeltaArray(d, pairs, maxValues, op);
        }
    };
    auto scalar = [&](const char* key, double defaultValue, unsigned op) {
        if (const auto* v = values(key); v && (*v)[0] != defaultValue) {
            d.Real((*v)[0]);
            d.Op(op);
        }
    };
    blues("BlueValues", 14, 6);
    blues("OtherBlues", 10, 7);
    blues("FamilyBlues", 14, 8);
    blues("FamilyOtherBlues", 10, 9);
    scalar("BlueScale", 0.039625, 0x0c00 | 9);
    scalar("BlueShift", 7, 0x0c00 | 10);
    scalar("BlueFuzz", 1, 0x0c00 | 11);
    scalar("StdHW", std::numeric_limits<double>::quiet_NaN(), 10);
    scalar("StdVW", std::numeric_limits<double>::quiet_NaN(), 11);
    if (const auto* v = values("StemSnapH")) PutDeltaArray(d, *v, 12, 0x0c00 | 12);
    if (const auto* v = values("StemSnapV")) PutDeltaArray(d, *v, 12, 0x0c00 | 13);
    if (const auto* v = values("ForceBold"); v && (*v)[0] != 0) {
        d.Int(1);
        d.Op(0x0c00 | 14);
    }
    scalar("LanguageGroup", 0, 0x0c00 | 17);
    scalar("ExpansionFactor", 0.06, 0x0c00 | 18);
    if (defaultWidth != 0) {
        d.Real(double(defaultWidth) / kOne);
        d.Op(20);
    }
    if (nominalWidth != 0) {
        d.Real(double(nominalWidth) / kOne);
        d.Op(21);
    }
    return d.bytes();
}

}  // namespace

std::vector<uint8_t> Type1ToCff(const Type1Font& font, const std::set<std::string>& glyphs, std::string& error) {
    error.clear();
    // The glyphs kept: the first charstring of each name, .notdef always.
    std::unordered_map<std::string, size_t> byName;
    std::vector<size_t> kept;  // indices into font.charStrings
    for (size_t i = 0; i < font.charStrings.size(); ++i) {
        const std::string& name = font.charStrings[i].first;
        if (byName.count(name) || (!glyphs.empty() && name != ".notdef" && !glyphs.count(name))) continue;
        byName.emplace(name, i);
        kept.push_back(i);
    }
    if (kept.size() + !byName.count(".notdef") > kMaxGlyphs) {
        error = "too many glyphs for CFF";
        return {};
    }

    // Codes -> kept glyph names, through the built-in encoding.
    std::array<std::string, 256> codeNames;
    bool standardEncoding = true;
    for (unsigned c = 0; c < 256; ++c) {
        const std::string& name = font.standardEncoding
                                      ? std::string(cff::StandardString(cff::kStandardEncoding[c]))
                                      : font.encoding[c];
        if (name.empty() || name == ".notdef" || !byName.count(name)) continue;
        codeNames[c] = name;
        unsigned standardSid = cff::kStandardEncoding[c];
        if (!standardSid || cff::StandardString(standardSid) != name) standardEncoding = false;
    }
    if (standardEncoding)  // also no kept glyph StandardEncoding reaches may be left out
        for (unsigned c = 0; c < 256 && standardEncoding; ++c) {
            unsigned sid = cff::kStandardEncoding[c];
            if (sid && byName.count(std::string(cff::StandardString(sid))) && codeNames[c].empty())
                standardEncoding = false;
        }

    // Glyph order: .notdef; then, with a custom encoding, the encoded
    // glyphs by code; then the rest by standard SID and file order, which
    // keeps the charset in few ranges.
    std::unordered_map<std::string, int> firstCode;
    if (!standardEncoding)
        for (int c = 255; c >= 0; --c)
            if (!codeNames[size_t(c)].empty()) firstCode[codeNames[size_t(c)]] = c;
    std::vector<std::string> order{".notdef"};
    {
        std::vector<std::tuple<int, int, size_t>> keys;  // (code or 256, standard SID or max, file index)
        for (size_t i : kept) {
            const std::string& name = font.charStrings[i].first;
            if (name == ".notdef") continue;
            auto fc = firstCode.find(name);
            int sid = cff::StandardSid(name);
            keys.emplace_back(fc == firstCode.end() ? 256 : fc->second, sid < 0 ? INT32_MAX : sid, i);
        }
        std::sort(keys.begin(), keys.end());
        for (auto& [code, sid, i] : keys) order.push_back(font.charStrings[i].first);
    }

    // Outlines.
    std::vector<Type2Glyph> outlines(order.size());
    size_t fontSteps = 0;
    for (size_t g = 0; g < order.size(); ++g) {
        auto it = byName.find(order[g]);
        if (it == byName.end()) {  // a font without .notdef gets an empty one
            outlines[g].groups.emplace_back();
            continue;
        }
        Type1Interpreter interpreter(font.subrs, fontSteps);
        std::string why;
        if (!interpreter.Run(font.charStrings[it->second].second, outlines[g], why)) {
            error = "glyph " + order[g] + ": " + why;
            return {};
        }
    }
    Fixed defaultWidth, nominalWidth;
    ChooseWidths(outlines, defaultWidth, nominalWidth);
    std::vector<Bytes> charstrings(order.size());
    for (size_t g = 0; g < order.size(); ++g) {
        std::string why;
        if (!cff::WriteType2Charstring(outlines[g], defaultWidth, nominalWidth, charstrings[g], why)) {
            error = "glyph " + order[g] + ": " + why;
            return {};
        }
    }

    // Strings: glyph names first, so custom names get consecutive SIDs.
    Strings strings;
    std::vector<unsigned> sids(order.size(), 0);
    for (size_t g = 1; g < order.size(); ++g) {
        auto sid = strings.Sid(order[g]);
        if (!sid) {
            error = "too many glyph names for CFF";
            return {};
        }
        sids[g] = *sid;
    }
    Bytes charset = BuildCharset(sids);

    Bytes encoding;
    if (!standardEncoding) {
        std::vector<int> primary;
        std::vector<std::pair<unsigned, unsigned>> supplements;
        std::unordered_map<std::string, size_t> gidOf;
        for (size_t g = 0; g < order.size(); ++g) gidOf.emplace(order[g], g);
        for (size_t g = 1; g < order.size(); ++g) {
            auto fc = firstCode.find(order[g]);
            if (fc == firstCode.end()) break;  // encoded glyphs come first
            primary.push_back(fc->second);
        }
        for (unsigned c = 0; c < 256; ++c)
            if (!codeNames[c].empty() && firstCode[codeNames[c]] != int(c))
                supplements.push_back({c, sids[gidOf[codeNames[c]]]});
        encoding = BuildEncoding(primary, supplements);
    }

    // Top DICT.  Offsets take the 5-byte form so the DICT's size is known
    // before the layout.
    Bytes privateDict = BuildPrivate(font, defaultWidth, nominalWidth);
    auto topDict = [&](uint32_t charsetOffset, uint32_t encodingOffset, uint32_t charStringsOffset,
                       uint32_t privateOffset) -> std::optional<Bytes> {
        cff::DictWriter d;
        static const std::pair<const char*, unsigned> kStringKeys[] = {
            {"version", 0}, {"Notice", 1}, {"Copyright", 0x0c00 | 0}, {"FullName", 2}, {"FamilyName", 3}, {"Weight", 4}};
        for (auto [key, op] : kStringKeys) {
            auto it = font.fontInfo.find(key);
            if (it == font.fontInfo.end()) continue;
            auto sid = strings.Sid(Unescape(it->second));
            if (!sid) return std::nullopt;
            d.Int(*sid);
            d.Op(op);
        }
        auto info = [&](const char* key) -> std::optional<double> {
            auto it = font.fontInfo.find(key);
            return it == font.fontInfo.end() ? std::nullopt : ParseNumber(it->second);
        };
        if (auto it = font.fontInfo.find("isFixedPitch"); it != font.fontInfo.end() && it->second == "true") {
            d.Int(1);
            d.Op(0x0c00 | 1);
        }
        static const std::tuple<const char*, double, unsigned> kNumberKeys[] = {
            {"ItalicAngle", 0, 0x0c00 | 2}, {"UnderlinePosition", -100, 0x0c00 | 3}, {"UnderlineThickness", 50, 0x0c00 | 4}};
        for (auto [key, defaultValue, op] : kNumberKeys)
            if (auto v = info(key); v && *v != defaultValue) {
                d.Real(*v);
                d.Op(op);
            }
        if (font.paintType != 0) {
            d.Int(font.paintType);
            d.Op(0x0c00 | 5);
        }
        if (font.uniqueID >= 0 && font.uniqueID <= INT32_MAX) {
            d.Int(font.uniqueID);
            d.Op(13);
        }
        if (font.fontMatrix != std::array<double, 6>{0.001, 0, 0, 0.001, 0, 0}) {
            for (double v : font.fontMatrix) d.Real(v);
            d.Op(0x0c00 | 7);
        }
        if (font.fontBBox != std::array<double, 4>{0, 0, 0, 0}) {
            for (double v : font.fontBBox) d.Real(v);
            d.Op(5);
        }
        if (font.strokeWidth != 0) {
            d.Real(font.strokeWidth);
            d.Op(0x0c00 | 8);
        }
        if (!charset.empty()) {
            d.Int5(int32_t(charsetOffset));
            d.Op(15);
        }
        if (!encoding.empty()) {
            d.Int5(int32_t(encodingOffset));
            d.Op(16);
        }
        d.Int5(int32_t(charStringsOffset));
        d.Op(17);
        d.Int(int64_t(privateDict.size()));
        d.Int5(int32_t(privateOffset));
        d.Op(18);
        return d.bytes();
    };
    auto sizing = topDict(0, 0, 0, 0);  // also registers the DICT's strings
    if (!sizing) {
        error = "too many strings for CFF";
        return {};
    }
    std::string name = font.fontName.empty() ? std::string("Untitled") : font.fontName;
    Bytes nameIndex = cff::BuildIndex(std::vector<std::string>{name});
    Bytes stringIndex = cff::BuildIndex(strings.Items());
    Bytes globalSubrs = cff::BuildIndex(std::vector<Bytes>{});
    Bytes charStringsIndex = cff::BuildIndex(charstrings);
    Bytes topIndexSizing = cff::BuildIndex(std::vector<Bytes>{*sizing});

    uint64_t pos = 4 + nameIndex.size() + topIndexSizing.size() + stringIndex.size() + globalSubrs.size();
    uint64_t charsetOffset = pos;
    pos += charset.size();
    uint64_t encodingOffset = pos;
    pos += encoding.size();
    uint64_t charStringsOffset = pos;
    pos += charStringsIndex.size();
    uint64_t privateOffset = pos;
    pos += privateDict.size();
    if (pos > uint64_t(INT32_MAX)) {
        error = "font too large for CFF";
        return {};
    }
    Bytes topIndex = cff::BuildIndex(std::vector<Bytes>{
        *topDict(uint32_t(charsetOffset), uint32_t(encodingOffset), uint32_t(charStringsOffset), uint32_t(privateOffset))});

    Bytes out{1, 0, 4, uint8_t(cff::OffSizeFor(pos))};
    for (const Bytes* part : {&nameIndex, &topIndex, &stringIndex, &globalSubrs, &charset, &encoding,
                              &charStringsIndex, &privateDict})
        out.insert(out.end(), part->begin(), part->end());
    return out;
}

}  // namespace fonts
