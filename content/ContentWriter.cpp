#include "content/ContentWriter.h"

#include <cmath>
#include <cstdio>
#include <sstream>

#include <boost/format.hpp>

#include "content/ContentToken.h"
#include "pdfcore/CosDoc.h"

const char* const OperatorSeparator = " ";

namespace {

const ASAtom K_ExtGState = ASAtomFromString("ExtGState");
const ASAtom K_ColorSpace = ASAtomFromString("ColorSpace");

const double kPowersOfTen[7] = {1, 10, 100, 1000, 10000, 100000, 1000000};

bool IsRegularByte(unsigned char c) {
    if (c < 0x21 || c > 0x7E) return false;
    switch (c) {
        case '(': case ')': case '<': case '>': case '[': case ']':
        case '{': case '}': case '/': case '%': case '#':
            return false;
        default:
            return true;
    }
}

}  // namespace

std::string FormatReal(double value, int precision) {
    if (precision < 0) precision = 0;
    if (precision > 6) precision = 6;
    if (!std::isfinite(value)) return "0";
    if (value == 0 || std::fabs(value) < 1.5e-5) return "0";
    if (value < 0) {
        std::string mag = FormatReal(-value, precision);
        return mag == "0" ? mag : "-" + mag;
    }
    if (value >= 32768) {
        if (value >= 9.2e18) value = 9.2e18;
        return std::to_string(static_cast<int64_t>(value + 0.5));
    }
    int64_t i = static_cast<int64_t>(value);
    double frac = value - static_cast<double>(i);
    int64_t scale = static_cast<int64_t>(kPowersOfTen[precision]);
    int64_t f = static_cast<int64_t>(std::floor(frac * kPowersOfTen[precision] + 0.5));
    if (f >= scale) {
        ++i;
        f = 0;
    }
    if (i == 0 && f == 0) return "0";
    std::string out = std::to_string(i);
    if (f == 0) return out;
    std::string digits = std::to_string(f);
    digits.insert(0, static_cast<size_t>(precision) - digits.size(), '0');
    while (!digits.empty() && digits.back() == '0') digits.pop_back();
    return out + "." + digits;
}

std::string IntToText(int64_t value, int radix) {
    static const char kDigits[] = "0123456789ABCDEF";
    if (radix < 2 || radix > 16) radix = 10;
    bool negative = value < 0;
    uint64_t v = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char buf[72];
    int pos = sizeof(buf);
    do {
        buf[--pos] = kDigits[v % static_cast<uint64_t>(radix)];
        v /= static_cast<uint64_t>(radix);
    } while (v != 0);
    if (negative) buf[--pos] = '-';
    return std::string(buf + pos, sizeof(buf) - static_cast<size_t>(pos));
}

std::string FormatDefault(double value) {
    std::ostringstream s;
    s << value;
    std::string text = s.str();
    // PDF numbers have no exponent: 2.6e+10 would read as 2.6 and an
    // operator "e+10".  Very large and very small values are written out.
    if (text.find_first_of("eEn") != std::string::npos) text = FormatReal(value, 6);
    return text;
}

ContentToken ContentToken::MakeNumber(double v) {
    ContentToken t;
    t.number = v;
    t.text = FormatDefault(v);
    t.kind = (v == std::floor(v) && std::fabs(v) < 2e9) ? ContentTokenKind::Integer
                                                          : ContentTokenKind::Real;
    return t;
}

// ---------------------------------------------------------------- tokens

void ContentWriter::AppendName(std::string& out, std::string_view name) {
    static const char kHex[] = "0123456789ABCDEF";
    out.push_back('/');
    for (unsigned char c : name) {
        if (IsRegularByte(c)) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('#');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
    }
}

void ContentWriter::AppendString(std::string& out, std::string_view bytes) {
    // A literal string costs n + 2 bytes plus one per escaped byte, a
    // hexadecimal one 2n + 2, so the literal form is never the longer one:
    // every string is written literally, binary bytes as they are.  Only
    // the bytes a reader would take otherwise are escaped: the parentheses,
    // the backslash and the carriage return (which reads as a newline).
    out.reserve(out.size() + bytes.size() + 2);
    out.push_back('(');
    for (char ch : bytes) {
        switch (ch) {
            case '(': out.append("\\("); break;
            case ')': out.append("\\)"); break;
            case '\\': out.append("\\\\"); break;
            case '\r': out.append("\\r"); break;
            default: out.push_back(ch);
        }
    }
    out.push_back(')');
}

