// The XML model: building a tree from expat and writing it back.
#include "settings/domLite/domLite.h"

#include <expat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace domLite {

namespace {

bool IsTrimmed(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v'; }

std::string Trim(const std::string& text) {
    size_t b = 0;
    size_t e = text.size();
    while (b < e && IsTrimmed(text[b])) ++b;
    while (e > b && IsTrimmed(text[e - 1])) --e;
    return text.substr(b, e - b);
}

// The state the expat callbacks share while one document is parsed.
struct BuildState {
    XML_Parser parser = nullptr;
    std::vector<node_ptr> stack;
    node_ptr root;
    document* doc = nullptr;
    int maxDepth = 0;
    std::string abortReason;  // set when a callback stopped the parse

    void Abort(const char* reason) {
        if (abortReason.empty()) abortReason = reason;
        XML_StopParser(parser, XML_FALSE);
    }
};

void XMLCALL OnStart(void* data, const XML_Char* name, const XML_Char** atts) {
    auto* st = static_cast<BuildState*>(data);
    if (!st->abortReason.empty()) return;
    if (static_cast<int>(st->stack.size()) >= st->maxDepth) {
        st->Abort("elements are nested too deeply");
        return;
    }
    auto n = std::make_shared<node>(name);
    for (int i = 0; atts && atts[i] && atts[i + 1]; i += 2) n->set_attribute(atts[i], atts[i + 1]);
    if (st->stack.empty())
        st->root = n;
    else
        st->stack.back()->append_child(n);
    st->stack.push_back(n);
}

void XMLCALL OnEnd(void* data, const XML_Char*) {
    auto* st = static_cast<BuildState*>(data);
    if (st->stack.empty()) return;
    node_ptr n = st->stack.back();
    st->stack.pop_back();
    n->set_value(Trim(n->value()));
}

void XMLCALL OnText(void* data, const XML_Char* text, int len) {
    auto* st = static_cast<BuildState*>(data);
    if (st->stack.empty() || len <= 0) return;
    st->stack.back()->append_value(text, static_cast<size_t>(len));
}

void XMLCALL OnDecl(void* data, const XML_Char* version, const XML_Char* encoding, int) {
    auto* st = static_cast<BuildState*>(data);
    st->doc->set_version(version ? version : "");
    st->doc->set_encoding(encoding ? encoding : "");
}

// Settings files and packets never need entities of their own; refusing
// their declarations closes the door on expansion bombs.
void XMLCALL OnEntityDecl(void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                          const XML_Char*, const XML_Char*, const XML_Char*) {
    static_cast<BuildState*>(data)->Abort("entity declarations are not supported");
}

struct ParserHolder {
    XML_Parser p;
    ~ParserHolder() {
        if (p) XML_ParserFree(p);
    }
};

}  // namespace

node::node(const std::string& name, bool value) : m_name(name), m_value(value ? "true" : "false"), m_isBool(true) {}

node::node(const std::string& name, int value) : m_name(name), m_value(std::to_string(value)), m_isInt(true) {}

node_ptr node::find_child(const std::string& name) const {
    for (const auto& c : m_children)
        if (c && c->name() == name) return c;
    return nullptr;
}

node_ptr node::append_child(node_ptr child) {
    m_children.push_back(child);
    return child;
}

node_ptr node::add_child(const std::string& name, const std::string& value) {
    return append_child(std::make_shared<node>(name, value));
}

std::string node::attribute(const std::string& name) const {
    auto it = m_attributes.find(name);
    return it == m_attributes.end() ? std::string() : it->second;
}

void node::set_attribute(const std::string& name, int value) { m_attributes[name] = std::to_string(value); }

void node::set_attribute(const std::string& name, double value) { m_attributes[name] = format_number(value); }

void node::set_attribute(const std::string& name, bool value) { m_attributes[name] = value ? "true" : "false"; }

std::string format_number(double value) {
    char buf[64];
    auto res = std::to_chars(buf, buf + sizeof buf, value);
    return std::string(buf, res.ptr);
}

void write_escaped(std::ostream& out, const std::string& text) {
    for (char c : text) {
        if (c == '<')
            out << "&lt;";
        else if (c == '&')
            out << "&amp;";
        else
            out << c;
    }
}

namespace {

void WriteNode(std::ostream& out, const node& n, int depth) {
    const std::string indent(static_cast<size_t>(depth) * 2, ' ');
    for (const auto& pi : n.processing()) out << indent << "<?" << pi << "?>\n";
    out << indent << '<' << n.name();
    for (const auto& [k, v] : n.attributes()) {
        out << ' ' << k << "=\"";
        write_escaped(out, v);
        out << '"';
    }
    if (n.children().empty() && n.value().empty()) {
        out << "/>\n";
        return;
    }
    out << '>';
    write_escaped(out, n.value());
    if (!n.children().empty()) {
        out << '\n';
        for (const auto& c : n.children())
            if (c) WriteNode(out, *c, depth + 1);
        out << indent;
    }
    out << "</" << n.name() << ">\n";
}

}  // namespace

void document::write(std::ostream& out) const {
    if (m_xmpPacket && (m_version.empty() || m_encoding.empty()))
        out << "<?xpacket " << "begin=''" << "?>" << '\n';
    else
        out << "<?xml " << "version = \"" << m_version << "\" encoding = \"" << m_encoding << "\"?>" << '\n';
    if (m_root) WriteNode(out, *m_root, 0);
    if (m_xmpPacket) out << "<?xpacket " << "end='r'" << "?>";
}

std::string document::to_string() const {
    std::ostringstream s;
    write(s);
    return s.str();
}

void document::write_file(const std::string& path) const {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    if (!f) throw std::runtime_error("unable to open '" + path + "' for writing");
    write(f);
    f.flush();
    if (!f) throw std::runtime_error("unable to write '" + path + "'");
}

document parser::parse_file(const std::string& path) const {
    std::ifstream f(path, std::ios::binary);
    if (!f) throw parse_exception("Unable to open file '" + path + "'");
    std::string data;
    char buf[65536];
    while (f) {
        f.read(buf, sizeof buf);
        data.append(buf, static_cast<size_t>(f.gcount()));
        if (data.size() > m_maxInput) throw parse_exception("File '" + path + "' is too large");
    }
    return parse_buffer(data.data(), data.size());
}

document parser::parse_buffer(const char* data, size_t length) const {
    if (length > m_maxInput) throw parse_exception("Document is too large");
    ParserHolder holder{XML_ParserCreate(nullptr)};
    if (!holder.p) throw parse_exception("Couldn't allocate memory for parser.\n");
    document doc;
    doc.set_version("");
    doc.set_encoding("");
    BuildState st;
    st.parser = holder.p;
    st.doc = &doc;
    st.maxDepth = m_maxDepth;
    XML_SetUserData(holder.p, &st);
    XML_SetElementHandler(holder.p, OnStart, OnEnd);
    XML_SetCharacterDataHandler(holder.p, OnText);
    XML_SetXmlDeclHandler(holder.p, OnDecl);
    XML_SetEntityDeclHandler(holder.p, OnEntityDecl);
#if defined(XML_DTD) && (XML_MAJOR_VERSION > 2 || (XML_MAJOR_VERSION == 2 && XML_MINOR_VERSION >= 4))
    XML_SetBillionLaughsAttackProtectionMaximumAmplification(holder.p, 20.0f);
    XML_SetBillionLaughsAttackProtectionActivationThreshold(holder.p, 1u << 20);
#endif
    // Feed in pieces so that a length beyond int's range never reaches expat.
    const size_t kChunk = size_t(1) << 20;
    size_t pos = 0;
    for (;;) {
        size_t n = std::min(kChunk, length - pos);
        bool last = pos + n == length;
        if (XML_Parse(holder.p, data ? data + pos : "", static_cast<int>(n), last ? XML_TRUE : XML_FALSE) ==
            XML_STATUS_ERROR) {
            std::string reason = st.abortReason.empty() ? XML_ErrorString(XML_GetErrorCode(holder.p)) : st.abortReason;
            throw parse_exception("Parse error at line " + std::to_string(XML_GetCurrentLineNumber(holder.p)) +
                                  " --- " + reason);
        }
        pos += n;
        if (last) break;
    }
    doc.set_root(st.root);
    return doc;
}

}  // namespace domLite
