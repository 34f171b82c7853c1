// The content writer: builds content-stream text for the rewriting handlers
// and for new marks that page operations draw (stamps, rectangles, text in a
// named colour, opacity, spot colours).
//
// Every operator the writer emits is followed by the one-blank operator
// separator, so generated content runs on one line; only the templates that
// spell a newline themselves (h, q, Q, W n, the BT/Tj/ET block) end in one.
// Resources that the emitted operators need (an extended graphics state for
// opacity, a separation colour space for a spot colour) are entered in the
// resource dictionary handed to the writer, under a generated name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "pdfcore/CosObj.h"

struct ContentToken;

// Written after every operator emitted through a template's last placeholder.
extern const char* const OperatorSeparator;

// Fixed-point text of `value` with at most `precision` decimals (0 to 6),
// trailing zeros removed; "0" for magnitudes below 1.5e-5; whole numbers
// only from 32768 up.
std::string FormatReal(double value, int precision);

// `value` in `radix` (2 to 16) with the digits "0123456789ABCDEF"; a minus
// sign for negative values.
std::string IntToText(int64_t value, int radix = 10);

// The text a default-formatted output stream gives a double (six
// significant digits, no trailing zeros).
std::string FormatDefault(double value);

class ContentWriter {
public:
    // `resources` receives generated resources; it may be null when the
    // caller never asks for opacity or spot colours.
    explicit ContentWriter(CosObj resources = CosNewNull()) : m_resources(resources) {}

    // ------------------------------------------------------------ output
    const std::string& Text() const { return m_text; }
    std::string TakeText() { return std::move(m_text); }
    void Clear() { m_text.clear(); }
    size_t Size() const { return m_text.size(); }
    void Reserve(size_t n) { m_text.reserve(n); }
    // Appends raw content text as it is.
    void Append(std::string_view text) { if (m_enabled) m_text.append(text); }
    // An analysing handler switches output off: nothing is appended.
    void SetEnabled(bool enabled) { m_enabled = enabled; }
    bool Enabled() const { return m_enabled; }

    CosObj Resources() const { return m_resources; }
    void SetResources(CosObj resources) { m_resources = resources; }

    // ------------------------------------------------------------ tokens
    // Appends an operand as it was read, followed by one blank.
    void WriteOperand(const ContentToken& token);
    // Appends an operator followed by the separator.
    void WriteOperator(std::string_view op);
    // The compact text of one token (no trailing blank).
    static void AppendToken(std::string& out, const ContentToken& token);
    static void AppendName(std::string& out, std::string_view name);
    // A string in the shorter of literal and hexadecimal form.
    static void AppendString(std::string& out, std::string_view bytes);

    // ------------------------------------------------------------ drawing
    void MoveTo(double x, double y);
    void LineTo(double x, double y);
    void CurveTo(double x1, double y1, double x2, double y2, double x3, double y3);
    void ClosePath();
    void Rectangle(double x, double y, double width, double height);
    void SetLineWidth(double width);
    // 0 S, 1 f, 2 f*, 3 B, 4 B*, 5 n; any other mode writes nothing.
    void PaintPath(int mode);
    void Clip(bool evenOdd);
    void SaveState();
    void RestoreState();
    void DrawXObject(std::string_view resourceName);
    void SetFont(std::string_view resourceName, double size);
    void ShowText(std::string_view bytes);
    void SetGray(double gray, bool fill);
    void SetRGB(double r, double g, double b, bool fill);
    void SetCMYK(double c, double m, double y, double k, bool fill);
    // One of the sixteen basic colour names or "#RRGGBB"; "none" is refused
    // with a console message and writes nothing; other texts give black.
    void SetNamedColor(std::string_view color, bool fill);
    void SetSpotColor(std::string_view colorant, double c, double m, double y, double k, double tint,
                      bool fill);
    // Writes "/TMRGSn gs" for an extended graphics state setting `key` (the
    // fill alpha "ca" unless the caller names the stroke alpha "CA") to
    // `opacity`; nothing at all for an opacity of exactly 1.
    void SetOpacity(double opacity, std::string_view key = "ca");

    // Drawing state.
    double CurrentX() const { return m_curX; }
    double CurrentY() const { return m_curY; }
    double SubpathX() const { return m_startX; }
    double SubpathY() const { return m_startY; }
    double Opacity() const { return m_opacity; }
    double LineWidth() const { return m_lineWidth; }

    // The first name `prefix` + n (n counting up from 1) absent from the
    // category `category` of `resources`.
    static std::string FreeResourceName(CosObj resources, ASAtom category, std::string_view prefix);
    // Enters `value` under a generated name in the category (created when
    // missing) and returns the name.
    static std::string AddResource(CosObj resources, ASAtom category, std::string_view prefix,
                                   CosObj value);

private:
    std::string m_text;
    CosObj m_resources;
    bool m_enabled = true;
    double m_curX = 0, m_curY = 0, m_startX = 0, m_startY = 0;
    double m_opacity = 1.0;
    double m_lineWidth = 1.0;
    // Generated resources already made by this writer, by their source text,
    // so repeating an opacity or spot colour reuses its resource.
    std::map<std::string, std::string> m_made;
};
