// Operands read from a content stream.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

enum class ContentTokenKind : unsigned char {
    Array,
    Dictionary,  // elements alternate key (a Name) and value
    Name,        // text: the decoded name, without the slash
    String,      // text: the decoded bytes (literal or hexadecimal in the source)
    Integer,     // text: the number as it was read
    Real,        // text: the number as it was read
    Boolean,     // text: "true" or "false"
    Null,
    InlineImageData,  // text: the raw bytes between ID and EI
};

struct ContentToken {
    ContentTokenKind kind = ContentTokenKind::Null;
    bool hex = false;       // a string written in hexadecimal in the source
    bool boolValue = false;
    double number = 0;      // Integer and Real
    std::string text;
    std::vector<ContentToken> elements;  // Array and Dictionary

    bool IsNumber() const { return kind == ContentTokenKind::Integer || kind == ContentTokenKind::Real; }
    bool IsName() const { return kind == ContentTokenKind::Name; }
    bool IsName(std::string_view n) const { return kind == ContentTokenKind::Name && text == n; }
    bool IsString() const { return kind == ContentTokenKind::String; }
    bool IsArray() const { return kind == ContentTokenKind::Array; }
    bool IsDictionary() const { return kind == ContentTokenKind::Dictionary; }

    // A Dictionary's value for `key` (also trying `alt`), or null.
    const ContentToken* Find(std::string_view key, std::string_view alt = {}) const {
        if (kind != ContentTokenKind::Dictionary) return nullptr;
        for (size_t i = 0; i + 1 < elements.size(); i += 2) {
            const ContentToken& k = elements[i];
            if (k.kind == ContentTokenKind::Name && (k.text == key || (!alt.empty() && k.text == alt)))
                return &elements[i + 1];
        }
        return nullptr;
    }

    static ContentToken MakeName(std::string_view n) {
        ContentToken t;
        t.kind = ContentTokenKind::Name;
        t.text = n;
        return t;
    }
    // A number from the writer's own arithmetic, in default formatting.
    static ContentToken MakeNumber(double v);
};

// The operands read since the last operator, in stream order.
using OperandStack = std::vector<ContentToken>;

// A 2-D affine matrix [a b c d e f] as PDF writes it.
struct ContentMatrix {
    double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;

    // this x other: applying `this` first, then `other` (PDF's cm order:
    // new CTM = M x CTM).
    ContentMatrix Times(const ContentMatrix& o) const {
        return {a * o.a + b * o.c,       a * o.b + b * o.d,       c * o.a + d * o.c,
                c * o.b + d * o.d,       e * o.a + f * o.c + o.e, e * o.b + f * o.d + o.f};
    }
    void Apply(double x, double y, double& ox, double& oy) const {
        ox = a * x + c * y + e;
        oy = b * x + d * y + f;
    }
    bool operator==(const ContentMatrix&) const = default;
};