void ContentWriter::AppendToken(std::string& out, const ContentToken& t) {
    switch (t.kind) {
        case ContentTokenKind::Name:
            AppendName(out, t.text);
            break;
        case ContentTokenKind::String:
            AppendString(out, t.text);
            break;
        case ContentTokenKind::Integer:
        case ContentTokenKind::Real:
        case ContentTokenKind::Boolean:
            out.append(t.text);
            break;
        case ContentTokenKind::Null:
            out.append("null");
            break;
        case ContentTokenKind::InlineImageData:
            out.append(t.text);
            break;
        case ContentTokenKind::Array:
            out.push_back('[');
            for (size_t i = 0; i < t.elements.size(); ++i) {
                if (i) out.push_back(' ');
                AppendToken(out, t.elements[i]);
            }
            out.push_back(']');
            break;
        case ContentTokenKind::Dictionary:
            out.append("<<");
            for (size_t i = 0; i < t.elements.size(); ++i) {
                if (i) out.push_back(' ');
                AppendToken(out, t.elements[i]);
            }
            out.append(">>");
            break;
    }
}

void ContentWriter::WriteOperand(const ContentToken& token) {
    if (!m_enabled) return;
    AppendToken(m_text, token);
    m_text.push_back(' ');
}

void ContentWriter::WriteOperator(std::string_view op) {
    if (!m_enabled) return;
    m_text.append(op);
    m_text.append(OperatorSeparator);
}

// ---------------------------------------------------------------- drawing

void ContentWriter::MoveTo(double x, double y) {
    Append((boost::format("%1% %2% m%3%") % x % y % OperatorSeparator).str());
    m_curX = m_startX = x;
    m_curY = m_startY = y;
}

void ContentWriter::LineTo(double x, double y) {
    Append((boost::format("%1% %2% l%3%") % x % y % OperatorSeparator).str());
    m_curX = x;
    m_curY = y;
}

void ContentWriter::CurveTo(double x1, double y1, double x2, double y2, double x3, double y3) {
    Append((boost::format("%1% %2% %3% %4% %5% %6% c%7%") % x1 % y1 % x2 % y2 % x3 % y3 %
            OperatorSeparator).str());
    m_curX = x3;
    m_curY = y3;
}

void ContentWriter::ClosePath() {
    Append("h\n");
    m_curX = m_startX;
    m_curY = m_startY;
}

void ContentWriter::Rectangle(double x, double y, double width, double height) {
    Append((boost::format("%1% %2% %3% %4% re%5%") % x % y % width % height % OperatorSeparator).str());
    m_curX = m_startX = x;
    m_curY = m_startY = y;
}

void ContentWriter::SetLineWidth(double width) {
    Append((boost::format("%1% w%2%") % width % OperatorSeparator).str());
    m_lineWidth = width;
}

void ContentWriter::PaintPath(int mode) {
    static const char* const kOps[] = {"S", "f", "f*", "B", "B*", "n"};
    if (mode < 0 || mode > 5) return;
    Append(kOps[mode]);
    Append(OperatorSeparator);
}

void ContentWriter::Clip(bool evenOdd) {
    Append(evenOdd ? "W*" : "W");
    Append(" n\n");
}

void ContentWriter::SaveState() { Append("q\n"); }
void ContentWriter::RestoreState() { Append("Q\n"); }

void ContentWriter::DrawXObject(std::string_view resourceName) {
    std::string name;
    AppendName(name, resourceName);
    Append((boost::format("%1% Do%2%") % name % OperatorSeparator).str());
}

void ContentWriter::SetFont(std::string_view resourceName, double size) {
    std::string name;
    AppendName(name, resourceName);
    Append((boost::format("%1% %2% Tf%3%") % name % size % OperatorSeparator).str());
}

void ContentWriter::ShowText(std::string_view bytes) {
    std::string text = "BT\n(";
    for (char ch : bytes) {
        switch (ch) {
            case '\n': text += "\\n"; break;
            case '\r': text += "\\r"; break;
            case '\t': text += "\\t"; break;
            case '\b': text += "\\b"; break;
            case '\f': text += "\\f"; break;
            case '(': text += "\\("; break;
            case ')': text += "\\)"; break;
            case '\\': text += "\\\\"; break;
            default: text.push_back(ch);
        }
    }
    text += ") Tj\nET\n";
    Append(text);
}

void ContentWriter::SetColorText(std::string text, bool fill) {
    Append(text);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    (fill ? m_fill : m_stroke) = std::move(text);
}

void ContentWriter::SetGray(double gray, bool fill) {
    SetColorText((boost::format("%1% %2%%3%") % gray % (fill ? "g" : "G") % OperatorSeparator).str(), fill);
}

void ContentWriter::SetRGB(double r, double g, double b, bool fill) {
    SetColorText((boost::format("%1% %2% %3% %4%%5%") % r % g % b % (fill ? "rg" : "RG") %
                  OperatorSeparator).str(),
                 fill);
}

void ContentWriter::SetCMYK(double c, double m, double y, double k, bool fill) {
    SetColorText((boost::format("%1% %2% %3% %4% %5%%6%") % c % m % y % k % (fill ? "k" : "K") %
                  OperatorSeparator).str(),
                 fill);
}

