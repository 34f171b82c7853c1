// A small in-memory XML model for settings files, file lists and XMP packets.
//
// Elements are `node`s held through shared pointers (a parent owns its
// children).  Parsing builds the tree from expat's callbacks; an element's
// character data are concatenated into its value and trimmed of the five
// whitespace characters " \t\n\r\v" when the element ends.  Writing escapes
// only '<' and '&'.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace domLite {

class parse_exception : public std::runtime_error {
public:
    explicit parse_exception(const std::string& message) : std::runtime_error(message) {}
};

class node;
typedef std::shared_ptr<node> node_ptr;

class node {
public:
    node() = default;
    explicit node(const std::string& name) : m_name(name) {}
    node(const std::string& name, const std::string& value) : m_name(name), m_value(value) {}
    node(const std::string& name, const char* value) : m_name(name), m_value(value ? value : "") {}
    // Typed constructors: "true"/"false", decimal text.
    node(const std::string& name, bool value);
    node(const std::string& name, int value);

    const std::string& name() const { return m_name; }
    void set_name(const std::string& name) { m_name = name; }
    const std::string& value() const { return m_value; }
    void set_value(const std::string& value) { m_value = value; }
    void append_value(const char* text, size_t length) { m_value.append(text, length); }

    const std::vector<node_ptr>& children() const { return m_children; }
    std::vector<node_ptr>& children() { return m_children; }
    // First child with this name, or null.
    node_ptr find_child(const std::string& name) const;
    node_ptr append_child(node_ptr child);
    // Appends a new child and returns it.
    node_ptr add_child(const std::string& name, const std::string& value = std::string());

    const std::map<std::string, std::string>& attributes() const { return m_attributes; }
    std::map<std::string, std::string>& attributes() { return m_attributes; }
    bool has_attribute(const std::string& name) const { return m_attributes.count(name) != 0; }
    // The attribute's text; "" when absent.
    std::string attribute(const std::string& name) const;
    void set_attribute(const std::string& name, const std::string& value) { m_attributes[name] = value; }
    void set_attribute(const std::string& name, int value);
    void set_attribute(const std::string& name, double value);  // shortest "C"-locale text
    void set_attribute(const std::string& name, bool value);
    void set_attribute(const std::string& name, const char* value) { m_attributes[name] = value ? value : ""; }

    // Set by the typed constructors.
    bool is_bool() const { return m_isBool; }
    bool is_int() const { return m_isInt; }

    // Processing instructions written just before the element
    // ("target data" each, without "<?" and "?>").
    std::vector<std::string>& processing() { return m_processing; }
    const std::vector<std::string>& processing() const { return m_processing; }

private:
    std::string m_name;
    std::string m_value;
    std::vector<node_ptr> m_children;
    std::map<std::string, std::string> m_attributes;
    bool m_isBool = false;
    bool m_isInt = false;
    std::vector<std::string> m_processing;
};

// Text of a number in the "C" locale, as short as it reads back exactly.
std::string format_number(double value);

class document {
public:
    document() = default;
    explicit document(node_ptr root) : m_root(std::move(root)) {}

    node_ptr root() const { return m_root; }
    void set_root(node_ptr root) { m_root = std::move(root); }

    const std::string& version() const { return m_version; }
    const std::string& encoding() const { return m_encoding; }
    void set_version(const std::string& v) { m_version = v; }
    void set_encoding(const std::string& e) { m_encoding = e; }
    // Asks for the XMP packet wrapper; it replaces the declaration only when
    // the version or the encoding is empty.
    bool xmp_packet() const { return m_xmpPacket; }
    void set_xmp_packet(bool packet) { m_xmpPacket = packet; }

    void write(std::ostream& out) const;
    std::string to_string() const;
    // Throws std::runtime_error when the file cannot be written.
    void write_file(const std::string& path) const;

private:
    node_ptr m_root;
    std::string m_version = "1.0";
    std::string m_encoding = "UTF-8";
    bool m_xmpPacket = false;
};

// Writes `text` with '<' as "&lt;" and '&' as "&amp;".
void write_escaped(std::ostream& out, const std::string& text);

class parser {
public:
    // Limits that keep hostile input bounded.
    static constexpr size_t kDefaultMaxInput = size_t(64) << 20;
    static constexpr int kDefaultMaxDepth = 256;

    parser() = default;
    void set_max_input(size_t bytes) { m_maxInput = bytes; }
    void set_max_depth(int depth) { m_maxDepth = depth; }

    // Both throw parse_exception on any failure (a file that cannot be read
    // too).  The declaration's version and encoding are kept in the document.
    document parse_file(const std::string& path) const;
    document parse_buffer(const char* data, size_t length) const;
    document parse_string(const std::string& text) const { return parse_buffer(text.data(), text.size()); }

private:
    size_t m_maxInput = kDefaultMaxInput;
    int m_maxDepth = kDefaultMaxDepth;
};

}  // namespace domLite
