#include "Support/XmlDocument.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstring>
#include <limits>
#include <mutex>

namespace {

// Entities of the text itself are resolved, within the parser's own limits of size, depth and amplification.
constexpr int parserOptions = XML_PARSE_NONET | XML_PARSE_NOENT | XML_PARSE_IGNORE_ENC | XML_PARSE_NOERROR
    | XML_PARSE_NOWARNING | XML_PARSE_COMPACT | XML_PARSE_BIG_LINES;

xmlParserInputPtr refuseExternalEntity(const char *, const char *, xmlParserCtxtPtr) { return nullptr; }

void initialiseParser() {
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        xmlSetExternalEntityLoader(refuseExternalEntity);
    });
}

const xmlNode *asNode(const void *node) { return static_cast<const xmlNode *>(node); }

// The name as it is written: one with a prefix is another name.
bool isElement(const xmlNode *node, const char *name) {
    return node->type == XML_ELEMENT_NODE && (!node->ns || !node->ns->prefix)
        && std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0;
}

template <class Visit>
void visit(const xmlNode *parent, const char *const *name, const char *const *end, const Visit &found) {
    for (const auto *child = parent->children; child; child = child->next) {
        if (!isElement(child, *name))
            continue;
        if (name + 1 == end)
            found(child);
        else
            visit(child, name + 1, end, found);
    }
}

std::optional<QString> directText(const xmlNode *element) {
    QByteArray bytes;
    bool hasText = false;
    for (const auto *child = element->children; child; child = child->next) {
        if (child->type != XML_TEXT_NODE && child->type != XML_CDATA_SECTION_NODE)
            continue;
        hasText = true;
        if (child->content)
            bytes.append(reinterpret_cast<const char *>(child->content));
    }
    return hasText ? std::optional(QString::fromUtf8(bytes)) : std::nullopt;
}

} // namespace

void XmlDocument::Free::operator()(void *document) const { xmlFreeDoc(static_cast<xmlDocPtr>(document)); }

XmlDocument::XmlDocument(XmlDocument &&) noexcept = default;
XmlDocument &XmlDocument::operator=(XmlDocument &&) noexcept = default;
XmlDocument::~XmlDocument() = default;

std::optional<XmlDocument> XmlDocument::parse(const QString &text) {
    initialiseParser();
    const auto bytes = text.toUtf8();
    if (bytes.size() > std::numeric_limits<int>::max())
        return std::nullopt;
    auto *document = xmlReadMemory(
        bytes.constData(), static_cast<int>(bytes.size()), nullptr, "UTF-8", parserOptions);
    if (!document)
        return std::nullopt;
    return XmlDocument(document);
}

XmlDocument::Element XmlDocument::root() const { return Element(document_.get()); }

std::vector<XmlDocument::Element> XmlDocument::Element::all(std::initializer_list<const char *> path) const {
    std::vector<Element> elements;
    visit(asNode(node_), path.begin(), path.end(),
        [&elements](const xmlNode *node) { elements.push_back(Element(node)); });
    return elements;
}

std::optional<QString> XmlDocument::Element::text(std::initializer_list<const char *> path) const {
    const auto elements = all(path);
    return elements.empty() ? std::nullopt : directText(asNode(elements.front().node_));
}
