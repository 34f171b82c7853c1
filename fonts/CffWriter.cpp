#include "fonts/CffWriter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>

namespace fonts::cff {
namespace {

// A text spelling of a real number turned into DICT nibbles: digits, '.'
// (0xa), 'E' (0xb), 'E-' (0xc), '-' (0xe), and 0xf at the end.  The
// leading zero of "0.xxx" and the zeros and plus sign of an exponent are
// dropped, since they are implied.
std::vector<uint8_t> NibblesOf(std::string_view text) {
    std::vector<uint8_t> nibbles;
    size_t i = 0;
    if (i < text.size() && text[i] == '-') {
        nibbles.push_back(0xe);
        ++i;
    }
    if (i + 1 < text.size() && text[i] == '0' && text[i + 1] == '.') ++i;
    for (; i < text.size(); ++i) {
        char c = text[i];
        if (c >= '0' && c <= '9') {
            nibbles.push_back(uint8_t(c - '0'));
        } else if (c == '.') {
            nibbles.push_back(0xa);
        } else if (c == 'e' || c == 'E') {
            size_t j = i + 1;
            bool negative = false;
            if (j < text.size() && (text[j] == '-' || text[j] == '+')) {
                negative = text[j] == '-';
                ++j;
            }
            while (j + 1 < text.size() && text[j] == '0') ++j;
            nibbles.push_back(negative ? 0xc : 0xb);
            i = j - 1;
        }
    }
    nibbles.push_back(0xf);
    return nibbles;
}

}  // namespace

unsigned OffSizeFor(uint64_t maxOffset) {
    if (maxOffset < 0x100) return 1;
    if (maxOffset < 0x10000) return 2;
    if (maxOffset < 0x1000000) return 3;
    return 4;
}

void PutCard16(Bytes& out, unsigned value) {
    out.push_back(uint8_t(value >> 8));
    out.push_back(uint8_t(value));
}

void PutOffset(Bytes& out, uint64_t value, unsigned offSize) {
    for (unsigned i = offSize; i-- > 0;) out.push_back(uint8_t(value >> (8 * i)));
}

template <typename Item>
static Bytes BuildIndexOf(const std::vector<Item>& items) {
    Bytes out;
    PutCard16(out, unsigned(items.size()));
    if (items.empty()) return out;
    uint64_t total = 1;
    for (const auto& item : items) total += item.size();
    unsigned offSize = OffSizeFor(total);
    out.push_back(uint8_t(offSize));
    uint64_t offset = 1;
    PutOffset(out, offset, offSize);
    for (const auto& item : items) {
        offset += item.size();
        PutOffset(out, offset, offSize);
    }
    for (const auto& item : items) out.insert(out.end(), item.begin(), item.end());
    return out;
}

Bytes BuildIndex(const std::vector<Bytes>& items) { return BuildIndexOf(items); }
Bytes BuildIndex(const std::vector<std::string>& items) { return BuildIndexOf(items); }

void DictWriter::Int(int64_t value) {
    value = std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
    if (value >= -107 && value <= 107) {
        m_out.push_back(uint8_t(value + 139));
    } else if (value >= 108 && value <= 1131) {
        value -= 108;
        m_out.push_back(uint8_t((value >> 8) + 247));
        m_out.push_back(uint8_t(value));
    } else if (value >= -1131 && value <= -108) {
        value = -value - 108;
        m_out.push_back(uint8_t((value >> 8) + 251));
        m_out.push_back(uint8_t(value));
    } else if (value >= -32768 && value <= 32767) {
        m_out.push_back(28);
        PutCard16(m_out, unsigned(value) & 0xffff);
    } else {
        Int5(int32_t(value));
    }
}

void DictWriter::Int5(int32_t value) {
    m_out.push_back(29);
    uint32_t u = uint32_t(value);
    for (int shift = 24; shift >= 0; shift -= 8) m_out.push_back(uint8_t(u >> shift));
}

void DictWriter::Real(double value) {
    if (!std::isfinite(value)) value = 0;
    if (value == std::nearbyint(value) && std::fabs(value) <= 2147483647.0) {
        Int(int64_t(value));
        return;
    }
    Bytes real = EncodeDictReal(value);
    m_out.insert(m_out.end(), real.begin(), real.end());
}

void DictWriter::Op(unsigned op) {
    if (op > 0xff) m_out.push_back(12);
    m_out.push_back(uint8_t(op));
}

Bytes EncodeDictReal(double value) {
    if (!std::isfinite(value)) value = 0;
    char buf[64];
    std::vector<uint8_t> best;
    for (auto format : {std::chars_format::fixed, std::chars_format::scientific}) {
        auto res = std::to_chars(buf, buf + sizeof buf, value, format);
        if (res.ec != std::errc()) continue;
        std::vector<uint8_t> nibbles = NibblesOf(std::string_view(buf, size_t(res.ptr - buf)));
        if (best.empty() || nibbles.size() < best.size()) best = std::move(nibbles);
    }
    if (best.empty()) best = {0, 0xf};
    Bytes out{30};
    for (size_t i = 0; i < best.size(); i += 2) {
        uint8_t hi = best[i], lo = i + 1 < best.size() ? best[i + 1] : 0xf;
        out.push_back(uint8_t(hi << 4 | lo));
    }
    return out;
}

unsigned Type2NumberSize(Fixed value) {
    if (value % kFixedOne == 0) {
        Fixed v = value / kFixedOne;
        if (v >= -107 && v <= 107) return 1;
        if (v >= -1131 && v <= 1131) return 2;
        if (v >= -32768 && v <= 32767) return 3;
    }
    return value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max() ? 5 : 0;
}

bool PutType2Number(Bytes& out, Fixed value) {
    if (value % kFixedOne == 0) {
        Fixed v = value / kFixedOne;
        if (v >= -107 && v <= 107) {
            out.push_back(uint8_t(v + 139));
            return true;
        }
        if (v >= 108 && v <= 1131) {
            v -= 108;
            out.push_back(uint8_t((v >> 8) + 247));
            out.push_back(uint8_t(v));
            return true;
        }
        if (v >= -1131 && v <= -108) {
            v = -v - 108;
            out.push_back(uint8_t((v >> 8) + 251));
            out.push_back(uint8_t(v));
            return true;
        }
        if (v >= -32768 && v <= 32767) {
            out.push_back(28);
            PutCard16(out, unsigned(v) & 0xffff);
            return true;
        }
    }
    if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) return false;
    out.push_back(255);
    uint32_t u = uint32_t(int32_t(value));
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(u >> shift));
    return true;
}