void ContentWriter::SetNamedColor(std::string_view color, bool fill) {
    static const char* const kNames[16][2] = {
        {"black", "#000000"}, {"silver", "#C0C0C0"}, {"gray", "#808080"},    {"white", "#FFFFFF"},
        {"maroon", "#800000"}, {"red", "#FF0000"},   {"purple", "#800080"},  {"fuchsia", "#FF00FF"},
        {"green", "#008000"}, {"lime", "#00FF00"},   {"olive", "#808000"},   {"yellow", "#FFFF00"},
        {"navy", "#000080"},  {"blue", "#0000FF"},   {"teal", "#008080"},    {"aqua", "#00FFFF"},
    };
    if (color == "none") {
        std::printf("'none' is not a valid color\n");
        return;
    }
    std::string value = "#000000";
    bool named = false;
    for (const auto& entry : kNames) {
        if (color == entry[0]) {
            value = entry[1];
            named = true;
            break;
        }
    }
    auto hexDigit = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    // A colour may also be spelled directly as a hash sign and six digits.
    if (!named && color.size() == 7 && color[0] == '#') {
        bool ok = true;
        for (size_t i = 1; i < 7; ++i) ok = ok && hexDigit(color[i]) >= 0;
        if (ok) value = color;
    }
    double comp[3];
    for (int i = 0; i < 3; ++i) {
        int v = hexDigit(value[1 + 2 * i]) * 16 + hexDigit(value[2 + 2 * i]);
        comp[i] = v * 0.00392156862745098;
    }
    SetRGB(comp[0], comp[1], comp[2], fill);
}

std::string ContentWriter::FreeResourceName(CosObj resources, ASAtom category, std::string_view prefix) {
    CosObj cat = CosObjIsNull(resources) ? CosNewNull() : CosDictGet(resources, category);
    for (int64_t n = 1;; ++n) {
        std::string name = std::string(prefix) + IntToText(n, 10);
        ASAtom atom = ASAtomFind(name);
        if (atom == ASAtomNull || CosObjGetType(cat) != kCosDict || !CosDictKnown(cat, atom)) return name;
    }
}

std::string ContentWriter::AddResource(CosObj resources, ASAtom category, std::string_view prefix,
                                       CosObj value) {
    CosObj cat = CosDictGet(resources, category);
    if (CosObjGetType(cat) != kCosDict) {
        cat = CosNewDict(CosObjGetDoc(resources), false);
        CosDictPut(resources, category, cat);
    }
    std::string name = FreeResourceName(resources, category, prefix);
    CosDictPut(cat, ASAtomFromString(name), value);
    return name;
}

void ContentWriter::SetSpotColor(std::string_view colorant, double c, double m, double y, double k,
                                 double tint, bool fill) {
    std::string colorantName;
    AppendName(colorantName, colorant);
    colorantName.erase(0, 1);
    std::string cmyk = (boost::format("%1% %2% %3% %4%") % c % m % y % k).str();
    std::string spaceText =
        (boost::format("/Separation /%1% /%2% << /FunctionType 2 /Domain [ 0 1 ] /Range [ 0 1 0 1 0 1 "
                       "0 1 ] /C0 [ 0 0 0 0 ] /C1 [ %3% ] /N 1 >>") %
         colorantName % "DeviceCMYK" % cmyk).str();
    std::string name;
    auto it = m_made.find(spaceText);
    if (it != m_made.end()) {
        name = it->second;
    } else {
        if (CosObjGetType(m_resources) != kCosDict) return;
        std::string arrayText = "[ " + spaceText + " ]";
        CosObj space = CosParseObjectFromBuffer(CosObjGetDoc(m_resources), arrayText.data(), arrayText.size());
        name = AddResource(m_resources, K_ColorSpace, "TMRCS", space);
        m_made[spaceText] = name;
    }
    SetColorText((boost::format("/%1% %2% %3% %4%%5%") % name % (fill ? "cs" : "CS") % tint %
                  (fill ? "scn" : "SCN") % OperatorSeparator).str(),
                 fill);
}

void ContentWriter::SetOpacity(double opacity, std::string_view key) {
    m_opacity = opacity;
    if (opacity == 1.0) return;
    std::string entries =
        (boost::format("/Type /ExtGState /%1% %2%") % key % FormatReal(opacity, 4)).str();
    std::string name;
    auto it = m_made.find(entries);
    if (it != m_made.end()) {
        name = it->second;
    } else {
        if (CosObjGetType(m_resources) != kCosDict) return;
        std::string dictText = "<< " + entries + " >>";
        CosObj gs = CosParseObjectFromBuffer(CosObjGetDoc(m_resources), dictText.data(), dictText.size());
        name = AddResource(m_resources, K_ExtGState, "TMRGS", gs);
        m_made[entries] = name;
    }
    Append((boost::format("/%1% gs%2%") % name % OperatorSeparator).str());
}