// ---------------------------------------------------------------------------
// Type 2 charstrings

namespace {

// Operators.
enum : unsigned {
    kHstem = 1, kVstem = 3, kVmoveto = 4, kRlineto = 5, kHlineto = 6, kVlineto = 7, kRrcurveto = 8,
    kEndchar = 14, kHstemhm = 18, kHintmask = 19, kVstemhm = 23, kRmoveto = 21, kHmoveto = 22,
    kRcurveline = 24, kRlinecurve = 25, kVvcurveto = 26, kHhcurveto = 27, kVhcurveto = 30, kHvcurveto = 31,
    kHflex = 0x0c00 | 34, kFlex = 0x0c00 | 35, kHflex1 = 0x0c00 | 36, kFlex1 = 0x0c00 | 37,
};
constexpr size_t kMaxArgs = 48;   // the Type 2 argument stack
constexpr size_t kMaxStems = 96;  // hints a Type 2 charstring may declare

// A line (d[0], d[1]) or a curve (d[0..5]) as deltas from the point before.
struct Segment {
    bool curve = false;
    std::array<Fixed, 6> d{};
};

// The ways a stretch of segments can be written, each one operator.
enum class Family : uint8_t { RLine, HLine, VLine, RRCurve, RCurveLine, RLineCurve, HV, VH, HH, VV };

class CharstringWriter {
public:
    CharstringWriter(Bytes& out, std::optional<Fixed> width) : m_out(out), m_width(width) {}

    // Writes `args` and the operator; the width (when still due) goes
    // first if the operator is one that may carry it.
    bool Op(std::vector<Fixed> args, unsigned op, bool takesWidth) {
        if (takesWidth && m_width) {
            args.insert(args.begin(), *m_width);
            m_width.reset();
        }
        for (Fixed v : args)
            if (!PutType2Number(m_out, v)) return false;
        if (op > 0xff) m_out.push_back(12);
        m_out.push_back(uint8_t(op));
        return true;
    }
    void Raw(uint8_t byte) { m_out.push_back(byte); }
    bool WidthDue() const { return m_width.has_value(); }

private:
    Bytes& m_out;
    std::optional<Fixed> m_width;
};

bool Aligned(const Segment& s, bool horizontalStart) { return horizontalStart ? s.d[1] == 0 : s.d[0] == 0; }
// A curve that ends perpendicular to how it started (the end tangent of a
// horizontal-start curve is vertical, dx3 == 0, and the reverse).
bool EndsPerpendicular(const Segment& s, bool horizontalStart) {
    return horizontalStart ? s.d[4] == 0 : s.d[5] == 0;
}

// The operands of `count` segments from `first` written as `family`.
// The caller has checked that the segments fit the family.
std::vector<Fixed> FamilyArgs(Family family, const std::vector<Segment>& segs, size_t first, size_t count) {
    std::vector<Fixed> args;
    for (size_t k = 0; k < count; ++k) {
        const auto& d = segs[first + k].d;
        bool last = k + 1 == count;
        switch (family) {
        case Family::RLine:
        case Family::RRCurve:
        case Family::RCurveLine:
        case Family::RLineCurve:
            args.insert(args.end(), d.begin(), d.begin() + (segs[first + k].curve ? 6 : 2));
            break;
        case Family::HLine:
        case Family::VLine: {
            bool horizontal = (family == Family::HLine) == (k % 2 == 0);
            args.push_back(horizontal ? d[0] : d[1]);
            break;
        }
        case Family::HV:
        case Family::VH: {
            bool horizontal = (family == Family::HV) == (k % 2 == 0);
            if (horizontal) {
                args.insert(args.end(), {d[0], d[2], d[3], d[5]});
                if (last && d[4] != 0) args.push_back(d[4]);
            } else {
                args.insert(args.end(), {d[1], d[2], d[3], d[4]});
                if (last && d[5] != 0) args.push_back(d[5]);
            }
            break;
        }
        case Family::HH:
            if (k == 0 && d[1] != 0) args.push_back(d[1]);
            args.insert(args.end(), {d[0], d[2], d[3], d[4]});
            break;
        case Family::VV:
            if (k == 0 && d[0] != 0) args.push_back(d[0]);
            args.insert(args.end(), {d[1], d[2], d[3], d[5]});
            break;
        }
    }
    return args;
}

unsigned FamilyOp(Family family) {
    switch (family) {
    case Family::RLine: return kRlineto;
    case Family::HLine: return kHlineto;
    case Family::VLine: return kVlineto;
    case Family::RRCurve: return kRrcurveto;
    case Family::RCurveLine: return kRcurveline;
    case Family::RLineCurve: return kRlinecurve;
    case Family::HV: return kHvcurveto;
    case Family::VH: return kVhcurveto;
    case Family::HH: return kHhcurveto;
    case Family::VV: return kVvcurveto;
    }
    return kRlineto;
}

// Writes a run of lines and curves with the fewest bytes: a shortest-path
// search over where each operator starts, trying every operator family
// and length from each position.  Costs are sums of operand sizes, so the
// search only needs running totals.
bool WriteSegments(CharstringWriter& w, const std::vector<Segment>& segs) {
    const size_t n = segs.size();
    constexpr uint64_t kInf = UINT64_MAX / 4;
    std::vector<uint64_t> best(n + 1, kInf);
    std::vector<std::pair<Family, size_t>> choice(n + 1);
    best[n] = 0;
    auto size = [](Fixed v) -> uint64_t {
        unsigned s = Type2NumberSize(v);
        return s ? s : kInf;
    };
    for (size_t i = n; i-- > 0;) {
        auto offer = [&](Family family, size_t count, uint64_t cost) {
            if (cost >= kInf || best[i + count] >= kInf) return;
            cost += 1 + best[i + count];
            if (cost < best[i]) {
                best[i] = cost;
                choice[i] = {family, count};
            }
        };
        // Lines, each with both deltas.
        uint64_t cost = 0;
        for (size_t k = 0; i + k < n && !segs[i + k].curve && 2 * (k + 1) <= kMaxArgs; ++k) {
            cost += size(segs[i + k].d[0]) + size(segs[i + k].d[1]);
            offer(Family::RLine, k + 1, cost);
            // ... then one curve.
            if (i + k + 1 < n && segs[i + k + 1].curve && 2 * (k + 1) + 6 <= kMaxArgs) {
                uint64_t c = cost;
                for (Fixed v : segs[i + k + 1].d) c += size(v);
                offer(Family::RLineCurve, k + 2, c);
            }
        }
        // Alternating horizontal and vertical lines.
        for (bool hStart : {true, false}) {
            cost = 0;
            for (size_t k = 0; i + k < n && !segs[i + k].curve && k + 1 <= kMaxArgs; ++k) {
                bool horizontal = hStart == (k % 2 == 0);
                const auto& d = segs[i + k].d;
                if (horizontal ? d[1] != 0 : d[0] != 0) break;
                cost += size(horizontal ? d[0] : d[1]);
                offer(hStart ? Family::HLine : Family::VLine, k + 1, cost);
            }
        }
        // General curves, optionally followed by one line.
        cost = 0;
        for (size_t k = 0; i + k < n && segs[i + k].curve && 6 * (k + 1) <= kMaxArgs; ++k) {
            for (Fixed v : segs[i + k].d) cost += size(v);
            offer(Family::RRCurve, k + 1, cost);
            if (i + k + 1 < n && !segs[i + k + 1].curve && 6 * (k + 1) + 2 <= kMaxArgs)
                offer(Family::RCurveLine, k + 2, cost + size(segs[i + k + 1].d[0]) + size(segs[i + k + 1].d[1]));
        }
        // Curves whose tangents alternate between horizontal and vertical.
        for (bool hStart : {true, false}) {
            cost = 0;
            for (size_t k = 0; i + k < n && segs[i + k].curve && 4 * (k + 1) <= kMaxArgs; ++k) {
                bool horizontal = hStart == (k % 2 == 0);
                const auto& s = segs[i + k];
                if (!Aligned(s, horizontal)) break;
                const auto& d = s.d;
                cost += horizontal ? size(d[0]) + size(d[2]) + size(d[3]) + size(d[5])
                                   : size(d[1]) + size(d[2]) + size(d[3]) + size(d[4]);
                Family family = hStart ? Family::HV : Family::VH;
                if (EndsPerpendicular(s, horizontal)) {
                    offer(family, k + 1, cost);
                    continue;
                }
                if (4 * (k + 1) + 1 <= kMaxArgs) offer(family, k + 1, cost + size(horizontal ? d[4] : d[5]));
                break;
            }
        }
        // Curves that all start and end horizontal (or vertical), the
        // first of them allowed an off-axis start.
        for (bool horizontal : {true, false}) {
            const auto& first = segs[i].d;
            Fixed lead = horizontal ? first[1] : first[0];
            cost = lead != 0 ? size(lead) : 0;
            size_t argc = lead != 0 ? 1 : 0;
            for (size_t k = 0; i + k < n && segs[i + k].curve && argc + 4 <= kMaxArgs; ++k, argc += 4) {
                const auto& d = segs[i + k].d;
                if (horizontal ? d[5] != 0 : d[4] != 0) break;
                if (k > 0 && (horizontal ? d[1] != 0 : d[0] != 0)) break;
                cost += horizontal ? size(d[0]) + size(d[2]) + size(d[3]) + size(d[4])
                                   : size(d[1]) + size(d[2]) + size(d[3]) + size(d[5]);
                offer(horizontal ? Family::HH : Family::VV, k + 1, cost);
            }
        }
        if (best[i] >= kInf) return false;
    }
    for (size_t i = 0; i < n;) {
        auto [family, count] = choice[i];
        if (!w.Op(FamilyArgs(family, segs, i, count), FamilyOp(family), false)) return false;
        i += count;
    }
    return true;
}

// Writes the two curves of a flex, using the short forms when the curves
// meet their conditions exactly and the flex depth is the default 50.
bool WriteFlex(CharstringWriter& w, const std::array<Fixed, 12>& d, Fixed depth) {
    const Fixed kDefaultDepth = 50 * kFixedOne;
    if (depth == kDefaultDepth) {
        if (d[1] == 0 && d[5] == 0 && d[7] == 0 && d[9] == -d[3] && d[11] == 0)
            return w.Op({d[0], d[2], d[3], d[4], d[6], d[8], d[10]}, kHflex, false);
        if (d[5] == 0 && d[7] == 0 && d[1] + d[3] + d[9] + d[11] == 0)
            return w.Op({d[0], d[1], d[2], d[3], d[4], d[6], d[8], d[9], d[10]}, kHflex1, false);
        Fixed sx = d[0] + d[2] + d[4] + d[6] + d[8], sy = d[1] + d[3] + d[5] + d[7] + d[9];
        bool lastIsX = (sx < 0 ? -sx : sx) > (sy < 0 ? -sy : sy);
        if (lastIsX ? sy + d[11] == 0 : sx + d[10] == 0)
            return w.Op({d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7], d[8], d[9], lastIsX ? d[10] : d[11]},
                        kFlex1, false);
    }
    std::vector<Fixed> args(d.begin(), d.end());
    args.push_back(depth);
    return w.Op(std::move(args), kFlex, false);
}

// Declares stems sorted and relative to each other, in as many operators
// as the argument stack needs.  The first value of each operator is
// relative to 0.
bool WriteStems(CharstringWriter& w, const std::vector<Stem>& stems, unsigned op) {
    size_t done = 0;
    while (done < stems.size()) {
        size_t room = (kMaxArgs - (w.WidthDue() ? 1 : 0)) / 2;
        size_t take = std::min(room, stems.size() - done);
        std::vector<Fixed> args;
        Fixed edge = 0;
        for (size_t i = done; i < done + take; ++i) {
            args.push_back(stems[i].pos - edge);
            args.push_back(stems[i].width);
            edge = stems[i].pos + stems[i].width;
        }
        done += take;
        if (!w.Op(std::move(args), op, true)) return false;
    }
    return true;
}

// Every stem of every group, once.  Sorted when no two of them overlap.
// Overlapping stems stay in the order they first appear: a renderer keeps
// the first of two overlapping hints it meets, and builds its first hint
// map from every declared stem, so this order keeps the hints the source
// glyph starts with.
std::vector<Stem> DeclarationOrder(const std::vector<HintGroup>& groups, std::vector<Stem> HintGroup::*member) {
    std::vector<Stem> order;
    for (const auto& g : groups)
        for (const auto& s : g.*member)
            if (std::find(order.begin(), order.end(), s) == order.end()) {
                order.push_back(s);
                if (order.size() > kMaxStems) return order;  // too many: the caller gives up
            }
    struct Span {
        Fixed lo, hi;
        bool operator<(const Span& o) const { return lo < o.lo; }
    };
    std::vector<Span> spans;
    for (const auto& s : order) spans.push_back({std::min(s.pos, s.pos + s.width), std::max(s.pos, s.pos + s.width)});
    std::sort(spans.begin(), spans.end());
    for (size_t i = 1; i < spans.size(); ++i)
        if (spans[i].lo <= spans[i - 1].hi) return order;
    std::sort(order.begin(), order.end(), [](const Stem& a, const Stem& b) {
        return std::min(a.pos, a.pos + a.width) < std::min(b.pos, b.pos + b.width);
    });
    return order;
}

}  // namespace

bool WriteType2Charstring(const Type2Glyph& glyph, Fixed defaultWidth, Fixed nominalWidth, Bytes& out,
                          std::string& error) {
    std::optional<Fixed> width;
    if (glyph.width != defaultWidth) width = glyph.width - nominalWidth;
    CharstringWriter w(out, width);

    std::vector<Stem> hs = DeclarationOrder(glyph.groups, &HintGroup::h);
    std::vector<Stem> vs = DeclarationOrder(glyph.groups, &HintGroup::v);
    if (hs.size() + vs.size() > kMaxStems) {
        error = "more than 96 stem hints";
        return false;
    }
    const bool masks = glyph.groups.size() > 1 && !(hs.empty() && vs.empty());
    auto writeMask = [&](uint32_t group) {
        std::vector<uint8_t> bits((hs.size() + vs.size() + 7) / 8, 0);
        auto set = [&](size_t k) { bits[k / 8] |= uint8_t(0x80 >> (k % 8)); };
        if (group < glyph.groups.size()) {
            const auto& g = glyph.groups[group];
            for (const auto& s : g.h) set(size_t(std::find(hs.begin(), hs.end(), s) - hs.begin()));
            for (const auto& s : g.v) set(hs.size() + size_t(std::find(vs.begin(), vs.end(), s) - vs.begin()));
        }
        for (uint8_t b : bits) w.Raw(b);
    };
    auto fail = [&](const char* why) {
        error = why;
        return false;
    };
    if (!WriteStems(w, hs, masks ? kHstemhm : kHstem)) return fail("stem value out of range");
    if (masks) {
        // Vertical stems between the horizontal ones and a hintmask need no
        // operator of their own, as long as one operator holds them.
        if (!hs.empty() && !vs.empty() && !w.WidthDue() && vs.size() * 2 <= kMaxArgs) {
            std::vector<Fixed> args;
            Fixed edge = 0;
            for (const auto& s : vs) {
                args.push_back(s.pos - edge);
                args.push_back(s.width);
                edge = s.pos + s.width;
            }
            if (!w.Op(std::move(args), kHintmask, false)) return fail("stem value out of range");
        } else {
            if (!WriteStems(w, vs, kVstemhm)) return fail("stem value out of range");
            if (!w.Op({}, kHintmask, true)) return fail("width out of range");
        }
        writeMask(0);
    } else if (!WriteStems(w, vs, kVstem)) {
        return fail("stem value out of range");
    }

    Point cur;
    std::optional<Point> pendingMove;
    std::vector<Segment> run;
    auto delta = [](Fixed to, Fixed from) { return to - from; };
    auto flushRun = [&]() {
        if (run.empty()) return true;
        bool ok = WriteSegments(w, run);
        run.clear();
        return ok;
    };
    auto flushMove = [&]() {
        if (!pendingMove) return true;
        Fixed dx = delta(pendingMove->x, cur.x), dy = delta(pendingMove->y, cur.y);
        cur = *pendingMove;
        pendingMove.reset();
        if (dy == 0) return w.Op({dx}, kHmoveto, true);
        if (dx == 0) return w.Op({dy}, kVmoveto, true);
        return w.Op({dx, dy}, kRmoveto, true);
    };
    for (const auto& op : glyph.ops) {
        switch (op.kind) {
        case PathOpKind::Move:
            if (!flushRun()) return fail("coordinate out of range");
            pendingMove = op.pts[0];
            break;
        case PathOpKind::Mask:
            if (!flushRun() || !flushMove()) return fail("coordinate out of range");
            if (masks) {
                if (!w.Op({}, kHintmask, true)) return fail("width out of range");
                writeMask(op.group);
            }
            break;
        case PathOpKind::Line:
        case PathOpKind::Curve: {
            if (!flushMove()) return fail("coordinate out of range");
            Segment s;
            s.curve = op.kind == PathOpKind::Curve;
            for (int k = 0; k < (s.curve ? 3 : 1); ++k) {
                s.d[2 * k] = delta(op.pts[k].x, cur.x);
                s.d[2 * k + 1] = delta(op.pts[k].y, cur.y);
                cur = op.pts[k];
            }
            run.push_back(s);
            break;
        }
        case PathOpKind::Flex: {
            if (!flushRun() || !flushMove()) return fail("coordinate out of range");
            std::array<Fixed, 12> d;
            for (int k = 0; k < 6; ++k) {
                d[2 * k] = delta(op.pts[k].x, cur.x);
                d[2 * k + 1] = delta(op.pts[k].y, cur.y);
                cur = op.pts[k];
            }
            if (!WriteFlex(w, d, op.flexDepth)) return fail("coordinate out of range");
            break;
        }
        }
    }
    if (!flushRun()) return fail("coordinate out of range");
    std::vector<Fixed> endArgs;
    if (glyph.seac)
        endArgs = {glyph.seacAdx, glyph.seacAdy, Fixed(glyph.seacBase) * kFixedOne,
                   Fixed(glyph.seacAccent) * kFixedOne};
    if (!w.Op(std::move(endArgs), kEndchar, true)) return fail("accent offset out of range");
    return true;
}

}  // namespace fonts::cff
